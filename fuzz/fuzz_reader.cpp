// SPDX-License-Identifier: BSD-3-Clause
// The bus library's in-place pmessage reader against hiredis's own reader:
// the same arbitrary byte stream, fed in the same pieces, must give the same
// verdict (the same replies, or a protocol error at the same point) and the
// same pmessage fields. The in-place reader hands every reply it does not
// read itself to hiredis, as the library does; the other reader is hiredis
// alone. Any difference aborts.
//
// The first byte of an input sets the size of the pieces fed (1 to 256), so
// that frames are also cut anywhere; the rest is the stream.
#include <hiredis/hiredis.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "pmessage_view.h"

namespace {

using tukredis::in_place;
using tukredis::next_pmessage;
using tukredis::pmessage_view;

struct reader_free {
    void operator()(redisReader *r) const { redisReaderFree(r); }
};
using reader_ptr = std::unique_ptr<redisReader, reader_free>;

// One reply in words both readers can give: a pmessage of three strings as
// its fields, anything else by its type and size.
std::string describe(const redisReply *r) {
    if (r->type == REDIS_REPLY_ARRAY && r->elements == 4) {
        bool strings = true;
        for (size_t i = 0; i < 4; ++i) {
            strings = strings && r->element[i]->type == REDIS_REPLY_STRING;
        }
        if (strings && std::string_view(r->element[0]->str, r->element[0]->len) == "pmessage") {
            std::string out = "pmessage";
            for (size_t i = 1; i < 4; ++i) {
                out += '|';
                out.append(r->element[i]->str, r->element[i]->len);
            }
            return out;
        }
    }
    // Appended piece by piece: GCC 12 at -O3 takes "literal" + std::string
    // for an overlapping copy (-Wrestrict, a known false positive).
    std::string out = "type ";
    out += std::to_string(r->type);
    if (r->type == REDIS_REPLY_ARRAY) {
        out += " of ";
        out += std::to_string(r->elements);
    } else if (r->str != nullptr) {
        out += ' ';
        out.append(r->str, r->len);
    } else {
        out += ' ';
        out += std::to_string(r->integer);
    }
    return out;
}

// Takes hiredis's next reply into seen; false once there is none or the
// reader failed (which ends the stream for good: "error" is recorded).
bool hiredis_next(redisReader *reader, std::vector<std::string> &seen) {
    void *reply = nullptr;
    if (redisReaderGetReply(reader, &reply) != REDIS_OK) {
        seen.push_back("error");
        return false;
    }
    if (reply == nullptr) {
        return false;
    }
    seen.push_back(describe(static_cast<redisReply *>(reply)));
    freeReplyObject(reply);
    return true;
}

void drain_in_place(redisReader *reader, std::vector<std::string> &seen) {
    for (;;) {
        pmessage_view view;
        switch (next_pmessage(reader, view)) {
        case in_place::MESSAGE:
            seen.push_back("pmessage|" + std::string(view.pattern) + "|" +
                           std::string(view.channel) + "|" + std::string(view.event));
            continue;
        case in_place::PARTIAL:
            return;
        case in_place::OTHER:
            if (!hiredis_next(reader, seen)) {
                return;
            }
            continue;
        }
    }
}

void drain_hiredis(redisReader *reader, std::vector<std::string> &seen) {
    while (hiredis_next(reader, seen)) {
    }
}

// hiredis allocates a declared array (or map, set, push) whole before its
// elements arrive: "*999999999" makes it ask for gigabytes. That is hiredis's
// allocator at work, not either reader, so declared counts stay below 10,000.
bool declares_a_huge_aggregate(std::string_view stream) {
    for (std::size_t at = stream.find_first_of("*%~>"); at != std::string_view::npos;
         at = stream.find_first_of("*%~>", at + 1)) {
        std::size_t digits = 0;
        while (at + 1 + digits < stream.size() && stream[at + 1 + digits] >= '0' &&
               stream[at + 1 + digits] <= '9') {
            ++digits;
        }
        if (digits > 4) {
            return true;
        }
    }
    return false;
}

bool failed(const std::vector<std::string> &seen) {
    return !seen.empty() && seen.back() == "error";
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const size_t piece = static_cast<size_t>(data[0]) + 1;
    const std::string_view stream(reinterpret_cast<const char *>(data) + 1, size - 1);
    if (declares_a_huge_aggregate(stream)) {
        return 0;
    }
    reader_ptr in_place_reader(redisReaderCreate());
    reader_ptr plain_reader(redisReaderCreate());
    if (!in_place_reader || !plain_reader) {
        return 0;
    }
    std::vector<std::string> by_view;
    std::vector<std::string> by_hiredis;
    for (size_t at = 0; at < stream.size() && !failed(by_view) && !failed(by_hiredis);
         at += piece) {
        const std::string_view part = stream.substr(at, piece);
        if (redisReaderFeed(in_place_reader.get(), part.data(), part.size()) != REDIS_OK ||
            redisReaderFeed(plain_reader.get(), part.data(), part.size()) != REDIS_OK) {
            return 0; // out of memory: nothing to compare
        }
        drain_in_place(in_place_reader.get(), by_view);
        drain_hiredis(plain_reader.get(), by_hiredis);
        if (by_view != by_hiredis) {
            std::fprintf(
                stderr,
                "the readers differ after %zu bytes: %zu replies in place, %zu by hiredis\n",
                at + part.size(), by_view.size(), by_hiredis.size());
            for (size_t i = 0; i < by_view.size() || i < by_hiredis.size(); ++i) {
                std::fprintf(stderr, "  %zu: %s | %s\n", i,
                             i < by_view.size() ? by_view[i].c_str() : "-",
                             i < by_hiredis.size() ? by_hiredis[i].c_str() : "-");
            }
            std::abort();
        }
    }
    return 0;
}
