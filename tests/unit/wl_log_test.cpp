#include "wl_log.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "fault.h"
#include "files.h"
#include "log_capture.h"
#include "test_clock.h"

namespace {

namespace fs = std::filesystem;
using lines = std::vector<std::string>;

const int debug_at_start = debug;
const int threshold_at_start = g_max_logfile_size;
const int generations_at_start = g_num_logfile;

constexpr time_t MARCH_7_2024_14_05_09_UTC = 1709820309;

/// What precedes the message in a line of function "f" at test_time, UTC.
std::string prefix() {
    return "2024.03.07 14:05:09 pid[" + std::to_string(getpid()) + "] f: ";
}

/// A line of exactly `size` bytes, its newline included.
void log_line_of(size_t size) {
    debug_log("f", "%s", std::string(size - prefix().size() - 1, 'x').c_str());
}

class DebugLog : public testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC0", 1);
        tzset();
        test_time = MARCH_7_2024_14_05_09_UTC;
        fs::remove_all("/tmp/log");
        fs::create_directory("/tmp/log");
        use("/tmp/log/wl");
    }

    void TearDown() override {
        clear_faults();
        if (g_logfile_fd != nullptr)
            fclose(g_logfile_fd);
        g_logfile_fd = nullptr;
        g_logfile_path = nullptr;
        g_logfile_size = 0;
        g_max_logfile_size = threshold_at_start;
        g_num_logfile = generations_at_start;
        debug = debug_at_start;
    }

    void use(const std::string &new_path) {
        path = new_path;
        g_logfile_path = path.data();
    }

    void open_log() {
        ASSERT_EQ(init_server_log(), 0);
    }

    void open_log_of(size_t size) {
        write_file(path, std::string(size, 'o'));
        open_log();
    }

    /// @return the text of a generation; "none" when there is no such file
    std::string generation(int number) const {
        const std::string name = number == 0 ? path : path + "." + std::to_string(number);
        return fs::exists(name) ? file_text(name) : "none";
    }

    std::string path;
};

/// A path of exactly `size` characters in directories that exist.
std::string path_of(size_t size) {
    std::string long_path = "/tmp/log";
    while (long_path.size() + 202 < size)
        long_path += "/" + std::string(200, 'd');
    fs::create_directories(long_path);
    long_path += "/";
    return long_path + std::string(size - long_path.size(), 'f');
}

/// What the body writes to standard error.
template <class Body> std::string on_standard_error(Body body) {
    testing::internal::CaptureStderr();
    body();
    return testing::internal::GetCapturedStderr();
}

TEST_F(DebugLog, StartsAtLevel3WithFourGenerationsOf102400Bytes) {
    EXPECT_EQ(debug_at_start, 3);
    EXPECT_EQ(threshold_at_start, 102400);
    EXPECT_EQ(generations_at_start, 4);
}

TEST_F(DebugLog, LineHoldsTimeProcessFunctionAndMessage) {
    open_log();
    EXPECT_EQ(debug_log("init_synch_sock", "Connected to synch agent : synch_sock id : [%d]", 5), 0);
    EXPECT_EQ(generation(0), "2024.03.07 14:05:09 pid[" + std::to_string(getpid()) +
                                 "] init_synch_sock: Connected to synch agent : synch_sock id : [5]\n");
}

TEST_F(DebugLog, TimeIsLocalAndPadded) {
    setenv("TZ", "XYZ-5:30", 1);
    tzset();
    test_time = 1704317645;  // 3 January 2024, 21:34:05 UTC
    open_log();
    debug_log("f", "text");
    EXPECT_EQ(generation(0), "2024.01.04 03:04:05 pid[" + std::to_string(getpid()) + "] f: text\n");
}

TEST_F(DebugLog, MessageTextIsWrittenAsGiven) {
    open_log();
    debug_log("f", "trailing blanks  ");
    debug_log("f", "own newline\n");
    debug_log("f", "%s", "100%d %n");
    debug_log("f", "%s", "");
    EXPECT_EQ(generation(0), prefix() + "trailing blanks  \n" + prefix() + "own newline\n\n" + prefix() + "100%d %n\n" +
                                 prefix() + "\n");
}

TEST_F(DebugLog, WriterItselfFiltersNothing) {
    debug = 2;
    open_log();
    debug_log("f", "text");
    EXPECT_EQ(generation(0), prefix() + "text\n");
}

TEST_F(DebugLog, CallSitesWriteTheirOwnLevelAndBelow) {
    open_log();
    debug = 3;
    WL_LOG_AS("f", 2, "two");
    WL_LOG_AS("f", 3, "three");
    WL_LOG_AS("f", 4, "four");
    EXPECT_EQ(generation(0), prefix() + "two\n" + prefix() + "three\n");
}

TEST_F(DebugLog, CallerThatHoldsTheLockCanLog) {
    open_log();
    pthread_mutex_lock(&g_logger_mutex);
    EXPECT_EQ(debug_log("f", "text"), 0);
    pthread_mutex_unlock(&g_logger_mutex);
    EXPECT_EQ(generation(0), prefix() + "text\n");
}

TEST_F(DebugLog, OpenedFileIsAppendedToAndCountsFromItsSize) {
    write_file(path, "old\n");
    open_log();
    EXPECT_EQ(g_logfile_size, 4);
    debug_log("f", "new");
    EXPECT_EQ(generation(0), "old\n" + prefix() + "new\n");
    EXPECT_EQ(g_logfile_size, static_cast<int>(fs::file_size(path)));
}

TEST_F(DebugLog, FileStaysOutOfStartedPrograms) {
    open_log();
    EXPECT_EQ(fcntl(fileno(g_logfile_fd), F_GETFD), FD_CLOEXEC);
    pthread_mutex_lock(&g_logger_mutex);
    do_logrotate();
    pthread_mutex_unlock(&g_logger_mutex);
    EXPECT_EQ(fcntl(fileno(g_logfile_fd), F_GETFD), FD_CLOEXEC);
}

TEST_F(DebugLog, FileThatCannotBeOpenedFails) {
    use("/tmp/log/missing/wl");
    EXPECT_EQ(init_server_log(), 1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(g_logfile_fd, nullptr);
}

TEST_F(DebugLog, FileThatCannotBeExaminedIsClosedAgain) {
    const int next_descriptor = dup(0);
    close(next_descriptor);
    fail_nth_call("stat", 1, EIO);
    EXPECT_EQ(init_server_log(), 1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(faults_fired("stat"), 1);
    EXPECT_EQ(g_logfile_fd, nullptr);
    EXPECT_EQ(dup(0), next_descriptor);
    close(next_descriptor);
    EXPECT_EQ(on_standard_error([] { debug_log("f", "text"); }), prefix() + "text\n");
}

TEST_F(DebugLog, FailedStartLeavesTheLogUnlocked) {
    use("/tmp/log/missing/wl");
    ASSERT_EQ(init_server_log(), 1);
    std::thread([] {
        ASSERT_EQ(pthread_mutex_trylock(&g_logger_mutex), 0);
        pthread_mutex_unlock(&g_logger_mutex);
    }).join();
}

TEST_F(DebugLog, FileAsBigAsTheCountSaturatesItAndRotates) {
    write_file(path, "");
    fs::resize_file(path, INT_MAX);
    open_log();
    EXPECT_EQ(g_logfile_size, INT_MAX);
    debug_log("f", "text");
    EXPECT_EQ(g_logfile_size, 0);
    EXPECT_EQ(generation(0), "");
    EXPECT_TRUE(fs::exists(path + ".1"));
}

TEST_F(DebugLog, FileBiggerThanTheCountSaturatesItWhereItCanBeOpened) {
    write_file(path, "");
    ASSERT_EQ(std::system(("truncate -s 3G " + path).c_str()), 0);
    const bool can_be_opened = sizeof(off_t) > 4;
    EXPECT_EQ(init_server_log(), can_be_opened ? 0 : 1);
    EXPECT_EQ(g_logfile_size, can_be_opened ? INT_MAX : 0);
}

TEST_F(DebugLog, LineThatEndsExactlyAtTheThresholdDoesNotRotate) {
    open_log_of(102330);
    log_line_of(70);
    EXPECT_EQ(g_logfile_size, 102400);
    EXPECT_EQ(fs::file_size(path), 102400U);
    EXPECT_EQ(generation(1), "none");
}

TEST_F(DebugLog, LineThatPassesTheThresholdByOneByteRotates) {
    open_log_of(102331);
    log_line_of(70);
    EXPECT_EQ(g_logfile_size, 0);
    EXPECT_EQ(generation(0), "");
    EXPECT_EQ(generation(1).size(), 102401U);
}

TEST_F(DebugLog, LineIsWrittenBeforeTheRotationItTriggers) {
    open_log_of(102350);
    log_line_of(70);
    const std::string rotated = generation(1);
    EXPECT_EQ(rotated.size(), 102420U);
    EXPECT_EQ(rotated.substr(102350), prefix() + std::string(69 - prefix().size(), 'x') + "\n");
    debug_log("f", "next");
    EXPECT_EQ(generation(0), prefix() + "next\n");
    EXPECT_EQ(g_logfile_size, static_cast<int>(prefix().size() + 5));
}

TEST_F(DebugLog, StartWithAFileAtTheThresholdRotatesAfterTheFirstLine) {
    open_log_of(102400);
    EXPECT_EQ(generation(1), "none");
    debug_log("f", "first");
    EXPECT_EQ(generation(1), std::string(102400, 'o') + prefix() + "first\n");
    EXPECT_EQ(generation(0), "");
}

TEST_F(DebugLog, RotationMovesEachGenerationOnAndDiscardsTheOldest) {
    write_file(path, "current");
    write_file(path + ".1", "first");
    write_file(path + ".2", "second");
    write_file(path + ".3", "third");
    open_log();
    do_logrotate();
    EXPECT_EQ(generation(0), "");
    EXPECT_EQ(generation(1), "current");
    EXPECT_EQ(generation(2), "first");
    EXPECT_EQ(generation(3), "second");
    EXPECT_EQ(generation(4), "none");
    EXPECT_NE(g_logfile_fd, nullptr);
    EXPECT_EQ(g_logfile_size, 0);
}

TEST_F(DebugLog, RotationIgnoresMissingGenerations) {
    write_file(path, "current");
    write_file(path + ".2", "second");
    open_log();
    do_logrotate();
    EXPECT_EQ(generation(0), "");
    EXPECT_EQ(generation(1), "current");
    EXPECT_EQ(generation(2), "none");
    EXPECT_EQ(generation(3), "second");
}

TEST_F(DebugLog, RotationWithoutALogFileDoesNothing) {
    write_file(path, "current");
    do_logrotate();
    EXPECT_EQ(generation(0), "current");
    EXPECT_EQ(generation(1), "none");
    EXPECT_EQ(g_logfile_fd, nullptr);
}

TEST_F(DebugLog, FileThatCannotBeRenamedIsAppendedToAndCountsFromZero) {
    write_file(path, "current\n");
    fs::create_directory(path + ".1");
    write_file(path + ".2", "in the way");
    fs::create_directory(path + ".3");
    open_log();
    do_logrotate();
    EXPECT_EQ(g_logfile_size, 0);
    debug_log("f", "text");
    EXPECT_EQ(generation(0), "current\n" + prefix() + "text\n");
}

TEST_F(DebugLog, FailedReopenSwitchesToStandardErrorWithoutRotation) {
    open_log_of(102400);
    fail_nth_call("fopen", 1, EMFILE);
    debug_log("f", "last");
    EXPECT_EQ(faults_fired("fopen"), 1);
    EXPECT_EQ(g_logfile_fd, nullptr);
    EXPECT_EQ(g_logfile_size, 0);
    EXPECT_EQ(generation(1).size(), 102400 + prefix().size() + 5);

    g_max_logfile_size = 10;
    EXPECT_EQ(on_standard_error([] { debug_log("f", "text"); }), prefix() + "text\n");
    EXPECT_EQ(generation(0), "none");
    EXPECT_EQ(generation(2), "none");
}

TEST_F(DebugLog, NameOfAGenerationHasUpTo1027Characters) {
    use(path_of(1025));
    write_file(path, "current");
    open_log();
    do_logrotate();
    EXPECT_EQ(generation(0), "");
    EXPECT_EQ(generation(1), "current");
}

TEST_F(DebugLog, LongerNameOfAGenerationIsCut) {
    use(path_of(1026));
    write_file(path, "current");
    open_log();
    do_logrotate();
    EXPECT_EQ(generation(0), "");
    EXPECT_EQ(generation(1), "none");
    EXPECT_EQ(file_text(path + "."), "current");
}

TEST_F(DebugLog, WithoutAFileLinesGoToStandardErrorAndAreCounted) {
    g_logfile_path = nullptr;
    EXPECT_EQ(on_standard_error([] { debug_log("f", "text"); }), prefix() + "text\n");
    EXPECT_EQ(g_logfile_size, static_cast<int>(prefix().size() + 5));
}

TEST_F(DebugLog, WithoutAFileTheCountNeverRotatesAndStopsAtItsEnd) {
    g_logfile_size = INT_MAX - 10;
    const std::string written = on_standard_error([] {
        debug_log("f", "one");
        debug_log("f", "two");
    });
    EXPECT_EQ(written, prefix() + "one\n" + prefix() + "two\n");
    EXPECT_EQ(g_logfile_size, INT_MAX);
    EXPECT_TRUE(fs::is_empty("/tmp/log"));
}

TEST_F(DebugLog, EachFailedWriteCountsMinusOne) {
    g_logfile_fd = fopen("/dev/null", "r");
    g_logfile_size = 10;
    EXPECT_EQ(debug_log("f", "text"), 0);
    EXPECT_EQ(g_logfile_size, 7);
}

TEST_F(DebugLog, ALineThatAFullDeviceLosesCountsAllTheSame) {
    g_logfile_fd = fopen("/dev/full", "a");
    g_logfile_size = 0;
    EXPECT_EQ(debug_log("f", "text"), 0);
    EXPECT_EQ(g_logfile_size, static_cast<int>(prefix().size() + 5));
}

TEST_F(DebugLog, ThreadsWriteWholeLinesWhileTheFileRotates) {
    constexpr int THREADS = 4;
    constexpr int LINES = 300;
    g_max_logfile_size = 4000;
    g_num_logfile = 60;  // room for every line
    open_log();
    std::vector<std::thread> writers;
    for (int writer = 0; writer < THREADS; ++writer)
        writers.emplace_back([writer] {
            for (int line = 0; line < LINES; ++line)
                WL_LOG_AS("f", 2, "writer %d line %d", writer, line);
        });
    for (int level = 2; level <= 7; ++level)
        set_debug_level(level);
    for (std::thread &writer : writers)
        writer.join();

    std::string all;
    for (int number = g_num_logfile - 1; number >= 0; --number)
        all += generation(number) == "none" ? "" : generation(number);
    int next[THREADS] = {};
    std::istringstream text(all);
    for (std::string line; std::getline(text, line);) {
        int writer;
        int number;
        if (line.find("Setting debug level") != std::string::npos)
            continue;
        ASSERT_EQ(sscanf(line.c_str(), (prefix() + "writer %d line %d").c_str(), &writer, &number), 2) << line;
        EXPECT_EQ(line, prefix() + "writer " + std::to_string(writer) + " line " + std::to_string(number));
        EXPECT_EQ(number, next[writer]++);
    }
    for (const int lines_of_writer : next)
        EXPECT_EQ(lines_of_writer, LINES);
    EXPECT_NE(generation(5), "none");
}

struct level_case {
    int asked;
    int set;
    const char *name;
};

void PrintTo(const level_case &shown, std::ostream *out) {
    *out << shown.asked;
}

class SetDebugLevel : public testing::TestWithParam<level_case> {};

TEST_P(SetDebugLevel, ClampsAndLogsTheName) {
    const level_case &expected = GetParam();
    log_capture log;
    set_debug_level(expected.asked);
    EXPECT_EQ(debug, expected.set);
    EXPECT_EQ(log.lines(), lines{std::string("set_debug_level: Setting debug level to ") + expected.name});
}

INSTANTIATE_TEST_SUITE_P(Levels, SetDebugLevel,
                         testing::Values(level_case{INT_MIN, 2, "WL_DBG_CRIT"}, level_case{-1, 2, "WL_DBG_CRIT"},
                                         level_case{0, 2, "WL_DBG_CRIT"}, level_case{1, 2, "WL_DBG_CRIT"},
                                         level_case{2, 2, "WL_DBG_CRIT"}, level_case{3, 3, "WL_DBG_ERROR"},
                                         level_case{4, 4, "(null)"}, level_case{5, 5, "(null)"},
                                         level_case{6, 6, "WL_DBG_INFO"}, level_case{7, 7, "WL_DBG_DEBUG"},
                                         level_case{8, 7, "WL_DBG_DEBUG"}, level_case{9, 7, "WL_DBG_DEBUG"},
                                         level_case{INT_MAX, 7, "WL_DBG_DEBUG"}));

}  // namespace
