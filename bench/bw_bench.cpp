// What bandwidth control costs: the event thread's time from a "VRE.bw.set" to its command in the queue, the replay of
// a long log at the daemon's start, and the memory of full tables. Each figure is taken in a process of its own. The
// script is missing, so the worker spends its time between the tries of the first command.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "child.h"
#include "debug_log.h"
#include "event_payload.h"
#include "resident.h"
#include "wl_bw.h"
#include "wl_bw_internal.h"

namespace {

constexpr uint32_t PROFILES = 16;
constexpr uint32_t STATIONS = 254;  // as many as a profile has class ids for
constexpr int SETS = 2540;          // a figure
constexpr size_t LOG_RECORDS = 100'000;

using wall_clock = std::chrono::steady_clock;

double since(wall_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(wall_clock::now() - start).count();
}

byte_string mac_of(uint32_t station) {
    return {2, 0, 0, 0, uint8_t(station >> 8), uint8_t(station)};
}

/// The set event of an authorized station.
byte_string set_event(uint32_t station, uint32_t kbit) {
    return event_payload()
        .header(mac_of(station), 1)
        .text(WL_VAP_NAME, "ath0")
        .item(WL_BW_PRIORITY, {1})
        .u32(WL_BW_UPLOAD_LIMIT, kbit)
        .u32(WL_BW_DOWNLOAD_LIMIT, 2 * kbit)
        .item(WL_BW_APPLY_RULE)
        .bytes();
}

/// @return milliseconds
double time_set(uint32_t station, uint32_t kbit) {
    received_payload payload(set_event(station, kbit));
    const auto start = wall_clock::now();
    vre_bw_set_limit(VRE_BW_SET, payload.data(), payload.length());
    return since(start);
}

void bench_sets(uint32_t stations, int waiting) {
    std::remove(BW_CACHE_FILE);
    if (bw_init() != 1)
        std::exit(1);
    for (uint32_t station = 0; station < stations; station++)
        time_set(station, 1);
    for (int i = 0; i < waiting; i++)
        bw_enqueue("/sbin/tc_wrapper.sh", nullptr, BW_RUN);
    std::vector<double> times;
    for (uint32_t i = 0; i < SETS; i++)
        times.push_back(1000 * time_set(i % stations, 2 + i));
    if (dllist_num_entries(&bw_queue) < waiting + SETS)
        std::exit(1);
    std::ranges::sort(times);
    std::printf("set to queued, %3u stations, %6d commands waiting: median %5.2f us, 99th percentile %5.2f us\n",
                stations, waiting, times[SETS / 2], times[SETS * 99 / 100]);
}

bw_rule_info station_record(uint32_t profile, uint32_t station, int32_t kbit) {
    bw_rule_info record{};
    std::memcpy(record.mac, mac_of(station).data(), sizeof record.mac);
    record.e = VRE_BW_SET;
    record.up = record.down = kbit;
    record.profile_id = profile;
    record.classid = 2 + station;
    std::strcpy(record.interface, "ath0");
    return record;
}

/// A log that fills the tables and goes on changing limits until it has its number of records.
void write_log(size_t records) {
    std::ofstream log(BW_CACHE_FILE, std::ios::binary);
    for (size_t i = 0; i < records; i++) {
        const auto n = uint32_t(i % (PROFILES * STATIONS));
        const bw_rule_info record = station_record(1 + n / STATIONS, n % STATIONS, int32_t(i));
        log.write(reinterpret_cast<const char *>(&record), sizeof record);
    }
}

void bench_replay() {
    write_log(LOG_RECORDS);
    const auto start = wall_clock::now();
    if (bw_init() != 1)
        std::exit(1);
    std::printf("replay of %zu records: %.1f ms\n", LOG_RECORDS, since(start));
}

void bench_memory() {
    write_log(PROFILES * STATIONS);
    const long before = resident();
    if (bw_init() != 1)
        std::exit(1);
    const long after = resident();
    std::printf("%u profiles with %u stations each: %ld KiB resident, %ld KiB of it for them\n", PROFILES, STATIONS,
                after, after - before);
}

void in_child(const std::function<void()> &body) {
    const int status = wait_for(start_child([&] {
        body();
        std::fflush(stdout);
    }));
    if (status != 0)
        std::exit(1);
}

}  // namespace

int main() {
    debug = 2;
    if (std::freopen("/dev/null", "w", stderr) == nullptr)  // the shell's complaints of the missing script
        return 1;
    in_child(bench_memory);
    in_child(bench_replay);
    for (const uint32_t stations : {1, 100, 254})
        for (const int waiting : {0, 10'000, 100'000})
            in_child([=] { bench_sets(stations, waiting); });
}
