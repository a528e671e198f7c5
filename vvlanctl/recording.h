// SPDX-License-Identifier: BSD-3-Clause
// The flight recorder's file format: what vvlanctl record writes and
// vvlanctl history and replay read. A recording is a header that describes
// itself (the key families and the value codec it was written with) and a
// stream of length-framed records: a snapshot of every key of the families,
// then every keyspace event with the value read right after it, and the
// losses of the recorder's own connection and of the daemon's subscription.
// Nothing here does I/O, so the reader can be fuzzed on bytes alone. The
// layout is documented byte by byte in docs/flight-recorder.md.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rec {

inline constexpr std::string_view MAGIC = "VVLANREC";
// Raised when a record's layout changes; a reader refuses a newer one.
inline constexpr uint16_t FORMAT_VERSION = 1;
// The value layouts of the keys (wire/values.h) this tool decodes; the
// values themselves are stored as their bytes, so an older codec only
// changes how history words them.
inline constexpr uint16_t CODEC_VERSION = 1;

// Bounds a reader holds a file to, so that a corrupt length can neither
// allocate without limit nor run past the data.
inline constexpr std::size_t MAX_HEADER = 64 * 1024;
inline constexpr std::size_t MAX_KEY = 4096;
inline constexpr std::size_t MAX_VALUE = 16 * 1024 * 1024;
inline constexpr std::size_t MAX_TEXT = 4096;
inline constexpr std::size_t MAX_FAMILIES = 64;

enum class record_type : uint8_t {
    snapshot_begin =
        1,            // a snapshot follows: at the start, after a ring rotation, after a reconnect
    snapshot_key = 2, // one key of the snapshot
    snapshot_end = 3, // the snapshot is complete (count of its keys)
    event = 4,        // a keyspace event and the value read after it
    link = 5,         // the recorder's own connection lost or back
    presence = 6,     // the daemon's subscription as the client list shows it
    end = 7,          // the recording stopped on purpose
};

enum class snapshot_reason : uint8_t { start = 0, rotation = 1, reconnect = 2 };

// What the recorder read for a key: nothing (deleted, expired, or gone
// again before the read), a string's bytes, or another type (its name); or
// not read at all, because a later event of the same key arrived with it
// (in a storm, events come in batches and only the last of a key is read:
// its value is the one any read would have given).
enum class value_kind : uint8_t { absent = 0, string = 1, other_type = 2, superseded = 3 };

enum class link_state : uint8_t { lost = 0, restored = 1 };

// The daemon's presence, as vvlanctl show names it (presence.h).
enum class presence_state : uint8_t { subscribed = 0, connected = 1, absent = 2, unknown = 3 };

// No time-to-live, or none read.
inline constexpr int64_t NO_TTL = -1;

struct family_entry {
    std::string name;
    std::string prefix;
    bool exact = false;
    int sub_db = 0;
};

struct segment_header {
    uint16_t format_version = FORMAT_VERSION;
    uint16_t codec_version = CODEC_VERSION;
    uint32_t segment = 1; // 1, then one more for each ring rotation
    int64_t start_wall_us = 0;
    int64_t start_mono_us = 0;
    std::string tool;   // "vvlanctl <version>"
    std::string server; // where it was recorded
    std::vector<family_entry> families;
};

struct record {
    record_type type = record_type::event;
    int64_t mono_us = 0; // CLOCK_MONOTONIC, microseconds
    int64_t wall_us = 0; // CLOCK_REALTIME, microseconds since the epoch
    int db = 0;
    std::string event; // event: the server's event name ("set", "del", "expired", ...)
    std::string key;
    value_kind kind = value_kind::absent;
    std::string value;       // string: its bytes; other_type: the type's name
    int64_t ttl_ms = NO_TTL; // snapshot_key and event: the time-to-live read, NO_TTL for none
    uint8_t state = 0;       // snapshot_begin: snapshot_reason; link: link_state; presence:
                             // presence_state
    std::string text;        // link: the error; presence: the connection; end: why it stopped
    uint64_t count = 0;      // snapshot_end: keys in the snapshot; end: events recorded
};

// The families of this build, as a header carries them.
std::vector<family_entry> current_families();

// Encodes a segment: its header once, then records in time order (times are
// written as deltas from the record before).
class encoder {
  public:
    explicit encoder(const segment_header &h);
    // The header's bytes.
    std::string header() const;
    // Appends one record's bytes to *out.
    void append(const record &r, std::string *out);

  private:
    segment_header h_;
    int64_t mono_ = 0;
    int64_t wall_ = 0;
    std::string body_;
};

// Decodes one segment from its bytes. Every length and count is checked
// against what is left and against the bounds above; the first fault stops
// the reader with a message that names the byte where it is.
class decoder {
  public:
    explicit decoder(std::string_view bytes) : in_(bytes) {}
    bool read_header(segment_header *h, std::string *why);
    enum class next { RECORD, END_OF_DATA, FAULT };
    next read(record *r, std::string *why);
    std::size_t offset() const { return pos_; }

  private:
    std::string_view in_;
    std::size_t pos_ = 0;
    segment_header h_;
    int64_t mono_ = 0;
    int64_t wall_ = 0;
};

const char *record_type_name(record_type t);
const char *presence_state_name(presence_state s);
const char *snapshot_reason_name(snapshot_reason r);

} // namespace rec
