// SPDX-License-Identifier: BSD-3-Clause
#include "json_writer.h"

#include <cstdio>

std::string json_quote(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        const auto u = static_cast<unsigned char>(c);
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (u < 0x20 || u >= 0x7f) {
                // Keys and values may hold any byte; JSON text stays ASCII.
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", u);
                out += buf;
            } else {
                out += c;
            }
        }
    }
    out += '"';
    return out;
}

void json_writer::newline() {
    out_ += '\n';
    out_.append(2 * levels_.size(), ' ');
}

void json_writer::before_value() {
    if (after_key_) {
        after_key_ = false;
        return;
    }
    if (!levels_.empty()) {
        if (levels_.back().members++ > 0) {
            out_ += ',';
        }
        newline();
    }
}

json_writer &json_writer::key(std::string_view name) {
    if (levels_.back().members++ > 0) {
        out_ += ',';
    }
    newline();
    out_ += json_quote(name);
    out_ += ": ";
    after_key_ = true;
    return *this;
}

void json_writer::begin_object() {
    before_value();
    out_ += '{';
    levels_.push_back({true, 0});
}

void json_writer::begin_array() {
    before_value();
    out_ += '[';
    levels_.push_back({false, 0});
}

void json_writer::close(char bracket) {
    const bool empty = levels_.back().members == 0;
    levels_.pop_back();
    if (!empty) {
        newline();
    }
    out_ += bracket;
    if (levels_.empty()) {
        out_ += '\n';
    }
}

void json_writer::end_object() {
    close('}');
}

void json_writer::end_array() {
    close(']');
}

void json_writer::string(std::string_view text) {
    before_value();
    out_ += json_quote(text);
}

void json_writer::number(int64_t value) {
    before_value();
    out_ += std::to_string(value);
}

void json_writer::boolean(bool value) {
    before_value();
    out_ += value ? "true" : "false";
}

void json_writer::null() {
    before_value();
    out_ += "null";
}
