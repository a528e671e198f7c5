// SPDX-License-Identifier: BSD-3-Clause
#include "daemon_key_set.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <functional>
#include <vector>

#include "wire/key_families.h"
#include "wire/keys.h"
#include "wire/values.h"

namespace faults {
namespace {

// Placeholders given to the key builders; each stands for any value of its
// kind in the key the builder makes.
constexpr uint16_t ANY_U16 = 12345;
constexpr int32_t ANY_INT = 1234567;
constexpr int32_t ANY_INT2 = 7654321;
constexpr mac_addr ANY_MAC{0xa1, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6};
constexpr mac_addr ANY_MASK{0xb1, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6};

enum class part_kind { LITERAL, INTEGER, U16, HEX12 };

struct part {
    part_kind kind;
    std::string text; // literal only
};

// A key form: the literal text the builder wrote, with the placeholders
// opened into what they stand for.
using key_form_parts = std::vector<part>;

const std::vector<std::pair<std::string, part_kind>> &placeholders() {
    static const std::vector<std::pair<std::string, part_kind>> p = {
        {std::to_string(ANY_INT), part_kind::INTEGER},
        {std::to_string(ANY_INT2), part_kind::INTEGER},
        {std::to_string(ANY_U16), part_kind::U16},
        {mac_hex12(ANY_MAC).data(), part_kind::HEX12},
        {mac_hex12(ANY_MASK).data(), part_kind::HEX12},
    };
    return p;
}

key_form_parts key_form(const key_buf &built) {
    const std::string text = built.c_str();
    key_form_parts out;
    for (std::size_t i = 0; i < text.size();) {
        bool replaced = false;
        for (const auto &[literal, kind] : placeholders()) {
            if (text.compare(i, literal.size(), literal) == 0) {
                out.push_back({kind, ""});
                i += literal.size();
                replaced = true;
                break;
            }
        }
        if (!replaced) {
            if (out.empty() || out.back().kind != part_kind::LITERAL) {
                out.push_back({part_kind::LITERAL, ""});
            }
            out.back().text.push_back(text[i++]);
        }
    }
    return out;
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool is_hex(char c) {
    return is_digit(c) || (c >= 'a' && c <= 'f');
}

bool matches(const std::string &key, const key_form_parts &form) {
    std::size_t i = 0;
    for (const part &p : form) {
        switch (p.kind) {
        case part_kind::LITERAL:
            if (key.compare(i, p.text.size(), p.text) != 0) {
                return false;
            }
            i += p.text.size();
            break;
        case part_kind::INTEGER:
        case part_kind::U16: {
            if (p.kind == part_kind::INTEGER && i < key.size() && key[i] == '-') {
                ++i;
            }
            const std::size_t start = i;
            while (i < key.size() && is_digit(key[i])) {
                ++i;
            }
            if (i == start) {
                return false;
            }
            break;
        }
        case part_kind::HEX12:
            for (std::size_t k = 0; k < 12; ++k, ++i) {
                if (i >= key.size() || !is_hex(key[i])) {
                    return false;
                }
            }
            break;
        }
    }
    return i == key.size();
}

bool decimal(const std::string &v) {
    const std::size_t start = !v.empty() && v[0] == '-' ? 1 : 0;
    return v.size() > start &&
           std::all_of(v.begin() + static_cast<long>(start), v.end(),
                       [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; });
}

template <typename Codec>
std::function<bool(const std::string &)> sized() {
    return [](const std::string &v) { return v.size() == Codec::size; };
}

struct write_form {
    const char *what;
    int db;
    key_form_parts key;
    std::function<bool(const std::string &)> set_value; // null: never SET
    bool deleted;                                       // DEL allowed
};

const std::vector<write_form> &write_forms() {
    static const std::vector<write_form> forms = {
        {"vid copy", DB_STATE, key_form(vid_key(ANY_U16)), sized<pre_entry_idx_codec>(), true},
        {"security mode copy", DB_STATE, key_form(family_key(key_family::secu_mode)),
         [](const std::string &v) { return v == "1"; }, true},
        {"CoS/DSCP copy", DB_STATE, key_form(family_key(key_family::cos_dscp)),
         sized<cos_dscp_echo_codec>(), false},
        {"OUI echo", DB_STATE, key_form(oui_echo_key(ANY_MAC, ANY_MASK, ANY_U16)),
         sized<oui_echo_codec>(), true},
        {"specified-OUI message", DB_STATE, key_form(spec_oui_msg_key(ANY_MAC, ANY_INT)), nullptr,
         true},
        {"MAC-VLAN OUI message", DB_STATE, key_form(mvlan_oui_msg_key(ANY_U16)), decimal, true},
        {"port operation", DB_STATE, key_form(port_oper_key(ANY_INT, ANY_INT2)),
         sized<pre_entry_idx_codec>(), true},
        {"load-complete copy", DB_STATE, key_form(family_key(key_family::data_end)), decimal,
         false},
        {"join request", DB_CONFIG, key_form(join_request_key(ANY_INT)),
         sized<join_request_codec>(), true},
    };
    return forms;
}

bool under(const key_family_decl &f, const std::string &key) {
    return f.exact ? key == f.prefix : key.rfind(f.prefix, 0) == 0;
}

std::string pattern_text(key_family f) {
    return pattern_of(f).data();
}

// A key the daemon may read in db: under a pattern it subscribes there or
// re-reads from there.
bool readable(int db, const std::string &key) {
    return std::any_of(KEY_FAMILIES.begin(), KEY_FAMILIES.end(), [&](const key_family_decl &f) {
        return under(f, key) && ((f.sub_row != NO_ROW && f.sub_db == db) ||
                                 (f.reread != NOT_REREAD && f.reread_db == db));
    });
}

bool scannable(int db, const std::string &pattern) {
    const bool reread = std::any_of(REREAD_ORDER.begin(), REREAD_ORDER.end(), [&](key_family f) {
        return family_decl(f).reread_db == db && pattern_text(f) == pattern;
    });
    const bool swept =
        db == DB_STATE && std::any_of(SWEPT_ORDER.begin(), SWEPT_ORDER.end(),
                                      [&](key_family f) { return pattern_text(f) == pattern; });
    return reread || swept;
}

bool sweepable(int db, const std::string &key) {
    return db == DB_STATE && std::any_of(SWEPT_ORDER.begin(), SWEPT_ORDER.end(),
                                         [&](key_family f) { return under(family_decl(f), key); });
}

bool subscribable(const std::string &channel) {
    return std::any_of(SUBSCRIPTION_ORDER.begin(), SUBSCRIPTION_ORDER.end(), [&](key_family f) {
        return channel ==
               "__keyspace@" + std::to_string(family_decl(f).sub_db) + "__:" + pattern_text(f);
    });
}

std::optional<std::string> check_write(const monitored_command &c, bool set) {
    const std::string &key = c.argv[1];
    for (const write_form &form : write_forms()) {
        if (form.db != c.db || !matches(key, form.key)) {
            continue;
        }
        if (set && form.set_value && c.argv.size() == 3 && form.set_value(c.argv[2])) {
            return std::nullopt;
        }
        if (!set && form.deleted && c.argv.size() == 2) {
            return std::nullopt;
        }
        return std::string("a ") + form.what + " key, but not a command or value it makes";
    }
    return std::string("not a key the daemon writes in database ") + std::to_string(c.db);
}

} // namespace

std::optional<std::string> outside_key_set(const monitored_command &c) {
    std::string name = c.argv[0];
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char ch) { return static_cast<char>(std::toupper(ch)); });
    const std::size_t n = c.argv.size();
    if (c.source == "lua") {
        // The sweep's script checks and deletes one key it may sweep.
        if ((name == "PTTL" || name == "DEL") && n == 2 && sweepable(c.db, c.argv[1])) {
            return std::nullopt;
        }
        return "not a call of the sweep's script";
    }
    if (name == "SELECT" && n == 2 && (c.argv[1] == "0" || c.argv[1] == "1")) {
        return std::nullopt;
    }
    if (name == "PING" && n == 1) {
        return std::nullopt;
    }
    // The bus library names each connection it opens, for the client list.
    if (name == "CLIENT" && n == 3 && c.argv[1] == "SETNAME" && c.argv[2] == "tukredis") {
        return std::nullopt;
    }
    if (name == "CONFIG" && n >= 3 && c.argv[2] == "notify-keyspace-events" &&
        ((c.argv[1] == "GET" && n == 3) || (c.argv[1] == "SET" && n == 4))) {
        return std::nullopt;
    }
    if (name == "CONFIG" && n == 3 && c.argv[1] == "GET" && c.argv[2] == "databases") {
        return std::nullopt;
    }
    if (name == "PSUBSCRIBE" && n > 1 &&
        std::all_of(c.argv.begin() + 1, c.argv.end(), subscribable)) {
        return std::nullopt;
    }
    if (name == "GET" && n == 2) {
        return readable(c.db, c.argv[1]) ? std::nullopt
                                         : std::optional<std::string>("a read outside its keys");
    }
    if (name == "SCAN" && n == 6 && c.argv[2] == "MATCH" && c.argv[4] == "COUNT") {
        return scannable(c.db, c.argv[3]) ? std::nullopt
                                          : std::optional<std::string>("a scan of another pattern");
    }
    if (name == "PEXPIRE" && n == 3) {
        return sweepable(c.db, c.argv[1]) ? std::nullopt
                                          : std::optional<std::string>("a mark outside its keys");
    }
    if (name == "EVAL" && n == 4 && c.argv[2] == "1") {
        return sweepable(c.db, c.argv[3]) ? std::nullopt
                                          : std::optional<std::string>("a sweep outside its keys");
    }
    if (name == "SET" && n >= 2) {
        return check_write(c, true);
    }
    if (name == "DEL" && n >= 2) {
        return check_write(c, false);
    }
    return "a command the daemon never sends";
}

} // namespace faults
