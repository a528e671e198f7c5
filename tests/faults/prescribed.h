// SPDX-License-Identifier: BSD-3-Clause
// The daemon's state after a fault against the state a fresh daemon reaches
// on the same configuration and the same learned addresses: the two must be
// equal except for the losses the design accepts, each named here with the
// keys it changes and what `vvlanctl check` reports about it.
#pragma once

#include <compare>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace faults {

struct db_key {
    int db;
    std::string key;
    auto operator<=>(const db_key &) const = default;
};

// Every key of databases 0 and 1 with its value (non-string values as
// "<type>").
using db_state = std::map<db_key, std::string>;

// One key that differs: its value after the fault and in the fresh daemon's
// databases (nullopt: no such key).
struct key_difference {
    std::optional<std::string> faulted;
    std::optional<std::string> fresh;
    bool operator==(const key_difference &) const = default;
};
using state_difference = std::map<db_key, key_difference>;

state_difference compare_states(const db_state &faulted, const db_state &fresh);

// A finding of `vvlanctl check --json`: its kind and port (-1 where none).
struct finding {
    std::string kind;
    int ifx;
    auto operator<=>(const finding &) const = default;
};
using findings = std::multiset<finding>;

std::string describe(const db_key &key);
std::string describe(const state_difference &diff);
std::string describe(const findings &f);

// The losses that the daemon's design prescribes, built up by a test as it
// causes them. Each adds its keys to the expected difference and its
// findings to the expected check.
class prescribed_losses {
  public:
    // Every re-synchronisation sweeps the database-0 mode 2 key of a joined
    // port: nothing in database 1 publishes it again. The join request in
    // database 1 and the join in memory stay.
    void mode2_key_swept(int ifx);
    // A voice address learned while the daemon was not subscribed: the
    // re-synchronisation does not re-read learnings, so the port never joins.
    void learning_lost(int ifx);
    // A port taken out of automatic mode while the daemon was disconnected
    // stays automatic in memory. Joined before: its join request stays.
    void unset_auto_still_joined(int ifx);
    // ... and it still joins when a phone is learned on it afterwards.
    void unset_auto_still_joins(int ifx);
    // A voice OUI deleted while the daemon was disconnected still matches
    // in memory: a phone of it joins a port.
    void deleted_oui_still_joins(int ifx);
    // A security mode deleted while the daemon was disconnected stays on in
    // memory and is published again by every re-synchronisation.
    void deleted_security_still_published();

    const state_difference &difference() const { return difference_; }
    const findings &check_findings() const { return findings_; }
    const std::vector<std::string> &names() const { return names_; }

  private:
    void add(int db, const std::string &key, std::optional<std::string> faulted,
             std::optional<std::string> fresh);
    void note(const std::string &name, const std::string &kind, int ifx);

    state_difference difference_;
    findings findings_;
    std::vector<std::string> names_;
};

} // namespace faults
