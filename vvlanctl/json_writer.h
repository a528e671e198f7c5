// SPDX-License-Identifier: BSD-3-Clause
// A small JSON writer for vvlanctl's --json output: objects, arrays,
// strings, integers, booleans and null, pretty-printed with two-space
// indentation in the order the caller writes them, so the output of the same
// state is the same text every time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The version of every JSON document vvlanctl prints: raised only when a
// member changes meaning or goes; new members keep it.
inline constexpr int JSON_SCHEMA_VERSION = 1;

class json_writer {
  public:
    void begin_object();
    void end_object();
    void begin_array();
    void end_array();

    // The name of the next member of the enclosing object.
    json_writer &key(std::string_view name);

    void string(std::string_view text);
    void number(int64_t value);
    void boolean(bool value);
    void null();

    // The document so far, ending in a newline once the outermost value is
    // closed.
    const std::string &text() const { return out_; }

  private:
    struct level {
        bool object;
        int members;
    };
    void before_value();
    void close(char bracket);
    void newline();

    std::string out_;
    std::vector<level> levels_;
    bool after_key_ = false;
};

// The text as a JSON string literal, quotes included.
std::string json_quote(std::string_view text);
