// SPDX-License-Identifier: BSD-3-Clause
#include "printable.h"

std::string printable(std::string_view s) {
    static constexpr char HEX[] = "0123456789abcdef";
    std::string out;
    out.reserve(s.size());
    for (const char c : s) {
        const auto b = static_cast<unsigned char>(c);
        if (b == '\\') {
            out += "\\\\";
        } else if (b >= 0x20 && b < 0x7f) {
            out += c;
        } else {
            out += "\\x";
            out += HEX[b >> 4];
            out += HEX[b & 0xf];
        }
    }
    return out;
}
