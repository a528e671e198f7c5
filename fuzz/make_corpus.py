#!/usr/bin/env python3
"""Writes the seed corpus of the handler fuzzer: well-formed notifications of
every row, so that fuzzing starts from inputs that reach deep into each
handler. Input layout: row, code, key length, key, value (0xFF: no value)."""
import os
import struct
import sys

ROWS = {"vid": 0, "secu": 1, "cos": 2, "age": 3, "port": 4, "oui": 5,
        "mac": 6, "spec": 7, "mvlan": 8, "end": 9, "dbg": 10}
CODE = {0: 0, 1: 1, 2: 2, 9: 3, 10: 4}  # code -> byte selecting it


def record(row, code, key, value=b""):
    key = key.encode()
    return bytes([ROWS[row], CODE[code], len(key)]) + key + value


OUI = bytes.fromhex("00e0bb000000") + bytes.fromhex("ffffff000000") + b"\x01" + bytes(31)
seeds = {
    "vid_set": record("vid", 0, "/bridge/vvlan/vid/100"),
    "vid_del": record("vid", 1, "/bridge/vvlan/vid/100"),
    "secu_set": record("secu", 0, "/bridge/vvlan/secu_mode/1"),
    "cos_set": record("cos", 0, "/bridge/vvlan/cos_dscp/1", b"\x05\x2e"),
    "age_set": record("age", 0, "/bridge/vvlan/age_timer/1", b"\x00\x01"),
    "port_set": record("port", 0, "/bridge/vvlan/port_oper/5/1",
                       struct.pack(">IB3xI", 5, 1, 1)),
    "port_del": record("port", 1, "/bridge/vvlan/port_oper/5/1"),
    "oui_set": record("oui", 0, "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000", OUI),
    "oui_del": record("oui", 1, "/bridge/vvlan/oui_oper/00e0bb123456/ffffff000000"),
    "mac_na": record("mac", 2, "/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456"),
    "mac_aa": record("mac", 1, "/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456"),
    "mac_bad_ifx": record("mac", 2, "/bri/mac/macTblDyn_vvlan/100/61/00e0bb123456"),
    "spec_set": record("spec", 0, "/bridge/vvlan/spec_oui_msg/00e0bb000000/3"),
    "spec_del": record("spec", 1, "/bridge/vvlan/spec_oui_msg/00e0bb000000/3"),
    "mvlan_set": record("mvlan", 0, "/bridge/mac_vlan/table/256",
                        struct.pack(">iii", 4, 1, 2) + bytes.fromhex("00e0bb123456") +
                        bytes.fromhex("ffffff000000") + struct.pack(">HBBB", 100, 6, 7, 8)),
    "mvlan_del": record("mvlan", 1, "/bridge/mac_vlan/table/256"),
    "end_set": record("end", 0, "/bridge/vvlan/data/end", b"17"),
    "dbg_set": record("dbg", 0, "debugDovVVlan", b"32"),
    "short_values": record("port", 0, "/bridge/vvlan/port_oper/5/1", b"\x00\x00"),
    "no_value": record("oui", 0, "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000", b"\xff"),
}
out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "corpus")
os.makedirs(out, exist_ok=True)
for name, data in seeds.items():
    with open(os.path.join(out, name), "wb") as f:
        f.write(data)
print(f"{len(seeds)} seeds in {out}")
