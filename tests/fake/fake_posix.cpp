// SPDX-License-Identifier: BSD-3-Clause
#include "fake_posix.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

extern "C" {
int __real_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
int __real_pthread_mutex_init(pthread_mutex_t *, const pthread_mutexattr_t *);
int __real_fcntl(int, int, ...);
void *__real_malloc(std::size_t);
unsigned __real_sleep(unsigned);
pid_t __real_getpid(void);
}

namespace fake {
namespace {

std::atomic<int> g_create_result{0};
std::atomic<int> g_create_calls{0};
std::atomic<int> g_mutex_result{0};
std::atomic<int> g_mutex_calls{0};
std::atomic<int> g_fcntl_errno{0};
std::atomic<std::size_t> g_malloc_size{0};
std::atomic<int> g_malloc_count{0};
std::atomic<sleep_mode> g_sleep_mode{sleep_mode::REAL};
std::atomic<long> g_getpid_calls{0};

// Controlled clock state, guarded by a plain pthread mutex because the
// sleeping thread is cancelled inside pthread_cond_wait.
pthread_mutex_t g_clock_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t g_clock_cond = PTHREAD_COND_INITIALIZER;
uint64_t g_entered = 0;  // sleeps begun
uint64_t g_released = 0; // sleeps allowed to return
unsigned g_current = 0;
std::vector<unsigned> g_requests;

void clock_unlock(void *) {
    pthread_mutex_unlock(&g_clock_mutex);
}

timespec deadline_after(std::chrono::milliseconds ms) {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    const long long ns = ts.tv_nsec + static_cast<long long>(ms.count() % 1000) * 1000000LL;
    ts.tv_sec += static_cast<time_t>(ms.count() / 1000 + ns / 1000000000LL);
    ts.tv_nsec = static_cast<long>(ns % 1000000000LL);
    return ts;
}

} // namespace

void posix_faults::reset() {
    g_create_result = 0;
    g_create_calls = 0;
    g_mutex_result = 0;
    g_mutex_calls = 0;
    g_fcntl_errno = 0;
    g_malloc_size = 0;
    g_malloc_count = 0;
    g_getpid_calls = 0;
}

void posix_faults::fail_pthread_create(int result) {
    g_create_result = result;
}
void posix_faults::fail_mutex_init(int result) {
    g_mutex_result = result;
}
void posix_faults::fail_fcntl_setlk(int err) {
    g_fcntl_errno = err;
}
void posix_faults::fail_malloc(std::size_t size, int count) {
    g_malloc_size = size;
    g_malloc_count = count;
}
int posix_faults::pthread_create_calls() {
    return g_create_calls;
}
int posix_faults::mutex_init_calls() {
    return g_mutex_calls;
}
long posix_faults::getpid_calls() {
    return g_getpid_calls;
}

sleep_control &sleep_control::get() {
    static sleep_control instance;
    return instance;
}

void sleep_control::reset(sleep_mode mode) {
    pthread_mutex_lock(&g_clock_mutex);
    g_sleep_mode = mode;
    g_entered = 0;
    g_released = 0;
    g_current = 0;
    g_requests.clear();
    pthread_cond_broadcast(&g_clock_cond);
    pthread_mutex_unlock(&g_clock_mutex);
}

bool sleep_control::wait_sleeping(unsigned *seconds, std::chrono::milliseconds deadline) {
    const timespec until = deadline_after(deadline);
    pthread_mutex_lock(&g_clock_mutex);
    while (g_entered <= g_released) {
        if (pthread_cond_timedwait(&g_clock_cond, &g_clock_mutex, &until) == ETIMEDOUT) {
            pthread_mutex_unlock(&g_clock_mutex);
            return false;
        }
    }
    if (seconds != nullptr) {
        *seconds = g_current;
    }
    pthread_mutex_unlock(&g_clock_mutex);
    return true;
}

void sleep_control::release() {
    pthread_mutex_lock(&g_clock_mutex);
    g_released = g_entered;
    pthread_cond_broadcast(&g_clock_cond);
    pthread_mutex_unlock(&g_clock_mutex);
}

std::vector<unsigned> sleep_control::requests() {
    pthread_mutex_lock(&g_clock_mutex);
    std::vector<unsigned> out = g_requests;
    pthread_mutex_unlock(&g_clock_mutex);
    return out;
}

unsigned sleep_control::sleep_for(unsigned seconds) {
    switch (g_sleep_mode.load()) {
    case sleep_mode::REAL:
        return __real_sleep(seconds);
    case sleep_mode::INSTANT: {
        const timespec pause{0, 200000}; // 0.2 ms: a cancellation point, no busy loop
        nanosleep(&pause, nullptr);
        return 0;
    }
    case sleep_mode::CONTROLLED:
        break;
    }
    pthread_mutex_lock(&g_clock_mutex);
    const uint64_t mine = ++g_entered;
    g_current = seconds;
    g_requests.push_back(seconds);
    pthread_cond_broadcast(&g_clock_cond);
    pthread_cleanup_push(clock_unlock, nullptr);
    while (g_released < mine) {
        pthread_cond_wait(&g_clock_cond, &g_clock_mutex); // a cancellation point
    }
    pthread_cleanup_pop(0);
    pthread_mutex_unlock(&g_clock_mutex);
    return 0;
}

} // namespace fake

extern "C" {

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *),
                          void *arg) {
    ++fake::g_create_calls;
    const int result = fake::g_create_result;
    if (result != 0) {
        return result;
    }
    return __real_pthread_create(thread, attr, start, arg);
}

int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr) {
    ++fake::g_mutex_calls;
    const int result = fake::g_mutex_result;
    if (result != 0) {
        return result;
    }
    return __real_pthread_mutex_init(mutex, attr);
}

int __wrap_fcntl(int fd, int cmd, ...) {
    va_list ap;
    va_start(ap, cmd);
    void *arg = va_arg(ap, void *);
    va_end(ap);
    const int err = fake::g_fcntl_errno;
    if (cmd == F_SETLK && err != 0) {
        errno = err;
        return -1;
    }
    return __real_fcntl(fd, cmd, arg);
}

void *__wrap_malloc(std::size_t size) {
    if (size == fake::g_malloc_size && fake::g_malloc_count > 0) {
        --fake::g_malloc_count;
        return nullptr;
    }
    return __real_malloc(size);
}

unsigned __wrap_sleep(unsigned seconds) {
    return fake::sleep_control::get().sleep_for(seconds);
}

pid_t __wrap_getpid(void) {
    ++fake::g_getpid_calls;
    return __real_getpid();
}

} // extern "C"
