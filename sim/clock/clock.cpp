// A clock that runs at another pace than the machine's. Preloaded into a program like the simulated driver, it answers
// clock_gettime, gettimeofday and time, and waits as long as sleep, usleep, nanosleep and select shall take by that
// clock.
//
// /tmp/sim/clock, read anew at every call, is one line of six numbers (times in nanoseconds):
//   START BASE FACTOR LIMIT THEN EPOCH
// At the machine's monotonic time START the program's is BASE; it runs FACTOR times as fast until it has advanced by
// LIMIT, and THEN times as fast from there on (0: it stands still). The wall clock is EPOCH ahead of it. Without the
// file time is the machine's.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <initializer_list>
#include <sys/select.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr char CONTROL[] = "/tmp/sim/clock";
constexpr int64_t SECOND = 1'000'000'000;
constexpr int64_t LONGEST_NAP = 20'000'000;  // in which a change of the pace goes unnoticed

static_assert(sizeof(time_t) == sizeof(long));  // the system calls below are those of this size

struct pace {
    int64_t start;
    int64_t base;
    int64_t factor;
    int64_t limit;
    int64_t then;
    int64_t epoch;
    bool is_set;
};

/// The file is replaced, never changed: one read sees all of a line. Needs nothing that a signal handler may not use.
pace read_pace() {
    pace pace = {};
    const int error = errno;
    char text[160] = {};
    const int file = open(CONTROL, O_RDONLY | O_CLOEXEC);
    if (file >= 0) {
        const ssize_t length = read(file, text, sizeof text - 1);
        close(file);
        char *at = text;
        for (int64_t *number : {&pace.start, &pace.base, &pace.factor, &pace.limit, &pace.then, &pace.epoch})
            *number = strtoll(at, &at, 10);
        pace.is_set = length > 0;
    }
    errno = error;
    return pace;
}

int64_t machine_time(clockid_t clock) {
    timespec time = {};
    syscall(SYS_clock_gettime, clock, &time);
    return int64_t{time.tv_sec} * SECOND + time.tv_nsec;
}

/// How many times as fast as the machine's the program's time passes at the moment.
int64_t factor_now(const pace &pace) {
    if (!pace.is_set)
        return 1;
    return (machine_time(CLOCK_MONOTONIC) - pace.start) * pace.factor < pace.limit ? pace.factor : pace.then;
}

int64_t monotonic(const pace &pace) {
    const int64_t machine = machine_time(CLOCK_MONOTONIC);
    if (!pace.is_set)
        return machine;
    const int64_t passed = machine - pace.start;
    if (passed * pace.factor < pace.limit)
        return pace.base + passed * pace.factor;
    const int64_t of_limit = pace.factor != 0 ? pace.limit / pace.factor : 0;
    return pace.base + pace.limit + (passed - of_limit) * pace.then;
}

int64_t time_of(clockid_t clock) {
    const pace pace = read_pace();
    switch (pace.is_set ? clock : CLOCK_PROCESS_CPUTIME_ID) {
    case CLOCK_REALTIME:
    case CLOCK_REALTIME_COARSE:
        return monotonic(pace) + pace.epoch;
    case CLOCK_MONOTONIC:
    case CLOCK_MONOTONIC_COARSE:
    case CLOCK_MONOTONIC_RAW:
        return monotonic(pace);
    case CLOCK_BOOTTIME:
        return machine_time(clock) - machine_time(CLOCK_MONOTONIC) + monotonic(pace);
    default:
        return machine_time(clock);
    }
}

timespec split(int64_t time) {
    return {static_cast<time_t>(time / SECOND), static_cast<long>(time % SECOND)};
}

/// Waits until `duration` has passed by the program's clock.
void wait_for(int64_t duration) {
    const int64_t end = monotonic(read_pace()) + duration;
    for (;;) {
        const pace pace = read_pace();
        const int64_t left = end - monotonic(pace);
        if (left <= 0)
            return;
        const int64_t factor = factor_now(pace);
        const int64_t nap = factor > 0 && left / factor < LONGEST_NAP ? left / factor + 1 : LONGEST_NAP;
        const timespec time = split(nap);
        syscall(SYS_nanosleep, &time, nullptr);
    }
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

int clock_gettime(clockid_t clock, timespec *time) noexcept {
    timespec probe = {};
    if (syscall(SYS_clock_gettime, clock, &probe) != 0)
        return -1;
    *time = split(time_of(clock));
    return 0;
}

int gettimeofday(timeval *time, void *) noexcept {
    const timespec now = split(time_of(CLOCK_REALTIME));
    *time = {now.tv_sec, now.tv_nsec / 1000};
    return 0;
}

time_t time(time_t *result) noexcept {
    const time_t now = split(time_of(CLOCK_REALTIME)).tv_sec;
    if (result != nullptr)
        *result = now;
    return now;
}

unsigned sleep(unsigned seconds) {
    wait_for(seconds * SECOND);
    return 0;
}

int usleep(useconds_t microseconds) {
    wait_for(int64_t{microseconds} * 1000);
    return 0;
}

int nanosleep(const timespec *duration, timespec *) {
    wait_for(int64_t{duration->tv_sec} * SECOND + duration->tv_nsec);
    return 0;
}

int select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *limit) {
    static const auto machine_select = reinterpret_cast<decltype(select) *>(dlsym(RTLD_NEXT, "select"));
    if (limit == nullptr)
        return machine_select(count, readable, writable, exceptional, nullptr);
    const int64_t factor = factor_now(read_pace());
    const int64_t machine_limit = (limit->tv_sec * int64_t{1'000'000} + limit->tv_usec) / (factor > 0 ? factor : 1);
    timeval scaled = {static_cast<time_t>(machine_limit / 1'000'000),
                      static_cast<suseconds_t>(machine_limit % 1'000'000)};
    return machine_select(count, readable, writable, exceptional, &scaled);
}
}
#pragma GCC visibility pop
