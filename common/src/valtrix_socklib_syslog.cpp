#include "valtrix_socklib.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <net/ethernet.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "debug_log.h"

namespace {

constexpr int LONGEST_LINE = 4095;  // characters of a line over UDP
constexpr int LONGEST_RAW_LINE = 1023;
constexpr uint16_t SYSLOG_PORT = 514;

/// Formats a message behind the beginning of a line, cut to what is left.
///
/// @param begun    characters of the beginning, as snprintf returns them
/// @param longest  characters that the line holds beside its terminator
void append_message(char *line, int begun, int longest, const char *fmt, va_list arguments) {
    const int at = std::clamp(begun, 0, longest);
    (void)vsnprintf(line + at, static_cast<size_t>(longest + 1 - at), fmt, arguments);
    line[longest] = '\0';  // whatever the C library leaves of a message that it cannot print
}

/// Sends the line to the first destination that takes it. @return the last failure on the way, 0 when there was none
int send_to_first(int send_socket, const addrinfo *destinations, const char *line) {
    constexpr char FUNCTION[] = "socklib_syslog_network";
    int last_error = 0;
    for (const addrinfo *to = destinations; to != nullptr; to = to->ai_next) {
        if (to->ai_addr == nullptr) {
            WL_LOG_AS(FUNCTION, 3, "NULL ai_addr in syslog destination addr_info");
            last_error = -1;
            continue;
        }
        char host[NI_MAXHOST] = "";
        char service[NI_MAXSERV];
        (void)getnameinfo(to->ai_addr, to->ai_addrlen, host, sizeof host, service, sizeof service,
                          NI_NUMERICHOST | NI_NUMERICSERV);
        if (sendto(send_socket, line, std::strlen(line), MSG_NOSIGNAL, to->ai_addr, to->ai_addrlen) >= 0) {
            WL_LOG_AS(FUNCTION, 6, "Successfully sent syslog message to %s", host);
            break;
        }
        last_error = errno;
        // It is no code of the resolver's, so the text says little: kept, since whoever reads logs knows these lines.
        WL_LOG_AS(FUNCTION, 3, "%s send failed %d %s", host, last_error, gai_strerror(last_error));
    }
    return last_error;
}

}  // namespace

int add_syslog_rfc5424_header(char *pkt, int pkt_len, int pri, int facility, const char *msgID, const char *hostname) {
    if (pkt == nullptr || pkt_len < 1 || hostname == nullptr)
        return 0;
    timeval now{};
    gettimeofday(&now, nullptr);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    const int length =
        snprintf(pkt, static_cast<size_t>(pkt_len), "<%d>1 %04d.%02d.%02dT%02d:%02d:%02d.%03dZ %s - - %s - ",
                 facility | pri, utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                 static_cast<int>(now.tv_usec / 1000), hostname, text_or_null(msgID));
    WL_LOG(7, "Pri %d Fac %d Header[%s]", pri, facility, pkt);
    return length;
}

int socklib_syslog_network(int send_socket, struct addrinfo *addr_info, uint16_t /*sec_mode*/, int facility, int pri,
                           int is_rfc5424_header, const char *hostname, const char *msgID, const char *fmt, ...) {
    static char line[LONGEST_LINE + 1];
    if (addr_info == nullptr)
        return -1;
    std::memset(line, 0, sizeof line);
    const int begun = is_rfc5424_header != 0
                          ? add_syslog_rfc5424_header(line, LONGEST_LINE, pri, facility, msgID, hostname)
                          : snprintf(line, sizeof line, "<%d>", facility | pri);
    va_list arguments;
    va_start(arguments, fmt);
    append_message(line, begun, LONGEST_LINE, fmt, arguments);
    va_end(arguments);
    return send_to_first(send_socket, addr_info, line);
}

int socklib_syslog_network_raw(int raw_socket, const char *device, const char *dst_mac, const char *dst_ip,
                               uint16_t dst_port, int facility, int pri, const char *fmt, ...) {
    if (dst_ip == nullptr || dst_ip[0] == '\0')
        return -1;
    uint8_t mac[ETH_ALEN];
    if (socklib_get_hwaddr(device, mac) != 0)
        std::memset(mac, 0, sizeof mac);
    char mac_text[18];
    socklib_mac_ntoa(mac, sizeof mac, mac_text, sizeof mac_text);

    char line[LONGEST_RAW_LINE + 1];
    const int begun = snprintf(line, sizeof line, "<%d><%s>", pri | facility, mac_text);
    va_list arguments;
    va_start(arguments, fmt);
    append_message(line, begun, LONGEST_RAW_LINE, fmt, arguments);
    va_end(arguments);

    const uint16_t port = dst_port != 0 ? dst_port : SYSLOG_PORT;
    return socklib_send_eth_raw(raw_socket, device, mac_text, nullptr, port, dst_mac, dst_ip, port,
                                reinterpret_cast<const uint8_t *>(line), std::strlen(line));
}
