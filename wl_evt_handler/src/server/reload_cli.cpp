#include "reload_cli.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

#include "error_text.h"
#include "libwl.h"
#include "wl_log.h"
#include "wl_server.h"
#include "wl_utils.h"

int g_reload_cli_fd = -1;
sockaddr_un g_reload_cli_reply_addr;
int g_debug_appl_hanged;

static_assert(sizeof(sockaddr_un) == 110, "the address length that is passed to bind and sendto");

namespace {

constexpr const char *HANDLER = "handle_reload_cli";
constexpr const char *WORD_SEPARATORS = " \n\t";

bool begins_with(const char *text, const char *prefix) {
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

/// Busy, not asleep: the CPU use is what a watchdog sees. The empty statement keeps the loop from being dropped.
[[noreturn]] void spin_forever() {
    for (;;)
        asm volatile("");
}

/// A tool that does not read its replies fails here; it must not hold up the daemon.
int send_success() {
    constexpr char REPLY[] = "SUCCESS";
    if (sendto(g_reload_cli_fd, REPLY, sizeof REPLY, MSG_NOSIGNAL | MSG_DONTWAIT,
               reinterpret_cast<const sockaddr *>(&g_reload_cli_reply_addr), sizeof g_reload_cli_reply_addr) >= 0)
        return 0;
    const int error = errno;
    WL_LOG_AS(HANDLER, 3, "Unable to send reply to reload cli : %s", error_text(error));
    return -1;
}

int log_failure_statistics() {
    mq_failure_statistics mq_fail_stats{};
    get_mq_failure_statistics(&mq_fail_stats);
    WL_LOG_AS(HANDLER, 3, " mq_fail_stats.recv_failure_count [%u]\n mq_fail_stats.send_failure_count [%u]\n",
              static_cast<unsigned>(mq_fail_stats.recv_failure_count),
              static_cast<unsigned>(mq_fail_stats.send_failure_count));
    return 0;
}

/// Deliberately does not ask whether there is a word: a command of one word comes here with none, and the fault sends
/// the process down its crash path. The attribute keeps a sanitizer from ending the process in its own way first.
[[gnu::no_sanitize("nonnull-attribute")]] bool is_set_debug_level(const char *word) {
    return std::strcmp(word, "SET_DEBUG_LEVEL") == 0;
}

int change_debug_level(char *command) {
    char *rest;
    const char *number = strtok_r(command, WORD_SEPARATORS, &rest);
    if (number == nullptr)
        return -1;
    if (!is_set_debug_level(strtok_r(nullptr, WORD_SEPARATORS, &rest)))
        return -1;
    const int level = to_number(number);
    WL_LOG_AS(HANDLER, 3, "Received SET_DEBUG_LEVEL : %u", static_cast<unsigned>(level));
    set_debug_level(level);
    return 0;
}

}  // namespace

int create_file_socket(const char *path) {
    const int file_socket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (file_socket < 0) {
        const int error = errno;
        WL_LOG(2, "socket(PF_PACKET), error [%s]", error_text(error));
        return -1;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path);
    unlink(address.sun_path);
    if (bind(file_socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        const int error = errno;
        WL_LOG(2, "bind[PF_PACKET], error [%s]", error_text(error));
        close(file_socket);
        return -1;
    }
    return file_socket;
}

int init_reload_cli(const char *path) {
    int file_socket = create_file_socket(path);
    if (file_socket >= 1)
        file_socket = watch_descriptor(file_socket);
    if (file_socket < 1)
        WL_LOG(3, "LOG_ERR socket creation error");
    else
        WL_LOG(3, "LOG_INFO UNIX socket created for communicating with reload_cli");
    g_reload_cli_reply_addr = {.sun_family = AF_UNIX, .sun_path = "/tmp/reload_cli_rx_socket"};
    g_reload_cli_fd = file_socket;
    return file_socket;
}

int handle_reload_cli(char *command, int /*length*/) {
    if (begins_with(command, "RECOVERABLE_APPL_HANG ")) {
        WL_LOG(
            3,
            "APPL_HANG_DEBUG : Received RECOVERABLE_APPL_HANG command. Will not process & respond to commands other than RECOVER_APPL_HANG!!\n");
        g_debug_appl_hanged = 1;
    } else if (begins_with(command, "RECOVER_APPL_HANG ")) {
        WL_LOG(
            3,
            "APPL_HANG_DEBUG : Received RECOVER_APPL_HANG command. Will start processing & responding to commands other than RECOVER_APPL_HANG!!\n");
        g_debug_appl_hanged = 0;
        return 0;
    } else if (begins_with(command, "UNRECOVERABLE_APPL_HANG ")) {
        WL_LOG(3, "APPL_HANG_DEBUG : Received UNRECOVERABLE_APPL_HANG command. Going in infinite loop!!\n");
        spin_forever();
    }
    if (g_debug_appl_hanged == 1) {
        WL_LOG(
            3,
            "APPL_HANG_DEBUG : Returning without processing command. Send command RECOVER_APPL_HANG to start processing commands!!\n");
        return 0;
    }

    if (begins_with(command, "APPL_SANITY_TEST "))
        return send_success();
    if (begins_with(command, "mq_fail_stats "))
        return log_failure_statistics();
    return change_debug_level(command);
}
