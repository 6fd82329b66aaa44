#include "wl_server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include "debug_log.h"
#include "error_text.h"
#include "language_cache_funcs.h"
#include "libwl.h"
#include "reload_cli.h"
#include "vap_table.h"
#include "wl_ap_logging_evt.h"
#include "wl_bw.h"
#include "wl_cl_info.h"
#include "wl_client_ts.h"
#include "wl_common.h"
#include "wl_evt_register.h"
#include "wl_logger.h"
#include "wl_ssid_profile.h"
#include "wl_synch.h"

fd_set g_readfds;
int g_maxfd;
int g_synch_sock = -1;
uint8_t g_synch_nack_count;
hashTable_t *wl_debug_log_cache;
int n_clients;

namespace {

constexpr char RELOAD_CLI_PATH[] = "/tmp/wl_evt_handler_reload_cli_socket";
constexpr char PEER_SOCKET_PATH[] = "/tmp/wl_unix_socket";
constexpr char INFO_LABELS[] = "/opt/ap/cl_debug_info_code_en.properties";
constexpr char SUBINFO_LABELS[] = "/opt/ap/cl_debug_subinfo_code_en.properties";
constexpr int LABEL_BUCKETS = 137;
constexpr uint16_t SYNCH_AGENT_PORT = 12345;

// The start-up and the loop are main's affair: their lines carry its name.
constexpr char MAIN[] = "main";

int wl_fd = -1;

/// @return the descriptor; one that select cannot hold is closed and counts as a failed open: -1, `errno` EMFILE
int selectable(int descriptor) {
    if (descriptor < FD_SETSIZE)
        return descriptor;
    close(descriptor);
    errno = EMFILE;
    return -1;
}

void register_with_bus() {
    wl_fd = selectable(wl_mq_register_and_init(WL_MQ_WL_HANDLER_KEY, wl_evt_register_events));
    if (wl_fd == -1) {
        const int error = errno;
        WL_LOG_AS(MAIN, 2, "mq_open error_msg %s key[%d]", error_text(error), WL_MQ_WL_HANDLER_KEY);
    }
}

void load_label_catalogue() {
    wl_debug_log_cache = hash_newTable(LABEL_BUCKETS, lang_hash_func, lang_compare_record);
    if (wl_debug_log_cache == nullptr) {
        WL_LOG_AS(MAIN, 3, "wl debugging cache initialization failed");
        return;
    }
    if (wl_debug_log_load_cache(wl_debug_log_cache) != 0) {
        WL_LOG_AS(MAIN, 3, "Error in populating wl debugging cache from properties files");
        (void)hash_delTable(&wl_debug_log_cache, free_lang_node);
    }
}

int connect_to_synch_agent() {
    WL_LOG_AS("init_synch_sock", 7, "Initializing synch agent socket.");
    const int sock = selectable(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
    if (sock < 0) {
        const int error = errno;
        WL_LOG_AS("init_synch_sock", 3, "Error initializing synch agent socket : %s", error_text(error));
        return -1;
    }
    sockaddr_in agent{};
    agent.sin_family = AF_INET;
    agent.sin_port = htons(SYNCH_AGENT_PORT);
    agent.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(sock, reinterpret_cast<const sockaddr *>(&agent), sizeof agent) != 0) {
        const int error = errno;
        WL_LOG_AS("init_synch_sock", 3, "Error connecting to synch agent : %s", error_text(error));
        close(sock);
        return -1;
    }
    return watch_descriptor(sock);
}

void reopen_what_is_closed() {
    if (wl_fd < 0)
        register_with_bus();  // deliberately not watched: served only if the library hands back a number still watched
    if (g_reload_cli_fd < 0)
        init_reload_cli(RELOAD_CLI_PATH);
    if (g_synch_sock < 0 || g_synch_nack_count != 0)
        init_synch_sock();
}

void serve_event_bus() {
    if (handle_wl_evt() >= 0)
        return;
    WL_LOG_AS(MAIN, 3, "wl event handler disconnected");
    FD_CLR(wl_fd, &g_readfds);
    wl_fd = -1;
}

void close_reload_channel(ssize_t received, int error) {
    WL_LOG_AS(MAIN, 3, "reload cli recv error g_reload_cli_fd[%d] error[%s]:  ", g_reload_cli_fd, error_text(error));
    FD_CLR(g_reload_cli_fd, &g_readfds);
    close(g_reload_cli_fd);
    g_reload_cli_fd = -1;
    if (error == EINTR || error == EAGAIN)
        WL_LOG_AS(MAIN, 3, "EINTR or EWOULDBLOCK or EAGAIN %s", error_text(error));
    else if (received == -1)
        WL_LOG_AS(MAIN, 3, "Unknown error: %s", error_text(error));
    else
        WL_LOG_AS(MAIN, 3, "recv error: %s.", error_text(error));
}

void serve_reload_channel() {
    char command[256] = {};
    errno = 0;  // an empty datagram leaves it as it was
    const ssize_t received = recv(g_reload_cli_fd, command, sizeof command, MSG_DONTWAIT);
    const int error = errno;
    if (received < 1) {
        close_reload_channel(received, error);
        return;
    }
    command[sizeof command - 1] = '\0';
    WL_LOG_AS(MAIN, 2, "LOG_INFO: Received [%s] from reload_cli", command);
    (void)handle_reload_cli(command, static_cast<int>(received));
}

}  // namespace

int watch_descriptor(int descriptor) {
    if (selectable(descriptor) < 0)
        return -1;
    FD_SET(descriptor, &g_readfds);
    g_maxfd = std::max(g_maxfd, descriptor);
    return descriptor;
}

int daemonize() {
    const pid_t child = fork();
    if (child == -1)
        return -1;
    if (child != 0)
        _exit(0);
    if (setsid() == -1)
        return -1;
    // Only tested for zero: a second fork that fails ends the program with status 0 too.
    if (fork() != 0)
        _exit(0);
    const int null_device = open("/dev/null", O_RDWR);
    if (null_device < 0)
        return 0;
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(null_device, standard);
    if (null_device > STDERR_FILENO)
        close(null_device);
    return 0;
}

void wl_modules_init() {
    init_logger();
    init_iface_table();
    bw_init();
    (void)wl_client_ts_init();  // without it the daemon runs all the same
    (void)wl_detailed_client_ts_init();
    wl_ap_ts_init();
    wl_init_cl_cache_info();
    WL_LOG(7, "Initialized WL Modules");
}

void wl_modules_deinit() {
    bw_deinit();
    closelog();
    wl_client_ts_deinit();
}

int ispresent_file(const char *path) {
    struct stat status;
    return stat(path, &status) == 0 ? 1 : 0;
}

int wl_debug_log_load_cache(hashTable_t *cache) {
    if (ispresent_file(INFO_LABELS) == 0) {
        WL_LOG(2, "Current wl info file[%s] not present", INFO_LABELS);
        return -1;
    }
    (void)pop_lang_cache_from_file(INFO_LABELS, cache);
    if (ispresent_file(SUBINFO_LABELS) == 0) {
        WL_LOG(2, "Current wl subinfo file[%s] not present", SUBINFO_LABELS);
        return -1;
    }
    (void)pop_lang_cache_from_file(SUBINFO_LABELS, cache);
    return 0;
}

int init_synch_sock() {
    const bool new_connection = g_synch_sock < 0;
    if (new_connection) {
        g_synch_sock = connect_to_synch_agent();
        if (g_synch_sock < 0)
            return -1;
        WL_LOG(7, "Connected to synch agent : synch_sock id : [%d]", g_synch_sock);
        set_new_maxfd();
    }
    if (new_connection || g_synch_nack_count != 0)
        return check_and_register_ssids(new_connection ? 1 : 0);
    return 0;
}

void set_new_maxfd() {
    g_maxfd = std::max({0, g_synch_sock, wl_fd, g_reload_cli_fd});
}

int wl_unix_init() {
    unlink(PEER_SOCKET_PATH);
    const int sock = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (sock < 0)
        return -1;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, PEER_SOCKET_PATH, sizeof PEER_SOCKET_PATH);
    if (bind(sock, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        close(sock);
        return -1;
    }
    listen(sock, 100);
    n_clients = 0;
    return sock;
}

void start_server(const char *configuration) {
    FD_ZERO(&g_readfds);
    init_reload_cli(RELOAD_CLI_PATH);
    wl_modules_init();
    init_synch_sock();
    set_comm_vlan_iface_name();
    read_wl_conf(configuration);
    std::signal(SIGPIPE, SIG_IGN);
    load_label_catalogue();
    register_with_bus();
    if (wl_fd > 0)
        wl_fd = watch_descriptor(wl_fd);
    vre_request_vlan_detected_info();
}

void serve_once() {
    reopen_what_is_closed();
    fd_set ready = g_readfds;
    timeval limit{5, 0};
    // A failure other than EINTR leaves every watched descriptor marked ready: each is served without blocking.
    if (select(g_maxfd + 1, &ready, nullptr, nullptr, &limit) < 0 && errno == EINTR)
        return;
    if (wl_fd > 0 && FD_ISSET(wl_fd, &ready))
        serve_event_bus();
    if (g_synch_sock > 0 && FD_ISSET(g_synch_sock, &ready)) {
        WL_LOG_AS(MAIN, 7, "packet from synch agent");
        receive_synch_data();
    }
    if (g_reload_cli_fd >= 1 && FD_ISSET(g_reload_cli_fd, &ready))
        serve_reload_channel();
}
