// SPDX-License-Identifier: BSD-3-Clause
// The voice VLAN's actors as the tests play them: the management plane
// writes configuration in database 1, the forwarding layer learns and ages
// addresses in database 0, another component sends specified-OUI messages.
#pragma once

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

#include "daemon_fixture.h"
#include "records.h"
#include "wire/keys.h"

namespace integration {

using testcommon::mac6;

inline const mac6 OUI_A{0x00, 0xe0, 0xbb, 0x00, 0x00, 0x00};
inline const mac6 MASK_24{0xff, 0xff, 0xff, 0x00, 0x00, 0x00};

inline std::string hex12(const mac6 &m) {
    return mac_hex12(m).data();
}

class VoiceVlanTest : public DaemonTest {
  protected:
    // Management plane (database 1).
    void set_vid(int vid) { cfg_set(vid_key(static_cast<uint16_t>(vid)).c_str(), ""); }
    void del_vid(int vid) { cfg_del(vid_key(static_cast<uint16_t>(vid)).c_str()); }
    void set_aging_minutes(uint16_t minutes) {
        cfg_set(std::string(prefix_of(key_family::age_timer)) + "1",
                testcommon::as_string(aging_time_codec::encode(minutes)));
    }
    std::string oui_key(const mac6 &mac, const mac6 &mask) {
        return oui_oper_key(mac, mask).c_str();
    }
    void add_oui(const mac6 &mac, const mac6 &mask = MASK_24) {
        cfg_set(oui_key(mac, mask), testcommon::oui_value(mac, mask));
    }
    void del_oui(const mac6 &mac, const mac6 &mask = MASK_24) { cfg_del(oui_key(mac, mask)); }
    std::string echo_key(const mac6 &mac, const mac6 &mask, int slot) {
        return oui_echo_key(mac, mask, static_cast<uint16_t>(slot)).c_str();
    }
    void auto_port(uint32_t ifx) {
        cfg_set(port_key(ifx, 1), testcommon::port_oper_value(ifx, 1, 1));
    }
    void leave_auto(uint32_t ifx) { cfg_del(port_key(ifx, 1)); }
    static std::string port_key(uint32_t ifx, int mode) {
        return port_oper_key(static_cast<int32_t>(ifx), mode).c_str();
    }
    static std::string join_key(uint32_t ifx) {
        return join_request_key(static_cast<int32_t>(ifx)).c_str();
    }

    // Forwarding layer (database 0): a learned address is a write of its
    // key, an aged one its removal.
    // The address as text, so that tests can write malformed ones too.
    static std::string learning_key(int vlan, int phyid, const std::string &mac) {
        return prefix_of(key_family::mac_learning) + std::to_string(vlan) + "/" +
               std::to_string(phyid) + "/" + mac;
    }
    void learn(int vlan, int phyid, const std::string &mac) {
        fwd_set(learning_key(vlan, phyid, mac), "");
    }
    void age(int vlan, int phyid, const std::string &mac) {
        fwd_del(learning_key(vlan, phyid, mac));
    }

    // Another component's specified-OUI message (database 0).
    static std::string spec_key(const mac6 &oui, int phyid) {
        return spec_oui_msg_key(oui, phyid).c_str();
    }

    // The MAC-VLAN table (database 0).
    static std::string mvlan_key(int number) { return mac_vlan_key(number).c_str(); }
    void set_mvlan(int number, const mac6 &mac, const mac6 &mask, uint16_t vid) {
        fwd_set(mvlan_key(number), testcommon::mac_vlan_bytes(mac, mask, vid));
    }
    static std::string oui_msg_key(int slot) {
        return mvlan_oui_msg_key(static_cast<uint16_t>(slot)).c_str();
    }

    // Waits until a key has the value (or, with nullopt, is gone).
    bool wait_db(int db, const std::string &key, const std::optional<std::string> &value,
                 std::chrono::milliseconds deadline) {
        return testsupport::eventually([&] { return redis().get(db, key) == value; }, deadline);
    }
};

} // namespace integration
