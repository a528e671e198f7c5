// SPDX-License-Identifier: BSD-3-Clause
// A reader for the one JSON shape `vvlanctl check --json` prints: an object
// whose member "findings" is a list of flat objects. Strings, numbers, booleans and null are
// accepted as member values; only "kind" and "ifx" are kept.
#include <cctype>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "vvlanctl_check.h"

namespace faults {
namespace {

class reader {
  public:
    explicit reader(std::string_view text) : text_(text) {}

    // {"schema_version": 1, ..., "findings": [...]}: the other members are
    // skipped, whatever their shape.
    findings document() {
        findings out;
        bool seen = false;
        expect('{');
        for (;;) {
            const std::string name = string();
            expect(':');
            if (name == "findings") {
                out = list();
                seen = true;
            } else {
                skip_value();
            }
            if (peek() == ',') {
                ++pos_;
                continue;
            }
            expect('}');
            break;
        }
        if (!seen) {
            fail("a member \"findings\"");
        }
        if (peek() != '\0') {
            fail("text after the object");
        }
        return out;
    }

  private:
    void skip_value() {
        const char c = peek();
        if (c == '"') {
            string();
        } else if (c == '{' || c == '[') {
            const char close = c == '{' ? '}' : ']';
            ++pos_;
            if (peek() == close) {
                ++pos_;
                return;
            }
            for (;;) {
                if (close == '}') {
                    string();
                    expect(':');
                }
                skip_value();
                if (peek() == ',') {
                    ++pos_;
                    continue;
                }
                expect(close);
                return;
            }
        } else {
            bare();
        }
    }

    findings list() {
        findings out;
        expect('[');
        if (peek() == ']') {
            ++pos_;
            return out;
        }
        for (;;) {
            out.insert(object());
            if (peek() == ',') {
                ++pos_;
                continue;
            }
            expect(']');
            return out;
        }
    }

    finding object() {
        finding f{"", -1};
        expect('{');
        if (peek() == '}') {
            ++pos_;
            return f;
        }
        for (;;) {
            const std::string name = string();
            expect(':');
            if (peek() == '"') {
                const std::string value = string();
                if (name == "kind") {
                    f.kind = value;
                }
            } else {
                const std::string_view word = bare();
                if (name == "ifx" && word != "null") {
                    f.ifx = std::atoi(std::string(word).c_str());
                }
            }
            if (peek() == ',') {
                ++pos_;
                continue;
            }
            expect('}');
            return f;
        }
    }

    std::string string() {
        expect('"');
        std::string out;
        while (pos_ < text_.size() && text_[pos_] != '"') {
            char c = text_[pos_++];
            if (c == '\\' && pos_ < text_.size()) {
                c = text_[pos_++];
                if (c == 'u') {
                    pos_ += 4; // kept as '?': only kinds and numbers matter here
                    c = '?';
                } else if (c == 'n') {
                    c = '\n';
                } else if (c == 't') {
                    c = '\t';
                }
            }
            out.push_back(c);
        }
        expect('"');
        return out;
    }

    std::string_view bare() {
        skip_space();
        const std::size_t start = pos_;
        while (pos_ < text_.size() && (std::isalnum(static_cast<unsigned char>(text_[pos_])) ||
                                       text_[pos_] == '-' || text_[pos_] == '.')) {
            ++pos_;
        }
        if (pos_ == start) {
            fail("a value");
        }
        return text_.substr(start, pos_ - start);
    }

    void skip_space() {
        while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_]))) {
            ++pos_;
        }
    }
    char peek() {
        skip_space();
        return pos_ < text_.size() ? text_[pos_] : '\0';
    }
    void expect(char c) {
        if (peek() != c) {
            fail(std::string("'") + c + "'");
        }
        ++pos_;
    }
    [[noreturn]] void fail(const std::string &what) {
        throw std::runtime_error("vvlanctl check --json: expected " + what + " at offset " +
                                 std::to_string(pos_) + " of: " + std::string(text_));
    }

    std::string_view text_;
    std::size_t pos_ = 0;
};

} // namespace

int check_status_of(const findings &found) {
    int status = 0;
    for (const finding &f : found) {
        if (f.kind == "join_key_missing" || f.kind == "voice_address_not_joined" ||
            f.kind == "daemon_not_subscribed" || f.kind == "daemon_not_answering") {
            status = 2;
        } else if (f.kind != "joined_without_voice_address" && status < 2) {
            status = 1;
        }
    }
    return status;
}

findings parse_check_json(const std::string &text) {
    return reader(text).document();
}

} // namespace faults
