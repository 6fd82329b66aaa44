// Events of clients per second through the whole daemon: its loop, every handler, a line in the system log and the
// event forwarded to one subscriber; against a floor that makes only the same system calls for the same bytes: select,
// mq_receive, the log's send, mq_send. A second floor writes its lines with syslog(), as the daemon has to. The events
// are those of clients that 802.1X lets in, client after client, so every attempt ends in a report. Queues are filled
// before and emptied after each measured stretch, so nobody waits and processor time is what there is to measure; wall
// time is given beside it. Last, the memory of the attempts that the daemon keeps.
#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <mqueue.h>
#include <string>
#include <string_view>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

#include "debug_log.h"
#include "event_payload.h"
#include "libwl.h"
#include "resident.h"
#include "vap_table.h"
#include "wl_client_ts_internal.h"
#include "wl_common.h"
#include "wl_info_codes.h"
#include "wl_log.h"
#include "wl_server.h"

namespace {

constexpr int ROUNDS = 31;
constexpr int EVENTS = 1900;   // a round
constexpr size_t STRETCH = 8;  // events that wait at a time: a queue of an ordinary machine holds no more
constexpr int SYNCH_PORT = 12345;
constexpr char LOG_SOCKET[] = "/dev/log";

[[noreturn]] void give_up(const char *what) {
    std::perror(what);
    std::exit(1);
}

/// What one event makes the daemon send.
struct answers {
    std::vector<std::string> lines;
    std::vector<std::string> messages;
};

struct event {
    std::string message;  // as it comes; the client's address lies behind the event's name
    answers sent;
};

byte_string payload_of(uint32_t client, uint32_t info, uint16_t sub, const byte_string &value) {
    event_payload payload;
    payload.header({2, 0, 0, 0, uint8_t(client >> 8), uint8_t(client)}, 14)
        .text(WL_VAP_SSID, "Office")
        .item(WL_VAP_BSSID, {2, 0, 0, 0, 1, 4})
        .text(WL_VAP_NAME, "ath4")
        .u32(WL_INFO_CODE, info)
        .u16(WL_SUBINFO_CODE, sub);
    if (!value.empty())
        payload.item(WL_SUBINFO_VALUE, value);
    return payload.bytes();
}

std::string message_of(const char *name, uint32_t info, uint16_t sub, const byte_string &value) {
    std::string message(name);
    message.push_back('\0');
    const byte_string payload = payload_of(0, info, sub, value);
    message.append(payload.begin(), payload.end());
    return message;
}

std::vector<event> attempt() {
    const byte_string frame = {0, 6, 0xC9};
    const byte_string radius = {10, 0, 0, 5};
    const byte_string dhcp = {192, 168, 1, 1};
    std::vector<event> events;
    const auto add = [&](const char *name, uint32_t info, uint16_t sub, const byte_string &value = {}) {
        events.push_back({message_of(name, info, sub, value), {}});
    };
    add("VRE.auth.recv", INFO_AUTH_REQUEST, 0, frame);
    add("VRE.auth.success", INFO_AUTH_RESPONSE, 0);
    add("VRE.assoc.recv", INFO_ASSOC_REQUEST, 0, frame);
    add("VRE.assoc.success", INFO_ASSOC_RESPONSE, 0);
    add("VRE.dot1x", INFO_RADIUS, 801, radius);
    add("VRE.dot1x", INFO_RADIUS, 802);
    add("VRE.dot1x", INFO_RADIUS, 11);
    for (const uint16_t step : {1, 2, 3, 4})
        add("VRE.eapol", INFO_KEY_HANDSHAKE, step);
    add("VRE.node_authorize", INFO_AUTHORIZED, 0);
    for (const uint16_t step : {1, 2, 3, 5})
        add("VRE.node.dhcp", INFO_DHCP, step, dhcp);
    add("VRE.node_ip", INFO_IPV4_ADDRESS, 0, {192, 168, 1, 20});
    add("VRE.dns.info", INFO_DNS, 0, {0, 0, 0, 0, 8, 8, 8, 8});
    add("VRE.dns.info", INFO_DNS, 1, {0, 0, 0, 12, 8, 8, 8, 8});
    return events;
}

int bound_log_socket() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, LOG_SOCKET);
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    if (bind(log, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        give_up(LOG_SOCKET);
    return log;
}

int connected_log_socket() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, LOG_SOCKET);
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (connect(log, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        give_up(LOG_SOCKET);
    return log;
}

/// A synch agent that accepts the daemon's connection and says nothing: without it every turn would look for one.
void listen_as_agent() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(SYNCH_PORT);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int agent = socket(AF_INET, SOCK_STREAM, 0);
    if (bind(agent, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 || listen(agent, 1) != 0)
        give_up("the synch agent's port");
}

mqd_t subscriber_queue() {
    mq_attr sizes{};
    sizes.mq_maxmsg = 10;
    sizes.mq_msgsize = 2056;
    const mqd_t queue = mq_open("/wl_evt_proxy", O_RDWR | O_NONBLOCK | O_CREAT, 0777, &sizes);
    if (queue < 0)
        give_up("mq_open");
    return queue;
}

/// Everything around the daemon, and the daemon, which runs in this process.
struct bench {
    int log = bound_log_socket();
    mqd_t subscriber = subscriber_queue();
    mqd_t daemon = -1;
    int own_log = connected_log_socket();  // the floor's
    std::vector<event> events = attempt();

    answers drain() const {
        answers found;
        char buffer[8192];
        for (ssize_t size; (size = recv(log, buffer, sizeof buffer, 0)) >= 0;)
            found.lines.emplace_back(buffer, size);
        for (ssize_t size; (size = mq_receive(subscriber, buffer, sizeof buffer, nullptr)) >= 0;)
            found.messages.emplace_back(buffer, size);
        return found;
    }

    /// Sends the n-th event of the stream, in which each attempt is another client's.
    void send(size_t n) const {
        std::string message = events[n % events.size()].message;
        const auto number = static_cast<uint32_t>(n / events.size());
        char *const mac = message.data() + message.find('\0') + 1;
        mac[3] = static_cast<char>(number >> 16);
        mac[4] = static_cast<char>(number >> 8);
        mac[5] = static_cast<char>(number);
        if (mq_send(daemon, message.data(), message.size(), 0) != 0)
            give_up("mq_send");
    }
};

void start(bench &bench) {
    std::filesystem::create_directories("/opt/ap");
    for (const char *name : {"cl_debug_info_code_en.properties", "cl_debug_subinfo_code_en.properties"})
        std::filesystem::copy_file(std::string(CATALOGUE "/") + name, std::string("/opt/ap/") + name,
                                   std::filesystem::copy_options::overwrite_existing);
    listen_as_agent();
    static char log_path[] = "/tmp/client_bench.log";
    g_logfile_path = log_path;
    if (init_server_log() != 0)
        give_up(g_logfile_path);
    start_server("/nowhere");
    std::strcpy(vap_array[0].name, "ath4");
    vap_array[0].dot1x_enabled = 1;
    vap_count = 1;
    serve_once();
    bench.daemon = mq_open("/wl_evt_handler", O_WRONLY | O_NONBLOCK);
    if (bench.daemon < 0)
        give_up("mq_open");
    sleep(2);  // the daemon takes a while to believe that no more queues appear
    (void)bench.drain();
}

/// Learns what each event makes the daemon send.
void learn(bench &bench) {
    for (size_t n = 0; n < bench.events.size(); n++) {
        bench.send(n);
        serve_once();
        bench.events[n].sent = bench.drain();
    }
    if (bench.events.back().sent.messages.empty())
        give_up("no report at the end of an attempt");
}

void serve(const bench &, size_t) {
    serve_once();
}

void log_with_send(const bench &bench, const std::string &line) {
    send(bench.own_log, line.data(), line.size(), MSG_NOSIGNAL);
}

void log_with_syslog(const bench &, const std::string &line) {
    syslog(LOG_LOCAL0 | LOG_INFO, "%s", line.c_str() + line.find("]=>[") - 18);
}

template <void (*log_line)(const bench &, const std::string &)> void make_system_calls(const bench &bench, size_t n) {
    static std::array<char, 8192> buffer;
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(bench.daemon, &readable);
    timeval limit{5, 0};
    select(bench.daemon + 1, &readable, nullptr, nullptr, &limit);
    static const mqd_t own = mq_open("/wl_evt_handler", O_RDONLY | O_NONBLOCK);
    if (mq_receive(own, buffer.data(), buffer.size(), nullptr) < 0)
        give_up("mq_receive");
    const answers &sent = bench.events[n % bench.events.size()].sent;
    for (const std::string &line : sent.lines)
        log_line(bench, line);
    for (const std::string &message : sent.messages)
        mq_send(bench.subscriber, message.data(), message.size(), 0);
}

double seconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

struct rate {
    double processor = 0;  // events per second of the processor
    double wall = 0;
};

rate measure(bench &bench, void (*deal_with)(const struct bench &, size_t)) {
    static size_t n;  // goes on through all rounds: no client comes twice
    n = (n / bench.events.size() + 1) * bench.events.size();
    rate spent;
    for (int left = EVENTS; left > 0;) {
        const size_t count = std::min<size_t>(STRETCH, static_cast<size_t>(left));
        for (size_t i = 0; i < count; i++)
            bench.send(n + i);
        const double processor = seconds(CLOCK_THREAD_CPUTIME_ID);
        const double wall = seconds(CLOCK_MONOTONIC);
        for (size_t i = 0; i < count; i++)
            deal_with(bench, n + i);
        spent.processor += seconds(CLOCK_THREAD_CPUTIME_ID) - processor;
        spent.wall += seconds(CLOCK_MONOTONIC) - wall;
        (void)bench.drain();
        n += count;
        left -= static_cast<int>(count);
    }
    return {EVENTS / spent.processor, EVENTS / spent.wall};
}

double median(std::array<double, ROUNDS> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

/// Measures the daemon and a floor in turns, so that whatever else the machine does falls on both.
void compare(bench &bench, const char *name, void (*floor_of)(const struct bench &, size_t)) {
    std::array<double, ROUNDS> floor_rate, floor_wall, rate, wall, ratio, wall_ratio;
    for (size_t round = 0; round < ROUNDS; round++) {
        const struct rate floor = measure(bench, floor_of);
        const struct rate whole = measure(bench, serve);
        floor_rate[round] = floor.processor;
        floor_wall[round] = floor.wall;
        rate[round] = whole.processor;
        wall[round] = whole.wall;
        ratio[round] = whole.processor / floor.processor;
        wall_ratio[round] = whole.wall / floor.wall;
    }
    std::printf("%-10s processor: floor %7.0f events/s, daemon %7.0f events/s, ratio %.2f; wall: %7.0f, %7.0f, %.2f\n",
                name, median(floor_rate), median(rate), median(ratio), median(floor_wall), median(wall),
                median(wall_ratio));
}

void follow(uint32_t client, uint32_t info, uint16_t sub, const byte_string &value = {}) {
    received_payload payload(payload_of(client, info, sub, value));
    wl_client_ts(VRE_EAPOL, payload.data(), payload.length());  // the info code counts, not the event
}

void associate(uint32_t client) {
    follow(client, INFO_AUTH_REQUEST, 0, {0, 6, 0xC9});
    follow(client, INFO_AUTH_RESPONSE, 0);
    follow(client, INFO_ASSOC_REQUEST, 0, {0, 6, 0xC9});
    follow(client, INFO_ASSOC_RESPONSE, 0);
}

/// Fills the error store, and lets its clients try once more.
void bench_memory() {
    const long before = resident();
    const int asked_before = conn_cb.size_malloc;
    for (uint32_t client = 0; client < AP_MAX_ERR_RECORDS; client++) {
        associate(client);
        follow(client, INFO_KEY_HANDSHAKE, 1);
        follow(client, INFO_KEY_HANDSHAKE, 14);
        associate(client);
        follow(client, INFO_AUTHORIZED, 0);
        follow(client, INFO_DHCP, 1, {192, 168, 1, 1});
        follow(client, INFO_DHCP, 3, {192, 168, 1, 1});
    }
    std::printf("memory of %d attempts in progress with 7 events each and %d stored ones with 6: %d bytes asked for, "
                "%zu for a record without its events' values; resident %ld KiB before and %ld KiB with them\n",
                AP_MAX_ERR_RECORDS, dllist_num_entries(&conn_cb.err_conn_list), conn_cb.size_malloc - asked_before,
                sizeof(cl_conn_evt_rec), before, resident());
}

}  // namespace

int main(int argc, char **) {
    bench bench;
    start(bench);
    learn(bench);
    if (argc > 1) {  // for a profiler
        (void)measure(bench, serve);
        return 0;
    }
    std::printf("client events at level %d, one line and one forwarded event each, median of %d rounds of %d\n", debug,
                ROUNDS, EVENTS);
    compare(bench, "send()", make_system_calls<log_with_send>);
    compare(bench, "syslog()", make_system_calls<log_with_syslog>);
    bench_memory();
}
