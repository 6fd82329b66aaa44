#include "crash_handler.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "child.h"
#include "fault.h"
#include "files.h"
#include "test_clock.h"
#include "wl_log.h"

namespace {

namespace fs = std::filesystem;

constexpr char RECORD[] = "/opt/sensor/stacktrace_wl_evt_handler";
constexpr char VERSION[] = "/opt/sensor/version";
constexpr time_t MARCH_7_2024_14_05_09_UTC = 1709820309;

/// Keeps a pointer from the compiler, which turns a fault that it can foresee into another one.
template <class Pointer> Pointer unforeseen(Pointer pointer) {
    asm volatile("" : "+r"(pointer));
    return pointer;
}

#define NOT_SANITIZED [[gnu::noinline, gnu::no_sanitize("undefined", "address", "thread")]]

NOT_SANITIZED void store_at(volatile char *address) {
    *address = 1;
}

NOT_SANITIZED void load_from(const volatile char *address) {
    [[maybe_unused]] const char value = *address;
}

void store_at_null() {
    store_at(unforeseen(static_cast<char *>(nullptr)));
}

// One instruction that no processor knows, at an address of its own.
extern "C" void execute_nonsense();
#if defined(__x86_64__)
asm(".text\n.globl execute_nonsense\nexecute_nonsense:\nud2\nret\n");
#elif defined(__mips__)
asm(".text\n.globl execute_nonsense\n.set push\n.set noreorder\nexecute_nonsense:\n.word 0xffffffff\njr $31\nnop\n"
    ".set pop\n");
#else
void execute_nonsense() {
    raise(SIGILL);
}
#endif

NOT_SANITIZED void call_nonsense() {
    execute_nonsense();
}

NOT_SANITIZED void divide_by_zero() {
#if defined(__x86_64__)
    const volatile int dividend = 7;
    const volatile int divisor = 0;
    [[maybe_unused]] const volatile int quotient = dividend / divisor;
#else
    raise(SIGFPE);  // other processors do not trap, or by another signal
#endif
}

/// A mapped page that is no longer part of its file.
char *page_past_the_end_of_its_file() {
    FILE *file = std::fopen("/tmp/short", "w+");
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    EXPECT_EQ(ftruncate(fileno(file), static_cast<off_t>(page)), 0);
    void *mapped = mmap(nullptr, page, PROT_READ, MAP_SHARED, fileno(file), 0);
    EXPECT_EQ(ftruncate(fileno(file), 0), 0);
    std::fclose(file);
    return static_cast<char *>(mapped);
}

struct crash {
    int status;
    pid_t pid;
};

/// Registers the handler in a child, as `name`, and runs `fault` there.
template <class Fault> crash crash_by(Fault fault, const char *name = "wl_evt_handler") {
    const pid_t child = start_child([&] {
        register_crash_handler(name);
        fault();
    });
    return {wait_for(child), child};
}

bool was_killed(const crash &ended) {
    return WIFSIGNALED(ended.status) && WTERMSIG(ended.status) == SIGKILL;
}

/// The signal line of a fault on the main thread.
std::string signal_line(int signal, pid_t pid) {
    const std::string id = std::to_string(pid);
    return "  signal " + std::to_string(signal) + " from pid " + id + " thread id " + id + " \n";
}

std::string pointer_text(const void *pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

struct crash_details {
    std::string program_counter;
    std::string return_address;
    std::string address;
};

/// Takes a record apart that consists of `head` and the line of crash details, to the byte.
crash_details details_after(const std::string &head, const std::string &record) {
    EXPECT_EQ(record.substr(0, head.size()), head);
    const std::string line = record.substr(std::min(record.size(), head.size()));
    char program_counter[32] = "";
    char return_address[32] = "";
    char address[32] = "";
    EXPECT_EQ(std::sscanf(line.c_str(), "  Crash Details: program counter[pc:%31[^]]][ra:%31[^]]][addr:%31[^]]]",
                          program_counter, return_address, address),
              3);
    const crash_details details{program_counter, return_address, address};
    EXPECT_EQ(line, "  Crash Details: program counter[pc:" + details.program_counter +
                        "][ra:" + details.return_address + "][addr:" + details.address + "]\n");
    return details;
}

class CrashHandler : public testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "XYZ-5:30", 1);
        test_time = MARCH_7_2024_14_05_09_UTC;
        fs::remove_all("/opt/sensor");
        fs::create_directory("/opt/sensor");
    }
};

TEST_F(CrashHandler, IsInstalledForTheFourFatalSignalsWhichItBlocks) {
    register_crash_handler("wl_evt_handler");
    for (const int signal : {SIGSEGV, SIGILL, SIGFPE, SIGBUS}) {
        struct sigaction installed;
        ASSERT_EQ(sigaction(signal, nullptr, &installed), 0);
        EXPECT_EQ(installed.sa_sigaction, sensord_crash_handler);
        EXPECT_TRUE(installed.sa_flags & SA_SIGINFO);
        EXPECT_FALSE(installed.sa_flags & (SA_ONSTACK | SA_RESETHAND | SA_NODEFER | SA_RESTART));
        for (int other = 1; other < 32; ++other)
            EXPECT_EQ(sigismember(&installed.sa_mask, other),
                      other == SIGSEGV || other == SIGILL || other == SIGFPE || other == SIGBUS)
                << other;
    }
}

TEST_F(CrashHandler, KeepsTheInstalledAction) {
    register_crash_handler("wl_evt_handler");
    EXPECT_EQ(sa_crash.sa_sigaction, sensord_crash_handler);
    EXPECT_EQ(sa_crash.sa_flags, SA_SIGINFO);
}

TEST_F(CrashHandler, OtherSignalsAreLeftAlone) {
    register_crash_handler("wl_evt_handler");
    struct sigaction installed;
    ASSERT_EQ(sigaction(SIGABRT, nullptr, &installed), 0);
    EXPECT_EQ(installed.sa_handler, SIG_DFL);
}

TEST_F(CrashHandler, NameIsKeptUpTo127Characters) {
    register_crash_handler("wl_evt_handler");
    EXPECT_STREQ(g_application_name, "wl_evt_handler");
    register_crash_handler(std::string(127, 'n').c_str());
    EXPECT_EQ(g_application_name, std::string(127, 'n'));
    register_crash_handler(std::string(128, 'm').c_str());
    EXPECT_EQ(g_application_name, std::string(127, 'm'));
    register_crash_handler("");
    EXPECT_STREQ(g_application_name, "");
}

TEST_F(CrashHandler, LongNameNamesTheRecordFile) {
    const crash ended = crash_by(store_at_null, std::string(200, 'n').c_str());
    EXPECT_TRUE(was_killed(ended));
    EXPECT_TRUE(fs::exists("/opt/sensor/stacktrace_" + std::string(127, 'n')));
}

TEST_F(CrashHandler, StoreAtNullLeavesARecordOfTwoLines) {
    const crash ended = crash_by(store_at_null);
    EXPECT_TRUE(was_killed(ended));
    const crash_details details = details_after(signal_line(SIGSEGV, ended.pid), file_text(RECORD));
    EXPECT_EQ(details.address, "(nil)");
    EXPECT_NE(details.program_counter, "(nil)");
}

TEST_F(CrashHandler, NeedsNoMemoryAndNoStreamBecauseTheFaultMayHoldTheirLocks) {
    write_file(VERSION, "BUILD_NO: 1\nBUILD_DATE: 2\n");
    const crash ended = crash_by([] {
        for (const char *function : {"malloc", "calloc", "fopen"})
            fail_every_call(function);
        store_at_null();
    });
    EXPECT_TRUE(was_killed(ended));
    details_after("2024.03.07 19:35:09 Build_ver: 1 Build_time: 2\n" + signal_line(SIGSEGV, ended.pid),
                  file_text(RECORD));
}

TEST_F(CrashHandler, FaultWithTheLogsMutexHeldElsewhereIsRecorded) {
    const crash ended = crash_by([] {
        std::atomic<bool> held = false;
        std::thread([&] {
            pthread_mutex_lock(&g_logger_mutex);
            held = true;
            for (;;)
                pause();
        }).detach();
        while (!held)
            std::this_thread::yield();
        store_at_null();
    });
    EXPECT_TRUE(was_killed(ended));
    details_after(signal_line(SIGSEGV, ended.pid), file_text(RECORD));
}

TEST_F(CrashHandler, FaultingAddressIsInTheRecord) {
    void *page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    char *address = static_cast<char *>(page) + 0x123;
    const crash ended = crash_by([=] { store_at(address); });
    EXPECT_TRUE(was_killed(ended));
    EXPECT_EQ(details_after(signal_line(SIGSEGV, ended.pid), file_text(RECORD)).address, pointer_text(address));
}

TEST_F(CrashHandler, IllegalInstructionIsRecorded) {
    const crash ended = crash_by(call_nonsense);
    EXPECT_TRUE(was_killed(ended));
    details_after(signal_line(SIGILL, ended.pid), file_text(RECORD));
}

TEST_F(CrashHandler, ProgramCounterIsTheFaultingInstruction) {
    const crash ended = crash_by(call_nonsense);
    const crash_details details = details_after(signal_line(SIGILL, ended.pid), file_text(RECORD));
#if defined(__x86_64__) || defined(__mips__)
    EXPECT_EQ(details.program_counter, pointer_text(reinterpret_cast<void *>(execute_nonsense)));
#else
    EXPECT_EQ(details.program_counter, "(nil)");
#endif
}

TEST_F(CrashHandler, ReturnAddressIsThatOfTheCallerWhereTheProcessorKeepsOne) {
    const crash ended = crash_by(call_nonsense);
    const crash_details details = details_after(signal_line(SIGILL, ended.pid), file_text(RECORD));
#if defined(__mips__)
    const auto caller = reinterpret_cast<uintptr_t>(call_nonsense);
    const auto return_address = static_cast<uintptr_t>(std::strtoull(details.return_address.c_str(), nullptr, 16));
    EXPECT_GT(return_address, caller);
    EXPECT_LT(return_address, caller + 200);
#else
    EXPECT_EQ(details.return_address, "(nil)");
#endif
}

TEST_F(CrashHandler, DivisionByZeroIsRecorded) {
    const crash ended = crash_by(divide_by_zero);
    EXPECT_TRUE(was_killed(ended));
    details_after(signal_line(SIGFPE, ended.pid), file_text(RECORD));
}

TEST_F(CrashHandler, ReadPastTheEndOfAMappedFileIsRecorded) {
    const char *page = page_past_the_end_of_its_file();
    const crash ended = crash_by([=] { load_from(page); });
    EXPECT_TRUE(was_killed(ended));
    // The exact address is not compared: for this signal an emulator may hand out its host's.
    EXPECT_NE(details_after(signal_line(SIGBUS, ended.pid), file_text(RECORD)).address, "(nil)");
}

TEST_F(CrashHandler, FaultOnAnotherThreadCarriesThatThreadsId) {
    const crash ended = crash_by([] {
        std::thread([] {
            write_file("/tmp/thread", std::to_string(gettid()));
            store_at_null();
        }).join();
    });
    EXPECT_TRUE(was_killed(ended));
    const std::string thread = file_text("/tmp/thread");
    ASSERT_NE(thread, std::to_string(ended.pid));
    details_after("  signal 11 from pid " + std::to_string(ended.pid) + " thread id " + thread + " \n",
                  file_text(RECORD));
}

TEST_F(CrashHandler, RecordsAreAppended) {
    const crash first = crash_by(store_at_null);
    const std::string first_record = file_text(RECORD);
    details_after(signal_line(SIGSEGV, first.pid), first_record);
    const crash second = crash_by(call_nonsense);
    details_after(first_record + signal_line(SIGILL, second.pid), file_text(RECORD));
}

TEST_F(CrashHandler, MissingDirectoryStillEndsInAKill) {
    fs::remove_all("/opt/sensor");
    EXPECT_TRUE(was_killed(crash_by(store_at_null)));
    EXPECT_FALSE(fs::exists("/opt/sensor"));
}

TEST_F(CrashHandler, RecordFileThatCannotBeOpenedStillEndsInAKill) {
    fs::create_directory(RECORD);
    EXPECT_TRUE(was_killed(crash_by(store_at_null)));
}

TEST_F(CrashHandler, FullDeviceStillEndsInAKill) {
    fs::create_symlink("/dev/full", RECORD);
    write_file(VERSION, "BUILD_NO: 1\n");
    EXPECT_TRUE(was_killed(crash_by(store_at_null)));
}

TEST_F(CrashHandler, VersionDirectoryCountsAsOneThatOpens) {
    fs::create_directory(VERSION);
    const crash ended = crash_by(store_at_null);
    EXPECT_TRUE(was_killed(ended));
    details_after("2024.03.07 19:35:09 Build_ver:  Build_time: \n" + signal_line(SIGSEGV, ended.pid),
                  file_text(RECORD));
}

TEST_F(CrashHandler, VersionThatCannotBeOpenedLeavesNoBuildLine) {
    fs::create_symlink(VERSION, VERSION);
    const crash ended = crash_by(store_at_null);
    EXPECT_TRUE(was_killed(ended));
    details_after(signal_line(SIGSEGV, ended.pid), file_text(RECORD));
}

struct version_case {
    const char *name;
    std::string version;
    std::string number;
    std::string date;
};

void PrintTo(const version_case &shown, std::ostream *out) {
    *out << shown.name;
}

class CrashRecordOfVersion : public CrashHandler, public testing::WithParamInterface<version_case> {};

TEST_P(CrashRecordOfVersion, BeginsWithTheBuild) {
    write_file(VERSION, GetParam().version);
    const crash ended = crash_by(store_at_null);
    EXPECT_TRUE(was_killed(ended));
    details_after("2024.03.07 19:35:09 Build_ver: " + GetParam().number + " Build_time: " + GetParam().date + "\n" +
                      signal_line(SIGSEGV, ended.pid),
                  file_text(RECORD));
}

std::string repeated(const std::string &text, int times) {
    std::string all;
    for (int time = 0; time < times; ++time)
        all += text;
    return all;
}

INSTANTIATE_TEST_SUITE_P(
    Versions, CrashRecordOfVersion,
    testing::Values(
        version_case{"BothKeys", "BUILD_NO: 1.2.3\nBUILD_DATE: 2020-01-01\n", "1.2.3", "2020-01-01"},
        version_case{"OtherOrder", "BUILD_DATE: 2020-01-01\nBUILD_NO: 1.2.3\n", "1.2.3", "2020-01-01"},
        version_case{"Empty", "", "", ""}, version_case{"EmptyLines", "\n\n\n", "", ""},
        version_case{"NumberOnly", "BUILD_NO: 1.2.3\n", "1.2.3", ""},
        version_case{"DateOnly", "BUILD_DATE: 2020-01-01\n", "", "2020-01-01"},
        version_case{"NoSecondWord", "BUILD_NO:\nBUILD_DATE: \n", "", ""},
        version_case{"LastLineWins", "BUILD_NO: 1\nBUILD_NO: 22\nBUILD_NO: 3\n", "3", ""},
        version_case{"LastLineWinsWithoutSecondWord", "BUILD_NO: 1\nBUILD_NO:\n", "", ""},
        version_case{"NoNewlineAtTheEnd", "BUILD_NO: 1\nBUILD_DATE: today", "1", "today"},
        version_case{"MoreWords", "BUILD_NO: 1 2 3\n", "1", ""},
        version_case{"SeveralBlanks", "  BUILD_NO:    1   \n", "1", ""},
        version_case{"TabsDoNotSplit", "BUILD_NO:\t1\nBUILD_DATE: to\tday \n", "", "to\tday"},
        version_case{"KeyIsAPrefix", "BUILD_NO:7 1\nBUILD_DATE:: today\n", "1", "today"},
        version_case{"KeyMustComeFirst", "the BUILD_NO: 1\nxBUILD_DATE: today\n", "", ""},
        version_case{"KeyIsExact", "BUILD_NO 1\nbuild_date: today\nBUILD_N: 2\n", "", ""},
        version_case{"ShortFirstWord", "B 1\n", "", ""},
        version_case{"ValueOf50Characters", "BUILD_NO: " + std::string(50, 'v') + "\n", std::string(50, 'v'), ""},
        version_case{"ValueOf51Characters", "BUILD_NO: " + std::string(51, 'v') + "\n", std::string(50, 'v'), ""},
        version_case{"VeryLongValue", "BUILD_NO: " + std::string(5000, 'v') + "\nBUILD_DATE: today\n",
                     std::string(50, 'v'), "today"},
        version_case{"VeryLongFirstWord", "BUILD_NO:" + std::string(5000, 'v') + " 1\n", "1", ""},
        version_case{"KeyDeepInALongLine", std::string(256, 'x') + "BUILD_NO: 1\n", "", ""},
        version_case{"ValueAfterManyBlanks", "BUILD_NO:" + std::string(1000, ' ') + "1\n", "1", ""},
        version_case{"ManyWords", repeated("word ", 1000) + "\nBUILD_NO: 1\n", "1", ""},
        version_case{"ManyLines", repeated("OTHER: 9\n", 1000) + "BUILD_NO: 1\n", "1", ""},
        version_case{"NulEndsTheTextOfALine", std::string("BUILD_NO: 1\0 2\nBUILD_DATE: a\0b\n", 31), "1", "a"},
        version_case{"NulBeforeTheValue", std::string("BUILD_NO:\0 1\nBUILD_DATE: today\n", 31), "", "today"},
        version_case{"NulBeforeTheKey", std::string("\0BUILD_NO: 1\nBUILD_DATE: today\n", 32), "", "today"},
        version_case{"CarriageReturnIsPartOfTheValue", "BUILD_NO: 1\r\n", "1\r", ""},
        version_case{"PercentSigns", "BUILD_NO: %s%n\n", "%s%n", ""}),
    [](const auto &tested) { return tested.param.name; });

}  // namespace
