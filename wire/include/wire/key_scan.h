// SPDX-License-Identifier: BSD-3-Clause
// Parsing of key names.
//
// Keys are parsed with sscanf-style path patterns ("/%*[^/]/%[^/]", "%hu",
// "%d", "%s"). key_scan reproduces those conversions over a string_view, so
// nothing is copied into unbounded buffers, and its numbers behave as the
// switch's 32-bit C library converts them (strtol/strtoul on a 32-bit long),
// so a PC build decides exactly as the target does for any input.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

class key_scan {
  public:
    explicit key_scan(std::string_view text) : text_(text) {}

    // Exact characters. Inline, with component: every notification's key
    // goes through them several times.
    bool literal(std::string_view lit) {
        if (rest().substr(0, lit.size()) != lit) {
            return false;
        }
        pos_ += lit.size();
        return true;
    }
    // "%[^/]": one or more non-'/'.
    bool component(std::string_view *out) {
        // A plain loop: components are a few characters long, shorter than
        // what a call to memchr pays for itself.
        const std::string_view r = rest();
        std::size_t n = 0;
        while (n < r.size() && r[n] != '/') {
            ++n;
        }
        if (n == 0) {
            return false;
        }
        *out = r.substr(0, n);
        pos_ += n;
        return true;
    }
    bool skip_component();            // "%*[^/]"
    bool word(std::string_view *out); // "%s": skips white space, then non-space
    bool int32(int32_t *out);         // "%d" on a 32-bit long
    bool uint16(uint16_t *out);       // "%hu" through a 32-bit unsigned long

    std::string_view rest() const { return text_.substr(pos_); }

  private:
    std::string_view text_;
    std::size_t pos_ = 0;
};

// Component n (1-based) of "/a/b/c...": the pattern with n-1 "%*[^/]" then
// "%[^/]". Empty view when the key does not have it.
std::string_view key_component(std::string_view key, int n);

// "%s" after n-1 skipped components: the rest of the key from component n
// up to the first white space ("00e0bb000000/ffffff000000" for component 4
// of an OUI key). Empty view when the key does not have it.
std::string_view key_rest(std::string_view key, int n);

// The daemon reads key components into 64-byte buffers: at most 63
// characters of a component count, and a trace shows no more.
inline constexpr std::size_t KEY_COMPONENT_MAX = 63;
std::string_view key_component_bounded(std::string_view key, int n);
std::string_view key_rest_bounded(std::string_view key, int n);

// Reads a key's components one after another, each as key_component_bounded
// gives it (an empty view from the first missing one on), without going back
// to the start of the key for the next: for a handler that reads several
// components of every notification, and may stop after the first.
class key_walk {
  public:
    explicit key_walk(std::string_view key) : scan_(key) {}
    // The next component.
    std::string_view next() {
        std::string_view part;
        ok_ = ok_ && scan_.literal("/") && scan_.component(&part);
        return ok_ ? part.substr(0, std::min(part.size(), KEY_COMPONENT_MAX)) : std::string_view();
    }
    // What "%s" reads after the components taken so far, as key_rest_bounded
    // gives it.
    std::string_view rest();

  private:
    key_scan scan_;
    bool ok_ = true;
};

// atoi() on a 32-bit target: leading white space, sign, digits, saturated
// to the int32 range; 0 when there are no digits.
int32_t atoi32(std::string_view text);

// The value of each character as a hexadecimal digit, -1 when it is none.
inline constexpr std::array<int8_t, 256> HEX_DIGIT_VALUE = [] {
    std::array<int8_t, 256> t{};
    for (int c = 0; c < 256; ++c) {
        t[static_cast<std::size_t>(c)] = c >= '0' && c <= '9'   ? static_cast<int8_t>(c - '0')
                                         : c >= 'a' && c <= 'f' ? static_cast<int8_t>(c - 'a' + 10)
                                         : c >= 'A' && c <= 'F' ? static_cast<int8_t>(c - 'A' + 10)
                                                                : int8_t{-1};
    }
    return t;
}();

// One byte from two hexadecimal digits; false (and *out untouched) unless
// both are hexadecimal. Six of these per learned address.
inline bool hex_byte(char hi, char lo, uint8_t *out) {
    const int h = HEX_DIGIT_VALUE[static_cast<unsigned char>(hi)];
    const int l = HEX_DIGIT_VALUE[static_cast<unsigned char>(lo)];
    if (h < 0 || l < 0) {
        return false;
    }
    *out = static_cast<uint8_t>((h << 4) | l);
    return true;
}

// Six bytes from the first 12 characters, two digits per byte, first byte
// first. A pair that is missing or not hexadecimal gives 0. Returns true
// when all six pairs were converted.
bool mac_from_hex(std::string_view text, std::array<uint8_t, 6> *mac);
