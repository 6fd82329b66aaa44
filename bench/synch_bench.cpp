// What an answer to a neighbour costs that asks for the clients of an SSID: the event thread's time, bytes and packets,
// over a local TCP connection whose other end is read all the time. Each answer goes over a connection of its own,
// opened as the daemon opens it. And what a cached client takes of memory.
#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "debug_log.h"
#include "resident.h"
#include "wl_cl_info.h"
#include "wl_server.h"
#include "wl_ssid_profile.h"
#include "wl_synch.h"
#include "wl_utils.h"

namespace {

constexpr int ANSWERS = 100;  // a figure
constexpr char IDENTITY[] = "user@example.company";

using wall_clock = std::chrono::steady_clock;

double since(wall_clock::time_point start) {
    return std::chrono::duration<double, std::micro>(wall_clock::now() - start).count();
}

template <class Record> Record *new_record() {
    return static_cast<Record *>(std::calloc(1, sizeof(Record)));
}

void add_client(ssid_profile_info *profile, uint32_t number, int32_t now) {
    const uint8_t mac[6] = {2, 0, 0, uint8_t(number >> 16), uint8_t(number >> 8), uint8_t(number)};
    wl_client_info *const client = get_new_wl_client_info(mac, profile);
    client->is_active = 1;
    client->hapd_cl_info = new_record<hapd_cl_info>();
    dot1x_pmk_cl_data *const pmk = client->hapd_cl_info->pmk_fullauth = get_new_dot1x_pmk_cl_data();
    pmk->pmk_len = PMK_LEN;
    pmk->expiration = uint32_t(now) + 3600;
    pmk->bw_data = {-1, -1};
    pmk->identity_len = std::strlen(IDENTITY);
    pmk->identity = reinterpret_cast<uint8_t *>(strdup(IDENTITY));
    if (hash_table_add(&profile->cl_info_hash, client->mac_addr, client) != 0)
        std::exit(1);
}

ssid_profile_info *profile_with_clients(uint32_t clients) {
    ssid_profile_info *const profile = create_ssid_profile_data();
    std::strcpy(profile->ssid, "Office");
    profile->iapc_path = IAPC_PATH_SYNCH_AGENT;
    os_reltime now;
    if (os_get_reltime(&now) != 0 ||
        hash_table_init(&profile->cl_info_hash, CLIENT_CACHE_BUCKETS, &cl_cache_hash_fn, nullptr) == nullptr)
        std::exit(1);
    for (uint32_t number = 0; number < clients; number++)
        add_client(profile, number, now.sec);
    return profile;
}

/// What the other end has read.
struct reading {
    size_t bytes = 0;
    size_t packets = 0;
};

/// Reads a connection to its end and counts the packets by the lengths in their headers.
reading drain(int fd) {
    std::vector<uint8_t> bytes;
    uint8_t buffer[65536];
    for (ssize_t size; (size = read(fd, buffer, sizeof buffer)) > 0;)
        bytes.insert(bytes.end(), buffer, buffer + size);
    reading read{bytes.size(), 0};
    for (size_t at = 0; at + 14 <= bytes.size(); at += 14u + bytes[at + 5] + 256u * bytes[at + 6] + bytes[at + 7])
        read.packets++;
    return read;
}

/// Connects g_synch_sock to a port of this process.
///
/// @return the other end
int connect_agent() {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    g_synch_sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), size) != 0 || listen(listener, 1) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) != 0 ||
        connect(g_synch_sock, reinterpret_cast<sockaddr *>(&address), size) != 0)
        std::exit(1);
    const int agent = accept(listener, nullptr, nullptr);
    close(listener);
    return agent;
}

/// What each client above takes of the heap, without what the allocator adds to its five blocks.
constexpr size_t RECORDS_SIZE = sizeof(wl_client_info) + sizeof(hapd_cl_info) + sizeof(dot1x_pmk_cl_data) +
                                sizeof IDENTITY + sizeof(hash_table_entry_t);

/// Runs first, while no freed memory is there to be taken again.
void bench_memory() {
    constexpr uint32_t CLIENTS = 10'000;
    const long before = resident();
    ssid_profile_info *const profile = profile_with_clients(CLIENTS);
    const long after = resident();
    std::printf(
        "memory of %u clients: resident %ld KiB before and %ld KiB with them, %ld bytes for each; the records of "
        "each have %zu bytes\n",
        CLIENTS, before, after, (after - before) * 1024 / CLIENTS, RECORDS_SIZE);
    free_ssid_profile_info(profile);
}

/// @return microseconds of the event thread; negative when the connection was dropped
double time_answer(ssid_profile_info *profile, reading *answer) {
    char ssid[] = "Office";
    const app_header request{1, SYNCH_CLIENT_INFO, 2, 0, 6, 1, 0, {2, 0, 0, 0, 0, 9}, ssid};
    const int agent = connect_agent();
    std::thread reader([&] { *answer = drain(agent); });
    const auto start = wall_clock::now();
    send_all_cl_info_for_ssid(profile, &request);
    const double time = since(start);
    const bool dropped = g_synch_sock < 0;
    if (!dropped)
        close(g_synch_sock);
    reader.join();
    close(agent);
    return dropped ? -1 : time;
}

/// @return microseconds for each client; 0 when no answer went out whole
double bench_answers(uint32_t clients) {
    ssid_profile_info *const profile = profile_with_clients(clients);
    std::vector<double> times;
    reading whole;
    int dropped = 0;
    for (int i = 0; i < ANSWERS; i++) {
        reading answer;
        const double time = time_answer(profile, &answer);
        if (time < 0) {
            dropped++;
            continue;
        }
        times.push_back(time);
        whole = answer;
    }
    if (times.empty()) {
        std::printf("answer with %5u clients: the connection was dropped every time\n", clients);
        free_ssid_profile_info(profile);
        return 0;
    }
    std::ranges::sort(times);
    const double median = times[times.size() / 2];
    std::printf("answer with %5u clients: %zu bytes in %zu packets, median %.0f us, %.3f us for each client, "
                "connection dropped %d times of %d\n",
                clients, whole.bytes, whole.packets, median, median / clients, dropped, ANSWERS);
    free_ssid_profile_info(profile);
    return median / clients;
}

}  // namespace

int main() {
    debug = 2;
    bench_memory();
    bench_answers(100);
    const double few = bench_answers(1000);
    const double many = bench_answers(10'000);
    if (few > 0 && many > 0)
        std::printf("time for each client with 10000 of them is %.2f times that with 1000: it %s\n", many / few,
                    many > 1.5 * few ? "has grown" : "has not grown");
}
