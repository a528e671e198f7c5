// SPDX-License-Identifier: BSD-3-Clause
#include "prescribed.h"

#include <cstdio>
#include <sstream>

#include "world.h"

namespace faults {
namespace {

std::string printable(const std::optional<std::string> &value) {
    if (!value) {
        return "(none)";
    }
    std::string out = "\"";
    for (unsigned char c : *value) {
        if (c >= 0x20 && c < 0x7f && c != '"' && c != '\\') {
            out.push_back(static_cast<char>(c));
        } else {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\x%02x", c);
            out += buf;
        }
        if (out.size() > 80) {
            out += "...";
            break;
        }
    }
    return out + "\"";
}

} // namespace

state_difference compare_states(const db_state &faulted, const db_state &fresh) {
    state_difference out;
    for (const auto &[key, value] : faulted) {
        const auto other = fresh.find(key);
        if (other == fresh.end()) {
            out[key] = {value, std::nullopt};
        } else if (other->second != value) {
            out[key] = {value, other->second};
        }
    }
    for (const auto &[key, value] : fresh) {
        if (!faulted.contains(key)) {
            out[key] = {std::nullopt, value};
        }
    }
    return out;
}

std::string describe(const db_key &key) {
    return "db" + std::to_string(key.db) + " " + key.key;
}

std::string describe(const state_difference &diff) {
    std::ostringstream out;
    for (const auto &[key, values] : diff) {
        out << "  " << describe(key) << ": after the fault " << printable(values.faulted)
            << ", fresh daemon " << printable(values.fresh) << "\n";
    }
    return diff.empty() ? "  (no difference)\n" : out.str();
}

std::string describe(const findings &f) {
    std::ostringstream out;
    for (const finding &one : f) {
        out << "  " << one.kind;
        if (one.ifx >= 0) {
            out << " ifx " << one.ifx;
        }
        out << "\n";
    }
    return f.empty() ? "  (none)\n" : out.str();
}

void prescribed_losses::add(int db, const std::string &key, std::optional<std::string> faulted,
                            std::optional<std::string> fresh) {
    difference_[{db, key}] = {std::move(faulted), std::move(fresh)};
}

void prescribed_losses::note(const std::string &name, const std::string &kind, int ifx) {
    names_.push_back(name + (ifx >= 0 ? " (ifx " + std::to_string(ifx) + ")" : ""));
    findings_.insert({kind, ifx});
}

void prescribed_losses::mode2_key_swept(int ifx) {
    add(DB_STATE, key_text(port_oper_key(ifx, PORT_MODE_JOINED)), std::nullopt,
        pre_entry_idx_value());
    note("mode 2 key swept", "join_key_missing", ifx);
}

void prescribed_losses::learning_lost(int ifx) {
    add(DB_CONFIG, key_text(join_request_key(ifx)), std::nullopt, join_request_value(ifx));
    add(DB_STATE, key_text(port_oper_key(ifx, PORT_MODE_JOINED)), std::nullopt,
        pre_entry_idx_value());
    note("learning lost while disconnected", "voice_address_not_joined", ifx);
}

void prescribed_losses::unset_auto_still_joined(int ifx) {
    add(DB_CONFIG, key_text(join_request_key(ifx)), join_request_value(ifx), std::nullopt);
    note("automatic mode removed while disconnected, port stays joined", "joined_not_auto", ifx);
    // Its mode 2 key went with the sweep, as for every joined port.
    note("its mode 2 key swept", "join_key_missing", ifx);
}

void prescribed_losses::unset_auto_still_joins(int ifx) {
    add(DB_CONFIG, key_text(join_request_key(ifx)), join_request_value(ifx), std::nullopt);
    add(DB_STATE, key_text(port_oper_key(ifx, PORT_MODE_JOINED)), pre_entry_idx_value(),
        std::nullopt);
    note("automatic mode removed while disconnected, port still joins", "joined_not_auto", ifx);
}

void prescribed_losses::deleted_oui_still_joins(int ifx) {
    add(DB_CONFIG, key_text(join_request_key(ifx)), join_request_value(ifx), std::nullopt);
    add(DB_STATE, key_text(port_oper_key(ifx, PORT_MODE_JOINED)), pre_entry_idx_value(),
        std::nullopt);
    note("OUI deleted while disconnected still joins a port", "joined_without_voice_address", ifx);
}

void prescribed_losses::deleted_security_still_published() {
    add(DB_STATE, key_text(family_key(key_family::secu_mode)), "1", std::nullopt);
    note("security mode deleted while disconnected, published again",
         "applied_without_configuration", -1);
}

} // namespace faults
