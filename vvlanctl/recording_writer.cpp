// SPDX-License-Identifier: BSD-3-Clause
#include "recording_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace rec {

segment_writer::segment_writer(std::string path, ring_bounds ring, segment_header first)
    : path_(std::move(path)), ring_(ring), header_(std::move(first)), enc_(header_) {}

segment_writer::~segment_writer() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

bool segment_writer::open(std::string *why) {
    if (fd_ >= 0) {
        close(fd_);
    }
    fd_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd_ < 0) {
        *why = path_ + ": " + std::strerror(errno);
        return false;
    }
    enc_ = encoder(header_);
    file_bytes_ = 0;
    return write_all(enc_.header(), why);
}

void segment_writer::add(const record &r) {
    enc_.append(r, &pending_);
    // Only a ring writes the keyspace out again.
    if (ring_.bytes != 0 || ring_.age_us != 0) {
        apply(r, &space_);
    }
    events_ += r.type == record_type::event ? 1 : 0;
}

bool segment_writer::write_all(const std::string &bytes, std::string *why) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd_, bytes.data() + done, bytes.size() - done);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            *why = path_ + ": " + std::strerror(errno);
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    file_bytes_ += bytes.size();
    total_bytes_ += bytes.size();
    return true;
}

bool segment_writer::flush(std::string *why) {
    if (pending_.empty()) {
        return true;
    }
    const bool ok = write_all(pending_, why);
    pending_.clear();
    return ok;
}

bool segment_writer::rotate_if_due(int64_t mono_us, int64_t wall_us, std::string *why) {
    // A file holds at least as many bytes of events as of its snapshot, so
    // that a keyspace larger than half the ring cannot make every write a
    // rotation (the ring then outgrows its size rather than its purpose).
    const uint64_t size = file_bytes_ + pending_.size();
    const bool by_size = ring_.bytes != 0 && size >= ring_.bytes / 2 && size >= 2 * snapshot_bytes_;
    const bool by_age = ring_.age_us != 0 && mono_us - header_.start_mono_us >= ring_.age_us / 2;
    if (!by_size && !by_age) {
        return true;
    }
    if (!flush(why)) {
        return false;
    }
    const std::string older = path_ + ".1";
    if (std::rename(path_.c_str(), older.c_str()) != 0) {
        *why = "cannot rename " + path_ + " to " + older + ": " + std::strerror(errno);
        return false;
    }
    header_.segment += 1;
    header_.start_mono_us = mono_us;
    header_.start_wall_us = wall_us;
    if (!open(why)) {
        return false;
    }
    // The new file's snapshot is the keyspace as the records left it: the
    // same state the older file ends in, so the two read as one.
    record begin;
    begin.type = record_type::snapshot_begin;
    begin.mono_us = mono_us;
    begin.wall_us = wall_us;
    begin.state = static_cast<uint8_t>(snapshot_reason::rotation);
    enc_.append(begin, &pending_);
    for (const auto &[id, value] : space_) {
        record k;
        k.type = record_type::snapshot_key;
        k.mono_us = mono_us;
        k.wall_us = wall_us;
        k.db = id.first;
        k.key = id.second;
        k.kind = value.kind;
        k.value = value.value;
        k.ttl_ms = value.ttl_ms;
        enc_.append(k, &pending_);
    }
    record end;
    end.type = record_type::snapshot_end;
    end.mono_us = mono_us;
    end.wall_us = wall_us;
    end.count = space_.size();
    enc_.append(end, &pending_);
    snapshot_bytes_ = file_bytes_ + pending_.size();
    return flush(why);
}

} // namespace rec
