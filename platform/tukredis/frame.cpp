// SPDX-License-Identifier: BSD-3-Clause
#include "frame.h"

#include <cstring>
#include <poll.h>

#include "hiredis_reader.h"

namespace tukredis {
namespace {

frame_buf *frame_of(const redisReadTask *task) {
    // The reader hands its privdata to every task of a reply.
    return static_cast<frame_buf *>(task->privdata);
}

// The part an element of the top array fills, or null for the top itself,
// for elements past the fourth and for anything deeper.
frame_buf::part_buf *part_of(frame_buf *frame, const redisReadTask *task) {
    if (task->parent == nullptr) {
        return nullptr;
    }
    if (task->parent->parent != nullptr) {
        frame->nested = true;
        return nullptr;
    }
    if (task->idx < 0 || static_cast<size_t>(task->idx) >= frame_buf::PARTS) {
        return nullptr;
    }
    return &frame->parts[task->idx];
}

void *create_scalar(const redisReadTask *task, int type) {
    frame_buf *frame = frame_of(task);
    if (task->parent == nullptr) {
        frame->clear();
        frame->type = type;
    } else if (frame_buf::part_buf *part = part_of(frame, task)) {
        part->type = type;
    }
    return frame;
}

// The reader's callbacks, in the shape hiredis_reader.h turns into the
// table of the hiredis at hand.
struct frame_builder {
    static void *string(const redisReadTask *task, char *bytes, size_t length) {
        frame_buf *frame = frame_of(task);
        frame_buf::part_buf *part = part_of(frame, task);
        if (task->parent == nullptr) {
            frame->clear();
            frame->type = task->type;
            part = &frame->parts[0];
        }
        if (part != nullptr) {
            part->type = task->type;
            part->length = length;
            std::memcpy(part->bytes, bytes,
                        length < frame_buf::PART_BYTES ? length : frame_buf::PART_BYTES);
        }
        return frame;
    }

    static void *array(const redisReadTask *task, hiredis::array_count elements) {
        frame_buf *frame = frame_of(task);
        if (task->parent == nullptr) {
            frame->clear();
            frame->type = REDIS_REPLY_ARRAY;
            frame->elements = elements > static_cast<hiredis::array_count>(frame_buf::MOST_ELEMENTS)
                                  ? frame_buf::MOST_ELEMENTS
                                  : static_cast<long>(elements);
        } else if (frame_buf::part_buf *part = part_of(frame, task)) {
            part->type = REDIS_REPLY_ARRAY;
            frame->nested = true;
        } else {
            frame->nested = true;
        }
        return frame;
    }

    static void *integer(const redisReadTask *task, long long) {
        return create_scalar(task, REDIS_REPLY_INTEGER);
    }

    // RESP3 only: a RESP2 connection never sees them.
    static void *real(const redisReadTask *task, double, char *, size_t) {
        return create_scalar(task, task->type);
    }
    static void *boolean(const redisReadTask *task, int) { return create_scalar(task, task->type); }

    static void *nil(const redisReadTask *task) { return create_scalar(task, REDIS_REPLY_NIL); }

    // The frame belongs to the session; the reader frees nothing.
    static void release(void *) {}
};

redisReplyObjectFunctions frame_functions = hiredis::reply_functions<frame_builder>();

} // namespace

void frame_buf::clear() noexcept {
    type = 0;
    elements = 0;
    nested = false;
    for (part_buf &part : parts) {
        part.type = 0;
        part.length = 0;
    }
}

bool frame_buf::is_push(std::string_view word) const noexcept {
    return type == REDIS_REPLY_ARRAY && elements > 0 && !nested &&
           parts[0].type == REDIS_REPLY_STRING && parts[0].whole() && parts[0].kept() == word;
}

void read_into(redisContext *context, frame_buf *frame) noexcept {
    redisReader *reader = context->reader;
    reader->fn = &frame_functions;
    reader->privdata = frame;
    // By default the reader frees its buffer whenever it runs empty with
    // more than 16 KiB spare, and allocates it again on the next read.
    reader->maxbuf = 0;
}

bool next_frame(redisContext *context, bool &error) noexcept {
    void *reply = nullptr;
    error = redisGetReplyFromReader(context, &reply) != REDIS_OK;
    return !error && reply != nullptr;
}

bool read_frame(redisContext *context, const io_deadline &deadline, std::string &why) {
    for (;;) {
        bool error = false;
        if (next_frame(context, error)) {
            return true;
        }
        if (error) {
            why = context_error(context);
            return false;
        }
        if (!wait_ready(context->fd, POLLIN, deadline, why)) {
            return false;
        }
        if (redisBufferRead(context) != REDIS_OK) {
            why = context_error(context);
            return false;
        }
    }
}

} // namespace tukredis
