#include "wl_server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <netinet/in.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "child.h"
#include "fault.h"
#include "libwl.h"
#include "log_capture.h"
#include "reload_cli.h"
#include "wl_common.h"

namespace {

// What the registration of the SSIDs was told, and what it answers.
std::vector<int> registrations;
int registration_result;

std::atomic<bool> naps_are_short = false;

}  // namespace

extern "C" unsigned __real_sleep(unsigned seconds);

/// The end of the timer thread is not waited for through the 30 seconds of its sleep where a test says so.
extern "C" unsigned __wrap_sleep(unsigned seconds) {
    if (!naps_are_short)
        return __real_sleep(seconds);
    usleep(1000);
    return 0;
}

/// Stands in for check_and_register_ssids.
extern "C" int __wrap__Z24check_and_register_ssidsi(int new_connection) {
    registrations.push_back(new_connection);
    return registration_result;
}

namespace {

using lines = std::vector<std::string>;

constexpr char INFO_LABELS[] = "/opt/ap/cl_debug_info_code_en.properties";
constexpr char SUBINFO_LABELS[] = "/opt/ap/cl_debug_subinfo_code_en.properties";

void write_file(const char *path, const char *text) {
    mkdir("/opt/ap", 0755);
    FILE *file = std::fopen(path, "w");
    ASSERT_NE(file, nullptr);
    std::fputs(text, file);
    std::fclose(file);
}

/// A synch agent that accepts connections on its port.
int listening_agent() {
    const int sock = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(12345);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(sock, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    EXPECT_EQ(listen(sock, 4), 0);
    return sock;
}

int label_table_hash(const void *, const hashTable_t *, const void *) {
    return 0;
}

int label_table_compare(const void *, const void *) {
    return 1;
}

/// Sends one datagram to the daemon's reload socket.
void send_command(const char *text, size_t size) {
    const int sock = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/tmp/wl_evt_handler_reload_cli_socket");
    ASSERT_EQ(sendto(sock, text, size, 0, reinterpret_cast<sockaddr *>(&address), sizeof address),
              static_cast<ssize_t>(size));
    close(sock);
}

bool holds(const lines &all, const std::string &line) {
    return std::find(all.begin(), all.end(), line) != all.end();
}

size_t count(const lines &all, const std::string &line) {
    return static_cast<size_t>(std::count(all.begin(), all.end(), line));
}

TEST(WatchDescriptor, AddsTheBitAndRaisesTheHighest) {
    FD_ZERO(&g_readfds);
    g_maxfd = 3;
    const int descriptor = dup2(0, 9);
    EXPECT_EQ(watch_descriptor(descriptor), 9);
    EXPECT_TRUE(FD_ISSET(9, &g_readfds));
    EXPECT_EQ(g_maxfd, 9);
}

TEST(WatchDescriptor, LeavesAHigherMaximum) {
    g_maxfd = 20;
    EXPECT_EQ(watch_descriptor(dup2(0, 9)), 9);
    EXPECT_EQ(g_maxfd, 20);
}

TEST(WatchDescriptor, ClosesADescriptorThatSelectCannotHold) {
    const rlimit many{2048, 2048};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &many), 0);
    const int descriptor = dup2(0, 1024);
    ASSERT_EQ(descriptor, 1024);
    g_maxfd = 3;
    EXPECT_EQ(watch_descriptor(descriptor), -1);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(fcntl(1024, F_GETFD), -1);
    EXPECT_EQ(g_maxfd, 3);
}

TEST(SetNewMaxfd, TakesTheHighestOfTheOpenDescriptors) {
    g_synch_sock = 17;
    g_reload_cli_fd = 12;
    g_maxfd = 99;
    set_new_maxfd();
    EXPECT_EQ(g_maxfd, 17);
    g_synch_sock = -1;
    set_new_maxfd();
    EXPECT_EQ(g_maxfd, 12);
    g_reload_cli_fd = -1;
    set_new_maxfd();
    EXPECT_EQ(g_maxfd, 0);
}

TEST(IspresentFile, TellsWhetherAPathExists) {
    EXPECT_EQ(ispresent_file("/tmp"), 1);
    EXPECT_EQ(ispresent_file("/tmp/absent"), 0);
}

TEST(WlModulesInit, LogsItsEnd) {
    log_capture log;
    wl_modules_init();
    EXPECT_EQ(log.lines().back(), "wl_modules_init: Initialized WL Modules");
}

class LabelCatalogue : public testing::Test {
protected:
    ~LabelCatalogue() override {
        (void)hash_delTable(&table, nullptr);
    }

    hashTable_t *table = hash_newTable(137, label_table_hash, label_table_compare);
    log_capture log;
};

TEST_F(LabelCatalogue, AMissingInfoFileSkipsBoth) {
    EXPECT_EQ(wl_debug_log_load_cache(table), -1);
    EXPECT_EQ(log.lines(),
              lines{std::string("wl_debug_log_load_cache: Current wl info file[") + INFO_LABELS + "] not present"});
}

TEST_F(LabelCatalogue, AMissingSubinfoFileFails) {
    write_file(INFO_LABELS, "");
    EXPECT_EQ(wl_debug_log_load_cache(table), -1);
    EXPECT_EQ(log.lines(), lines{std::string("wl_debug_log_load_cache: Current wl subinfo file[") + SUBINFO_LABELS +
                                 "] not present"});
}

TEST_F(LabelCatalogue, BothFilesLoadSilently) {
    write_file(INFO_LABELS, "");
    write_file(SUBINFO_LABELS, "");
    EXPECT_EQ(wl_debug_log_load_cache(table), 0);
    EXPECT_EQ(log.lines(), lines{});
}

TEST(InitSynchSock, AnAbsentAgentIsLoggedAndLeavesNoSocket) {
    const int next = dup(0);
    close(next);
    log_capture log;
    EXPECT_EQ(init_synch_sock(), -1);
    EXPECT_EQ(fcntl(next, F_GETFD), -1);
    EXPECT_EQ(g_synch_sock, -1);
    EXPECT_EQ(log.lines(), (lines{"init_synch_sock: Initializing synch agent socket.",
                                  "init_synch_sock: Error connecting to synch agent : Connection refused"}));
}

TEST(InitSynchSock, AFailedSocketIsLogged) {
    fail_nth_call("socket", 1, ENOBUFS);
    log_capture log;
    EXPECT_EQ(init_synch_sock(), -1);
    EXPECT_EQ(faults_fired("socket"), 1);
    EXPECT_EQ(g_synch_sock, -1);
    EXPECT_EQ(log.lines().back(), "init_synch_sock: Error initializing synch agent socket : No buffer space available");
}

TEST(InitSynchSock, AConnectionIsWatched) {
    const int agent = listening_agent();
    FD_ZERO(&g_readfds);
    g_maxfd = 0;
    log_capture log;
    EXPECT_EQ(init_synch_sock(), 0);
    ASSERT_GT(g_synch_sock, 0);
    EXPECT_TRUE(FD_ISSET(g_synch_sock, &g_readfds));
    EXPECT_EQ(g_maxfd, g_synch_sock);
    EXPECT_EQ(fcntl(g_synch_sock, F_GETFD), FD_CLOEXEC);
    EXPECT_TRUE(holds(log.lines(), "init_synch_sock: Connected to synch agent : synch_sock id : [" +
                                       std::to_string(g_synch_sock) + "]"));
    close(agent);
}

TEST(InitSynchSock, AConnectionIsToldAtLevel7) {
    const int agent = listening_agent();
    for (const int level : {6, 7}) {
        log_capture log(level);
        EXPECT_EQ(init_synch_sock(), 0);
        EXPECT_EQ(holds(log.lines(), "init_synch_sock: Connected to synch agent : synch_sock id : [" +
                                         std::to_string(g_synch_sock) + "]"),
                  level == 7);
        close(g_synch_sock);
        g_synch_sock = -1;
    }
    close(agent);
}

TEST(InitSynchSock, AnOpenConnectionWithNothingDueIsLeftAlone) {
    const int agent = listening_agent();
    ASSERT_EQ(init_synch_sock(), 0);
    const int connected = g_synch_sock;
    log_capture log;
    EXPECT_EQ(init_synch_sock(), 0);
    EXPECT_EQ(g_synch_sock, connected);
    EXPECT_EQ(log.lines(), lines{});
    close(agent);
}

TEST(InitSynchSock, ASocketThatSelectCannotHoldCountsAsFailed) {
    const rlimit many{2048, 2048};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &many), 0);
    for (int next = dup(0); next < 1023; next = dup(0))
        ASSERT_GE(next, 0);
    log_capture log;
    EXPECT_EQ(init_synch_sock(), -1);
    EXPECT_EQ(log.lines().back(), "init_synch_sock: Error initializing synch agent socket : Too many open files");
    EXPECT_EQ(fcntl(1024, F_GETFD), -1);
}

TEST(WlUnixInit, ListensForPeers) {
    n_clients = 5;
    const int sock = wl_unix_init();
    ASSERT_GE(sock, 0);
    EXPECT_EQ(n_clients, 0);
    const int peer = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/tmp/wl_unix_socket");
    EXPECT_EQ(connect(peer, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
}

TEST(WlUnixInit, ReplacesAnyFileAtItsPath) {
    write_file("/tmp/wl_unix_socket", "left over");
    EXPECT_GE(wl_unix_init(), 0);
}

TEST(WlUnixInit, FailsWithoutASocket) {
    fail_nth_call("socket", 1, ENOBUFS);
    EXPECT_EQ(wl_unix_init(), -1);
}

TEST(WlUnixInit, AFailedBindClosesTheSocket) {
    const int next = dup(0);
    close(next);
    fail_nth_call("bind", 1, EADDRINUSE);
    EXPECT_EQ(wl_unix_init(), -1);
    EXPECT_EQ(fcntl(next, F_GETFD), -1);
}

int exit_status_of(pid_t child) {
    const int status = wait_for(child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Daemonize, FailsWhenTheFirstForkFails) {
    fail_nth_call("fork", 1, EAGAIN);
    EXPECT_EQ(daemonize(), -1);
}

TEST(Daemonize, FailsInTheChildWithoutASession) {
    int results[2];
    ASSERT_EQ(pipe(results), 0);
    const pid_t child = fork();
    if (child == 0) {
        fail_nth_call("setsid", 1, EPERM);
        const int result = daemonize();
        _exit(write(results[1], &result, sizeof result) == sizeof result ? 0 : 1);
    }
    EXPECT_EQ(exit_status_of(child), 0);
    int result = 0;
    ASSERT_EQ(read(results[0], &result, sizeof result), static_cast<ssize_t>(sizeof result));
    EXPECT_EQ(result, -1);
}

TEST(Daemonize, EndsWithStatus0WhenTheSecondForkFails) {
    int alive[2];
    ASSERT_EQ(pipe(alive), 0);
    const pid_t child = fork();
    if (child == 0) {
        close(alive[0]);
        fail_nth_call("fork", 2, EAGAIN);
        (void)!daemonize();
        (void)!write(alive[1], "x", 1);
        _exit(7);
    }
    close(alive[1]);
    EXPECT_EQ(exit_status_of(child), 0);
    char byte = 0;
    EXPECT_EQ(read(alive[0], &byte, 1), 0) << "somebody came back from daemonize";
}

TEST(Daemonize, DetachesAndPointsTheStandardDescriptorsAtTheNullDevice) {
    int results[2];
    ASSERT_EQ(pipe(results), 0);
    const pid_t child = fork();
    if (child == 0) {
        (void)!chdir("/opt");
        umask(027);
        const int result = daemonize();
        char said[256];
        char link[64] = {};
        char cwd[64] = {};
        (void)!readlink("/proc/self/fd/2", link, sizeof link - 1);
        const mode_t mask = umask(0);
        std::snprintf(said, sizeof said, "%d %d %s %s %03o %d", result, getsid(0) != getpid() ? 1 : 0, link,
                      getcwd(cwd, sizeof cwd), static_cast<unsigned>(mask), fcntl(results[1] + 1, F_GETFD));
        _exit(write(results[1], said, std::strlen(said)) > 0 ? 0 : 1);
    }
    EXPECT_EQ(exit_status_of(child), 0);
    close(results[1]);
    std::string said;
    char byte = 0;
    while (read(results[0], &byte, 1) == 1)
        said += byte;
    EXPECT_EQ(said, "0 1 /dev/null /opt 027 -1");
}

TEST(Daemonize, DoesWithoutTheNullDevice) {
    int results[2];
    ASSERT_EQ(pipe(results), 0);
    const pid_t child = fork();
    if (child == 0) {
        fail_nth_call("open", 1, ENOENT);
        const int result = daemonize();
        _exit(write(results[1], &result, sizeof result) == sizeof result ? 0 : 1);
    }
    EXPECT_EQ(exit_status_of(child), 0);
    int result = -1;
    ASSERT_EQ(read(results[0], &result, sizeof result), static_cast<ssize_t>(sizeof result));
    EXPECT_EQ(result, 0);
}

/// The loop, in this process.
class Server : public testing::Test {
protected:
    void start() {
        start_server("/tmp/wl_evt_handler.conf");
    }

    log_capture log;
};

TEST_F(Server, StartsInOrderAndGoesOnWithoutAgentAndLabels) {
    start();
    const lines all = log.lines();
    const auto at = [&](const std::string &text) {
        return std::find_if(all.begin(), all.end(), [&](const auto &line) { return line.find(text) == 0; });
    };
    const auto reload = at("init_reload_cli: LOG_INFO UNIX socket created");
    const auto modules = at("wl_modules_init: Initialized WL Modules");
    const auto agent = at("init_synch_sock: Initializing synch agent socket.");
    const auto labels = at("main: Error in populating wl debugging cache from properties files");
    ASSERT_NE(labels, all.end());
    EXPECT_LT(reload, modules);
    EXPECT_LT(modules, agent);
    EXPECT_LT(agent, labels);
    EXPECT_EQ(wl_debug_log_cache, nullptr);
}

TEST_F(Server, AsksTheSensorForItsVlansAtTheEnd) {
    mq_attr attributes{};
    attributes.mq_maxmsg = 8;
    attributes.mq_msgsize = 2048;
    const mqd_t sensor = mq_open("/sensord", O_RDONLY | O_CREAT | O_NONBLOCK, 0777, &attributes);
    ASSERT_GE(sensor, 0);
    start();
    char message[2048];
    const ssize_t size = mq_receive(sensor, message, sizeof message, nullptr);
    const std::string name("VRE.vlan.detector");
    ASSERT_EQ(size, static_cast<ssize_t>(name.size() + 1 + 518));
    std::string wanted = name + '\0' + std::string("\0\1", 2) + std::string(516, '\0');
    EXPECT_EQ(std::string(message, static_cast<size_t>(size)), wanted);
}

/// The start-up with its n-th allocation failing, in a child; some modules cannot do without theirs and end it.
///
/// @return whether the label table was reported missing
bool starts_without_labels(int nth) {
    const int status = wait_for(start_child([nth] {
        log_capture log;
        fail_nth_call("calloc", nth);
        start_server("/tmp/wl_evt_handler.conf");
        const bool reported = holds(log.lines(), "main: wl debugging cache initialization failed");
        _exit(reported && wl_debug_log_cache == nullptr ? 42 : 0);
    }));
    return WIFEXITED(status) && WEXITSTATUS(status) == 42;
}

TEST(Labels, AFailedTableIsLoggedAndDoneWithout) {
    int found = 0;
    for (int nth = 1; nth <= 20; nth++)
        found += starts_without_labels(nth) ? 1 : 0;
    EXPECT_EQ(found, 2) << "the table and its rows";
}

TEST_F(Server, ABusThatCannotBeOpenedIsTriedAgainEachTurn) {
    fail_every_call("mq_open", EACCES);
    start();
    const std::string line = "main: mq_open error_msg Permission denied key[1240]";
    EXPECT_EQ(count(log.lines(), line), 1U);
    send_command("mq_fail_stats ", 14);
    serve_once();
    EXPECT_EQ(count(log.lines(), line), 2U);
}

/// Messages that wait in the daemon's queue; -1 when there is none.
long waiting_messages() {
    const mqd_t queue = mq_open("/wl_evt_handler", O_RDONLY);
    mq_attr attributes{};
    const long waiting = mq_getattr(queue, &attributes) == 0 ? attributes.mq_curmsgs : -1;
    mq_close(queue);
    return waiting;
}

TEST_F(Server, AGoneBusIsRegisteredAgainButNotWatched) {
    start();
    ASSERT_GT(wl_send_evt(VRE_NODE_LEAVE, "0123456789", 10), 0);
    fail_nth_call("mq_receive", 1, EBADF);
    serve_once();
    EXPECT_TRUE(holds(log.lines(), "main: wl event handler disconnected"));
    ASSERT_EQ(mq_unlink("/wl_evt_handler"), 0);
    send_command("mq_fail_stats ", 14);
    serve_once();
    EXPECT_TRUE(holds(log.lines(), "handle_reload_cli:  mq_fail_stats.recv_failure_count [1]"));
    ASSERT_EQ(waiting_messages(), 0) << "registered again";
    ASSERT_GT(wl_send_evt(VRE_NODE_LEAVE, "0123456789", 10), 0);
    send_command("mq_fail_stats ", 14);
    serve_once();
    EXPECT_EQ(waiting_messages(), 1) << "its events are not served";
}

TEST_F(Server, ABusDescriptorThatSelectCannotHoldCountsAsFailed) {
    const rlimit many{2048, 2048};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &many), 0);
    start();
    fail_nth_call("mq_receive", 1, EBADF);
    ASSERT_GT(wl_send_evt(VRE_NODE_LEAVE, "0123456789", 10), 0);
    serve_once();
    std::vector<int> fillers;
    for (int next = dup(0); next < 1024; next = dup(0))
        fillers.push_back(next);
    send_command("mq_fail_stats ", 14);
    serve_once();
    EXPECT_TRUE(holds(log.lines(), "main: mq_open error_msg Too many open files key[1240]"));
    EXPECT_EQ(fcntl(1025, F_GETFD), -1);
}

TEST_F(Server, AnEmptyDatagramClosesAndReopensTheReloadChannel) {
    start();
    const int before = g_reload_cli_fd;
    send_command("", 0);
    errno = EAGAIN;
    serve_once();
    EXPECT_EQ(g_reload_cli_fd, -1);
    EXPECT_FALSE(FD_ISSET(before, &g_readfds));
    EXPECT_TRUE(holds(log.lines(),
                      "main: reload cli recv error g_reload_cli_fd[" + std::to_string(before) + "] error[Success]:  "));
    EXPECT_TRUE(holds(log.lines(), "main: recv error: Success."));
    fail_nth_call("select", 1, EINTR);
    serve_once();
    EXPECT_GE(g_reload_cli_fd, 1);
    EXPECT_TRUE(FD_ISSET(g_reload_cli_fd, &g_readfds));
}

TEST_F(Server, AFailedReceiveTellsItsReasonAndCloses) {
    start();
    const int before = g_reload_cli_fd;
    send_command("mq_fail_stats ", 14);
    fail_nth_call("recv", 1, ENOMEM);
    serve_once();
    EXPECT_TRUE(holds(log.lines(), "main: reload cli recv error g_reload_cli_fd[" + std::to_string(before) +
                                       "] error[Cannot allocate memory]:  "));
    EXPECT_TRUE(holds(log.lines(), "main: Unknown error: Cannot allocate memory"));
    EXPECT_EQ(g_reload_cli_fd, -1);
    EXPECT_EQ(fcntl(before, F_GETFD), -1);
}

TEST_F(Server, AnInterruptedReceiveIsToldFromAnUnknownError) {
    start();
    send_command("mq_fail_stats ", 14);
    fail_nth_call("recv", 1, EINTR);
    serve_once();
    EXPECT_TRUE(holds(log.lines(), "main: EINTR or EWOULDBLOCK or EAGAIN Interrupted system call"));
    EXPECT_EQ(g_reload_cli_fd, -1);
}

TEST_F(Server, AFailedSelectServesEveryDescriptorWithoutBlocking) {
    const int agent = listening_agent();
    start();
    fail_nth_call("select", 1, EINVAL);
    serve_once();
    const lines all = log.lines();
    const auto synch = std::find(all.begin(), all.end(), "main: packet from synch agent");
    const auto reload =
        std::find(all.begin(), all.end(), "main: EINTR or EWOULDBLOCK or EAGAIN Resource temporarily unavailable");
    EXPECT_NE(reload, all.end());
    EXPECT_LT(synch, reload);
    EXPECT_FALSE(holds(all, "main: wl event handler disconnected")) << "an empty queue is not gone";
    close(agent);
}

TEST_F(Server, AnInterruptedSelectServesNothing) {
    start();
    send_command("mq_fail_stats ", 14);
    fail_nth_call("select", 1, EINTR);
    serve_once();
    EXPECT_FALSE(holds(log.lines(), "main: LOG_INFO: Received [mq_fail_stats ] from reload_cli"));
    serve_once();
    EXPECT_TRUE(holds(log.lines(), "main: LOG_INFO: Received [mq_fail_stats ] from reload_cli"));
}

TEST_F(Server, ACommandOf256BytesIsTerminated) {
    start();
    const std::string command = "mq_fail_stats " + std::string(300, 'x');
    send_command(command.data(), command.size());
    serve_once();
    EXPECT_TRUE(holds(log.lines(), "main: LOG_INFO: Received [" + command.substr(0, 255) + "] from reload_cli"));
}

TEST_F(Server, ARefusedRegistrationIsRepeatedEachTurn) {
    const int agent = listening_agent();
    start();
    EXPECT_EQ(registrations, std::vector<int>{1}) << "a new connection";
    const int connected = g_synch_sock;
    ASSERT_GT(connected, 0);
    g_synch_nack_count = 1;
    send_command("mq_fail_stats ", 14);
    serve_once();
    EXPECT_EQ(registrations, (std::vector<int>{1, 0})) << "again, on the open one";
    EXPECT_EQ(g_synch_sock, connected);
    EXPECT_EQ(count(log.lines(), "init_synch_sock: Initializing synch agent socket."), 1U);
    close(agent);
}

TEST(InitSynchSock, GivesTheResultOfTheRegistration) {
    const int agent = listening_agent();
    registration_result = 23;
    EXPECT_EQ(init_synch_sock(), 23);
    EXPECT_EQ(init_synch_sock(), 0) << "nothing is due";
    g_synch_nack_count = 1;
    EXPECT_EQ(init_synch_sock(), 23);
    close(agent);
}

TEST(WlModulesDeinit, CanBeCalled) {
    naps_are_short = true;
    wl_modules_init();
    wl_modules_deinit();
}

TEST(Labels, AreKeptWhenBothFilesAreThere) {
    write_file(INFO_LABELS, "");
    write_file(SUBINFO_LABELS, "");
    log_capture log;
    start_server("/tmp/wl_evt_handler.conf");
    ASSERT_NE(wl_debug_log_cache, nullptr);
    EXPECT_EQ(wl_debug_log_cache->length, 137);
    for (const std::string &line : log.lines())
        EXPECT_EQ(line.find("properties"), std::string::npos) << line;
}

TEST(Labels, AreDoneWithoutWhenTheSecondFileIsMissing) {
    write_file(INFO_LABELS, "");
    log_capture log;
    start_server("/tmp/wl_evt_handler.conf");
    EXPECT_EQ(wl_debug_log_cache, nullptr);
    EXPECT_TRUE(holds(log.lines(), "main: Error in populating wl debugging cache from properties files"));
}

/// A line, the lowest level at which it is written, and what makes the daemon write it.
struct levelled_line {
    int level;
    const char *line;
    void (*action)();
};

void start_default_server() {
    start_server("/tmp/wl_evt_handler.conf");
}

const levelled_line LEVELLED[] = {
    {2, "main: mq_open error_msg Permission denied key[1240]",
     [] {
         fail_every_call("mq_open", EACCES);
         start_default_server();
     }},
    {2, "main: LOG_INFO: Received [mq_fail_stats ] from reload_cli",
     [] {
         start_default_server();
         send_command("mq_fail_stats ", 14);
         serve_once();
     }},
    {2, "wl_debug_log_load_cache: Current wl info file[/opt/ap/cl_debug_info_code_en.properties] not present",
     start_default_server},
    {2, "wl_debug_log_load_cache: Current wl subinfo file[/opt/ap/cl_debug_subinfo_code_en.properties] not present",
     [] {
         write_file(INFO_LABELS, "");
         start_default_server();
     }},
    {3, "main: Error in populating wl debugging cache from properties files", start_default_server},
    {3, "init_synch_sock: Error connecting to synch agent : Connection refused", start_default_server},
    {3, "init_synch_sock: Error initializing synch agent socket : No buffer space available",
     [] {
         fail_nth_call("socket", 1, ENOBUFS);
         init_synch_sock();
     }},
    {3, "main: wl event handler disconnected",
     [] {
         start_default_server();
         wl_send_evt(VRE_NODE_LEAVE, "0123456789", 10);
         fail_nth_call("mq_receive", 1, EBADF);
         serve_once();
     }},
    {3, "main: recv error: Success.",
     [] {
         start_default_server();
         send_command("", 0);
         serve_once();
     }},
    {3, "main: Unknown error: Cannot allocate memory",
     [] {
         start_default_server();
         send_command("x y", 3);
         fail_nth_call("recv", 1, ENOMEM);
         serve_once();
     }},
    {7, "wl_modules_init: Initialized WL Modules", wl_modules_init},
    {7, "init_synch_sock: Initializing synch agent socket.", start_default_server},
    {7, "main: packet from synch agent",
     [] {
         listening_agent();
         start_default_server();
         fail_nth_call("select", 1, EINVAL);
         serve_once();
     }},
};

/// Whether a line is written at a debug level, found out in a process of its own.
bool is_written(const levelled_line &wanted, int level) {
    const int status = wait_for(start_child([&] {
        log_capture log(level);
        wanted.action();
        _exit(holds(log.lines(), wanted.line) ? 42 : 0);
    }));
    return WIFEXITED(status) && WEXITSTATUS(status) == 42;
}

class ServerLines : public testing::TestWithParam<levelled_line> {};

TEST_P(ServerLines, AreWrittenFromTheirLevelOn) {
    EXPECT_TRUE(is_written(GetParam(), GetParam().level));
    EXPECT_FALSE(is_written(GetParam(), GetParam().level - 1));
}

INSTANTIATE_TEST_SUITE_P(All, ServerLines, testing::ValuesIn(LEVELLED));

}  // namespace
