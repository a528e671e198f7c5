// SPDX-License-Identifier: BSD-3-Clause
// What a printed trace line costs when standard output is a pipe, as under
// an init system or the journal: fully buffered (what stdio chooses for a
// pipe by itself) against line-buffered (what main sets at start-up, so that
// each line reaches the reader when it is printed). The lines go through the
// daemon's real sink (trace/trace_out.cpp); a thread drains the pipe as a
// log reader would. A trace filtered out by the level is measured under line
// buffering too: it must cost what it costs in bench_handlers.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

#include "trace/trace.h"

namespace {

// While alive, file descriptor 1 is the write end of a pipe that a thread
// reads to the end, and stdout has the given buffering. glibc accepts
// setvbuf on a stream that was used before, once it is flushed; the
// benchmark library's own report is flushed and restored around it.
class stdout_to_pipe {
  public:
    explicit stdout_to_pipe(int mode) {
        std::fflush(stdout);
        saved_ = dup(1);
        int fds[2];
        if (saved_ < 0 || pipe2(fds, O_CLOEXEC) != 0 || dup2(fds[1], 1) < 0) {
            std::perror("stdout_to_pipe");
            std::abort();
        }
        close(fds[1]);
        reader_ = std::thread([fd = fds[0], this] {
            char buf[65536];
            for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;) {
                bytes_ += n;
            }
            close(fd);
        });
        std::setvbuf(stdout, nullptr, mode, BUFSIZ);
    }
    ~stdout_to_pipe() { finish(); }
    // Restores standard output and returns the bytes the reader received.
    long finish() {
        if (saved_ >= 0) {
            std::fflush(stdout);
            dup2(saved_, 1); // closes the pipe's last write end: the reader ends
            close(saved_);
            saved_ = -1;
            reader_.join();
        }
        return bytes_;
    }
    stdout_to_pipe(const stdout_to_pipe &) = delete;
    stdout_to_pipe &operator=(const stdout_to_pipe &) = delete;

  private:
    int saved_ = -1;
    long bytes_ = 0;
    std::thread reader_;
};

// One typical line, the record line every handler prints (about 90 bytes).
// The level is stored as the debug-key handler stores it.
void set_level(uint32_t level) {
    dov_vvlan_dbg_level.store(level, std::memory_order_relaxed);
}

void trace_lines(benchmark::State &state, int mode, uint32_t level) {
    set_level(level);
    stdout_to_pipe out(mode);
    const char *key = "/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456";
    int cmd = 0;
    for (auto _ : state) {
        TRACE_INFO("pmsg db=%d key=%s cmd=%d", 0, key, cmd);
        benchmark::DoNotOptimize(++cmd);
    }
    const long bytes = out.finish();
    set_level(0);
    state.SetItemsProcessed(state.iterations());
    state.counters["bytes/line"] =
        static_cast<double>(bytes) / static_cast<double>(state.iterations());
}

void bm_trace_line_fully_buffered(benchmark::State &state) {
    trace_lines(state, _IOFBF, DBG_ALL);
}
BENCHMARK(bm_trace_line_fully_buffered);

void bm_trace_line_line_buffered(benchmark::State &state) {
    trace_lines(state, _IOLBF, DBG_ALL);
}
BENCHMARK(bm_trace_line_line_buffered);

void bm_filtered_trace_line_buffered(benchmark::State &state) {
    trace_lines(state, _IOLBF, 0);
}
BENCHMARK(bm_filtered_trace_line_buffered);

} // namespace

BENCHMARK_MAIN();
