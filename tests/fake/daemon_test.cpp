// SPDX-License-Identifier: BSD-3-Clause
#include "daemon_test.h"

#include <cstdio>

namespace fake {

std::string printable(const std::string &bytes) {
    bool text = true;
    for (unsigned char c : bytes) {
        if (c < 0x20 || c > 0x7e) {
            text = false;
        }
    }
    if (text) {
        return "\"" + bytes + "\"";
    }
    std::string out = "hex[";
    char buf[4];
    for (unsigned char c : bytes) {
        std::snprintf(buf, sizeof buf, "%02x", c);
        out += buf;
    }
    return out + "]";
}

void PrintTo(const db_write &w, std::ostream *os) {
    *os << "db" << w.db << ":";
    for (const std::string &a : w.argv) {
        *os << " " << printable(a);
    }
}

void PrintTo(const expected_line &l, std::ostream *os) {
    *os << "<" << l.func << ">(" << l.level << ")" << printable(l.text);
}

} // namespace fake
