// SPDX-License-Identifier: BSD-3-Clause
// Writes a recording to its file, and keeps it bounded when asked to: a
// ring of two files, the current one and the one before it (".1"), each
// held to half the size or half the age, and each starting with a snapshot
// of the keyspace so that either replays on its own.
#pragma once

#include <cstdint>
#include <string>

#include "recording.h"
#include "recording_file.h"

namespace rec {

struct ring_bounds {
    uint64_t bytes = 0; // 0: no bound
    int64_t age_us = 0; // 0: no bound
};

class segment_writer {
  public:
    segment_writer(std::string path, ring_bounds ring, segment_header first);
    ~segment_writer();
    segment_writer(const segment_writer &) = delete;
    segment_writer &operator=(const segment_writer &) = delete;

    // Creates (truncates) the file and writes its header.
    bool open(std::string *why);
    // Queues one record; in a ring, the keyspace follows every record (a
    // rotation writes it out).
    void add(const record &r);
    // Writes what is queued; the file is whole at every record boundary it
    // ends on.
    bool flush(std::string *why);
    // When the current file is over its half of the ring: it becomes the
    // older file and a new one starts with the keyspace as its snapshot.
    bool rotate_if_due(int64_t mono_us, int64_t wall_us, std::string *why);

    uint64_t bytes_written() const { return total_bytes_; }
    uint64_t events() const { return events_; }
    const keyspace &space() const { return space_; }
    const std::string &path() const { return path_; }
    uint32_t segment() const { return header_.segment; }

  private:
    bool write_all(const std::string &bytes, std::string *why);

    std::string path_;
    ring_bounds ring_;
    segment_header header_;
    encoder enc_;
    keyspace space_;
    std::string pending_;
    int fd_ = -1;
    uint64_t file_bytes_ = 0;
    uint64_t snapshot_bytes_ = 0; // the header and snapshot of the current file
    uint64_t total_bytes_ = 0;
    uint64_t events_ = 0;
};

} // namespace rec
