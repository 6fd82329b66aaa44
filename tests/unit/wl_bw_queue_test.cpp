// The queue of bandwidth commands, the worker that runs them, and the start and stop of both.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "bw_fresh_start.h"
#include "bw_log.h"
#include "child.h"
#include "fault.h"
#include "files.h"
#include "log_capture.h"
#include "scripted_shell.h"
#include "vap_profile_map.h"
#include "wl_bw.h"
#include "wl_bw_internal.h"

using bw_log::CLEAR;
using bw_log::fields;
using bw_log::record;
using bw_log::request_of;
using lines = std::vector<std::string>;

// --- substitutes for what threads are made with

namespace {

int thread_error;  // what pthread_create fails with; 0: it works
std::atomic<int> threads_created;
int last_detach_state = -1;
int mutex_error;  // what pthread_mutex_init fails with
int mutexes_destroyed;
std::atomic<int> usleeps;
bool patience_is_short;  // usleep() returns at once

const bool substitutes_start_afresh = before_each_test([] {
    thread_error = mutex_error = 0;
    threads_created = usleeps = mutexes_destroyed = 0;
    last_detach_state = -1;
    patience_is_short = false;
    shell.start_afresh();
});

}  // namespace

extern "C" int __real_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
extern "C" int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                                     void *argument) {
    if (thread_error != 0)
        return thread_error;
    if (attributes != nullptr)
        pthread_attr_getdetachstate(attributes, &last_detach_state);
    threads_created++;
    return __real_pthread_create(thread, attributes, body, argument);
}

extern "C" int __real_pthread_mutex_init(pthread_mutex_t *, const pthread_mutexattr_t *);
extern "C" int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes) {
    return mutex_error != 0 ? mutex_error : __real_pthread_mutex_init(mutex, attributes);
}

extern "C" int __real_pthread_mutex_destroy(pthread_mutex_t *);
extern "C" int __wrap_pthread_mutex_destroy(pthread_mutex_t *mutex) {
    mutexes_destroyed += mutex == &queue_mutex;
    return __real_pthread_mutex_destroy(mutex);
}

extern "C" int __real_system(const char *command);

extern "C" int __real_usleep(useconds_t);
extern "C" int __wrap_usleep(useconds_t pause) {
    usleeps++;
    return patience_is_short ? 0 : __real_usleep(pause);
}

namespace {

const fields STATION = {.mac = {0, 0x11, 0x22, 0x33, 0x44, 0x55},
                        .pri = 1,
                        .up = 100,
                        .down = 200,
                        .profile = 3,
                        .classid = 2,
                        .interface = "ath0"};

void enqueue(const std::string &command, uint8_t action, const fields &of = STATION) {
    const bw_rule_info request = request_of(of);
    bw_enqueue(command.c_str(), &request, action);
}

/// Runs what is queued, and waits until the worker has ended.
void run_all() {
    ASSERT_EQ(bw_queue_start(), 0);
    wait_for_worker();
}

std::string log_file() {
    return file_text(bw_log::FILE_NAME);
}

/// The lines of the given functions.
lines of_functions(const lines &all, const lines &functions) {
    lines found;
    for (const std::string &line : all)
        for (const std::string &function : functions)
            if (line.compare(0, function.size() + 2, function + ": ") == 0)
                found.push_back(line);
    return found;
}

class BwQueue : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(bw_init(), 1);
    }

    void TearDown() override {
        wait_for_worker();
    }
};

class BwTry : public testing::Test {};

}  // namespace

// --- start

TEST(BwInit, MakesTheCacheForItsOwnerOnly) {
    umask(022);
    EXPECT_EQ(bw_init(), 1);
    struct stat found {};
    ASSERT_EQ(stat(bw_log::FILE_NAME.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777, 0700u);
    EXPECT_EQ(found.st_size, 0);
}

TEST(BwInit, KeepsTheLogThatIsThereAndItsPermissions) {
    const std::string partial = "partial";
    write_file(bw_log::FILE_NAME, record(STATION) + partial);
    chmod(bw_log::FILE_NAME.c_str(), 0640);
    EXPECT_EQ(bw_init(), 1);
    EXPECT_EQ(log_file(), record(STATION) + partial + std::string(45 - partial.size(), '\0'));
    struct stat found {};
    stat(bw_log::FILE_NAME.c_str(), &found);
    EXPECT_EQ(found.st_mode & 07777, 0640u);
}

TEST(BwInit, FillsAPartOfARecordUpWithZerosWhateverItsLength) {
    const std::string second = record(STATION);
    for (size_t length = 0; length <= 45; length++) {
        const std::string log = record(STATION) + second.substr(0, length);
        forget_all_limits();
        write_file(bw_log::FILE_NAME, log);
        ASSERT_EQ(bw_init(), 1);
        EXPECT_EQ(log_file(), log + std::string(length == 0 ? 0 : 45 - length, '\0')) << length;
    }
}

TEST(BwInit, APartOfARecordThatCannotBeFilledUpHarmsNothing) {
    const std::string partial = record(STATION).substr(0, 40);
    write_file(bw_log::FILE_NAME, partial);
    fail_nth_call("ftruncate", 1, EFBIG);
    log_capture log(3);
    EXPECT_EQ(bw_init(), 1);
    EXPECT_EQ(faults_fired("ftruncate"), 1);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(log_file(), partial);
    EXPECT_EQ(bw_log::rules_in_words(), bw_log::reader(partial).text());
}

TEST(BwInit, AppendsBehindAPartOfARecordInStep) {
    const fields next = {.mac = {2, 0, 0, 0, 0, 1}, .pri = 1, .up = 7, .profile = 3, .classid = 3, .interface = "ath0"};
    const std::string part = record(STATION).substr(0, 29);
    write_file(bw_log::FILE_NAME, part);
    ASSERT_EQ(bw_init(), 1);
    enqueue("x", 1, next);
    run_all();
    const std::string expected = part + std::string(16, '\0') + record(next);
    EXPECT_EQ(log_file(), expected);
    forget_all_limits();
    ASSERT_EQ(bw_init(), 1);
    EXPECT_EQ(bw_log::rules_in_words(),
              "profile 3 pri 0 up 0 down 0 last 3 used 0 1 2 3\n"
              "  :0:17:34:51:68:85 pri 1 held class 2 up 100 down 200 on 97 116 0 0 0 0 0 0 0 "
              "0 0 0 0 0 0 0 0\n"
              "  :2:0:0:0:0:1 pri 1 held class 3 up 7 down 0 on 97 116 104 48 0 0 0 0 0 0 0 0 "
              "0 0 0 0 0\n");
}

TEST(BwInit, AppendsToTheLogThatIsThere) {
    write_file(bw_log::FILE_NAME, record(STATION));
    ASSERT_EQ(bw_init(), 1);
    fields clear = STATION;
    clear.command = CLEAR;
    enqueue("x", 3, clear);
    run_all();
    EXPECT_EQ(log_file(), record(STATION) + record(clear));
}

TEST(BwInit, RestoresTheVapMapAndThenTheRules) {
    write_file("/tmp/.wl.vap_to_profile", std::string("\0\0\0\7\0\0\0\1", 8) + std::string(120, '\0'));
    write_file(bw_log::FILE_NAME, record(STATION));
    ASSERT_EQ(bw_init(), 1);
    EXPECT_EQ(bw_lookup_vap_profile_id("ath0"), 7u);
    EXPECT_EQ(bw_log::rules_in_words(), bw_log::reader(record(STATION)).text());
}

TEST(BwInit, StartsNoWorker) {
    write_file(bw_log::FILE_NAME, record(STATION));
    ASSERT_EQ(bw_init(), 1);
    EXPECT_EQ(threads_created, 0);
}

TEST(BwInit, AMutexThatFailsEndsIt) {
    mutex_error = EAGAIN;
    log_capture log;
    EXPECT_EQ(bw_init(), -1);
    EXPECT_EQ(log.lines(), (lines{std::string("bw_init: Could not init mutex ") + strerror(EAGAIN)}));
    EXPECT_EQ(bw_cache_fd, -1);
    EXPECT_EQ(bw_profile_hash_t.table_size, 0u);
}

TEST(BwInit, WithoutItsMutexRequestsStillDoNotHang) {
    mutex_error = EAGAIN;
    ASSERT_EQ(bw_init(), -1);
    bw_rule_info request = request_of(STATION);
    __bw_set_limit(&request);
    __bw_clr_limit(&request);
    EXPECT_EQ(bw_log::rules_in_words(), "");
}

TEST(BwInit, ATableThatFailsEndsIt) {
    fail_nth_call("calloc", 1);
    log_capture log;
    EXPECT_EQ(bw_init(), -1);
    EXPECT_EQ(faults_fired("calloc"), 1);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(bw_cache_fd, -1);
}

TEST(BwInit, ACacheThatCannotBeOpenedIsTold) {
    ASSERT_EQ(mkdir(bw_log::FILE_NAME.c_str(), 0700), 0);
    log_capture log;
    EXPECT_EQ(bw_init(), -1);
    EXPECT_EQ(log.lines(), (lines{"bw_init: Failed to create file /tmp/.wl.bw_cache"}));
}

TEST(BwInit, ACacheThatMayNotBeWrittenIsToldAndItsDescriptorReturned) {
    for (const int error : {EACCES, EROFS}) {
        forget_all_limits();
        fail_every_call("open", error);
        log_capture log;
        EXPECT_EQ(bw_init(), -1);
        EXPECT_EQ(faults_fired("open"), 3);  // the replay's, the first one and the one that may create
        EXPECT_EQ(log.lines(), (lines{"bw_init: Failed to create file /tmp/.wl.bw_cache"}));
        EXPECT_EQ(bw_cache_fd, -1);
    }
}

TEST(BwInit, WithoutACacheTheRulesAndCommandsStillWork) {
    ASSERT_EQ(mkdir(bw_log::FILE_NAME.c_str(), 0700), 0);
    ASSERT_EQ(bw_init(), -1);
    bw_rule_info request{};
    request.e = VRE_BW_SET;
    request.profile_id = 3;
    request.bss_rule = 1;
    request.up = 2048;
    request.down = 4096;
    request.pri = 1;
    log_capture log;
    __bw_set_limit(&request);
    wait_for_worker();
    EXPECT_EQ(shell.runs(), (lines{"/sbin/tc_wrapper.sh limit profile 3 bss up 2048 down 4096 priority 1"}));
    const lines told = log.lines();
    EXPECT_NE(std::find(told.begin(), told.end(), "bw_write_txn: TXN written (-1 bytes)"), told.end());
    EXPECT_EQ(bw_log::rules_in_words(), "profile 3 pri 1 up 2048 down 4096 last 1 used 0 1\n");
}

TEST(BwInit, AFailedFirstOpenIsFollowedByOneThatMayCreate) {
    write_file(bw_log::FILE_NAME, record(STATION));
    fail_nth_call("open", 2, EINTR);  // the first is the replay's
    EXPECT_EQ(bw_init(), 1);
    EXPECT_EQ(faults_fired("open"), 1);
    EXPECT_EQ(log_file(), record(STATION));
}

// --- enqueue

TEST_F(BwQueue, ACommandIsQueuedWithCopiesOfWhatItNeeds) {
    std::string command = "/sbin/tc_wrapper.sh clear";
    bw_rule_info request = request_of(STATION);
    bw_enqueue(command.c_str(), &request, 2);
    command.assign(command.size(), 'x');
    request = {};
    ASSERT_EQ(dllist_num_entries(&bw_queue), 1);
    const auto *node = static_cast<const bw_list_node *>(bw_queue.head->value);
    EXPECT_STREQ(node->rule, "/sbin/tc_wrapper.sh clear");
    EXPECT_EQ(node->action, 2);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&node->bw_rule_info), 45), record(STATION));
}

TEST_F(BwQueue, ACommandWithoutRequestHasOneOfZeros) {
    bw_enqueue("x", nullptr, 1);
    const auto *node = static_cast<const bw_list_node *>(bw_queue.head->value);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&node->bw_rule_info), 45), std::string(45, '\0'));
}

TEST_F(BwQueue, EnqueueStartsNothing) {
    enqueue("x", 1);
    EXPECT_EQ(threads_created, 0);
    EXPECT_EQ(log_file(), "");
}

TEST_F(BwQueue, ACommandWithoutMemoryForItsNodeIsDropped) {
    fail_nth_call("calloc", 1);
    log_capture log;
    enqueue("x", 1);
    EXPECT_EQ(faults_fired("calloc"), 1);
    EXPECT_EQ(log.lines(), (lines{"bw_enqueue: Cannot allocate memory for bw_list_node"}));
    EXPECT_EQ(dllist_num_entries(&bw_queue), 0);
}

TEST_F(BwQueue, ACommandWithoutMemoryForItsTextIsDropped) {
    fail_nth_call("strdup", 1);
    log_capture log;
    enqueue("x", 1);
    EXPECT_EQ(faults_fired("strdup"), 1);
    EXPECT_EQ(log.lines(), (lines{"bw_enqueue: Cannot allocate memory for bw rule"}));
    EXPECT_EQ(dllist_num_entries(&bw_queue), 0);
}

TEST_F(BwQueue, ACommandWithoutMemoryForItsPlaceIsDropped) {
    enqueue("first", 2);
    fail_nth_call("calloc", 2);
    log_capture log;
    enqueue("second", 2);
    EXPECT_EQ(faults_fired("calloc"), 1);
    EXPECT_EQ(log.lines(), (lines{"bw_enqueue: Cannot allocate memory for bw_list_node"}));
    run_all();
    EXPECT_EQ(shell.runs(), (lines{"first"}));
}

// --- the worker's life

TEST_F(BwQueue, AStartMakesOneDetachedThread) {
    enqueue("x", 2);
    log_capture log;
    EXPECT_EQ(bw_queue_start(), 0);
    EXPECT_EQ(of_functions(log.lines(), {"bw_queue_start"}),
              (lines{"bw_queue_start: Bw queue process thread starting"}));
    EXPECT_EQ(last_detach_state, PTHREAD_CREATE_DETACHED);
    wait_for_worker();
    EXPECT_EQ(threads_created, 1);
}

TEST_F(BwQueue, AStartWhileAWorkerRunsDoesNothing) {
    g_bw_queue_started = 1;
    log_capture log;
    EXPECT_EQ(bw_queue_start(), 0);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(threads_created, 0);
    g_bw_queue_started = 0;
}

TEST_F(BwQueue, AThreadThatCannotBeMadeIsToldAndTriedAgainNextTime) {
    enqueue("x", 2);
    thread_error = EAGAIN;
    {
        log_capture log;
        EXPECT_EQ(bw_queue_start(), -1);
        EXPECT_EQ(log.lines(), (lines{std::string("bw_queue_start: Could not create bw thread ") + strerror(EAGAIN)}));
    }
    EXPECT_FALSE(worker_runs());
    thread_error = 0;
    run_all();
    EXPECT_EQ(shell.runs(), (lines{"x"}));
}

TEST_F(BwQueue, ACommandWhoseWorkerCannotBeMadeIsQueuedAllTheSame) {
    const bw_rule rule{};
    thread_error = EAGAIN;
    EXPECT_EQ(tc_action(VRE_BW_SET, &rule, 3, 1, nullptr, BW_RUN), -1);
    EXPECT_EQ(dllist_num_entries(&bw_queue), 1);
    thread_error = 0;
    EXPECT_EQ(tc_action(VRE_BW_SET, &rule, 4, 1, nullptr, BW_RUN), 0);
    wait_for_worker();
    EXPECT_EQ(shell.runs(), (lines{"/sbin/tc_wrapper.sh limit profile 3 bss up 0 down 0 priority 0",
                                   "/sbin/tc_wrapper.sh limit profile 4 bss up 0 down 0 priority 0"}));
}

TEST_F(BwQueue, TheWorkerEndsAfterAnIdlePauseOfFiveSeconds) {
    enqueue("x", 2);
    log_capture log;
    run_all();
    EXPECT_EQ(shell.seen(), (lines{"run x", "sleep 1", "sleep 5"}));
    EXPECT_EQ(log.lines(), (lines{"bw_queue_start: Bw queue process thread starting",
                                  "try_and_execute: Tries Left: 5. Executing - [x]", "bw_queue_process: Rule Applied.",
                                  "bw_queue_process: No entries in bw queue to process going for sleep",
                                  "bw_queue_process: Exiting thread"}));
}

TEST_F(BwQueue, ACommandOfTheIdlePauseIsRunByTheSameWorker) {
    shell.on_sleep = [](unsigned seconds) {
        if (seconds == 5 && shell.runs().size() == 1)
            enqueue("second", 2);
    };
    enqueue("first", 2);
    run_all();
    EXPECT_EQ(shell.seen(), (lines{"run first", "sleep 1", "sleep 5", "run second", "sleep 1", "sleep 5"}));
    EXPECT_EQ(threads_created, 1);
}

TEST_F(BwQueue, TheIdlePauseHoldsNoLock) {
    shell.on_sleep = [](unsigned seconds) {
        if (seconds != 5)
            return;
        std::atomic<bool> locked = false;
        pthread_t other;
        ASSERT_EQ(__real_pthread_create(
                      &other, nullptr,
                      [](void *flag) -> void * {
                          const queue_lock lock;
                          *static_cast<std::atomic<bool> *>(flag) = true;
                          return nullptr;
                      },
                      &locked),
                  0);
        pthread_join(other, nullptr);
        EXPECT_TRUE(locked);
    };
    enqueue("x", 2);
    run_all();
}

TEST_F(BwQueue, ANewWorkerFollowsOneThatHasEnded) {
    enqueue("first", 2);
    run_all();
    enqueue("second", 2);
    run_all();
    EXPECT_EQ(threads_created, 2);
    EXPECT_EQ(shell.runs(), (lines{"first", "second"}));
}

TEST_F(BwQueue, CommandsRunInTheirOrderOneAtATime) {
    std::atomic<int> running = 0;
    shell.on_run = [&](const std::string &) {
        EXPECT_EQ(++running, 1);
        sched_yield();
        running--;
        return 0;
    };
    lines expected;
    for (int i = 0; i < 50; i++) {
        expected.push_back("command " + std::to_string(i));
        enqueue(expected.back(), i % 2 == 0 ? 1 : 2);
    }
    run_all();
    EXPECT_EQ(shell.runs(), expected);
}

TEST_F(BwQueue, AHangingScriptHoldsNobodyUp) {
    std::atomic<bool> hangs = false, go_on = false;
    shell.on_run = [&](const std::string &) {
        hangs = true;
        while (!go_on)
            sched_yield();
        return 0;
    };
    enqueue("0", 1);
    ASSERT_EQ(bw_queue_start(), 0);
    while (!hangs)
        sched_yield();
    for (int i = 1; i < 100; i++) {
        enqueue(std::to_string(i), 2);
        EXPECT_EQ(bw_queue_start(), 0);
    }
    EXPECT_EQ(dllist_num_entries(&bw_queue), 99);
    {
        const queue_lock lock;
        const bw_rule_info request = request_of(STATION);
        EXPECT_EQ(bw_write_txn(&request), 45);
    }
    EXPECT_EQ(shell.runs().size(), 1u);
    go_on = true;
    wait_for_worker();
    EXPECT_EQ(shell.runs().size(), 100u);
}

// --- actions

TEST_F(BwQueue, ActionOneIsRecordedBeforeItRuns) {
    std::string at_run;
    shell.on_run = [&](const std::string &) {
        at_run = log_file();
        return 0;
    };
    enqueue("x", 1);
    run_all();
    EXPECT_EQ(at_run, record(STATION));
    EXPECT_EQ(log_file(), record(STATION));
}

TEST_F(BwQueue, ActionTwoRunsOnly) {
    enqueue("x", 2);
    run_all();
    EXPECT_EQ(shell.runs(), (lines{"x"}));
    EXPECT_EQ(log_file(), "");
}

TEST_F(BwQueue, ActionThreeIsRecordedOnly) {
    enqueue("x", 3);
    run_all();
    EXPECT_EQ(shell.seen(), (lines{"sleep 5"}));
    EXPECT_EQ(log_file(), record(STATION));
}

TEST_F(BwQueue, AnyOtherActionIsDropped) {
    for (const int action : {0, 4, 255})
        enqueue("x", uint8_t(action));
    enqueue("y", 2);
    run_all();
    EXPECT_EQ(shell.runs(), (lines{"y"}));
    EXPECT_EQ(log_file(), "");
}

TEST_F(BwQueue, AnActionWithoutRequestRecordsZeros) {
    bw_enqueue("x", nullptr, 1);
    run_all();
    EXPECT_EQ(log_file(), std::string(45, '\0'));
}

TEST_F(BwQueue, AFailedActionOneIsTakenBackOut) {
    shell.on_run = [](const std::string &command) { return command == "bad" ? exited(7) : 0; };
    fields second = STATION;
    second.up = 999;
    enqueue("good", 1);
    enqueue("bad", 1, second);
    log_capture log;
    run_all();
    EXPECT_EQ(log_file(), record(STATION));
    const lines told = of_functions(log.lines(), {"bw_queue_process"});
    EXPECT_EQ(told.at(1),
              "bw_queue_process: Rule NOT Applied. Failed. try_and_execute returned [7]. Error is [Success]");
}

TEST_F(BwQueue, AFailedActionTwoLeavesTheLogAlone) {
    shell.on_run = [](const std::string &command) { return command == "bad" ? exited(1) : 0; };
    enqueue("good", 1);
    enqueue("bad", 2);
    run_all();
    EXPECT_EQ(log_file(), record(STATION));
}

TEST_F(BwQueue, AFailedCommandWhoseRecordWasNotWrittenLeavesTheOneBefore) {
    shell.on_run = [](const std::string &command) { return command == "bad" ? exited(1) : 0; };
    for (const int error : {ENOSPC, EIO}) {
        unlink(bw_log::FILE_NAME.c_str());
        forget_all_limits();
        ASSERT_EQ(bw_init(), 1);
        fail_nth_call("write", 2, error);
        enqueue("good", 1);
        enqueue("bad", 1);
        run_all();
        EXPECT_EQ(faults_fired("write"), 1);
        EXPECT_EQ(log_file(), record(STATION));
    }
}

TEST_F(BwQueue, AFailedCommandWhoseRecordDidNotFitLeavesTheOneBefore) {
    shell.on_run = [](const std::string &command) { return command == "bad" ? exited(1) : 0; };
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlim_t unlimited = std::exchange(limit.rlim_cur, 45 + 20);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    enqueue("good", 1);
    enqueue("bad", 1);
    run_all();
    EXPECT_EQ(log_file(), record(STATION));
    limit.rlim_cur = unlimited;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

TEST_F(BwQueue, ACommandThatFailsAfterItsCacheWasClosedTakesNothingBack) {
    shell.on_run = [](const std::string &) {
        const queue_lock lock;
        if (bw_cache_fd >= 0)
            close(bw_cache_fd);
        bw_cache_fd = -1;
        return exited(1);
    };
    enqueue("bad", 1);
    run_all();
    EXPECT_EQ(log_file(), record(STATION));
}

TEST_F(BwQueue, ACommandThatWorksAtLastKeepsItsRecord) {
    int failures = 1;
    shell.on_run = [&](const std::string &) { return failures-- > 0 ? exited(1) : 0; };
    enqueue("x", 1);
    run_all();
    EXPECT_EQ(shell.seen(), (lines{"run x", "sleep 1", "run x", "sleep 1", "sleep 5"}));
    EXPECT_EQ(log_file(), record(STATION));
}

TEST_F(BwQueue, AfterAFailureTheNextCommandRuns) {
    shell.on_run = [](const std::string &command) { return command == "bad" ? -1 : 0; };
    enqueue("bad", 1);
    enqueue("good", 1);
    run_all();
    EXPECT_EQ(shell.runs(), (lines{"bad", "bad", "bad", "bad", "bad", "good"}));
    EXPECT_EQ(log_file(), record(STATION));
}

TEST_F(BwQueue, TheTextOfTheLastTrysErrorIsLogged) {
    shell.on_run = [](const std::string &) {
        errno = ENOMEM;
        return -1;
    };
    enqueue("x", 2);
    log_capture log;
    run_all();
    EXPECT_EQ(of_functions(log.lines(), {"bw_queue_process"}).at(0),
              std::string("bw_queue_process: Rule NOT Applied. Failed. try_and_execute returned [-1]. Error is [") +
                  strerror(ENOMEM) + "]");
}

TEST_F(BwQueue, TheTenthClearIsRewrittenByTheWorker) {
    bw_rule_info bss{};
    bss.e = VRE_BW_SET;
    bss.profile_id = 3;
    bss.bss_rule = 1;
    bss.up = 10;
    restoring_cache = 1;  // into the rules, but not into the log
    __bw_set_limit(&bss);
    restoring_cache = 0;
    fields clear = STATION;
    clear.command = CLEAR;
    for (int i = 0; i < 10; i++)
        enqueue("x", i % 2 == 0 ? 1 : 3, clear);
    run_all();
    const fields expected = {.up = 10, .profile = 3, .classid = 1, .flags = bw_log::BSS};
    EXPECT_EQ(log_file(), record(expected) + record(clear));
    EXPECT_EQ(shell.runs().size(), 5u);
}

TEST_F(BwQueue, ALongCommandIsRunCutTo999Characters) {
    const std::string command = std::string(998, 'a') + "bc";
    enqueue(command, 2);
    enqueue(command.substr(0, 999), 2);
    run_all();
    EXPECT_EQ(shell.runs(), (lines{command.substr(0, 999), command.substr(0, 999)}));
}

// --- try_and_execute

TEST_F(BwTry, SuccessNeedsOneTry) {
    log_capture log;
    EXPECT_EQ(try_and_execute("limit"), 0);
    EXPECT_EQ(log.lines(), (lines{"try_and_execute: Tries Left: 5. Executing - [limit]"}));
    EXPECT_EQ(shell.seen(), (lines{"run limit", "sleep 1"}));
}

TEST_F(BwTry, FiveTriesAreMadeAndEachIsFollowedByASecond) {
    shell.on_run = [](const std::string &) { return exited(3); };
    log_capture log;
    EXPECT_EQ(try_and_execute("x"), 3);
    lines told, seen;
    for (int left = 5; left >= 1; left--) {
        told.push_back("try_and_execute: Tries Left: " + std::to_string(left) + ". Executing - [x]");
        told.push_back("try_and_execute: BW: BW rules script returned with error 3");
        seen.insert(seen.end(), {"run x", "sleep 1"});
    }
    EXPECT_EQ(log.lines(), told);
    EXPECT_EQ(shell.seen(), seen);
}

TEST_F(BwTry, TheLastTryDecides) {
    const int answers[] = {exited(3), 9, -1, exited(127), exited(42)};
    size_t next = 0;
    shell.on_run = [&](const std::string &) { return answers[next++]; };
    log_capture log(3);
    EXPECT_EQ(try_and_execute("x"), 42);
    EXPECT_EQ(log.lines(), (lines{"try_and_execute: BW: BW rules script returned with error 3",
                                  "try_and_execute: BW: BW Rules script did not exit normally",
                                  "try_and_execute: BW: Could not execute BW Rules script",
                                  "try_and_execute: BW: Could not execute BW Rules script",
                                  "try_and_execute: BW: BW rules script returned with error 42"}));
}

TEST_F(BwTry, SuccessAtTheFifthTryCounts) {
    int failures = 4;
    shell.on_run = [&](const std::string &) { return failures-- > 0 ? -1 : 0; };
    EXPECT_EQ(try_and_execute("x"), 0);
    EXPECT_EQ(shell.runs().size(), 5u);
}

TEST_F(BwTry, AShellThatCannotBeRunFails) {
    shell.on_run = [](const std::string &) { return -1; };
    EXPECT_EQ(try_and_execute("x"), -1);
    EXPECT_EQ(shell.runs().size(), 5u);
}

TEST_F(BwTry, AScriptThatIsNotFoundFails) {
    shell.on_run = [](const std::string &) { return exited(127); };
    EXPECT_EQ(try_and_execute("x"), -1);
    EXPECT_EQ(shell.runs().size(), 5u);
}

TEST_F(BwTry, AScriptEndedByASignalFails) {
    shell.on_run = [](const std::string &) { return 9; };
    EXPECT_EQ(try_and_execute("x"), -1);
    EXPECT_EQ(shell.runs().size(), 5u);
}

TEST_F(BwTry, ExitStatusesUpTo255AreResults) {
    for (const int status : {1, 126, 128, 255}) {
        shell.on_run = [=](const std::string &) { return exited(status); };
        EXPECT_EQ(try_and_execute("x"), status);
    }
}

TEST_F(BwTry, TheErrorIsClearedBeforeEachTry) {
    shell.on_run = [](const std::string &) {
        EXPECT_EQ(errno, 0);
        errno = EIO;
        return exited(1);
    };
    errno = EPERM;
    EXPECT_EQ(try_and_execute("x"), 1);
    EXPECT_EQ(errno, EIO);
}

// --- the simulated access point's script

namespace {

constexpr char RECORD_OF_RUNS[] = "/tmp/sim/tc_wrapper.record";
constexpr char FAULT[] = "/tmp/sim/tc_wrapper.fault";
const std::string LIMIT = "/sbin/tc_wrapper.sh limit profile 3 bss up 2048 down 4096 priority 1";
const std::string LIMIT_ARGUMENTS = "limit profile 3 bss up 2048 down 4096 priority 1\n";

class BwScript : public BwQueue {
protected:
    void SetUp() override {
        BwQueue::SetUp();
        std::filesystem::copy_file(TC_WRAPPER, "/sbin/tc_wrapper.sh");
        std::filesystem::create_directory("/tmp/sim");
        shell.on_run = [](const std::string &command) { return __real_system(command.c_str()); };
    }
};

}  // namespace

TEST_F(BwScript, AMissingScriptFails) {
    unlink("/sbin/tc_wrapper.sh");
    enqueue(LIMIT, 1);
    log_capture log(3);
    run_all();
    lines expected(5, "try_and_execute: BW: Could not execute BW Rules script");
    expected.push_back("bw_queue_process: Rule NOT Applied. Failed. try_and_execute returned [-1]. Error is [Success]");
    EXPECT_EQ(log.lines(), expected);
    EXPECT_EQ(log_file(), "");
}

TEST_F(BwScript, AScriptThatMayNotBeRunFails) {
    chmod("/sbin/tc_wrapper.sh", 0644);
    enqueue(LIMIT, 1);
    run_all();
    EXPECT_EQ(log_file(), "");
    EXPECT_EQ(shell.runs().size(), 5u);
}

TEST_F(BwScript, TheArgumentsOfEveryRunAreOnRecord) {
    enqueue(LIMIT, 1);
    enqueue("/sbin/tc_wrapper.sh clear profile 3 sta 00:11:22:33:44:55 classid 1f bssid 0a:0b:0c:0d:0e:0f priority 0",
            2);
    run_all();
    EXPECT_EQ(file_text(RECORD_OF_RUNS),
              LIMIT_ARGUMENTS +
                  "clear profile 3 sta 00:11:22:33:44:55 classid 1f bssid 0a:0b:0c:0d:0e:0f priority 0\n");
    EXPECT_EQ(log_file(), record(STATION));
}

TEST_F(BwScript, AScriptThatFailsOnceIsRunAgain) {
    write_file(FAULT, "1 exit 7\n");
    enqueue(LIMIT, 1);
    log_capture log(3);
    run_all();
    EXPECT_EQ(log.lines(), (lines{"try_and_execute: BW: BW rules script returned with error 7"}));
    EXPECT_EQ(file_text(RECORD_OF_RUNS), LIMIT_ARGUMENTS + LIMIT_ARGUMENTS);
    EXPECT_EQ(log_file(), record(STATION));
}

TEST_F(BwScript, AScriptThatFailsFiveTimesIsGivenUp) {
    write_file(FAULT, "6 exit 7\n");
    enqueue(LIMIT, 1);
    run_all();
    EXPECT_EQ(shell.runs().size(), 5u);
    EXPECT_EQ(file_text(FAULT), "1 exit 7\n");
    EXPECT_EQ(log_file(), "");
}

TEST_F(BwScript, AScriptThatIsKilledIsRunAgain) {
    write_file(FAULT, "2 signal KILL\n");
    enqueue(LIMIT, 1);
    run_all();
    EXPECT_EQ(shell.runs().size(), 3u);
    EXPECT_EQ(log_file(), record(STATION));
}

TEST_F(BwScript, AShellThatIsKilledDidNotExitNormally) {
    log_capture log(3);
    EXPECT_EQ(try_and_execute("kill -s KILL $$"), -1);
    EXPECT_EQ(log.lines(), lines(5, "try_and_execute: BW: BW Rules script did not exit normally"));
}

// --- the end

TEST_F(BwQueue, ATerminatedWorkerDropsWhatIsQueued) {
    shell.on_run = [](const std::string &) {
        const queue_lock lock;
        bw_thread_terminate = 1;
        return 0;
    };
    for (int i = 0; i < 3; i++)
        enqueue(std::to_string(i), 1);
    log_capture log;
    run_all();
    EXPECT_EQ(shell.seen(), (lines{"run 0", "sleep 1"}));
    EXPECT_EQ(dllist_num_entries(&bw_queue), 0);
    EXPECT_EQ(log_file(), record(STATION));
    EXPECT_EQ(log.lines().back(), "bw_queue_process: BW thread terminate enabled Exiting...");
}

TEST_F(BwQueue, AWorkerThatIsTerminatedInItsIdlePauseEndsAsOneWithoutWork) {
    shell.on_sleep = [](unsigned seconds) {
        const queue_lock lock;
        bw_thread_terminate = seconds == 5;
    };
    enqueue("x", 2);
    log_capture log;
    run_all();
    EXPECT_EQ(bw_thread_terminate, 1);
    EXPECT_EQ(shell.seen(), (lines{"run x", "sleep 1", "sleep 5"}));
    EXPECT_EQ(log.lines().back(), "bw_queue_process: Exiting thread");
}

TEST_F(BwQueue, AWorkerThatIsTerminatedInItsIdlePauseStillRunsTheFirstNewCommand) {
    shell.on_sleep = [](unsigned seconds) {
        if (seconds != 5)
            return;
        for (const char *const command : {"second", "third", "fourth"})
            enqueue(command, 2);
        const queue_lock lock;
        bw_thread_terminate = 1;
    };
    enqueue("first", 2);
    log_capture log;
    run_all();
    EXPECT_EQ(shell.seen(), (lines{"run first", "sleep 1", "sleep 5", "run second", "sleep 1"}));
    EXPECT_EQ(dllist_num_entries(&bw_queue), 0);
    EXPECT_EQ(log.lines().back(), "bw_queue_process: BW thread terminate enabled Exiting...");
}

TEST(BwDeinit, WithoutAWorkerReturnsAtOnce) {
    ASSERT_EQ(bw_init(), 1);
    bw_deinit();
    EXPECT_EQ(mutexes_destroyed, 1);
    EXPECT_EQ(bw_thread_terminate, 1);
    EXPECT_EQ(usleeps, 0);
}

TEST(BwDeinit, WaitsForTheWorker) {
    ASSERT_EQ(bw_init(), 1);
    std::atomic<bool> runs = false;
    shell.on_run = [&](const std::string &) {
        runs = true;
        while (usleeps < 3)
            sched_yield();
        return 0;
    };
    for (int i = 0; i < 3; i++)
        enqueue(std::to_string(i), 2);
    ASSERT_EQ(bw_queue_start(), 0);
    while (!runs)
        sched_yield();
    bw_deinit();
    EXPECT_EQ(mutexes_destroyed, 1);
    EXPECT_GE(usleeps, 3);
    EXPECT_EQ(g_bw_queue_started, 0);
    EXPECT_EQ(shell.runs(), (lines{"0"}));
    EXPECT_EQ(dllist_num_entries(&bw_queue), 0);
}

TEST(BwDeinit, LeavesTheMutexToAWorkerThatHangs) {
    ASSERT_EQ(bw_init(), 1);
    std::atomic<bool> runs = false, go_on = false;
    shell.on_run = [&](const std::string &) {
        runs = true;
        while (!go_on)
            sched_yield();
        return 0;
    };
    enqueue("x", 2);
    ASSERT_EQ(bw_queue_start(), 0);
    while (!runs)
        sched_yield();
    patience_is_short = true;
    bw_deinit();
    EXPECT_EQ(mutexes_destroyed, 0);
    EXPECT_TRUE(worker_runs());
    go_on = true;
    wait_for_worker();
}

// --- levels

namespace {

/// A line, the lowest level at which it is written, and what makes bandwidth control write it.
struct levelled_line {
    int level;
    const char *line;
    void (*action)();
};

/// One command, run by a script that ends as given, until the worker has ended.
template <int RAW> void run_one() {
    (void)bw_init();
    shell.on_run = [](const std::string &) { return RAW; };
    enqueue("x", 1);
    (void)bw_queue_start();
    wait_for_worker();
}

const levelled_line LEVELLED[] = {
    {2, "bw_init: Could not init mutex Cannot allocate memory",
     [] {
         mutex_error = ENOMEM;
         (void)bw_init();
     }},
    {3, "bw_init: Failed to create file /tmp/.wl.bw_cache",
     [] {
         std::filesystem::create_directory(bw_log::FILE_NAME);
         (void)bw_init();
     }},
    {3, "bw_enqueue: Cannot allocate memory for bw_list_node",
     [] {
         fail_nth_call("calloc", 1);
         enqueue("x", 1);
     }},
    {3, "bw_enqueue: Cannot allocate memory for bw rule",
     [] {
         fail_nth_call("strdup", 1);
         enqueue("x", 1);
     }},
    {2, "bw_queue_start: Could not create bw thread Resource temporarily unavailable",
     [] {
         thread_error = EAGAIN;
         (void)bw_queue_start();
     }},
    {7, "bw_queue_start: Bw queue process thread starting", run_one<0>},
    {7, "bw_queue_process: No entries in bw queue to process going for sleep", run_one<0>},
    {7, "bw_queue_process: Exiting thread", run_one<0>},
    {7, "bw_queue_process: Rule Applied.", run_one<0>},
    {7, "try_and_execute: Tries Left: 5. Executing - [x]", run_one<0>},
    {7, "bw_write_txn: TXN written (45 bytes)", run_one<0>},
    {3, "try_and_execute: BW: Could not execute BW Rules script", run_one<exited(127)>},
    {3, "try_and_execute: BW: BW Rules script did not exit normally", run_one<9>},
    {3, "try_and_execute: BW: BW rules script returned with error 7", run_one<exited(7)>},
    {2, "bw_queue_process: Rule NOT Applied. Failed. try_and_execute returned [7]. Error is [Success]",
     run_one<exited(7)>},
    {7, "bw_queue_process: BW thread terminate enabled Exiting...",
     [] {
         bw_thread_terminate = 1;
         run_one<0>();
     }},
    {2, "rewrite_all_txn: Could not open file",
     [] {
         (void)bw_init();
         fail_nth_call("open", 1, EMFILE);
         rewrite_all_txn();
     }},
    {7, "rewrite_all_txn: Flushing bw_cache",
     [] {
         (void)bw_init();
         rewrite_all_txn();
     }},
    {2, "bw_write_txn: 10 remove rules. Reinitializing backup",
     [] {
         (void)bw_init();
         fields clear = STATION;
         clear.command = CLEAR;
         const bw_rule_info request = request_of(clear);
         for (int count = 0; count < 10; count++)
             (void)bw_write_txn(&request);
     }},
};

/// Whether a line is written at a debug level, found out in a process of its own.
bool is_written(const levelled_line &wanted, int level) {
    std::filesystem::remove_all(bw_log::FILE_NAME);
    const int status = wait_for(start_child([&] {
        log_capture log(level);
        wanted.action();
        const lines all = log.lines();
        _exit(std::find(all.begin(), all.end(), wanted.line) != all.end() ? 42 : 0);
    }));
    return WIFEXITED(status) && WEXITSTATUS(status) == 42;
}

class BwLines : public testing::TestWithParam<levelled_line> {};

TEST_P(BwLines, AreWrittenFromTheirLevelOn) {
    EXPECT_TRUE(is_written(GetParam(), GetParam().level));
    EXPECT_FALSE(is_written(GetParam(), GetParam().level - 1));
}

INSTANTIATE_TEST_SUITE_P(All, BwLines, testing::ValuesIn(LEVELLED));

}  // namespace
