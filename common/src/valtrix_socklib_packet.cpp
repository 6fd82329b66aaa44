#include "valtrix_socklib.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>

#include "debug_log.h"
#include "error_text.h"

namespace {

constexpr char RECEIVE_PACKET[] = "socklib_receive_packet";
constexpr timeval TCP_WAIT{5, 0};

/// Whether a packet is of a size that a result can tell. A negative length of the caller's is none, and would send the
/// memory behind the packet.
///
/// @return false with `errno` set
bool is_sendable(size_t size) {
    if (size <= INT_MAX)
        return true;
    errno = EMSGSIZE;
    return false;
}

/// @param to  null: to whom the socket is connected
ssize_t send_to(int sock, const void *data, size_t size, int flags, const sockaddr_in *to) {
    if (!is_sendable(size))
        return -1;
    return sendto(sock, data, size, flags | MSG_NOSIGNAL, reinterpret_cast<const sockaddr *>(to),
                  to != nullptr ? sizeof *to : 0);
}

/// @param size  of the buffer
/// @return the size of the datagram, of which the buffer holds the beginning; on failure a negative `errno` value
ssize_t receive_from(int sock, void *buffer, size_t size, int flags, sockaddr_in *from) {
    socklen_t length = sizeof *from;
    // MSG_TRUNC: the whole size is told, also of what does not fit.
    const ssize_t received =
        recvfrom(sock, buffer, size, flags | MSG_TRUNC, reinterpret_cast<sockaddr *>(from), &length);
    if (received >= 0)
        return received;
    const int error = errno;
    WL_LOG_AS(RECEIVE_PACKET, 3, "recvfrom function failed ![%d,%s]", error, error_text(error));
    if (error == ECONNRESET)
        WL_LOG_AS(RECEIVE_PACKET, 3, "Connection reset error, so returning");
    return -error;
}

/// Takes a datagram of which no byte is announced. @return 0 or -1
int receive_empty(int sock, int flags, sockaddr_in *from) {
    uint8_t nothing[1];
    if (receive_from(sock, nothing, sizeof nothing, flags, from) < 0)
        return -1;
    char address[INET_ADDRSTRLEN];
    WL_LOG_AS(RECEIVE_PACKET, 3, "Packet with bytes to read = 0 received from %s:%d",
              socklib_inet_ntoa(from->sin_addr.s_addr, address, sizeof address), ntohs(from->sin_port));
    return 0;
}

/// Takes a datagram of which `announced` bytes are waiting. @return the number of bytes in *buf, or -1
int receive_announced(int sock, unsigned announced, uint8_t **buf, int flags, sockaddr_in *from) {
    // Zeroed: on a stream the kernel would drop the bytes that it counts here.
    auto *const packet = static_cast<uint8_t *>(std::calloc(1, announced));
    if (packet == nullptr) {
        WL_LOG_AS(RECEIVE_PACKET, 3, "MALLOC for receive buffer for %u bytes failed", announced);
        return -1;
    }
    const ssize_t received = receive_from(sock, packet, announced, flags, from);
    if (received < 0) {
        if (received == -EAGAIN)
            WL_LOG_AS(RECEIVE_PACKET, 3, "Seems like UDP checksum failed");
        std::free(packet);
        return -1;
    }
    if (received != static_cast<ssize_t>(announced))
        WL_LOG_AS(RECEIVE_PACKET, 3, "buffer size[%u] and actual bytes read[%d] do not match", announced,
                  static_cast<int>(received));
    if (received == 0) {  // another one, an empty one, in place of what was announced
        std::free(packet);
        return 0;
    }
    *buf = packet;
    return static_cast<int>(std::min<ssize_t>(received, announced));
}

/// Waits until a connection is readable. @return what select returns, with `errno` set when it is not 1
int wait_readable(int sock) {
    if (sock < 0 || sock >= FD_SETSIZE) {
        errno = EBADF;
        return -1;
    }
    fd_set ready;
    FD_ZERO(&ready);
    FD_SET(sock, &ready);
    timeval limit = TCP_WAIT;
    errno = 0;  // of a time-out
    return select(sock + 1, &ready, nullptr, nullptr, &limit);
}

}  // namespace

int socklib_send_packet(int client_socket, const void *buf, size_t buf_len, int flags,
                        const struct sockaddr_in *dst_addr) {
    const ssize_t sent = send_to(client_socket, buf, buf_len, flags, dst_addr);
    if (sent >= 0)
        return static_cast<int>(sent);
    const int error = errno;
    WL_LOG(3, "Sendto error: %s", error_text(error));
    return -1;
}

int socklib_send_udp_packet(int sock, const void *buf, size_t len, int flags, uint32_t ip, uint16_t port) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = port;
    to.sin_addr.s_addr = ip;
    if (send_to(sock, buf, len, flags, &to) >= 0)
        return static_cast<int>(len);
    const int error = errno;
    WL_LOG(3, "sendto error: %s", error_text(error));
    return -1;
}

int socklib_send_unix_packet(int sock, const void *packet, size_t packet_len, int flags) {
    if (sock < 0) {
        WL_LOG(3, "unix socket not initialised");
        return -1;
    }
    const ssize_t sent = is_sendable(packet_len) ? send(sock, packet, packet_len, flags | MSG_NOSIGNAL) : -1;
    if (sent < 0) {
        const int error = errno;
        WL_LOG(3, "send failed on unix socket: %s", error_text(error));
        return -1;
    }
    if (sent != static_cast<ssize_t>(packet_len)) {
        WL_LOG(3, "partial send on unix socket: %zd of %zu bytes", sent, packet_len);
        return -1;
    }
    return static_cast<int>(sent);
}

int socklib_receive_packet(int valtrix_socket, uint8_t **buf, int flags, struct sockaddr_in *src_addr) {
    *buf = nullptr;
    int announced = 0;  // a hint: the kernel may find its checksum wrong afterwards
    if (ioctl(valtrix_socket, FIONREAD, &announced) != 0) {
        WL_LOG(3, "ioctl to find bytes to read failed");
        return -1;
    }
    sockaddr_in from{};
    const int received = announced == 0
                             ? receive_empty(valtrix_socket, flags, &from)
                             : receive_announced(valtrix_socket, static_cast<unsigned>(announced), buf, flags, &from);
    if (received >= 0 && src_addr != nullptr)
        *src_addr = from;
    return received;
}

int socklib_receive_tcp(int sockfd, void *buf, uint32_t bytes_to_read, int flags) {
    uint32_t bytes_read = 0;
    while (bytes_read < bytes_to_read) {
        const int retval = wait_readable(sockfd);
        if (retval <= 0) {
            const int error = errno;
            WL_LOG(3,
                   "select failed or timed out[%u s.%u usec] on tcp socket, retval = %d, errno = %dbytes_to_read=%u, "
                   "bytes_read=%u",
                   static_cast<unsigned>(TCP_WAIT.tv_sec), static_cast<unsigned>(TCP_WAIT.tv_usec), retval, error,
                   bytes_to_read, bytes_read);
            return -1;
        }
        const ssize_t received =
            recv(sockfd, static_cast<uint8_t *>(buf) + bytes_read, bytes_to_read - bytes_read, flags);
        const int error = errno;
        if (received > 0) {
            bytes_read += static_cast<uint32_t>(received);
        } else if (received < 0 && error == EINTR) {
            WL_LOG(3, "EINTR occurred so recv failed");
        } else if (received == 0 || error != EAGAIN) {
            WL_LOG(3, "recv on tcp socket: %s, bytes_to_read=%u, bytes_read=%u",
                   received == 0 ? "closed by the peer" : error_text(error), bytes_to_read, bytes_read);
            return -1;
        }
    }
    return static_cast<int>(bytes_read);
}
