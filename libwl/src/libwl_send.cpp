#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mqueue.h>
#include <sys/stat.h>

#include "libwl.h"
#include "libwl_internal.h"
#include "wl_common.h"

namespace {

// Of every slot's queue, kept open between events; guarded by wl_bus_mutex.
mqd_t peer_queues[] = {-1, -1, -1, -1, -1, -1, -1, -1, -1};
static_assert(sizeof peer_queues / sizeof peer_queues[0] == WL_MQ_SLOTS);

/// A process that starts anew may replace its queue. The old one lives on without a name while it is open here.
bool is_unlinked(mqd_t queue) {
    struct stat status;
    return fstat(queue, &status) != 0 || status.st_nlink == 0;
}

/// @return the descriptor of a slot's queue as it exists now, or -1 with `errno` set
mqd_t peer_queue(unsigned slot) {
    mqd_t &queue = peer_queues[slot];
    if (queue >= 0 && is_unlinked(queue)) {
        mq_close(queue);
        queue = -1;
    }
    if (queue < 0)
        queue = mq_open(p_mq_name[slot], O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    return queue;
}

/// Sends a message to a slot's queue, if there is one, and counts a refusal.
///
/// @return whether the queue took it
bool deliver(unsigned slot, const char *message, size_t size) {
    const mqd_t queue = peer_queue(slot);
    if (queue < 0 && errno == ENOENT)
        return false;
    if (queue >= 0 && mq_send(queue, message, size, 0) == 0)
        return true;
    wl_send_failures.fetch_add(1, std::memory_order_relaxed);
    return false;
}

}  // namespace

int wl_send_evt(vre_iw_cmd_t event, const void *payload, int length) {
    if (length < 0 || (payload == nullptr && length > 0))
        return -1;
    auto *const message = static_cast<char *>(alloc_evt_buf(event, payload, length));
    if (message == nullptr)
        return -1;
    const size_t size = std::strlen(message) + 1 + static_cast<size_t>(length);
    int taken = 0;
    pthread_mutex_lock(&wl_bus_mutex);
    for (unsigned slot = 0; slot < WL_MQ_SLOTS; slot++) {
        if (is_addressed(slot, event) && deliver(slot, message, size))
            taken++;
    }
    pthread_mutex_unlock(&wl_bus_mutex);
    std::free(message);
    return taken > 0 ? taken : -1;
}
