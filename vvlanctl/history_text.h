// SPDX-License-Identifier: BSD-3-Clause
// A flight recording told in words, record by record: the events in the
// words of vvlanctl watch (with the value the recorder read right after
// each, so that no server is needed), the recorder's snapshots, its
// connection and the daemon's presence, and what the daemon did where the
// keys prove it: a re-synchronisation's sweep of a copy it marked, the
// aging thread's withdrawal of a join request, a learning written while the
// daemon was not subscribed.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "event_text.h"
#include "recording_file.h"

class history_teller {
  public:
    history_teller();
    history_teller(const history_teller &) = delete;
    history_teller &operator=(const history_teller &) = delete;

    // Applies the record to the recorded keyspace and returns its line, or
    // nothing for a record that has none of its own (a snapshot's start and
    // keys: its end says how many).
    std::optional<std::string> tell(const rec::record &r);

    // The daemon's presence as the last presence record gave it.
    rec::presence_state presence() const { return presence_; }
    const rec::keyspace &space() const { return space_; }

  private:
    std::string explain_event(const rec::record &r, bool was_voice_learning);
    std::string snapshot_line(const rec::record &r);
    std::string presence_line(const rec::record &r);
    bool voice_learning_on(int32_t ifx) const;
    bool is_voice(const std::string &key) const;
    void reload_slots();
    void apply(const rec::record &r);

    rec::keyspace space_;
    event_context ctx_;
    rec::snapshot_reason reason_ = rec::snapshot_reason::start;
    // Database-0 copies the re-synchronisation marked with a time to live
    // and has not seen re-published since.
    std::set<rec::key_id> marked_;
    // The learned-address keys in the keyspace by port, so that whether a
    // port has a voice address left is a look at its own addresses.
    std::map<int32_t, std::set<std::string>> learnings_;
    // Ports whose last voice address aged out, until one is learned again.
    std::set<int32_t> aged_out_;
    rec::presence_state presence_ = rec::presence_state::unknown;
};

// One record as a line of JSON: watch's fields (time, db, event, key,
// family, port, text; null where the record has none) and the record's
// type, monotonic time, value and the daemon's presence.
std::string history_json_line(const std::string &stamp, const rec::record &r,
                              const std::string &text, rec::presence_state presence);
