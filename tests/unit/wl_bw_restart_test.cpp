// Bandwidth control whose process is killed at any point, and whose threads meet: what the log then says is what a
// daemon that starts has.
#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <unistd.h>

#include "bw_fresh_start.h"
#include "bw_log.h"
#include "child.h"
#include "debug_log.h"
#include "files.h"
#include "scripted_shell.h"
#include "wl_bw.h"
#include "wl_bw_internal.h"
#include "wl_log.h"

// --- points at which the process can be killed: before and after each call that it makes, and within each write

namespace {

const bool shell_starts_afresh = before_each_test([] { shell.start_afresh(); });

std::atomic<int> points_left;  // the process ends at the point that makes it 0

bool is_last_point() {
    return points_left != 0 && --points_left == 0;
}

void kill_point() {
    if (is_last_point())
        kill(getpid(), SIGKILL);
}

}  // namespace

#define KILL_POINTS_AROUND(result, name, parameters, arguments) \
    extern "C" result __real_##name parameters;                 \
    extern "C" result __wrap_##name parameters {                \
        kill_point();                                           \
        result returned = __real_##name arguments;              \
        kill_point();                                           \
        return returned;                                        \
    }

KILL_POINTS_AROUND(void *, calloc, (size_t count, size_t size), (count, size))
KILL_POINTS_AROUND(char *, strdup, (const char *text), (text))
KILL_POINTS_AROUND(int, close, (int fd), (fd))
KILL_POINTS_AROUND(int, ftruncate, (int fd, off_t size), (fd, size))
KILL_POINTS_AROUND(off_t, lseek, (int fd, off_t offset, int from), (fd, offset, from))
KILL_POINTS_AROUND(ssize_t, read, (int fd, void *buffer, size_t size), (fd, buffer, size))
KILL_POINTS_AROUND(int, pthread_create,
                   (pthread_t * thread, const pthread_attr_t *attributes, void *(*body)(void *), void *argument),
                   (thread, attributes, body, argument))

extern "C" int __real_open(const char *path, int flags, mode_t mode);
extern "C" int __wrap_open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    kill_point();
    const int fd = __real_open(path, flags, mode);
    kill_point();
    return fd;
}

extern "C" ssize_t __real_write(int fd, const void *data, size_t size);
extern "C" ssize_t __wrap_write(int fd, const void *data, size_t size) {
    kill_point();
    for (const size_t part : {1, 8, 29, 44})
        if (is_last_point()) {
            (void)!__real_write(fd, data, std::min(part, size));
            kill(getpid(), SIGKILL);
        }
    const ssize_t written = __real_write(fd, data, size);
    kill_point();
    return written;
}

namespace {

// --- requests

bw_rule_info request(uint32_t profile, vre_iw_cmd_t e, uint8_t pri, int32_t up) {
    bw_rule_info out{};
    out.e = e;
    out.pri = pri;
    out.up = up;
    out.down = 2 * up;
    out.profile_id = profile;
    return out;
}

bw_rule_info bss(uint32_t profile, vre_iw_cmd_t e, uint8_t pri, int32_t up) {
    bw_rule_info out = request(profile, e, pri, up);
    out.bss_rule = 1;
    return out;
}

bw_rule_info station(uint32_t profile, uint8_t number, vre_iw_cmd_t e, uint8_t pri, int32_t up) {
    bw_rule_info out = request(profile, e, pri, up);
    out.mac[5] = number;
    std::strcpy(out.interface, "ath0");
    return out;
}

bw_rule_info applied(bw_rule_info out) {
    out.state_transition = 1;
    out.to_state = 1;
    return out;
}

bw_rule_info left(uint32_t profile, uint8_t number) {
    bw_rule_info out = station(profile, number, VRE_BW_CLR, 0, 0);
    out.state_transition = 1;
    return out;
}

void set(bw_rule_info of) {
    __bw_set_limit(&of);
}

void clear(bw_rule_info of) {
    __bw_clr_limit(&of);
}

constexpr int32_t REFUSED = 666;  // the script fails for this upload limit

int refuse_some(const std::string &command) {
    kill_point();
    return command.find(" up 666 ") != std::string::npos ? exited(1) : 0;
}

/// Sets, runs, rollbacks and rewrites of every kind.
///
/// @param step  called after each
void live(void (*step)()) {
    const auto then = [&](void (*change)(bw_rule_info), const bw_rule_info &of) {
        change(of);
        step();
    };
    then(set, bss(3, VRE_BW_SET, 1, 1000));
    for (uint8_t i = 1; i <= 3; i++)
        then(set, station(3, i, VRE_BW_SET, 1, 100 + i));
    then(set, applied(station(3, 4, VRE_BW_SET, 2, 104)));
    then(set, bss(3, VRE_BW_SET, 1, REFUSED));
    then(set, applied(station(3, 1, VRE_BW_SET, 1, 101)));
    then(set, applied(station(4, 9, VRE_BW_SET, 0, -1)));
    for (uint8_t i = 10; i < 20; i++) {  // ten clears: a rewrite
        then(set, station(3, i, VRE_BW_SET, 1, i));
        then(clear, station(3, i, VRE_BW_CLR, 1, 0));
    }
    then(set, applied(station(3, 2, VRE_BW_SET, 1, REFUSED)));  // leaves a gap
    then(set, applied(station(3, 5, VRE_BW_SET, 1, 105)));
    then(clear, station(3, 5, VRE_BW_CLR, 1, 0));  // keeps the rule
    then(set, left(3, 5));
    then(clear, bss(4, VRE_BW_CLR, 0, 0));
}

/// A daemon from its start on.
void run_daemon(void (*step)()) {
    debug = 1;
    shell.on_run = refuse_some;
    if (bw_init() != 1)
        _exit(1);
    live(step);
    wait_for_worker();
}

/// A station's record that a kill has cut short before the flags.
std::string part_of_a_record() {
    return bw_log::record({.mac = {0, 0, 0, 0, 0, 9}, .up = 900, .profile = 3, .classid = 60, .interface = "ath0"})
        .substr(0, 44);
}

/// What a start makes of a log: a last record that was cut short is completed.
std::string completed(std::string log) {
    log.resize((log.size() + 44) / 45 * 45);
    return log;
}

/// Starts with the log that is there, compares what the daemon makes of it with what it says, and gives the rules.
std::string restart() {
    const std::string log = file_text(bw_log::FILE_NAME);
    EXPECT_EQ(bw_init(), 1);
    std::string rules = bw_log::rules_in_words();
    EXPECT_EQ(rules, bw_log::reader(log).text());
    EXPECT_EQ(file_text(bw_log::FILE_NAME), completed(log));
    forget_all_limits();
    return rules;
}

/// A daemon that is killed at the given point.
///
/// @return whether it came to that point
bool is_killed(int point, const std::function<void()> &daemon) {
    const int status = wait_for(start_child([&] {
        points_left = point;
        daemon();
        points_left = 0;
    }));
    if (!WIFSIGNALED(status))
        EXPECT_EQ(status, 0);
    else
        EXPECT_EQ(WTERMSIG(status), SIGKILL);
    return WIFSIGNALED(status);
}

}  // namespace

TEST(BwRestart, AfterAKillAtAnyPointTheRulesAreAsLogged) {
    debug = 1;
    int point = 1;
    for (; !HasFailure(); point++) {
        unlink(bw_log::FILE_NAME.c_str());
        const bool killed = is_killed(point, [] { run_daemon(wait_for_worker); });
        restart();
        if (!killed)
            break;
    }
    EXPECT_FALSE(HasFailure()) << "point " << point - 1;
    EXPECT_GT(point, 500);
    std::printf("kill points: %d\n", point - 1);
}

namespace {

/// What a daemon does that was started again.
void second_life() {
    set(bss(7, VRE_BW_SET, 1, 7000));
    for (uint8_t i = 1; i <= 3; i++)
        set(station(7, i, VRE_BW_SET, 1, 700 + i));
    wait_for_worker();
}

constexpr char OF_SECOND_LIFE[] =
    "profile 7 pri 1 up 7000 down 14000 last 4 used 0 1 2 3 4\n"
    "  :0:0:0:0:0:1 pri 1 held class 2 up 701 down 1402 on 97 116 104 48 0 0 0 0 0 0 0 0 0 0 0 0 0\n"
    "  :0:0:0:0:0:2 pri 1 held class 3 up 702 down 1404 on 97 116 104 48 0 0 0 0 0 0 0 0 0 0 0 0 0\n"
    "  :0:0:0:0:0:3 pri 1 held class 4 up 703 down 1406 on 97 116 104 48 0 0 0 0 0 0 0 0 0 0 0 0 0\n";

void start_second_life() {
    debug = 1;
    if (bw_init() != 1)
        _exit(1);
    second_life();
}

/// The rules of a daemon that is started after a kill, sets some of its own, is killed and started once more.
std::string rules_after_second_life() {
    is_killed(0, [] {
        start_second_life();
        kill(getpid(), SIGKILL);
    });
    return restart();
}

}  // namespace

TEST(BwRestart, RulesSetAfterAKillAtAnyPointSurviveTheNextOne) {
    debug = 1;
    int point = 1;
    for (; !HasFailure(); point++) {
        unlink(bw_log::FILE_NAME.c_str());
        if (!is_killed(point, [] { run_daemon(wait_for_worker); }))
            break;
        EXPECT_NE(rules_after_second_life().find(OF_SECOND_LIFE), std::string::npos) << "point " << point;
    }
    EXPECT_GT(point, 500);
    std::printf("kill points: %d, each with a second life\n", point - 1);
}

TEST(BwRestart, RulesSurviveAKillWithinTheFirstRecordAndOneAtAnyPointOfTheSecondLife) {
    debug = 1;
    int point = 1;
    for (; !HasFailure(); point++) {
        write_file(bw_log::FILE_NAME, part_of_a_record());
        if (!is_killed(point, start_second_life))
            break;
        restart();
        EXPECT_NE(rules_after_second_life().find(OF_SECOND_LIFE), std::string::npos) << "point " << point;
    }
    EXPECT_GT(point, 50);
    std::printf("kill points: %d of the second life\n", point - 1);
}

TEST(BwRestart, AfterAKillAtAnyPointOfTheReplayTheNextStartIsRight) {
    debug = 1;
    ASSERT_FALSE(is_killed(0, [] { run_daemon(wait_for_worker); }));
    const std::string log = file_text(bw_log::FILE_NAME) + part_of_a_record();
    const std::string expected = bw_log::reader(log).text();
    int point = 1;
    for (; !HasFailure(); point++) {
        write_file(bw_log::FILE_NAME, log);
        const bool killed = is_killed(point, [] { (void)!bw_init(); });
        const std::string left = file_text(bw_log::FILE_NAME);
        EXPECT_TRUE(left == log || left == completed(log)) << "point " << point;
        EXPECT_EQ(restart(), expected) << "point " << point;
        if (!killed)
            break;
    }
    EXPECT_GT(point, 50);
    std::printf("kill points: %d of a replay\n", point - 1);
}

TEST(BwRestart, AfterAKillAtAnyTimeTheRulesAreAsLogged) {
    constexpr int KILLS = 150;
    debug = 1;
    std::mt19937 random(1);
    for (int i = 0; i < KILLS; i++) {
        unlink(bw_log::FILE_NAME.c_str());
        int started[2];
        ASSERT_EQ(pipe(started), 0);
        const pid_t daemon = start_child([&] {
            (void)!__real_write(started[1], "", 1);
            for (;;) {
                run_daemon([] {});
                forget_all_limits();
            }
        });
        char byte;
        ASSERT_EQ(read(started[0], &byte, 1), 1);
        close(started[0]);
        close(started[1]);
        usleep(random() % 4000);
        kill(daemon, SIGKILL);
        EXPECT_EQ(WTERMSIG(wait_for(daemon)), SIGKILL);
        restart();
        ASSERT_FALSE(HasFailure()) << "kill " << i;
    }
    std::printf("kill points: %d at random times\n", KILLS);
}

TEST(BwRestart, TheUnkilledProcessEndsWithTheRulesThatItShouldHave) {
    ASSERT_FALSE(is_killed(0, [] { run_daemon(wait_for_worker); }));
    EXPECT_EQ(bw_log::reader(file_text(bw_log::FILE_NAME)).text(),
              "profile 3 pri 1 up 666 down 1332 last 16 used 0 1 2 3 4 5\n"  // a refused limit stays in the rules
              "  :0:0:0:0:0:1 pri 1 held class 2 up 101 down 202 on 97 116 104 48 0 0 0 0 0 0 0 0 0 0 0 0 0\n"
              "  :0:0:0:0:0:2 pri 1 held class 3 up 102 down 204 on 97 116 104 48 0 0 0 0 0 0 0 0 0 0 0 0 0\n"
              "  :0:0:0:0:0:3 pri 1 held class 4 up 103 down 206 on 97 116 104 48 0 0 0 0 0 0 0 0 0 0 0 0 0\n"
              "  :0:0:0:0:0:4 pri 2 held class 5 up 104 down 208 on 97 116 104 48 0 0 0 0 0 0 0 0 0 0 0 0 0\n");
}

// --- threads

namespace {

/// A request that a station, its SSID or nobody might cause.
void change_something(std::mt19937 &random) {
    const auto below = [&](unsigned limit) { return random() % limit; };
    const uint32_t profile = 1 + below(3);
    const auto number = uint8_t(below(40));
    const auto pri = uint8_t(below(3));
    const auto up = int32_t(below(5)) * 100;
    switch (below(12)) {
    case 0:
        set(bss(profile, VRE_BW_SET, pri, up));
        break;
    case 1:
        clear(bss(profile, VRE_BW_CLR, pri, 0));
        break;
    case 2:
    case 3:
        set(left(profile, number));
        break;
    case 4: {
        const queue_lock lock;
        clear_bw_rules_for_sta(station(profile, number, VRE_BW_SET, 0, 0).mac, profile, "ath0");
        break;
    }
    case 5:
    case 6:
        clear(station(profile, number, VRE_BW_CLR, pri, 0));
        break;
    case 7:
    case 8:
        set(applied(station(profile, number, VRE_BW_SET, pri, up)));
        break;
    default:
        set(station(profile, number, VRE_BW_SET, pri, up));
    }
}

size_t waiting() {
    const queue_lock lock;
    return size_t(dllist_num_entries(&bw_queue));
}

size_t count(const std::string &text, const std::string &of) {
    size_t found = 0;
    for (size_t at = text.find(of); at != std::string::npos; at = text.find(of, at + 1))
        found++;
    return found;
}

}  // namespace

TEST(BwThreads, TenThousandMixedSetsAndClearsMeetTheWorkersRunsAndRewrites) {
    g_logfile_fd = fopen("/tmp/lines", "w");
    g_max_logfile_size = INT_MAX;
    debug = 2;
    ASSERT_EQ(bw_init(), 1);
    shell.on_run = [](const std::string &command) {
        return command.find(" up 400 ") != std::string::npos ? exited(1) : 0;
    };
    std::mt19937 random(1);
    for (int i = 0; i < 10'000; i++) {
        change_something(random);
        while (waiting() > 50)  // so that the worker is at it from beginning to end
            sched_yield();
    }
    wait_for_worker();
    fflush(g_logfile_fd);
    const std::string told = file_text("/tmp/lines");
    EXPECT_GT(count(told, "10 remove rules. Reinitializing backup"), 50u);
    EXPECT_GT(count(told, "Rule NOT Applied."), 100u);
    forget_all_limits();
    debug = 1;
    restart();
}

TEST(BwThreads, StatusRequestsMeetTheWorkersRunsAndRewrites) {
    debug = 1;
    ASSERT_EQ(bw_init(), 1);
    shell.on_run = [](const std::string &command) {
        return command.find(" up 400 ") != std::string::npos ? exited(1) : 0;
    };
    set(bss(9, VRE_BW_SET, 1, 9000));  // stays, so every status has to show it
    wait_for_worker();
    std::mt19937 random(1);
    for (int i = 0; i < 4000; i++) {
        change_something(random);
        bw_status(VRE_BW_GET_STATUS, nullptr, 0);
        ASSERT_NE(file_text("/tmp/.wl.bw_hash.dmp").find("Profile 9 [#1] (up = 9000, down = 18000):\n"),
                  std::string::npos);
        ASSERT_NE(file_text("/tmp/.wl.bw_cache.dmp").find("[Pri 1] [ProfId 9] [Evt Set] "), std::string::npos) << i;
    }
    wait_for_worker();
}
