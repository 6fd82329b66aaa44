#include "common_synch.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

#include "big_endian.h"
#include "debug_log.h"
#include "error_text.h"
#include "payload.h"
#include "wl_server.h"
#include "wl_synch.h"
#include "wl_utils.h"

synch_tcp_pkt_info_t synch_tcp_pkt_info;
char g_comm_vlan_iface_name[40];

namespace {

constexpr uint8_t SYNCH_VERSION = 1;
constexpr int HEADER_SIZE = SYNCH_HEADER_SIZE;
constexpr int PACKET_MAX = SYNCH_PACKET_MAX;
constexpr uint8_t BROADCAST[6] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

// Items of a registration.
constexpr uint8_t TLV_INTERFACE = 10;
constexpr uint8_t TLV_NUMBER = 11;
constexpr uint8_t TLV_APPLICATION = 12;

/// A header on the wire.
struct [[gnu::packed]] wire_header {
    uint8_t version;
    uint8_t app_msg_type;
    uint8_t packet_path;
    uint8_t flag;
    uint8_t subtype;
    uint8_t appid_len;
    be_u16 payload_len;
    uint8_t mac[6];
};
static_assert(sizeof(wire_header) == SYNCH_HEADER_SIZE);

app_header parsed(const wire_header &wire) {
    app_header header{};
    header.version = wire.version;
    header.app_msg_type = wire.app_msg_type;
    header.packet_path = wire.packet_path;
    header.flag = wire.flag;
    header.appid_len = wire.appid_len;
    header.subtype = wire.subtype;
    header.payload_len = wire.payload_len;
    std::memcpy(header.mac, wire.mac, sizeof header.mac);
    return header;
}

/// Client records carry keys: none is left on the heap.
void free_packet(uint8_t *packet, size_t length) {
    wipe(packet, length);
    std::free(packet);
}

/// @return 0 when everything went out, else the `errno` value that says why not
int send_at_once(const uint8_t *packet, size_t length) {
    const ssize_t sent = send(g_synch_sock, packet, length, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0)
        return errno;
    return static_cast<size_t>(sent) == length ? 0 : EAGAIN;  // the rest would have had to wait
}

void append_text(app_data_info_t *info, uint8_t tlv_type, const char *text) {
    const auto length = static_cast<uint8_t>(std::strlen(text));
    (void)fill_app_data_info(info, text, tlv_type, length);  // cannot fail: two texts and a number always fit
}

/// Receives what is missing of the header, with one read.
///
/// @return as handle_synch_sock_tcp_read
int read_header(int fd, synch_tcp_pkt_info_t *info, char *err) {
    const auto missing = static_cast<size_t>(HEADER_SIZE - info->recvd_len);
    const ssize_t received = recv(fd, info->buffer + info->recvd_len, missing, MSG_DONTWAIT);
    const int error = errno;
    if (received < 0 && (error == EAGAIN || error == EINTR)) {
        std::snprintf(err, SYNCH_ERROR_SIZE, "recv() error try again. error %s ", error_text(error));
        return 1;
    }
    if (received < 0) {
        std::snprintf(err, SYNCH_ERROR_SIZE, "recv() error. [%d]error %s", error, error_text(error));
        return -1;
    }
    if (received == 0) {
        std::snprintf(err, SYNCH_ERROR_SIZE, "connection close for fd %d", fd);
        return -1;
    }
    info->recvd_len += static_cast<int>(received);
    return info->recvd_len < HEADER_SIZE ? 1 : 0;
}

/// Receives what is missing behind the header, with one read. Unlike for the header, an interrupted read is
/// deliberately an error here: the connection starts afresh.
///
/// @return as handle_synch_sock_tcp_read
int read_body(int fd, synch_tcp_pkt_info_t *info, char *err) {
    const auto missing = static_cast<size_t>(info->expected_pkt_len - info->recvd_len);
    const ssize_t received = recv(fd, info->buffer + info->recvd_len, missing, MSG_DONTWAIT);
    const int error = errno;
    if (received < 0 && error == EAGAIN) {
        std::snprintf(err, SYNCH_ERROR_SIZE, "recv() error try again. error %s ", error_text(error));
        return 1;
    }
    if (received < 0) {
        std::snprintf(err, SYNCH_ERROR_SIZE, "recv() error. error %s", error_text(error));
        return -1;
    }
    if (received == 0) {
        std::snprintf(err, SYNCH_ERROR_SIZE, "connection close for fd %d", fd);
        return -1;
    }
    info->recvd_len += static_cast<int>(received);
    return info->recvd_len == info->expected_pkt_len ? 0 : 1;
}

void forget_received() {
    synch_tcp_pkt_info.expected_pkt_len = 0;
    synch_tcp_pkt_info.recvd_len = 0;
}

void dispatch(const uint8_t *payload, const app_header *header) {
    switch (header->app_msg_type) {
    case SYNCH_CLIENT_INFO:
    case SYNCH_REGISTERED:
    case SYNCH_REFUSED:
        process_synch_packet(payload, header);
        break;
    case SYNCH_NEIGHBOURS_CHANGED:
        handle_rf_neighbor_list_update();
        break;
    default:
        WL_LOG_AS("handle_synch_packet", 7, "Invalid message type[%d] from synch-agent ", header->app_msg_type);
    }
}

}  // namespace

uint8_t *set_synch_packet_app_header(uint8_t *buf, uint8_t version, uint8_t type, uint8_t packet_path, uint8_t flag,
                                     uint8_t subtype, uint8_t appid_len, const char *appid, uint16_t payload_len,
                                     const uint8_t *mac) {
    wire_header header{version, type, packet_path, flag, subtype, appid_len, {}, {}};
    header.payload_len = payload_len;
    std::memcpy(header.mac, mac != nullptr ? mac : BROADCAST, sizeof header.mac);
    std::memcpy(buf, &header, sizeof header);
    if (appid != nullptr)
        std::memcpy(buf + sizeof header, appid, appid_len);
    return buf + sizeof header + appid_len;
}

int send_packet_to_synch_agent(uint8_t type, uint8_t subtype, const app_data_info_t *payload, const char *appid,
                               uint8_t appid_len, const uint8_t *mac, uint8_t packet_path) {
    const uint16_t data_len = payload != nullptr ? payload->data_len : 0;
    const size_t length = SYNCH_HEADER_SIZE + appid_len + data_len;
    auto *const packet = static_cast<uint8_t *>(std::calloc(1, length));
    if (packet == nullptr) {
        WL_LOG(3, "Could not allocate memory for packet buffer");
        return -1;
    }
    uint8_t *const data = set_synch_packet_app_header(packet, SYNCH_VERSION, type, packet_path, 0, subtype, appid_len,
                                                      appid, data_len, mac);
    if (data_len > SYNCH_PACKET_MAX) {
        WL_LOG(3, "Sufficient memory not available. Avoiding memory overwrite");
        free_packet(packet, length);
        return -1;
    }
    if (payload != nullptr)
        std::memcpy(data, payload->data, data_len);
    WL_LOG(7, "Sending packet to synchagent. pkt type [%d] subtype [%d] payload/tlv len[%d]", type, subtype, data_len);
    const int error = send_at_once(packet, length);
    free_packet(packet, length);
    if (error == 0)
        return 0;
    WL_LOG(3, "error in sending packet to sunch agent. send() failed [%s]", error_text(error));
    break_synch_connection();
    return -1;
}

int fill_app_data_info(app_data_info_t *info, const void *value, uint8_t tlv_type, int length) {
    if (length < 0)
        return -1;
    const uint32_t size = info->data_len + static_cast<uint32_t>(length) + 2;
    if (size > SYNCH_PACKET_MAX) {
        WL_LOG(3, "Synch agent packet size[%d] exceeding max size[%d].", static_cast<int>(size), PACKET_MAX);
        return -1;
    }
    uint8_t *const item = info->data + info->data_len;
    item[0] = tlv_type;
    item[1] = static_cast<uint8_t>(length);
    if (length > 0)
        std::memcpy(item + 2, value, static_cast<size_t>(length));
    info->data_len = static_cast<uint16_t>(size);
    return 0;
}

int send_register_unregister_req_to_synch_agent(uint8_t type, const char *app_name, uint32_t number,
                                                const char *interface, const char *appid, uint8_t appid_len) {
    app_data_info_t info{};
    be_u32 wire_number{};
    wire_number = number;
    append_text(&info, TLV_INTERFACE, interface != nullptr ? interface : "");
    (void)fill_app_data_info(&info, &wire_number, TLV_NUMBER, sizeof wire_number);
    append_text(&info, TLV_APPLICATION, app_name);
    return send_packet_to_synch_agent(type, 0, &info, appid, appid_len, nullptr, 0);
}

int parse_min_app_header(const uint8_t *buf, app_header *header) {
    *header = parsed(read_payload<wire_header>(buf, HEADER_SIZE));
    return 0;
}

int handle_synch_sock_tcp_read(int fd, synch_tcp_pkt_info_t *info, char *err) {
    if (info->recvd_len < HEADER_SIZE) {
        const int result = read_header(fd, info, err);
        if (result != 0)
            return result;
    }
    app_header header;
    (void)parse_min_app_header(info->buffer, &header);
    info->expected_pkt_len = header.payload_len + header.appid_len + HEADER_SIZE;
    if (info->expected_pkt_len > PACKET_MAX) {
        std::snprintf(err, SYNCH_ERROR_SIZE,
                      "Expected payload len[%d][%d] for app msg type[%d] will not fit in total pkt buffer limit %d",
                      header.payload_len, info->expected_pkt_len, header.app_msg_type, PACKET_MAX);
        return -1;
    }
    if (info->recvd_len == info->expected_pkt_len)
        return 0;
    return read_body(fd, info, err);
}

void receive_synch_data() {
    char err[SYNCH_ERROR_SIZE];
    const int result = handle_synch_sock_tcp_read(g_synch_sock, &synch_tcp_pkt_info, err);
    if (result < 0) {
        WL_LOG(3, "Recv tcp stream failed, err[%s]", err);
        forget_received();
        break_synch_connection();
    } else if (result == 0) {
        const int handled = handle_synch_packet(synch_tcp_pkt_info.buffer, synch_tcp_pkt_info.expected_pkt_len);
        forget_received();
        if (handled != 0)
            WL_LOG(3, "wl-evt-handler handle synch agent packet failed");
    }
}

int handle_synch_packet(const uint8_t *buf, int len) {
    // A packet shorter than its header reads as one of less than no payload: a mismatch as well.
    app_header header = parsed(read_payload<wire_header>(buf, len));
    const int payload_len = len - header.appid_len - HEADER_SIZE;
    if (header.payload_len != payload_len) {
        WL_LOG(3, "Expected tlv len [%d] is not equal to buf len [%d]", header.payload_len, payload_len);
        return -1;
    }
    const uint8_t *const appid = buf + HEADER_SIZE;
    if (header.appid_len != 0) {
        header.appid = static_cast<char *>(std::calloc(1, header.appid_len + size_t{1}));
        if (header.appid == nullptr)
            return -1;
        std::memcpy(header.appid, appid, header.appid_len);
    }
    WL_LOG(2, "Received synch agent packet type : %d subtype : %d for appid(ssid) : [%s]", header.app_msg_type,
           header.subtype, header.appid != nullptr ? header.appid : "");
    dispatch(appid + header.appid_len, &header);
    std::free(header.appid);
    return 0;
}

void break_synch_connection() {
    if (g_synch_sock < 1)
        return;
    close(g_synch_sock);
    FD_CLR(g_synch_sock, &g_readfds);
    g_synch_sock = -1;
    forget_received();  // else they would stand in front of what the next connection brings
    synch_disconn_update_ssid_profiles();
    set_new_maxfd();
}
