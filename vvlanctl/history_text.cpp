// SPDX-License-Identifier: BSD-3-Clause
#include "history_text.h"

#include "json_writer.h"
#include "watch_filter.h"
#include "wire/key_families.h"
#include "wire/key_parse.h"

namespace {

bool removal(std::string_view event) {
    return event == "del" || event == "expired" || event == "evicted" || event == "rename_from";
}

bool written(std::string_view event) {
    return event == "set" || event == "rename_to" || event == "restore" || event == "move_to";
}

bool printable_ascii(std::string_view s) {
    for (const char c : s) {
        const auto b = static_cast<unsigned char>(c);
        if (b < 0x20 || b > 0x7e) {
            return false;
        }
    }
    return true;
}

std::string hex_of(std::string_view s) {
    static const char DIGITS[] = "0123456789abcdef";
    std::string out;
    for (const char c : s) {
        const auto b = static_cast<unsigned char>(c);
        out += DIGITS[b >> 4];
        out += DIGITS[b & 0xf];
    }
    return out;
}

// What a sweep removed, in the words an operator knows the key by.
std::string swept_what(std::string_view key) {
    if (const auto p = parse_port_oper_key(key)) {
        std::string out = "port ";
        out += std::to_string(p->ifx);
        out += "'s mode ";
        out += std::to_string(p->mode);
        out += " key";
        return out;
    }
    std::string out = "the ";
    if (const auto f = family_of_key(key)) {
        out += family_decl(*f).name;
        out += ' ';
    }
    out += "key ";
    out += key;
    return out;
}

} // namespace

history_teller::history_teller() {
    ctx_.fetch = [this](int db, const std::string &key) -> std::optional<std::string> {
        // The value the recorder read right after the event: the record
        // applied already put it in the keyspace.
        const auto it = space_.find({db, key});
        if (it == space_.end() || it->second.kind != rec::value_kind::string) {
            return std::nullopt;
        }
        return it->second.value;
    };
}

void history_teller::reload_slots() {
    ctx_.slots.clear();
    for (const auto &[id, value] : space_) {
        if (id.first != DB_STATE) {
            continue;
        }
        if (const auto o = parse_oui_key(id.second); o && o->slot) {
            ctx_.slots[*o->slot] = {o->mac, o->mask};
        }
    }
}

bool history_teller::is_voice(const std::string &key) const {
    const auto l = parse_mac_learning_key(key);
    if (!l) {
        return false;
    }
    for (const auto &[slot, entry] : ctx_.slots) {
        if (mac_and(l->mac, entry.second) == entry.first) {
            return true;
        }
    }
    return false;
}

bool history_teller::voice_learning_on(int32_t ifx) const {
    const auto it = learnings_.find(ifx);
    if (it == learnings_.end()) {
        return false;
    }
    for (const std::string &key : it->second) {
        if (is_voice(key)) {
            return true;
        }
    }
    return false;
}

void history_teller::apply(const rec::record &r) {
    rec::apply(r, &space_);
    if (r.type == rec::record_type::snapshot_begin &&
        static_cast<rec::snapshot_reason>(r.state) != rec::snapshot_reason::rotation) {
        learnings_.clear();
        return;
    }
    if ((r.type != rec::record_type::event && r.type != rec::record_type::snapshot_key) ||
        r.db != DB_STATE || !parse_mac_learning_key(r.key)) {
        return;
    }
    const auto port = port_of_key(r.key);
    if (!port) {
        return;
    }
    if (space_.count({r.db, r.key}) != 0) {
        learnings_[*port].insert(r.key);
    } else if (const auto it = learnings_.find(*port); it != learnings_.end()) {
        it->second.erase(r.key);
    }
}

std::string history_teller::explain_event(const rec::record &r, bool was_voice_learning) {
    const rec::key_id id{r.db, r.key};
    const auto family = family_of_key(r.key);
    if (r.event == "expire") {
        // The re-synchronisation marks its copies with a time to live
        // before it re-reads the configuration.
        if (r.db == DB_STATE && rec::daemon_owned(r.db, r.key)) {
            marked_.insert(id);
        }
        return "";
    }
    if (written(r.event) || r.event == "persist") {
        // Re-published (or its time to live taken off): no longer marked.
        marked_.erase(id);
    }
    std::string why;
    if (r.event == "del" && marked_.count(id) != 0 && family && family_decl(*family).swept) {
        why = "a re-synchronisation swept " + swept_what(r.key);
    }
    if (removal(r.event)) {
        marked_.erase(id);
    }
    if (family == key_family::mac_learning && r.db == DB_STATE && parse_mac_learning_key(r.key)) {
        const auto port = port_of_key(r.key);
        if (port && removal(r.event) && was_voice_learning && !voice_learning_on(*port)) {
            aged_out_.insert(*port);
        }
        if (port && written(r.event) && is_voice(r.key)) {
            aged_out_.erase(*port);
        }
        if (written(r.event) && (presence_ == rec::presence_state::connected ||
                                 presence_ == rec::presence_state::absent)) {
            why = "not seen by the daemon (it was not subscribed)";
        }
    }
    if (r.db == DB_CONFIG && removal(r.event)) {
        if (const auto ifx = parse_join_request_key(r.key); ifx && aged_out_.count(*ifx) != 0) {
            aged_out_.erase(*ifx);
            why = "the aging thread deleted port " + std::to_string(*ifx) +
                  "'s join request (left the voice VLAN)";
        }
    }
    return why;
}

std::string history_teller::snapshot_line(const rec::record &r) {
    const std::string keys = std::to_string(r.count) + (r.count == 1 ? " key" : " keys");
    switch (reason_) {
    case rec::snapshot_reason::start:
        return "snapshot at start: " + keys;
    case rec::snapshot_reason::rotation:
        return "snapshot after a rotation of the ring: " + keys;
    case rec::snapshot_reason::reconnect:
        return "reconnect: the recorder re-read the keyspace (" + keys + ")";
    }
    return "snapshot: " + keys;
}

std::string history_teller::presence_line(const rec::record &r) {
    const auto was = presence_;
    presence_ = static_cast<rec::presence_state>(r.state);
    switch (presence_) {
    case rec::presence_state::subscribed:
        return was == rec::presence_state::connected || was == rec::presence_state::absent
                   ? "the daemon subscribed again"
                   : "the daemon is subscribed";
    case rec::presence_state::connected:
        return "the daemon's subscription was lost (connected, not subscribed)";
    case rec::presence_state::absent:
        return "the daemon is absent";
    case rec::presence_state::unknown:
        break;
    }
    std::string out = "the daemon's presence is unknown";
    if (!r.text.empty()) {
        out += ": ";
        out += r.text;
    }
    return out;
}

std::optional<std::string> history_teller::tell(const rec::record &r) {
    switch (r.type) {
    case rec::record_type::snapshot_begin:
        reason_ = static_cast<rec::snapshot_reason>(r.state);
        apply(r);
        if (reason_ != rec::snapshot_reason::rotation) {
            // Events may have been missed: nothing marked or aged is known.
            marked_.clear();
            aged_out_.clear();
        }
        return std::nullopt;
    case rec::record_type::snapshot_key:
        apply(r);
        return std::nullopt;
    case rec::record_type::snapshot_end:
        reload_slots();
        return snapshot_line(r);
    case rec::record_type::event: {
        const bool was_voice =
            r.db == DB_STATE && space_.count({r.db, r.key}) != 0 && is_voice(r.key);
        apply(r);
        std::string line = event_line(ctx_, r.db, r.event, r.key);
        const std::string why = explain_event(r, was_voice);
        if (!why.empty()) {
            line += "; ";
            line += why;
        }
        return line;
    }
    case rec::record_type::link:
        if (static_cast<rec::link_state>(r.state) == rec::link_state::lost) {
            return "the recorder lost its connection: " + r.text;
        }
        return std::string("the recorder's connection is back");
    case rec::record_type::presence:
        return presence_line(r);
    case rec::record_type::end: {
        std::string out = "the recording ended";
        if (!r.text.empty()) {
            out += ": ";
            out += r.text;
        }
        out += " (";
        out += std::to_string(r.count);
        out += r.count == 1 ? " event)" : " events)";
        return out;
    }
    }
    return std::nullopt;
}

std::string history_json_line(const std::string &stamp, const rec::record &r,
                              const std::string &text, rec::presence_state presence) {
    const bool keyed = r.type == rec::record_type::event;
    std::string out = "{\"schema_version\":1,\"time\":";
    out += json_quote(stamp);
    out += ",\"record\":";
    out += json_quote(rec::record_type_name(r.type));
    out += ",\"mono_us\":";
    out += std::to_string(r.mono_us);
    out += ",\"db\":";
    out += keyed ? std::to_string(r.db) : "null";
    out += ",\"event\":";
    out += keyed ? json_quote(r.event) : "null";
    out += ",\"key\":";
    out += keyed ? json_quote(r.key) : "null";
    const auto f = keyed ? family_of_key(r.key) : std::nullopt;
    out += ",\"family\":";
    out += f ? json_quote(family_decl(*f).name) : "null";
    const auto port = keyed ? port_of_key(r.key) : std::nullopt;
    out += ",\"port\":";
    out += port ? std::to_string(*port) : "null";
    out += ",\"value\":";
    if (!keyed || r.kind == rec::value_kind::absent || r.kind == rec::value_kind::superseded) {
        out += "null";
    } else if (r.kind == rec::value_kind::other_type) {
        out += "{\"type\":";
        out += json_quote(r.value);
        out += "}";
    } else if (printable_ascii(r.value)) {
        out += "{\"text\":";
        out += json_quote(r.value);
        out += "}";
    } else {
        out += "{\"hex\":\"";
        out += hex_of(r.value);
        out += "\"}";
    }
    out += ",\"ttl_ms\":";
    out += keyed && r.ttl_ms != rec::NO_TTL ? std::to_string(r.ttl_ms) : "null";
    out += ",\"presence\":";
    out += json_quote(rec::presence_state_name(presence));
    out += ",\"text\":";
    out += json_quote(text);
    out += "}";
    return out;
}
