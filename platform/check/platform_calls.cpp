// SPDX-License-Identifier: BSD-3-Clause
// Every platform call the daemon makes, with the exact type the daemon calls
// it with. The platform libraries have C linkage, so a vendor header whose
// prototype differs (a signed ifx, a missing argument) would otherwise link
// and fail at run time. Compiled against whichever headers the build uses
// (the project's or the SDK's); a difference fails the build with the name
// of the function.
//
// The expected types are spelled out here on purpose, independently of the
// headers: this file is the daemon's side of the contract.
#include <cstdint>
#include <type_traits>

#include "ham_agent.h"
#include "libsdm.h"
#include "tukredis.h"

namespace {

// The records and callback types the daemon hands to or receives from the
// bus library.
using handler_t = int32_t (*)(tukredis_pmsg *);
using resync_t = int32_t (*)(unsigned int);

template <typename Declared, typename Expected>
constexpr bool same = std::is_same_v<Declared, Expected>;

} // namespace

#define DOV_VVLAN_EXPECT_CALL(name, ...)                                                           \
    static_assert(same<decltype(name), __VA_ARGS__>,                                               \
                  #name ": the platform header declares another prototype than the daemon calls")

#define DOV_VVLAN_EXPECT_TYPE(name, ...)                                                           \
    static_assert(same<name, __VA_ARGS__>,                                                         \
                  #name ": the platform header declares another type than the daemon uses")

// Bus library
DOV_VVLAN_EXPECT_TYPE(tukredis_handler, handler_t);
DOV_VVLAN_EXPECT_TYPE(tukredis_resync_cb, resync_t);
DOV_VVLAN_EXPECT_CALL(tukredis_init, int32_t(const tukredis_sub_row *, int32_t, resync_t, int32_t));
DOV_VVLAN_EXPECT_CALL(tukredis_db_connect, int32_t(void));
DOV_VVLAN_EXPECT_CALL(tukredis_db_psubscrible, int32_t(void));
DOV_VVLAN_EXPECT_CALL(tukredis_pubsub, int32_t(void));
DOV_VVLAN_EXPECT_CALL(tukredis_db_command,
                      int32_t(int32_t, int32_t, int32_t, int32_t, const char *, ...));
DOV_VVLAN_EXPECT_CALL(tukredis_db_out_log, int32_t(const char *, int32_t, int32_t, int32_t));
DOV_VVLAN_EXPECT_CALL(tukredis_db_out_log_stat, int32_t(int32_t));
DOV_VVLAN_EXPECT_CALL(tukredis_get_key_reply_intval, int32_t(void *, int32_t *, int32_t));
DOV_VVLAN_EXPECT_CALL(tukredis_get_key_reply_strval, int32_t(void *, char **, uint32_t *));
DOV_VVLAN_EXPECT_CALL(tukredis_scan_key_pattern,
                      int32_t(int32_t, const char *, int32_t, handler_t, int32_t, int32_t));
DOV_VVLAN_EXPECT_CALL(tukredis_pexpire_key_pattern,
                      int32_t(int32_t, const char *, int32_t, int32_t));
DOV_VVLAN_EXPECT_CALL(tukredis_del_expire_key_pattern, int32_t(int32_t, const char *, int32_t));

// The record fields the daemon reads and writes by name.
DOV_VVLAN_EXPECT_TYPE(decltype(tukredis_pmsg::db), int32_t);
DOV_VVLAN_EXPECT_TYPE(decltype(tukredis_pmsg::key), char[128]);
DOV_VVLAN_EXPECT_TYPE(decltype(tukredis_pmsg::cmd), int32_t);
DOV_VVLAN_EXPECT_TYPE(decltype(tukredis_pmsg::reply), void *);
DOV_VVLAN_EXPECT_TYPE(decltype(tukredis_sub_row::db), uint32_t);
DOV_VVLAN_EXPECT_TYPE(decltype(tukredis_sub_row::pattern), char[128]);
DOV_VVLAN_EXPECT_TYPE(decltype(tukredis_sub_row::handler), handler_t);
DOV_VVLAN_EXPECT_TYPE(decltype(tukredis_sub_row::reserved), uint32_t);

// Device manager
DOV_VVLAN_EXPECT_CALL(libsdm_init, int(const char *, int));
DOV_VVLAN_EXPECT_CALL(libsdm_get_ifx_by_phyid, int(uint32_t, uint32_t *, int));
DOV_VVLAN_EXPECT_CALL(libsdm_get_phyid_by_ifx, int(uint32_t, uint32_t *, int));

// Health agent
DOV_VVLAN_EXPECT_CALL(ham_agent_init, int(void));
DOV_VVLAN_EXPECT_CALL(reg_process_exit_action, int(int, int));
