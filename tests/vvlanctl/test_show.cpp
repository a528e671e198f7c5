// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl show: the state after a scripted story, exactly.
#include <fstream>

#include "ctl_fixture.h"

namespace ctltest {
namespace {

class ShowTest : public CtlTest {
  protected:
    // Voice VLAN 100 with two OUIs; port 5 joined by two phones, port 7 by a
    // specified-OUI message, port 9 automatic with only other addresses;
    // two MAC-VLAN entries, one carrying a voice OUI.
    void story() {
        ok({"set", "aging", "30"});
        ok({"set", "vid", "100"});
        ok({"set", "cos", "5", "46"});
        ok({"set", "security", "on"});
        ok({"add", "oui", "00e0bb000000"});
        ok({"add", "oui", "00:04:f2:00:00:00", "ff:ff:ff:00:00:00"});
        ok({"set", "auto", "5"});
        ok({"set", "auto", "7"});
        ok({"set", "auto", "9"});
        ok({"learn", "100", "6", "00e0bb123456"});
        ok({"learn", "100", "6", "00-e0-bb-65-43-21"});
        ok({"learn", "200", "10", "00e0bb111111"});
        ok({"learn", "100", "10", "001122334455"});
        ok({"specify", "0004f2000000", "8"});
        ok({"add", "mvlan", "0", "00e0bb010203", "ffffff000000", "100"});
        ok({"add", "mvlan", "5", "001122334455", "ffffffffffff", "100"});
        sync();
    }
    // A registry of one vendor, so that names do not depend on the
    // ieee-data the machine has.
    std::map<std::string, std::string> vendors() {
        std::ofstream(server().dir() + "/oui.csv")
            << "Registry,Assignment,Organization Name,Organization Address\n"
            << "MA-L,00E0BB,\"Test Phones, \"\"Inc.\"\"\",Somewhere\n";
        return {{"VVLANCTL_IEEE_DATA", server().dir()}};
    }
    // The document with the daemon's start time, which no test can know.
    static std::string without_since(std::string json) {
        const std::string since = "\"since\": \"";
        const std::size_t at = json.find(since);
        if (at != std::string::npos) {
            json.replace(at + since.size(), json.find('"', at + since.size()) - at - since.size(),
                         "SINCE");
        }
        return json;
    }
};

const char *const EXPECTED_JSON = R"({
  "schema_version": 1,
  "daemon": {
    "state": "subscribed",
    "subscribed": true,
    "since": "SINCE",
    "client_name": "tukredis"
  },
  "voice_vlan": {
    "vid": {
      "configured": 100,
      "applied": 100
    },
    "configured_vids": [
      100
    ],
    "applied_vids": [
      100
    ],
    "enabled": {
      "configured": true,
      "applied": true
    },
    "security": {
      "configured": true,
      "applied": true
    },
    "cos": {
      "configured": 5,
      "applied": 5
    },
    "dscp": {
      "configured": 46,
      "applied": 46
    },
    "aging_minutes": {
      "configured": 30,
      "applied": null,
      "default": 1440
    },
    "load_marker": {
      "configured": "1002",
      "applied": "1002"
    },
    "debug_level": {
      "configured": null,
      "applied": null
    }
  },
  "oui_table": {
    "used": 2,
    "slots": 124,
    "entries": [
      {
        "slot": 0,
        "oui": "00:e0:bb:00:00:00",
        "mask": "ff:ff:ff:00:00:00",
        "vendor": "Test Phones, \"Inc.\""
      },
      {
        "slot": 1,
        "oui": "00:04:f2:00:00:00",
        "mask": "ff:ff:ff:00:00:00",
        "vendor": null
      }
    ]
  },
  "ports": [
    {
      "ifx": 5,
      "phyid": 6,
      "auto": true,
      "joined": true,
      "join_request": true,
      "voice_addresses": [
        {
          "mac": "00:e0:bb:12:34:56",
          "phyid": 6,
          "oui_slot": 0
        },
        {
          "mac": "00:e0:bb:65:43:21",
          "phyid": 6,
          "oui_slot": 0
        }
      ],
      "specified_ouis": []
    },
    {
      "ifx": 7,
      "phyid": 8,
      "auto": true,
      "joined": false,
      "join_request": true,
      "voice_addresses": [],
      "specified_ouis": [
        "00:04:f2:00:00:00"
      ]
    },
    {
      "ifx": 9,
      "phyid": 10,
      "auto": true,
      "joined": false,
      "join_request": false,
      "voice_addresses": [],
      "specified_ouis": []
    }
  ],
  "mac_vlan": [
    {
      "index": 0,
      "readable": true,
      "mac": "00:e0:bb:01:02:03",
      "mask": "ff:ff:ff:00:00:00",
      "vlan": 100,
      "oui_slot": 0,
      "oui_message": true
    },
    {
      "index": 5,
      "readable": true,
      "mac": "00:11:22:33:44:55",
      "mask": "ff:ff:ff:ff:ff:ff",
      "vlan": 100,
      "oui_slot": null,
      "oui_message": false
    }
  ]
}
)";

TEST_F(ShowTest, JsonAfterTheStoryIsExactlyTheExpectedObject) {
    start_daemon(false);
    story();
    const tool_result r = ok({"show", "--json"}, vendors());
    EXPECT_EQ(without_since(r.out), EXPECTED_JSON);
    EXPECT_EQ(r.err, "");
}

TEST_F(ShowTest, EmptyDatabasesShowTheDaemonsDefaults) {
    start_daemon(false);
    const tool_result r = ok({"show", "--json"});
    EXPECT_EQ(without_since(r.out), R"({
  "schema_version": 1,
  "daemon": {
    "state": "subscribed",
    "subscribed": true,
    "since": "SINCE",
    "client_name": "tukredis"
  },
  "voice_vlan": {
    "vid": {
      "configured": null,
      "applied": null
    },
    "configured_vids": [],
    "applied_vids": [],
    "enabled": {
      "configured": false,
      "applied": false
    },
    "security": {
      "configured": false,
      "applied": false
    },
    "cos": {
      "configured": null,
      "applied": null
    },
    "dscp": {
      "configured": null,
      "applied": null
    },
    "aging_minutes": {
      "configured": null,
      "applied": null,
      "default": 1440
    },
    "load_marker": {
      "configured": "1001",
      "applied": "1001"
    },
    "debug_level": {
      "configured": null,
      "applied": null
    }
  },
  "oui_table": {
    "used": 0,
    "slots": 124,
    "entries": []
  },
  "ports": [],
  "mac_vlan": []
}
)");
}

TEST_F(ShowTest, TextShowsEveryTableAligned) {
    start_daemon(false);
    story();
    const tool_result r = ok({"show"});
    for (const char *line : {
             "  id           100         100",
             "  security     on          on",
             "  cos/dscp     5/46        5/46",
             "voice OUIs (2 of 124 slots)",
             "  1     0004f2000000  ffffff000000",
             "  5    6      yes   yes     yes      00:e0:bb:12:34:56 (6, 0)       -\n"
             "                                     00:e0:bb:65:43:21 (6, 0)\n",
             "  7    8      yes   no      yes      -",
             "  0      00:e0:bb:01:02:03  ff:ff:ff:00:00:00  100   0         yes",
         }) {
        EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;
    }
}

// One part at a time: a port, the OUI table with its vendors, the MAC-VLAN
// entries; the same members as the whole document.
TEST_F(ShowTest, ViewsShowOnePart) {
    start_daemon(false);
    story();
    const tool_result port = ok({"show", "port", "5"});
    EXPECT_EQ(port.out.rfind("daemon: subscribed", 0), 0u) << port.out;
    EXPECT_NE(port.out.find("  5    6      yes   yes     yes      00:e0:bb:12:34:56 (6, 0)"),
              std::string::npos)
        << port.out;
    EXPECT_EQ(port.out.find("  7 "), std::string::npos) << port.out;
    const tool_result quiet = ok({"show", "port", "30", "-j"});
    EXPECT_NE(quiet.out.find(R"("ports": [
    {
      "ifx": 30,
      "phyid": 31,
      "auto": false,)"),
              std::string::npos)
        << quiet.out;
    EXPECT_EQ(quiet.out.find("voice_vlan"), std::string::npos) << quiet.out;

    const tool_result ouis = ok({"show", "ouis"}, vendors());
    EXPECT_NE(ouis.out.find("  0     00e0bb000000  ffffff000000  Test Phones, \"Inc.\"\n"),
              std::string::npos)
        << ouis.out;
    EXPECT_NE(ouis.out.find("  1     0004f2000000  ffffff000000  -\n"), std::string::npos)
        << ouis.out;
    const tool_result none =
        ok({"show", "ouis", "--json"}, {{"VVLANCTL_IEEE_DATA", server().dir() + "/nowhere"}});
    EXPECT_EQ(none.out.find("Test Phones"), std::string::npos) << none.out;
    EXPECT_NE(none.out.find(R"("vendor": null)"), std::string::npos) << none.out;

    const tool_result mvlan = ok({"show", "mac-vlan"});
    EXPECT_EQ(mvlan.out.rfind("MAC-VLAN entries\n", 0), 0u) << mvlan.out;
    EXPECT_NE(mvlan.out.find("  5      00:11:22:33:44:55  ff:ff:ff:ff:ff:ff  100   -         no"),
              std::string::npos)
        << mvlan.out;
    const tool_result bad = ctl({"show", "port", "53"});
    EXPECT_EQ(bad.status, 3) << bad.err;
}

// Ports are converted by the device manager, which honours LIBSDM_PORT_MAP
// for the tool exactly as for the daemon.
TEST_F(ShowTest, PortMapIsHonouredAsByTheDaemon) {
    const std::string map = server().dir() + "/ports.map";
    std::ofstream(map) << "# phyid ifx\n40 5\n41 9\n";
    start_daemon(false, {{"LIBSDM_PORT_MAP", map}});
    const std::map<std::string, std::string> env{{"LIBSDM_PORT_MAP", map}};
    ok({"set", "vid", "100"}, env);
    ok({"add", "oui", "00e0bb000000"}, env);
    ok({"set", "auto", "5"}, env);
    ok({"learn", "100", "40", "00e0bb123456"}, env);
    sync();
    ASSERT_TRUE(db1(join_key(5)).has_value());
    const tool_result r = ok({"show", "--json"}, env);
    EXPECT_NE(r.out.find(R"("phyid": 40,)"), std::string::npos) << r.out;
    const tool_result text = ok({"show"}, env);
    EXPECT_NE(text.out.find("  5    40     yes   yes     yes"), std::string::npos) << text.out;
    // phyid 6 is no port under this map.
    const tool_result bad = ctl({"learn", "100", "6", "00e0bb123456"}, env);
    EXPECT_EQ(bad.status, 3) << bad.err;
}

// Values come from whoever can write to the server: printed as text, none
// of their bytes reaches the terminal as a control sequence.
TEST_F(ShowTest, TextEscapesWhatTheServerHolds) {
    redis().set(0, "debugDovVVlan", HOSTILE);
    redis().set(1, "/bridge/vvlan/data/end", HOSTILE);
    const tool_result r = ok({"show"});
    EXPECT_FALSE(has_control_bytes(r.out)) << r.out;
    EXPECT_NE(r.out.find("load marker  " + HOSTILE_ESCAPED), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(HOSTILE_ESCAPED + "\n"), std::string::npos) << r.out;
}

} // namespace
} // namespace ctltest
