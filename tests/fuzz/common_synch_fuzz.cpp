// The stream of a synch agent, read by the daemon while it comes in pieces, breaks off and comes again. The input is a
// sequence of steps. A reader of its own says after each what the daemon must hold, which packets it must have acted
// on, what they must have made of the profile, and whether the daemon has found the connection broken when it answered.
#include <algorithm>
#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "common_synch.h"
#include "profile_files.h"
#include "wl_server.h"
#include "wl_synch.h"

extern "C" ssize_t __real_recv(int descriptor, void *buffer, size_t size, int flags);
void __real_process_synch_packet(const uint8_t *payload,
                                 const app_header *header) asm("__real__Z20process_synch_packetPKhPK10app_header");
void __wrap_process_synch_packet(const uint8_t *payload,
                                 const app_header *header) asm("__wrap__Z20process_synch_packetPKhPK10app_header");

namespace {

using bytes = std::vector<uint8_t>;

constexpr size_t LONGEST = 4395;
constexpr char CONFIGURATION[] = "PROFILE 2 net\n";  // a number whose file says that the profile uses the agent

enum step : uint8_t {
    FRAGMENT,  // a byte with its length, its bytes; then the daemon reads
    READ,      // the daemon reads
    CLOSE,     // the agent closes
    RESET,     // the agent closes with something unread
    FILL,      // a byte: 32 times as many bytes and 32 more, of this value
    FAULT,     // a byte: which read fails and how; then the daemon reads
    BREAK,     // the daemon drops the connection
    PACKET,    // type, subtype, length of the application id, length of the payload, then both
    STEPS,
};

/// What is left of the input.
struct input {
    const uint8_t *at;
    const uint8_t *end;

    bool empty() const {
        return at == end;
    }
    uint8_t byte() {
        return empty() ? 0 : *at++;
    }
    bytes take(size_t size) {
        const uint8_t *const first = at;
        at += std::min(size, static_cast<size_t>(end - at));
        return bytes(first, at);
    }
};

ssid_profile_info *profile;
int daemon_end;
int agent_end;
bool closed;      // by the agent
bytes in_flight;  // on the connection, not read yet
bytes held;       // of the packet that the daemon is reading
bytes processed;  // the last packet that reached process_synch_packet

// Which of the daemon's next reads fails, 0 none, and how.
int reads_to_fault;
int fault;

bool fault_is_next() {
    return reads_to_fault > 0 && --reads_to_fault == 0;
}

void connect() {
    int pair[2];
    require(socketpair(AF_UNIX, SOCK_STREAM, 0, pair) == 0);
    g_synch_sock = daemon_end = pair[0];
    agent_end = pair[1];
    FD_SET(daemon_end, &g_readfds);
    closed = false;
    in_flight.clear();
    held.clear();
    check_and_register_ssids(1);
    require(g_synch_sock == daemon_end && profile->nack == 0 && g_synch_nack_count == 0);
}

/// What the daemon sends is not of interest, but it must not fill the socket.
void drain() {
    uint8_t buffer[8192];
    while (!closed && __real_recv(agent_end, buffer, sizeof buffer, MSG_DONTWAIT) > 0)
        ;
}

void close_agent() {
    if (!closed)
        close(agent_end);
    closed = true;
}

void deliver(const bytes &content) {
    if (closed || content.empty())
        return;
    const ssize_t sent = send(agent_end, content.data(), content.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent > 0)  // else the socket is full
        in_flight.insert(in_flight.end(), content.begin(), content.begin() + sent);
}

enum outcome { KEPT, COMPLETE, BROKEN };

/// Moves up to `size` bytes of the stream to the held ones.
outcome expect_read(size_t size, bool may_be_interrupted) {
    if (fault_is_next())
        return fault == EAGAIN || (fault == EINTR && may_be_interrupted) ? KEPT : BROKEN;
    if (in_flight.empty())
        return closed ? BROKEN : KEPT;
    const auto end = in_flight.begin() + static_cast<std::ptrdiff_t>(std::min(size, in_flight.size()));
    held.insert(held.end(), in_flight.begin(), end);
    in_flight.erase(in_flight.begin(), end);
    return COMPLETE;
}

/// What one call of the daemon's reader must come to.
outcome expected_outcome() {
    if (held.size() < 14) {
        const outcome header = expect_read(14 - held.size(), true);
        if (header != COMPLETE)
            return header;
    }
    if (held.size() < 14)
        return KEPT;
    const size_t length = 14U + held[5] + 256U * held[6] + held[7];
    if (length > LONGEST)
        return BROKEN;
    if (held.size() == length)
        return COMPLETE;
    const outcome body = expect_read(length - held.size(), false);
    return body == COMPLETE && held.size() < length ? KEPT : body;
}

bool is_for_profiles(const bytes &packet) {
    return packet[1] == 10 || packet[1] == 33 || packet[1] == 34;
}

bool is_for_the_profile(const bytes &packet) {
    return packet[5] == 3 && std::memcmp(&packet[14], "net", 3) == 0;
}

/// Whether the daemon sends something for a packet: a request, or the one client of the profile.
bool is_answered(const bytes &packet) {
    switch (packet[1]) {
    case 10:
        return is_for_the_profile(packet) && packet[4] == 1;
    case 33:
        return is_for_the_profile(packet) && profile->send_cl_info_req != 0;
    default:
        return packet[1] == 36;
    }
}

void check_profile(const bytes &packet) {
    if (!is_for_the_profile(packet))
        return;
    require(packet[1] != 33 || (profile->synch_registered == 1 && profile->send_cl_info_req == 0));
    require(packet[1] != 34 || (profile->nack == 1 && g_synch_nack_count == 1));
}

bool is_held(const bytes &all) {
    return synch_tcp_pkt_info.recvd_len == static_cast<int>(all.size()) &&
           std::equal(all.begin(), all.end(), synch_tcp_pkt_info.buffer);
}

void read_once() {
    drain();
    processed.clear();
    const int reads = reads_to_fault;
    const outcome expected = expected_outcome();
    reads_to_fault = reads;
    const bool answered = expected == COMPLETE && is_answered(held);
    receive_synch_data();
    reads_to_fault = 0;
    const bool dropped = g_synch_sock == -1;
    switch (expected) {
    case KEPT:
        require(!dropped && is_held(held) && processed.empty());
        break;
    case BROKEN:
        require(dropped && is_held({}) && processed.empty());
        break;
    case COMPLETE:
        require(is_held({}) && dropped == (answered && closed));
        require(processed == (is_for_profiles(held) ? held : bytes()));
        check_profile(held);
        held.clear();
    }
}

void do_step(input &from) {
    switch (from.byte() % STEPS) {
    case FRAGMENT:
        deliver(from.take(from.byte()));
        return read_once();
    case READ:
        return read_once();
    case CLOSE:
        drain();
        return close_agent();
    case RESET:
        (void)send(daemon_end, "x", 1, MSG_DONTWAIT | MSG_NOSIGNAL);
        return close_agent();
    case FILL: {
        const uint8_t value = from.byte();
        return deliver(bytes(32 + 32U * value, value));
    }
    case FAULT: {
        const uint8_t which = from.byte();
        constexpr int FAULTS[] = {EINTR, EAGAIN, ECONNRESET, ENOMEM};
        reads_to_fault = 1 + (which >> 7);
        fault = FAULTS[which & 3];
        return read_once();
    }
    case BREAK:
        break_synch_connection();
        return require(g_synch_sock == -1 && is_held({}) && profile->synch_registered == 0);
    case PACKET: {
        bytes packet = {1, from.byte(), 2, 0, from.byte(), from.byte(), 0, from.byte(), 1, 2, 3, 4, 5, 6};
        const bytes rest = from.take(size_t{packet[5]} + packet[7]);
        packet.insert(packet.end(), rest.begin(), rest.end());
        return deliver(packet);
    }
    }
}

/// An active client with a key: a request for the clients is answered.
void add_client() {
    const uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    wl_client_info *const client = get_new_wl_client_info(mac, profile);
    client->is_active = 1;
    client->hapd_cl_info = get_new_hapd_cl_info();
    client->hapd_cl_info->pmk_fullauth = get_new_dot1x_pmk_cl_data();
    client->hapd_cl_info->pmk_fullauth->expiration = UINT32_MAX;
    require(hash_table_add(&profile->cl_info_hash, client->mac_addr, client) == 0);
}

void load_profile() {
    g_synch_sock = -1;
    g_synch_nack_count = 0;
    wl_init_cl_cache_info();
    input_bytes = reinterpret_cast<const uint8_t *>(CONFIGURATION);
    input_size = sizeof CONFIGURATION - 1;
    interfaces_are_up = false;
    read_wl_conf(INPUT_PATH);
    const uint32_t id = 2;
    profile = static_cast<ssid_profile_info *>(hash_table_lookup(ssid_profile_list, &id));
    require(profile != nullptr && profile->iapc_path == IAPC_PATH_SYNCH_AGENT && profile->nack == 1);
    interfaces_are_up = true;
    add_client();
}

}  // namespace

extern "C" ssize_t __wrap_recv(int descriptor, void *buffer, size_t size, int flags) {
    if (!fault_is_next())
        return __real_recv(descriptor, buffer, size, flags);
    errno = fault;
    return -1;
}

void __wrap_process_synch_packet(const uint8_t *payload, const app_header *header) {
    processed = {header->version,
                 header->app_msg_type,
                 header->packet_path,
                 header->flag,
                 header->subtype,
                 header->appid_len,
                 static_cast<uint8_t>(header->payload_len >> 8),
                 static_cast<uint8_t>(header->payload_len)};
    processed.insert(processed.end(), header->mac, header->mac + 6);
    if (header->appid_len != 0) {
        require(header->appid[header->appid_len] == '\0');
        processed.insert(processed.end(), header->appid, header->appid + header->appid_len);
    }
    // A copy of its very size: nothing may read behind it.
    uint8_t *const copy = new uint8_t[header->payload_len];
    std::copy_n(payload, header->payload_len, copy);
    processed.insert(processed.end(), copy, copy + header->payload_len);
    __real_process_synch_packet(copy, header);
    delete[] copy;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    drop_log_lines();
    load_profile();
    connect();
    input steps{data, data + size};
    while (!steps.empty()) {
        do_step(steps);
        if (g_synch_sock == -1) {
            close_agent();
            connect();
        }
    }
    break_synch_connection();
    close_agent();
    hash_table_destroy(ssid_profile_list);
    std::free(ssid_profile_list);
    return 0;
}
