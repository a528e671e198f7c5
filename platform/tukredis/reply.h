// SPDX-License-Identifier: BSD-3-Clause
// The reply object handed to handlers as tukredis_pmsg.reply.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "api.h"

namespace tukredis {

// Names a key and fetches its value only when a reader first asks, then keeps
// it: most notifications are handled from the key alone, and those must not
// cost a round trip to the server. The key is not copied: it must outlive the
// reply, as the notification it came with does.
class lazy_reply {
  public:
    lazy_reply(int32_t db, std::string_view key) noexcept : db_(db), key_(key) {}

    // A reply whose value was fetched ahead, as the scan does per batch.
    void preset(bool present, std::string_view value) {
        fetched_ = true;
        present_ = present;
        value_.assign(value);
    }

    // Fetches the value unless already fetched. False when it cannot be
    // fetched (connection, wrong type); a later read tries again.
    bool fetch();

    bool present() const noexcept { return present_; }
    // The value's bytes, zero-terminated after size().
    std::string &value() noexcept { return value_; }

  private:
    int32_t db_;
    std::string_view key_;
    bool fetched_ = false;
    bool present_ = false;
    std::string value_;
};

// Whether key can be delivered in a tukredis_pmsg: it must fit with its
// terminator, and a NUL inside would cut it short for the handler.
bool deliverable_key(std::string_view key) noexcept;

// A notification record for a deliverable key.
tukredis_pmsg make_pmsg(int32_t db, std::string_view key, int32_t cmd, lazy_reply &reply) noexcept;

} // namespace tukredis
