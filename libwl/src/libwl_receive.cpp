#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mqueue.h>
#include <span>
#include <sys/select.h>
#include <utility>

#include "debug_log.h"
#include "libwl.h"
#include "libwl_internal.h"
#include "wl_common.h"
#include "wl_utils.h"

pthread_mutex_t wl_bus_mutex = PTHREAD_MUTEX_INITIALIZER;
std::atomic<int> wl_send_failures;
std::atomic<int> wl_receive_failures;

namespace {

constexpr size_t MAX_BINDINGS = 128;
constexpr size_t PADDING = 64;  // zero bytes behind every payload: what a decoder may read beyond it
constexpr int LEAST_DEPTH = 8;
constexpr int OPEN_FLAGS = O_RDWR | O_NONBLOCK;

struct binding {
    vre_iw_cmd_t event;
    wl_evt_handler_t handler;
};

binding binding_table[MAX_BINDINGS];
size_t binding_count;

struct {
    unsigned slot = WL_MQ_SLOTS;  // none of the table before the first registration
    mqd_t descriptor = -1;
    size_t message_size = 0;  // of the longest message that the queue takes
    char *buffer = nullptr;   // message_size + PADDING bytes, all 0 between messages; null while handlers run
} own_queue;

std::span<const binding> bindings() {
    return {binding_table, binding_count};
}

/// Whether a binding receives an event. Two indices are groups: that of all events and that of the traffic test.
bool receives(vre_iw_cmd_t bound, vre_iw_cmd_t event) {
    return bound == event || bound == VRE_ALL ||
           (bound == VRE_TARGET_AP_TRAFFIC_TEST &&
            (event == VRE_TARGET_AP_TRAFFIC_TEST_INFO || event == VRE_TARGET_AP_TRAFFIC_TEST_PID));
}

/// Forgets the previous registration. `errno` stays as it is.
void leave_queue() {
    const int error = errno;
    if (own_queue.descriptor >= 0)
        mq_close(own_queue.descriptor);
    own_queue.descriptor = -1;
    std::free(own_queue.buffer);
    own_queue.buffer = nullptr;
    errno = error;
}

/// Starts a registration: from here on nothing is bound.
void claim_slot(unsigned slot) {
    pthread_mutex_lock(&wl_bus_mutex);
    own_queue.slot = slot;
    binding_count = 0;
    pthread_mutex_unlock(&wl_bus_mutex);
}

/// Opens the own queue with a depth; one that somebody has made meanwhile is taken as it is.
mqd_t open_with_depth(unsigned slot, int depth) {
    mq_attr sizes{};
    sizes.mq_maxmsg = depth;
    sizes.mq_msgsize = p_mq_msgsize[slot];
    const mqd_t queue = mq_open(p_mq_name[slot], OPEN_FLAGS | O_CREAT | O_EXCL, 0777, &sizes);
    return queue < 0 && errno == EEXIST ? mq_open(p_mq_name[slot], OPEN_FLAGS) : queue;
}

/// An ordinary machine allows 10 messages a queue and 819,200 bytes of queues for a user.
bool is_refused_depth(int error) {
    return error == EINVAL || error == EMFILE || error == ENOMEM;
}

void log_depth(mqd_t queue, unsigned slot) {
    mq_attr attributes{};
    mq_getattr(queue, &attributes);
    WL_LOG_AS("wl_mq_register_and_init", 6, "queue %s holds %ld messages instead of %d", p_mq_name[slot],
              static_cast<long>(attributes.mq_maxmsg), p_mq_maxmsg[slot]);
}

/// @return a descriptor, or -1 with `errno` set
mqd_t open_own_queue(int key) {
    const mqd_t documented = create_posix_mq(key);
    if (documented >= 0)
        return documented;
    if (documented != -1)
        errno = -documented;
    const unsigned slot = wl_mq_slot(key);
    for (int depth = p_mq_maxmsg[slot] / 2; depth >= LEAST_DEPTH && is_refused_depth(errno); depth /= 2) {
        const mqd_t queue = open_with_depth(slot, depth);
        if (queue >= 0) {
            log_depth(queue, slot);
            return queue;
        }
    }
    return -1;
}

/// Makes the buffer for the widest message that the queue can hold: an existing queue may be wider than documented.
///
/// @return 0, or -1 with `errno` set
int make_buffer() {
    mq_attr attributes{};
    if (mq_getattr(own_queue.descriptor, &attributes) != 0)
        return -1;
    own_queue.message_size = static_cast<size_t>(attributes.mq_msgsize);
    own_queue.buffer = static_cast<char *>(std::calloc(1, own_queue.message_size + PADDING));
    return own_queue.buffer != nullptr ? 0 : -1;
}

/// @return false when the message names no event
bool dispatch(char *message, size_t size) {
    const size_t name_length = strnlen(message, size);
    if (name_length == size)
        return false;
    const vre_iw_cmd_t event = wl_get_evt(message);
    if (event == VRE_MAX_EVT)
        return false;
    // A handler may change the table: the message goes to those that were bound when it came.
    wl_evt_handler_t handlers[MAX_BINDINGS];
    size_t count = 0;
    for (const binding &bound : bindings()) {
        if (receives(bound.event, event))
            handlers[count++] = bound.handler;
    }
    for (const wl_evt_handler_t handler : std::span(handlers, count))
        handler(event, message + name_length + 1, static_cast<int>(size - name_length - 1));
    return true;
}

/// Takes the buffer back from the handlers, with every byte of the message gone: they may be a key.
void restore_buffer(char *buffer, size_t size) {
    wipe(buffer, size + PADDING);
    if (own_queue.buffer == nullptr)
        own_queue.buffer = buffer;
    else  // a handler has registered anew
        std::free(buffer);
}

/// @return what a failed read means to the reader
int receive_failed(int error) {
    if (error == EAGAIN || error == EINTR)
        return 0;
    wl_receive_failures.fetch_add(1, std::memory_order_relaxed);
    if (error == EBADF)  // closed by somebody else: the number must not be closed again when it is another file's
        own_queue.descriptor = -1;
    return -1;
}

}  // namespace

bool is_addressed(unsigned slot, vre_iw_cmd_t event) {
    if (p_mq_name[slot][0] == '\0')
        return false;
    if (slot != own_queue.slot)
        return true;
    return std::ranges::any_of(bindings(), [event](const binding &bound) { return bound.event == event; });
}

int wl_mq_register_and_init(int key, int (*register_callback)()) {
    leave_queue();
    claim_slot(wl_mq_slot(key));
    own_queue.descriptor = open_own_queue(key);
    if (own_queue.descriptor < 0)
        return -1;
    if (own_queue.descriptor >= FD_SETSIZE) {
        leave_queue();
        errno = EMFILE;
        return -1;
    }
    if (make_buffer() != 0) {
        leave_queue();
        return -1;
    }
    register_callback();
    return own_queue.descriptor;
}

int wl_register_handler(vre_iw_cmd_t event, wl_evt_handler_t handler) {
    if (event < 0 || event > VRE_MAX_EVT || handler == nullptr || binding_count == MAX_BINDINGS)
        return -1;
    pthread_mutex_lock(&wl_bus_mutex);
    binding_table[binding_count++] = {event, handler};
    pthread_mutex_unlock(&wl_bus_mutex);
    return 0;
}

int handle_wl_evt() {
    if (own_queue.buffer == nullptr)
        return -1;
    const ssize_t size = mq_receive(own_queue.descriptor, own_queue.buffer, own_queue.message_size, nullptr);
    if (size < 0)
        return receive_failed(errno);
    char *const message = std::exchange(own_queue.buffer, nullptr);
    if (!dispatch(message, static_cast<size_t>(size)))
        wl_receive_failures.fetch_add(1, std::memory_order_relaxed);
    restore_buffer(message, static_cast<size_t>(size));
    return 0;
}

void get_mq_failure_statistics(mq_failure_statistics *statistics) {
    statistics->send_failure_count = wl_send_failures.load(std::memory_order_relaxed);
    statistics->recv_failure_count = wl_receive_failures.load(std::memory_order_relaxed);
}
