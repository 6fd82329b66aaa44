// Messages per second through handle_wl_evt to one trivial handler, against a bare loop of select and mq_receive on the
// same queue. The queue is filled to the brim between the measured stretches: with a sender at work meanwhile, the
// figures are those of the scheduler. A second is one of the processor's: the loops never wait, so what else the
// machine does hardly counts. They take turns, so that the rest falls on both.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mqueue.h>
#include <span>
#include <string_view>
#include <sys/select.h>

#include "debug_log.h"
#include "libwl.h"
#include "wl_common.h"

namespace {

constexpr int ROUNDS = 31;
constexpr int MESSAGES = 8000;  // a turn, at least
constexpr int PAYLOAD_SIZE = 100;

vre_iw_cmd_t benched_event;
volatile int handled;

void count_message(vre_iw_cmd_t, void *, int) {
    handled = handled + 1;
}

int bind_counter() {
    return wl_register_handler(benched_event, count_message);
}

[[noreturn]] void give_up(const char *what) {
    std::perror(what);
    std::exit(1);
}

/// @return the number of messages that the queue then holds
int fill(int queue, std::string_view message) {
    int count = 0;
    while (mq_send(queue, message.data(), message.size(), 0) == 0)
        count++;
    if (errno != EAGAIN)
        give_up("mq_send");
    return count;
}

void wait_readable(int queue) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(queue, &readable);
    select(queue + 1, &readable, nullptr, nullptr, nullptr);
}

void read_bare(int queue, int count) {
    static std::array<char, 8192> buffer;
    for (int i = 0; i < count; i++) {
        wait_readable(queue);
        if (mq_receive(queue, buffer.data(), buffer.size(), nullptr) < 0)
            give_up("mq_receive");
    }
}

void read_with_library(int queue, int count) {
    handled = 0;
    for (int i = 0; i < count; i++) {
        wait_readable(queue);
        (void)handle_wl_evt();
    }
    if (handled != count)
        give_up("handle_wl_evt");
}

double processor_seconds() {
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

/// @return messages per second
double measure(void (*read)(int, int), int queue, std::string_view message) {
    int count = 0;
    double spent = 0;
    while (count < MESSAGES) {
        const int filled = fill(queue, message);
        const double start = processor_seconds();
        read(queue, filled);
        spent += processor_seconds() - start;
        count += filled;
    }
    return count / spent;
}

double median(std::span<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

void bench(vre_iw_cmd_t event) {
    benched_event = event;
    const int queue = wl_mq_register_and_init(WL_MQ_WL_HANDLER_KEY, bind_counter);
    if (queue < 0)
        give_up("wl_mq_register_and_init");
    static const std::array<uint8_t, PAYLOAD_SIZE> payload{};
    auto *const buffer = static_cast<char *>(alloc_evt_buf(event, payload.data(), PAYLOAD_SIZE));
    const std::string_view message(buffer, std::string_view(buffer).size() + 1 + PAYLOAD_SIZE);
    std::array<double, ROUNDS> bare, library, ratio;
    for (size_t round = 0; round < ROUNDS; round++) {
        bare[round] = measure(read_bare, queue, message);
        library[round] = measure(read_with_library, queue, message);
        ratio[round] = library[round] / bare[round];
    }
    std::free(buffer);
    std::printf("event %3d: bare %8.0f messages/s, handle_wl_evt %8.0f messages/s, ratio %.2f\n", event, median(bare),
                median(library), median(ratio));
}

}  // namespace

int main() {
    debug = 2;
    std::printf("select and a read for each message, payload of %d bytes, median of %d rounds\n", PAYLOAD_SIZE, ROUNDS);
    // The name of an event is searched for from index 0 on: the first and the last index frame the cost.
    bench(VRE_AUTH_RECV);
    bench(VRE_NODE_LEAVE);
    bench(VRE_SPL_BW_EVENTS);
}
