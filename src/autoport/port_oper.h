// Port operations: "/bridge/vvlan/port_oper/<ifx>/<mode>". Mode 1 keys put a
// port in automatic mode (set and deleted by the configuration side in
// database 1, echoed into database 0); mode 2 keys say that the daemon has
// joined the port to the voice VLAN (database 0).
#pragma once

#include <cstdint>

#include "tukredis.h"

inline constexpr uint32_t PORT_MODE_AUTO = 1;
inline constexpr uint32_t PORT_MODE_JOINED = 2;
inline constexpr uint32_t VVLAN_PORT_OPER_LEN = 12;

// vvlan_port_oper, big-endian on the wire:
//   0-3 ifx, 4 enable (carried and traced only), 5-7 padding, 8-11 mode
struct vvlan_port_oper {
    uint32_t ifx;
    uint8_t enable;
    uint32_t mode;
};

vvlan_port_oper port_oper_decode(const uint8_t *bytes); // reads 12 bytes

// "/bridge/vvlan/port_oper/*", database 1
int32_t get_port_oper_pmsg_f(tukredis_pmsg *pmsg);
void set_port_oper_redis(const vvlan_port_oper &rec);
void del_port_oper_redis(int32_t ifx, int32_t mode);
