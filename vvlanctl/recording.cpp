// SPDX-License-Identifier: BSD-3-Clause
#include "recording.h"

#include <array>
#include <charconv>
#include <map>

#include "wire/key_families.h"

namespace rec {
namespace {

// The event names a server sends for the keys of the families, a byte each;
// any other name is written out after LITERAL.
constexpr std::array<std::string_view, 12> EVENT_NAMES = {
    "set",       "del",     "expire", "expired",   "evicted", "rename_from",
    "rename_to", "persist", "new",    "move_from", "move_to", "restore",
};
constexpr uint8_t LITERAL = 0xff;

void put_u8(std::string *out, uint8_t v) {
    out->push_back(static_cast<char>(v));
}

void put_be(std::string *out, uint64_t v, int bytes) {
    for (int i = bytes - 1; i >= 0; --i) {
        put_u8(out, static_cast<uint8_t>(v >> (8 * i)));
    }
}

// LEB128: seven bits a byte, low bits first.
void put_varint(std::string *out, uint64_t v) {
    while (v >= 0x80) {
        put_u8(out, static_cast<uint8_t>(v | 0x80));
        v >>= 7;
    }
    put_u8(out, static_cast<uint8_t>(v));
}

uint64_t zigzag(int64_t v) {
    return (static_cast<uint64_t>(v) << 1) ^ static_cast<uint64_t>(v >> 63);
}

int64_t unzigzag(uint64_t v) {
    return static_cast<int64_t>(v >> 1) ^ -static_cast<int64_t>(v & 1);
}

void put_bytes(std::string *out, std::string_view bytes) {
    put_varint(out, bytes.size());
    out->append(bytes);
}

// A key as the index of its family in the header and the rest of it; a key
// of no family whole.
void put_key(std::string *out, const std::vector<family_entry> &families, std::string_view key) {
    for (std::size_t i = 0; i < families.size(); ++i) {
        const family_entry &f = families[i];
        const bool match = f.exact ? key == f.prefix : key.substr(0, f.prefix.size()) == f.prefix;
        if (match) {
            put_u8(out, static_cast<uint8_t>(i));
            put_bytes(out, key.substr(f.exact ? key.size() : f.prefix.size()));
            return;
        }
    }
    put_u8(out, LITERAL);
    put_bytes(out, key);
}

void put_event(std::string *out, std::string_view name) {
    for (std::size_t i = 0; i < EVENT_NAMES.size(); ++i) {
        if (EVENT_NAMES[i] == name) {
            put_u8(out, static_cast<uint8_t>(i));
            return;
        }
    }
    put_u8(out, LITERAL);
    put_bytes(out, name);
}

// Reads a record's or the header's fields, refusing anything that runs past
// its end or past a bound.
class cursor {
  public:
    explicit cursor(std::string_view in) : in_(in) {}
    bool u8(uint8_t *v) {
        if (pos_ >= in_.size()) {
            return short_of(1);
        }
        *v = static_cast<uint8_t>(in_[pos_++]);
        return true;
    }
    bool be(uint64_t *v, int bytes) {
        if (in_.size() - pos_ < static_cast<std::size_t>(bytes)) {
            return short_of(static_cast<std::size_t>(bytes));
        }
        *v = 0;
        for (int i = 0; i < bytes; ++i) {
            *v = (*v << 8) | static_cast<uint8_t>(in_[pos_++]);
        }
        return true;
    }
    bool varint(uint64_t *v) {
        *v = 0;
        for (int shift = 0; shift < 64; shift += 7) {
            uint8_t b = 0;
            if (!u8(&b)) {
                return false;
            }
            if (shift == 63 && b > 1) {
                break;
            }
            *v |= static_cast<uint64_t>(b & 0x7f) << shift;
            if ((b & 0x80) == 0) {
                return true;
            }
        }
        return fault("a number longer than 64 bits");
    }
    bool signed_varint(int64_t *v) {
        uint64_t u = 0;
        if (!varint(&u)) {
            return false;
        }
        *v = unzigzag(u);
        return true;
    }
    bool bytes(std::string *out, std::size_t bound, const char *what) {
        uint64_t n = 0;
        if (!varint(&n)) {
            return false;
        }
        if (n > bound) {
            return fault(std::string(what) + " of " + std::to_string(n) + " bytes (at most " +
                         std::to_string(bound) + ")");
        }
        if (in_.size() - pos_ < n) {
            return short_of(static_cast<std::size_t>(n));
        }
        out->assign(in_.substr(pos_, static_cast<std::size_t>(n)));
        pos_ += static_cast<std::size_t>(n);
        return true;
    }
    bool fault(const std::string &why) {
        if (why_.empty()) {
            why_ = why;
        }
        return false;
    }
    std::size_t pos() const { return pos_; }
    std::size_t left() const { return in_.size() - pos_; }
    const std::string &why() const { return why_; }

  private:
    bool short_of(std::size_t n) {
        return fault("needs " + std::to_string(n) + " more bytes, " + std::to_string(left()) +
                     " left");
    }
    std::string_view in_;
    std::size_t pos_ = 0;
    std::string why_;
};

bool get_key(cursor &c, const std::vector<family_entry> &families, std::string *key) {
    uint8_t family = 0;
    if (!c.u8(&family)) {
        return false;
    }
    std::string tail;
    if (!c.bytes(&tail, MAX_KEY, "a key")) {
        return false;
    }
    if (family == LITERAL) {
        *key = std::move(tail);
        return true;
    }
    if (family >= families.size()) {
        return c.fault("key family " + std::to_string(family) + " is not in the header");
    }
    const family_entry &f = families[family];
    if (f.exact && !tail.empty()) {
        return c.fault("the exact key " + f.name + " has a tail");
    }
    *key = f.prefix + tail;
    return true;
}

bool get_event(cursor &c, std::string *name) {
    uint8_t code = 0;
    if (!c.u8(&code)) {
        return false;
    }
    if (code == LITERAL) {
        return c.bytes(name, MAX_TEXT, "an event name");
    }
    if (code >= EVENT_NAMES.size()) {
        return c.fault("unknown event code " + std::to_string(code));
    }
    *name = EVENT_NAMES[code];
    return true;
}

bool get_db(cursor &c, int *db) {
    uint8_t v = 0;
    if (!c.u8(&v)) {
        return false;
    }
    if (v > 1) {
        return c.fault("database " + std::to_string(v) + " (only 0 and 1 are recorded)");
    }
    *db = v;
    return true;
}

bool get_value(cursor &c, record *r) {
    uint8_t kind = 0;
    if (!c.u8(&kind)) {
        return false;
    }
    if (kind > static_cast<uint8_t>(value_kind::superseded)) {
        return c.fault("unknown value kind " + std::to_string(kind));
    }
    r->kind = static_cast<value_kind>(kind);
    if (!c.bytes(&r->value, MAX_VALUE, "a value")) {
        return false;
    }
    if ((r->kind == value_kind::absent || r->kind == value_kind::superseded) && !r->value.empty()) {
        return c.fault("an absent or unread value with bytes");
    }
    return c.signed_varint(&r->ttl_ms);
}

bool get_state(cursor &c, record *r, uint8_t last) {
    if (!c.u8(&r->state)) {
        return false;
    }
    if (r->state > last) {
        return c.fault("unknown state " + std::to_string(r->state));
    }
    return true;
}

enum class header_field { tool, server, segment, start_wall_us, start_mono_us, family };

// The header's line names, looked up in a map rather than compared as
// literals: a compiler turns a short literal comparison into immediates
// ("segm", "ment"), which lintian then reads as misspelt words in the
// binary.
const std::map<std::string_view, header_field> &header_fields() {
    static const std::map<std::string_view, header_field> fields = {
        {"tool", header_field::tool},
        {"server", header_field::server},
        {"segment", header_field::segment},
        {"start_wall_us", header_field::start_wall_us},
        {"start_mono_us", header_field::start_mono_us},
        {"family", header_field::family},
    };
    return fields;
}

// "name value" lines of the header.
bool header_line(std::string_view line, segment_header *h, std::string *why) {
    const std::size_t space = line.find(' ');
    const std::string_view name = line.substr(0, space);
    const std::string_view rest = space == std::string_view::npos ? "" : line.substr(space + 1);
    const auto number = [&](auto *v) {
        const auto r = std::from_chars(rest.data(), rest.data() + rest.size(), *v);
        if (r.ec != std::errc() || r.ptr != rest.data() + rest.size()) {
            *why = "header line \"" + std::string(name) + "\" has no number";
            return false;
        }
        return true;
    };
    const auto known = header_fields().find(name);
    if (known == header_fields().end()) {
        return true; // a newer writer's addition: skipped
    }
    const header_field field = known->second;
    if (field == header_field::tool) {
        h->tool = rest;
    } else if (field == header_field::server) {
        h->server = rest;
    } else if (field == header_field::segment) {
        return number(&h->segment);
    } else if (field == header_field::start_wall_us) {
        return number(&h->start_wall_us);
    } else if (field == header_field::start_mono_us) {
        return number(&h->start_mono_us);
    } else {
        // "family <name> <db> <exact> <prefix>"
        family_entry f;
        std::string_view parts[4];
        std::string_view left = rest;
        for (int i = 0; i < 3; ++i) {
            const std::size_t sp = left.find(' ');
            if (sp == std::string_view::npos) {
                *why = "header line \"family\" has fewer than four fields";
                return false;
            }
            parts[i] = left.substr(0, sp);
            left = left.substr(sp + 1);
        }
        parts[3] = left;
        f.name = parts[0];
        if (parts[1] != "0" && parts[1] != "1") {
            *why = "family " + f.name + " has no database 0 or 1";
            return false;
        }
        f.sub_db = parts[1] == "1" ? 1 : 0;
        if (parts[2] != "prefix" && parts[2] != "exact") {
            *why = "family " + f.name + " is neither prefix nor exact";
            return false;
        }
        f.exact = parts[2] == "exact";
        f.prefix = parts[3];
        if (f.prefix.empty() || h->families.size() >= MAX_FAMILIES) {
            *why = "family " + f.name + " has no prefix, or there are too many families";
            return false;
        }
        h->families.push_back(std::move(f));
    }
    return true;
}

} // namespace

std::vector<family_entry> current_families() {
    std::vector<family_entry> out;
    for (const key_family_decl &d : KEY_FAMILIES) {
        out.push_back({d.name, d.prefix, d.exact, static_cast<int>(d.sub_db)});
    }
    return out;
}

encoder::encoder(const segment_header &h) : h_(h), mono_(h.start_mono_us), wall_(h.start_wall_us) {}

std::string encoder::header() const {
    std::string text = "vvlanctl flight recording\n";
    text += "tool " + h_.tool + "\n";
    text += "server " + h_.server + "\n";
    text += "segment " + std::to_string(h_.segment) + "\n";
    text += "start_wall_us " + std::to_string(h_.start_wall_us) + "\n";
    text += "start_mono_us " + std::to_string(h_.start_mono_us) + "\n";
    for (const family_entry &f : h_.families) {
        text += "family " + f.name + " " + std::to_string(f.sub_db) +
                (f.exact ? " exact " : " prefix ") + f.prefix + "\n";
    }
    std::string out(MAGIC);
    put_be(&out, h_.format_version, 2);
    put_be(&out, h_.codec_version, 2);
    put_be(&out, text.size(), 4);
    out += text;
    return out;
}

void encoder::append(const record &r, std::string *out) {
    // One buffer for every record's body: no allocation per event once it
    // has grown to the largest.
    std::string &body = body_;
    body.clear();
    const int64_t mono_delta = r.mono_us >= mono_ ? r.mono_us - mono_ : 0;
    put_varint(&body, static_cast<uint64_t>(mono_delta));
    // The wall clock as far as it strays from the monotonic one: nothing
    // unless the clock was set.
    put_varint(&body, zigzag(r.wall_us - (wall_ + mono_delta)));
    mono_ += mono_delta;
    wall_ = r.wall_us;
    switch (r.type) {
    case record_type::snapshot_begin:
    case record_type::link:
    case record_type::presence:
        put_u8(&body, r.state);
        put_bytes(&body, r.text.substr(0, MAX_TEXT));
        break;
    case record_type::snapshot_key:
    case record_type::event:
        put_u8(&body, static_cast<uint8_t>(r.db));
        if (r.type == record_type::event) {
            put_event(&body, r.event);
        }
        put_key(&body, h_.families, r.key);
        if (r.kind == value_kind::string && r.value.size() > MAX_VALUE) {
            // A server holds longer strings than a reader accepts: written
            // as what it is, not as bytes that would stop every reader here.
            put_u8(&body, static_cast<uint8_t>(value_kind::other_type));
            std::string what = "string of ";
            what += std::to_string(r.value.size());
            what += " bytes, more than a recording holds";
            put_bytes(&body, what);
        } else {
            put_u8(&body, static_cast<uint8_t>(r.kind));
            put_bytes(&body, r.kind == value_kind::absent || r.kind == value_kind::superseded
                                 ? std::string_view()
                                 : r.value);
        }
        put_varint(&body, zigzag(r.ttl_ms));
        break;
    case record_type::snapshot_end:
    case record_type::end:
        put_varint(&body, r.count);
        put_bytes(&body, r.text.substr(0, MAX_TEXT));
        break;
    }
    put_u8(out, static_cast<uint8_t>(r.type));
    put_varint(out, body.size());
    out->append(body);
}

bool decoder::read_header(segment_header *h, std::string *why) {
    cursor c(in_);
    std::string magic;
    for (std::size_t i = 0; i < MAGIC.size(); ++i) {
        uint8_t b = 0;
        if (!c.u8(&b)) {
            *why = "not a vvlanctl recording (shorter than its header)";
            return false;
        }
        magic.push_back(static_cast<char>(b));
    }
    if (magic != MAGIC) {
        *why = "not a vvlanctl recording (no VVLANREC at its start)";
        return false;
    }
    uint64_t format = 0;
    uint64_t codec = 0;
    uint64_t length = 0;
    if (!c.be(&format, 2) || !c.be(&codec, 2) || !c.be(&length, 4)) {
        *why = "byte " + std::to_string(c.pos()) + ": truncated header: " + c.why();
        return false;
    }
    if (format != FORMAT_VERSION) {
        *why = "format version " + std::to_string(format) + " (this vvlanctl reads " +
               std::to_string(FORMAT_VERSION) + "; use the vvlanctl that wrote it, or a newer one)";
        return false;
    }
    if (length > MAX_HEADER || length > c.left()) {
        *why = "byte " + std::to_string(c.pos()) + ": truncated header: " + std::to_string(length) +
               " bytes announced, " + std::to_string(c.left()) + " left";
        return false;
    }
    segment_header out;
    out.format_version = static_cast<uint16_t>(format);
    out.codec_version = static_cast<uint16_t>(codec);
    const std::string_view text = in_.substr(c.pos(), static_cast<std::size_t>(length));
    std::size_t start = 0;
    bool first = true;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) {
            *why = "the header's last line has no end";
            return false;
        }
        const std::string_view line = text.substr(start, end - start);
        start = end + 1;
        if (first) {
            first = false;
            if (line != "vvlanctl flight recording") {
                *why = "the header does not name itself a flight recording";
                return false;
            }
            continue;
        }
        if (!header_line(line, &out, why)) {
            return false;
        }
    }
    if (out.families.empty()) {
        *why = "the header declares no key family";
        return false;
    }
    pos_ = c.pos() + static_cast<std::size_t>(length);
    mono_ = out.start_mono_us;
    wall_ = out.start_wall_us;
    h_ = out;
    *h = std::move(out);
    return true;
}

decoder::next decoder::read(record *r, std::string *why) {
    if (pos_ >= in_.size()) {
        return next::END_OF_DATA;
    }
    const std::size_t start = pos_;
    cursor frame(in_.substr(pos_));
    uint8_t type = 0;
    uint64_t length = 0;
    const auto failed = [&](const cursor &c, std::size_t base, const char *what) {
        *why = "byte " + std::to_string(base + c.pos()) + ": " + what + ": " + c.why();
        return next::FAULT;
    };
    if (!frame.u8(&type) || !frame.varint(&length)) {
        return failed(frame, start, "truncated record");
    }
    if (type < static_cast<uint8_t>(record_type::snapshot_begin) ||
        type > static_cast<uint8_t>(record_type::end)) {
        *why = "byte " + std::to_string(start) + ": unknown record type " + std::to_string(type);
        return next::FAULT;
    }
    if (length > frame.left()) {
        *why = "byte " + std::to_string(start) + ": truncated " +
               record_type_name(static_cast<record_type>(type)) +
               " record: " + std::to_string(length) + " bytes announced, " +
               std::to_string(frame.left()) + " left";
        return next::FAULT;
    }
    const std::size_t body_at = start + frame.pos();
    cursor c(in_.substr(body_at, static_cast<std::size_t>(length)));
    record out;
    out.type = static_cast<record_type>(type);
    uint64_t mono_delta = 0;
    int64_t skew = 0;
    bool ok = c.varint(&mono_delta) && c.signed_varint(&skew);
    if (ok && mono_delta > static_cast<uint64_t>(INT64_MAX - mono_)) {
        ok = c.fault("a time past the end of the clock");
    }
    if (ok) {
        out.mono_us = mono_ + static_cast<int64_t>(mono_delta);
        out.wall_us = static_cast<int64_t>(static_cast<uint64_t>(wall_) + mono_delta +
                                           static_cast<uint64_t>(skew));
        switch (out.type) {
        case record_type::snapshot_begin:
            ok = get_state(c, &out, static_cast<uint8_t>(snapshot_reason::reconnect)) &&
                 c.bytes(&out.text, MAX_TEXT, "a text");
            break;
        case record_type::link:
            ok = get_state(c, &out, static_cast<uint8_t>(link_state::restored)) &&
                 c.bytes(&out.text, MAX_TEXT, "a text");
            break;
        case record_type::presence:
            ok = get_state(c, &out, static_cast<uint8_t>(presence_state::unknown)) &&
                 c.bytes(&out.text, MAX_TEXT, "a text");
            break;
        case record_type::snapshot_key:
            ok = get_db(c, &out.db) && get_key(c, h_.families, &out.key) && get_value(c, &out);
            break;
        case record_type::event:
            ok = get_db(c, &out.db) && get_event(c, &out.event) &&
                 get_key(c, h_.families, &out.key) && get_value(c, &out);
            break;
        case record_type::snapshot_end:
        case record_type::end:
            ok = c.varint(&out.count) && c.bytes(&out.text, MAX_TEXT, "a text");
            break;
        }
    }
    if (!ok) {
        return failed(c, body_at,
                      (std::string("bad ") + record_type_name(out.type) + " record").c_str());
    }
    // Bytes left in a record are a newer writer's fields: skipped.
    mono_ = out.mono_us;
    wall_ = out.wall_us;
    pos_ = body_at + static_cast<std::size_t>(length);
    *r = std::move(out);
    return next::RECORD;
}

const char *record_type_name(record_type t) {
    switch (t) {
    case record_type::snapshot_begin:
        return "snapshot_begin";
    case record_type::snapshot_key:
        return "snapshot_key";
    case record_type::snapshot_end:
        return "snapshot_end";
    case record_type::event:
        return "event";
    case record_type::link:
        return "link";
    case record_type::presence:
        return "presence";
    case record_type::end:
        return "end";
    }
    return "unknown";
}

const char *presence_state_name(presence_state s) {
    switch (s) {
    case presence_state::subscribed:
        return "subscribed";
    case presence_state::connected:
        return "connected";
    case presence_state::absent:
        return "absent";
    case presence_state::unknown:
        return "unknown";
    }
    return "unknown";
}

const char *snapshot_reason_name(snapshot_reason r) {
    switch (r) {
    case snapshot_reason::start:
        return "start";
    case snapshot_reason::rotation:
        return "rotation";
    case snapshot_reason::reconnect:
        return "reconnect";
    }
    return "unknown";
}

} // namespace rec
