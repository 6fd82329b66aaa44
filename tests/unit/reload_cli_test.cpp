#include "reload_cli.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "child.h"
#include "crash_handler.h"
#include "fault.h"
#include "files.h"
#include "libwl.h"
#include "log_capture.h"
#include "wl_log.h"
#include "wl_server.h"

// The bus library's counters as a test sets them.
static mq_failure_statistics failures_on_the_bus;

extern "C" void __wrap_get_mq_failure_statistics(mq_failure_statistics *statistics) {
    *statistics = failures_on_the_bus;
}

namespace {

namespace fs = std::filesystem;
using lines = std::vector<std::string>;

constexpr char DAEMON_PATH[] = "/tmp/daemon";
constexpr char TOOL_PATH[] = "/tmp/reload_cli_rx_socket";

const std::string REFUSING = "handle_reload_cli: APPL_HANG_DEBUG : Returning without processing command. Send command "
                             "RECOVER_APPL_HANG to start processing commands!!";
const std::string NOW_REFUSES = "handle_reload_cli: APPL_HANG_DEBUG : Received RECOVERABLE_APPL_HANG command. Will not "
                                "process & respond to commands other than RECOVER_APPL_HANG!!";
const std::string NOW_SERVES = "handle_reload_cli: APPL_HANG_DEBUG : Received RECOVER_APPL_HANG command. Will start "
                               "processing & responding to commands other than RECOVER_APPL_HANG!!";
const std::string NOW_HANGS = "handle_reload_cli: APPL_HANG_DEBUG : Received UNRECOVERABLE_APPL_HANG command. Going in "
                              "infinite loop!!";

class ReloadCli : public testing::Test {
protected:
    void SetUp() override {
        FD_ZERO(&g_readfds);
        g_maxfd = 0;
        g_debug_appl_hanged = 0;
        failures_on_the_bus = {};
        unlink(DAEMON_PATH);
        unlink(TOOL_PATH);
    }

    void TearDown() override {
        clear_faults();
        if (g_reload_cli_fd >= 0)
            close(g_reload_cli_fd);
        g_reload_cli_fd = -1;
    }

    log_capture log;
};

bool is_socket(const std::string &path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

/// The number that the next new descriptor gets.
int next_descriptor() {
    const int next = dup(2);
    close(next);
    return next;
}

TEST_F(ReloadCli, SocketIsADatagramSocketBoundToThePath) {
    const int created = create_file_socket(DAEMON_PATH);
    ASSERT_GT(created, 0);
    int type = 0;
    socklen_t size = sizeof type;
    ASSERT_EQ(getsockopt(created, SOL_SOCKET, SO_TYPE, &type, &size), 0);
    EXPECT_EQ(type, SOCK_DGRAM);
    sockaddr_un bound{};
    size = sizeof bound;
    ASSERT_EQ(getsockname(created, reinterpret_cast<sockaddr *>(&bound), &size), 0);
    EXPECT_EQ(bound.sun_family, AF_UNIX);
    EXPECT_STREQ(bound.sun_path, DAEMON_PATH);
    EXPECT_TRUE(is_socket(DAEMON_PATH));
    EXPECT_EQ(log.lines(), lines{});
    close(created);
}

TEST_F(ReloadCli, SocketStaysOutOfStartedPrograms) {
    const int created = create_file_socket(DAEMON_PATH);
    EXPECT_EQ(fcntl(created, F_GETFD), FD_CLOEXEC);
    close(created);
}

TEST_F(ReloadCli, SocketReplacesAFileAtThePath) {
    write_file(DAEMON_PATH, "in the way");
    const int created = create_file_socket(DAEMON_PATH);
    EXPECT_GT(created, 0);
    EXPECT_TRUE(is_socket(DAEMON_PATH));
    close(created);
}

TEST_F(ReloadCli, SocketReplacesTheSocketOfADeadDaemon) {
    close(create_file_socket(DAEMON_PATH));
    const int created = create_file_socket(DAEMON_PATH);
    EXPECT_GT(created, 0);
    close(created);
}

TEST_F(ReloadCli, PathOf107CharactersIsUsedWhole) {
    const std::string path = "/tmp/" + std::string(102, 'p');
    const int created = create_file_socket(path.c_str());
    EXPECT_TRUE(is_socket(path));
    close(created);
}

TEST_F(ReloadCli, LongerPathIsCutTo107Characters) {
    for (const size_t size : {108, 109, 200}) {
        const std::string path = "/tmp/" + std::string(size - 5, 'q');
        const int created = create_file_socket(path.c_str());
        EXPECT_TRUE(is_socket(path.substr(0, 107)));
        EXPECT_FALSE(fs::exists(path));
        close(created);
    }
}

TEST_F(ReloadCli, SocketThatCannotBeCreatedIsCritical) {
    debug = 2;
    fail_nth_call("socket", 1, EMFILE);
    EXPECT_EQ(create_file_socket(DAEMON_PATH), -1);
    EXPECT_EQ(log.lines(), lines{"create_file_socket: socket(PF_PACKET), error [Too many open files]"});
}

TEST_F(ReloadCli, SocketThatCannotBeBoundIsClosedAndCritical) {
    debug = 2;
    const int next = next_descriptor();
    EXPECT_EQ(create_file_socket("/tmp/missing/socket"), -1);
    EXPECT_EQ(log.lines(), lines{"create_file_socket: bind[PF_PACKET], error [No such file or directory]"});
    EXPECT_EQ(next_descriptor(), next);
}

TEST_F(ReloadCli, DirectoryAtThePathIsNotRemoved) {
    EXPECT_EQ(create_file_socket("/tmp"), -1);
    EXPECT_EQ(log.lines(), lines{"create_file_socket: bind[PF_PACKET], error [Address already in use]"});
}

TEST_F(ReloadCli, ChannelIsWatchedByTheLoop) {
    const int created = init_reload_cli(DAEMON_PATH);
    ASSERT_GT(created, 0);
    EXPECT_EQ(g_reload_cli_fd, created);
    EXPECT_TRUE(FD_ISSET(created, &g_readfds));
    EXPECT_EQ(g_maxfd, created);
    EXPECT_EQ(log.lines(), lines{"init_reload_cli: LOG_INFO UNIX socket created for communicating with reload_cli"});
}

TEST_F(ReloadCli, ChannelDoesNotLowerTheHighestDescriptor) {
    g_maxfd = 500;
    ASSERT_GT(init_reload_cli(DAEMON_PATH), 0);
    EXPECT_EQ(g_maxfd, 500);
}

TEST_F(ReloadCli, RepliesGoToTheToolsSocket) {
    ASSERT_GT(init_reload_cli(DAEMON_PATH), 0);
    sockaddr_un expected{};
    expected.sun_family = AF_UNIX;
    std::strcpy(expected.sun_path, TOOL_PATH);
    EXPECT_EQ(std::memcmp(&g_reload_cli_reply_addr, &expected, sizeof expected), 0);
}

TEST_F(ReloadCli, ChannelThatCannotBeOpenedIsAnErrorAndNotWatched) {
    EXPECT_EQ(init_reload_cli("/tmp/missing/socket"), -1);
    EXPECT_EQ(g_reload_cli_fd, -1);
    EXPECT_EQ(g_maxfd, 0);
    EXPECT_EQ(log.lines(), (lines{"create_file_socket: bind[PF_PACKET], error [No such file or directory]",
                                  "init_reload_cli: LOG_ERR socket creation error"}));
    EXPECT_STREQ(g_reload_cli_reply_addr.sun_path, TOOL_PATH);
}

TEST_F(ReloadCli, ChannelsLinesAreErrors) {
    debug = 3;
    ASSERT_GT(init_reload_cli(DAEMON_PATH), 0);
    EXPECT_EQ(log.lines().size(), 1U);
    close(g_reload_cli_fd);
    debug = 2;
    ASSERT_GT(init_reload_cli(DAEMON_PATH), 0);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(ReloadCli, DescriptorZeroIsAFailureThatIsKept) {
    const int standard_input = dup(0);
    close(0);
    EXPECT_EQ(init_reload_cli(DAEMON_PATH), 0);
    EXPECT_EQ(g_reload_cli_fd, 0);
    EXPECT_FALSE(FD_ISSET(0, &g_readfds));
    EXPECT_EQ(log.lines(), lines{"init_reload_cli: LOG_ERR socket creation error"});
    g_reload_cli_fd = -1;
    dup2(standard_input, 0);
    close(standard_input);
}

TEST_F(ReloadCli, DescriptorThatSelectCannotHoldIsAFailure) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    ASSERT_GT(limit.rlim_max, FD_SETSIZE + 10U);
    const rlimit before = limit;
    limit.rlim_cur = limit.rlim_max;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    std::vector<int> used;
    while (next_descriptor() < FD_SETSIZE)
        used.push_back(dup(2));
    const int next = next_descriptor();

    EXPECT_EQ(init_reload_cli(DAEMON_PATH), -1);
    EXPECT_EQ(g_reload_cli_fd, -1);
    EXPECT_EQ(g_maxfd, 0);
    EXPECT_EQ(next_descriptor(), next);
    EXPECT_EQ(log.lines(), lines{"init_reload_cli: LOG_ERR socket creation error"});

    for (const int descriptor : used)
        close(descriptor);
    setrlimit(RLIMIT_NOFILE, &before);
}

/// The channel open, a tool at the other end.
class ReloadCommand : public ReloadCli {
protected:
    void SetUp() override {
        ReloadCli::SetUp();
        init_reload_cli(DAEMON_PATH);
        tool = create_file_socket(TOOL_PATH);
        lines_before = log.lines().size();
    }

    void TearDown() override {
        close(tool);
        ReloadCli::TearDown();
    }

    static int handle(const std::string &text) {
        char command[256] = {};
        text.copy(command, sizeof command - 1);
        return handle_reload_cli(command, static_cast<int>(text.size()));
    }

    /// @return the bytes of the next reply; nothing when there is none
    std::optional<std::string> reply() const {
        char bytes[64];
        const ssize_t size = recv(tool, bytes, sizeof bytes, MSG_DONTWAIT);
        if (size < 0)
            return std::nullopt;
        return std::string(bytes, static_cast<size_t>(size));
    }

    lines logged() {
        lines all = log.lines();
        all.erase(all.begin(), all.begin() + static_cast<ptrdiff_t>(lines_before));
        return all;
    }

    int tool = -1;
    size_t lines_before = 0;
};

const std::string SUCCESS_AND_ITS_NUL("SUCCESS", 8);

TEST_F(ReloadCommand, SanityTestIsAnsweredInEightBytes) {
    EXPECT_EQ(handle("APPL_SANITY_TEST "), 0);
    EXPECT_EQ(reply(), SUCCESS_AND_ITS_NUL);
    EXPECT_EQ(reply(), std::nullopt);
    EXPECT_EQ(logged(), lines{});
}

TEST_F(ReloadCommand, SanityTestIsAPrefix) {
    EXPECT_EQ(handle("APPL_SANITY_TEST and more"), 0);
    EXPECT_EQ(reply(), SUCCESS_AND_ITS_NUL);
}

TEST_F(ReloadCommand, ReplyComesFromTheDaemonsSocket) {
    ASSERT_EQ(handle("APPL_SANITY_TEST "), 0);
    char bytes[64];
    sockaddr_un from{};
    socklen_t size = sizeof from;
    ASSERT_EQ(recvfrom(tool, bytes, sizeof bytes, MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&from), &size), 8);
    EXPECT_STREQ(from.sun_path, DAEMON_PATH);
}

TEST_F(ReloadCommand, SanityTestWithoutAToolFails) {
    unlink(TOOL_PATH);
    debug = 3;
    EXPECT_EQ(handle("APPL_SANITY_TEST "), -1);
    EXPECT_EQ(logged(), lines{"handle_reload_cli: Unable to send reply to reload cli : No such file or directory"});
}

TEST_F(ReloadCommand, AToolThatDoesNotReadItsRepliesDoesNotHoldUpTheDaemon) {
    int result = 0;
    for (int unread = 0; unread < 10000 && result == 0; unread++)
        result = handle("APPL_SANITY_TEST ");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(logged(),
              lines{"handle_reload_cli: Unable to send reply to reload cli : Resource temporarily unavailable"});
}

TEST_F(ReloadCommand, ReplyThatCannotBeSentFails) {
    fail_nth_call("sendto", 1, ECONNREFUSED);
    EXPECT_EQ(handle("APPL_SANITY_TEST "), -1);
    EXPECT_EQ(faults_fired("sendto"), 1);
    EXPECT_EQ(logged(), lines{"handle_reload_cli: Unable to send reply to reload cli : Connection refused"});
}

TEST_F(ReloadCommand, FailureCountersAreLoggedAndNotReplied) {
    failures_on_the_bus.recv_failure_count = 7;
    failures_on_the_bus.send_failure_count = 12;
    debug = 3;
    EXPECT_EQ(handle("mq_fail_stats "), 0);
    EXPECT_EQ(logged(), (lines{"handle_reload_cli:  mq_fail_stats.recv_failure_count [7]",
                               " mq_fail_stats.send_failure_count [12]", ""}));
    EXPECT_EQ(reply(), std::nullopt);
}

TEST_F(ReloadCommand, FailureCountersArePrintedUnsigned) {
    failures_on_the_bus.recv_failure_count = -1;
    failures_on_the_bus.send_failure_count = -2;
    EXPECT_EQ(handle("mq_fail_stats "), 0);
    EXPECT_EQ(logged(), (lines{"handle_reload_cli:  mq_fail_stats.recv_failure_count [4294967295]",
                               " mq_fail_stats.send_failure_count [4294967294]", ""}));
}

struct level_case {
    const char *command;
    const char *number;
    int level;
    const char *name;
};

void PrintTo(const level_case &shown, std::ostream *out) {
    *out << testing::PrintToString(shown.command);
}

class DebugLevelCommand : public ReloadCommand, public testing::WithParamInterface<level_case> {};

TEST_P(DebugLevelCommand, SetsTheLevel) {
    const level_case &expected = GetParam();
    EXPECT_EQ(handle(expected.command), 0);
    EXPECT_EQ(debug, expected.level);
    debug = 7;
    EXPECT_EQ(reply(), std::nullopt);
    EXPECT_EQ(logged(), (lines{std::string("handle_reload_cli: Received SET_DEBUG_LEVEL : ") + expected.number,
                               std::string("set_debug_level: Setting debug level to ") + expected.name}));
}

INSTANTIATE_TEST_SUITE_P(Commands, DebugLevelCommand,
                         testing::Values(level_case{"7 SET_DEBUG_LEVEL", "7", 7, "WL_DBG_DEBUG"},
                                         level_case{"2 SET_DEBUG_LEVEL", "2", 2, "WL_DBG_CRIT"},
                                         level_case{"4 SET_DEBUG_LEVEL", "4", 4, "(null)"},
                                         level_case{"12 SET_DEBUG_LEVEL", "12", 7, "WL_DBG_DEBUG"},
                                         level_case{"0 SET_DEBUG_LEVEL", "0", 2, "WL_DBG_CRIT"},
                                         level_case{"-1 SET_DEBUG_LEVEL", "4294967295", 2, "WL_DBG_CRIT"},
                                         level_case{"abc SET_DEBUG_LEVEL", "0", 2, "WL_DBG_CRIT"},
                                         level_case{"6x SET_DEBUG_LEVEL", "6", 6, "WL_DBG_INFO"},
                                         level_case{"99999999999 SET_DEBUG_LEVEL", "2147483647", 7, "WL_DBG_DEBUG"},
                                         level_case{"-99999999999 SET_DEBUG_LEVEL", "2147483648", 2, "WL_DBG_CRIT"},
                                         level_case{"\n\t 6 \t\nSET_DEBUG_LEVEL\n", "6", 6, "WL_DBG_INFO"},
                                         level_case{"6 SET_DEBUG_LEVEL and more words", "6", 6, "WL_DBG_INFO"}));

TEST_F(ReloadCommand, ReceivedLevelIsLoggedBeforeItIsSet) {
    debug = 2;
    EXPECT_EQ(handle("7 SET_DEBUG_LEVEL"), 0);
    EXPECT_EQ(logged(), lines{"set_debug_level: Setting debug level to WL_DBG_DEBUG"});
}

class RefusedCommand : public ReloadCommand, public testing::WithParamInterface<const char *> {};

TEST_P(RefusedCommand, FailsSilently) {
    EXPECT_EQ(handle(GetParam()), -1);
    EXPECT_EQ(debug, 7);
    EXPECT_EQ(g_debug_appl_hanged, 0);
    EXPECT_EQ(reply(), std::nullopt);
    EXPECT_EQ(logged(), lines{});
}

INSTANTIATE_TEST_SUITE_P(Commands, RefusedCommand,
                         testing::Values("", "\n", " \t\n ", "two words", "SET_DEBUG_LEVEL 6", "6 SET_DEBUG_LEVE",
                                         "6 SET_DEBUG_LEVELS", "6 set_debug_level", "6 7 SET_DEBUG_LEVEL",
                                         "6\rSET_DEBUG_LEVEL x", "appl_sanity_test now", "APPL_SANITY_TEST\tnow",
                                         " APPL_SANITY_TEST now", " mq_fail_stats now", " RECOVERABLE_APPL_HANG now",
                                         "RECOVERABLE_APPL_HANG\tnow", "UNRECOVERABLE_APPL_HANG\tnow"));

TEST_F(ReloadCommand, RecoverableHangStartsRefusing) {
    debug = 3;
    EXPECT_EQ(handle("RECOVERABLE_APPL_HANG "), 0);
    EXPECT_EQ(g_debug_appl_hanged, 1);
    EXPECT_EQ(logged(), (lines{NOW_REFUSES, "", REFUSING, ""}));
}

TEST_F(ReloadCommand, EverythingElseIsRefusedWhileHung) {
    ASSERT_EQ(handle("RECOVERABLE_APPL_HANG "), 0);
    lines_before = log.lines().size();
    for (const char *command : {"APPL_SANITY_TEST ", "mq_fail_stats ", "6 SET_DEBUG_LEVEL", "word", ""})
        EXPECT_EQ(handle(command), 0);
    EXPECT_EQ(logged(), (lines{REFUSING, "", REFUSING, "", REFUSING, "", REFUSING, "", REFUSING, ""}));
    EXPECT_EQ(debug, 7);
    EXPECT_EQ(reply(), std::nullopt);
}

TEST_F(ReloadCommand, RecoverEndsRefusing) {
    ASSERT_EQ(handle("RECOVERABLE_APPL_HANG "), 0);
    lines_before = log.lines().size();
    debug = 3;
    EXPECT_EQ(handle("RECOVER_APPL_HANG "), 0);
    EXPECT_EQ(g_debug_appl_hanged, 0);
    EXPECT_EQ(logged(), (lines{NOW_SERVES, ""}));
    EXPECT_EQ(handle("APPL_SANITY_TEST "), 0);
    EXPECT_EQ(reply(), SUCCESS_AND_ITS_NUL);
}

TEST_F(ReloadCommand, RecoverWithoutAHangIsHarmless) {
    EXPECT_EQ(handle("RECOVER_APPL_HANG "), 0);
    EXPECT_EQ(logged(), (lines{NOW_SERVES, ""}));
}

TEST_F(ReloadCommand, HangCommandsArePrefixes) {
    EXPECT_EQ(handle("RECOVERABLE_APPL_HANG now"), 0);
    EXPECT_EQ(g_debug_appl_hanged, 1);
    EXPECT_EQ(handle("RECOVER_APPL_HANG now"), 0);
    EXPECT_EQ(g_debug_appl_hanged, 0);
}

/// CPU time that a process has used, in seconds.
double cpu_seconds_of(pid_t process) {
    clockid_t clock;
    timespec used{};
    EXPECT_EQ(clock_getcpuclockid(process, &clock), 0);
    EXPECT_EQ(clock_gettime(clock, &used), 0);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

/// @return true when the condition came true while the child lived, within a minute
template <class Condition> bool comes_true(pid_t child, Condition condition) {
    const time_t limit = std::time(nullptr) + 60;
    while (std::time(nullptr) < limit && waitpid(child, nullptr, WNOHANG) == 0) {
        if (condition())
            return true;
        usleep(1000);
    }
    return false;
}

/// Runs a command that does not return in a child that logs to a file.
pid_t start_daemon_with(const char *command) {
    static char path[] = "/tmp/wl.log";
    unlink(path);
    return start_child([=] {
        g_logfile_path = path;
        (void)init_server_log();
        register_crash_handler("wl_evt_handler");
        char text[256] = {};
        std::strcpy(text, command);
        handle_reload_cli(text, static_cast<int>(std::strlen(text)));
    });
}

void expect_hang(pid_t child) {
    ASSERT_TRUE(
        comes_true(child, [] { return file_text("/tmp/wl.log").find(NOW_HANGS + "\n\n") != std::string::npos; }));
    const double before = cpu_seconds_of(child);
    EXPECT_TRUE(comes_true(child, [=] { return cpu_seconds_of(child) > before + 0.2; }));
    kill(child, SIGKILL);
    EXPECT_EQ(wait_for(child), SIGKILL);
}

TEST_F(ReloadCommand, UnrecoverableHangKeepsTheProcessorBusyForEver) {
    expect_hang(start_daemon_with("UNRECOVERABLE_APPL_HANG "));
}

TEST_F(ReloadCommand, UnrecoverableHangWorksWhileHung) {
    g_debug_appl_hanged = 1;
    expect_hang(start_daemon_with("UNRECOVERABLE_APPL_HANG "));
}

class OneWordCommand : public ReloadCommand, public testing::WithParamInterface<const char *> {};

TEST_P(OneWordCommand, EndsInTheCrashHandler) {
    fs::create_directories("/opt/sensor");
    unlink("/opt/sensor/stacktrace_wl_evt_handler");
    const pid_t child = start_daemon_with(GetParam());
    EXPECT_EQ(wait_for(child), SIGKILL);
    const std::string record = file_text("/opt/sensor/stacktrace_wl_evt_handler");
    const std::string id = std::to_string(child);
    EXPECT_EQ(record.find("  signal 11 from pid " + id + " thread id " + id + " \n"), 0U) << record;
    EXPECT_NE(record.find("[addr:(nil)]\n"), std::string::npos) << record;
    EXPECT_EQ(file_text("/tmp/wl.log"), "");
}

INSTANTIATE_TEST_SUITE_P(Commands, OneWordCommand,
                         testing::Values("word", "7", "SET_DEBUG_LEVEL", "APPL_SANITY_TEST", "mq_fail_stats",
                                         "RECOVERABLE_APPL_HANG", "RECOVER_APPL_HANG\n", "UNRECOVERABLE_APPL_HANG",
                                         " APPL_SANITY_TEST ", "\tword\n"));

}  // namespace
