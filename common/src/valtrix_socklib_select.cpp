#include "valtrix_socklib.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "debug_log.h"
#include "error_text.h"

namespace {

constexpr int REMOVE = 0;
constexpr int ADD = 1;

/// Text of socklib_read_select's last failure.
char err_reason[64];

bool fits_in_set(int fd) {
    return fd >= 0 && fd < FD_SETSIZE;
}

/// @return what select returns; -1 with `errno` EBADF for a highest descriptor that no set can hold
int select_readable(int highest, timeval *timeout, fd_set *fds) {
    if (highest >= FD_SETSIZE) {
        errno = EBADF;
        return -1;
    }
    return select(highest + 1, fds, nullptr, nullptr, timeout);
}

/// Fills the set with the descriptors of a list. @return the highest, -1 for an empty list; FD_SETSIZE, which no set
///         holds, when one of them does not fit
int fill_set(const int *socket_list, int num_sockets, fd_set *fds) {
    FD_ZERO(fds);
    int highest = -1;
    for (int at = 0; at < num_sockets; ++at) {
        if (!fits_in_set(socket_list[at]))
            return FD_SETSIZE;
        FD_SET(socket_list[at], fds);
        highest = std::max(highest, socket_list[at]);
    }
    return highest;
}

/// @return the highest descriptor of the set that is not above `from`, -1 when there is none
int highest_in_set(const fd_set *fds, int from) {
    int highest = std::min(from, FD_SETSIZE - 1);
    while (highest >= 0 && !FD_ISSET(highest, fds))
        --highest;
    return std::max(highest, -1);
}

}  // namespace

int socklib_read_select(const int *socket_list, int num_sockets, struct timeval *timeout, fd_set *fds) {
    const int result = select_readable(fill_set(socket_list, num_sockets, fds), timeout, fds);
    if (result < 0) {
        const int error = errno;
        (void)snprintf(err_reason, sizeof err_reason, "%s", error_text(error));
        WL_LOG(3, "Error in select: %d:%s", error, err_reason);
    }
    return result;
}

int socklib_read_select_new(int sock_highest, struct timeval *timeout, fd_set *fds) {
    const int result = select_readable(sock_highest, timeout, fds);
    if (result < 0) {
        const int error = errno;
        WL_LOG(3, "Error in select: %d:%s", error, error_text(error));
    }
    return result;
}

int socklib_update_sock_info(int mode, int new_sockfd, fd_set *fds, int *old_sock_highest) {
    if (mode != ADD && mode != REMOVE) {
        WL_LOG(3, "Invalid input argument; mode = %d", mode);
        return -1;
    }
    if (fds == nullptr) {
        WL_LOG(3, "Invalid input argument; fds = NULL");
        return -1;
    }
    if (old_sock_highest == nullptr) {
        WL_LOG(3, "Invalid input argument; old_sock_highest = NULL");
        return -1;
    }
    if (new_sockfd < 0) {
        WL_LOG(3, "Invalid input argument; new_sockfd(%d) < 0", new_sockfd);
        return -1;
    }
    if (new_sockfd >= FD_SETSIZE) {
        WL_LOG(3, "Invalid input argument; new_sockfd(%d) >= %d", new_sockfd, FD_SETSIZE);
        return -1;
    }
    if (mode == ADD) {
        FD_SET(new_sockfd, fds);
        *old_sock_highest = std::max(*old_sock_highest, new_sockfd);
    } else {
        FD_CLR(new_sockfd, fds);
        *old_sock_highest = highest_in_set(fds, *old_sock_highest);
    }
    return 0;
}
