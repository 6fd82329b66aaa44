#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <mqueue.h>
#include <sys/stat.h>

#include "libwl.h"
#include "libwl_internal.h"
#include "wl_common.h"

namespace {

constexpr char QUEUE_DIRECTORY[] = "/dev/mqueue";  // where the kernel shows the queues
constexpr int64_t STAMP_STEP = 1'020'000'000;      // ns: changes are stamped with whole seconds of a clock with ticks

/// Of every slot's queue, kept open between events.
struct peer {
    mqd_t queue = -1;
    bool is_known = false;  // that the queue is the one of its name, or that there is none
};

// Guarded by wl_bus_mutex.
peer peers[WL_MQ_SLOTS];
int queue_directory = -1;
timespec directory_changed;

int64_t nanoseconds(const timespec &time) {
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

/// Whether a further change would get another stamp.
bool is_over(const timespec &change) {
    timespec now;
    return clock_gettime(CLOCK_REALTIME_COARSE, &now) == 0 && nanoseconds(now) - nanoseconds(change) > STAMP_STEP;
}

/// The directory may be missing, or show the queues of others.
bool shows_our_queues(dev_t device) {
    struct stat status;
    const auto *const open_peer = std::ranges::find_if(peers, [](const peer &one) { return one.queue >= 0; });
    return open_peer != std::end(peers) && fstat(open_peer->queue, &status) == 0 && status.st_dev == device;
}

/// Looking for absent queues takes longer than sending. While the directory is as it was, none was made or removed.
///
/// @return whether what is found out now may be kept
bool watch_directory() {
    struct stat now;
    if (queue_directory < 0)
        queue_directory = open(QUEUE_DIRECTORY, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool is_readable = queue_directory >= 0 && fstat(queue_directory, &now) == 0;
    if (is_readable && nanoseconds(now.st_mtim) == nanoseconds(directory_changed))
        return true;
    for (peer &one : peers)
        one.is_known = false;
    const bool may_keep = is_readable && is_over(now.st_mtim) && shows_our_queues(now.st_dev);
    directory_changed = may_keep ? now.st_mtim : timespec{};
    return may_keep;
}

/// A process that starts anew may replace its queue. The old one lives on without a name while it is open here.
bool is_unlinked(mqd_t queue) {
    struct stat status;
    return fstat(queue, &status) != 0 || status.st_nlink == 0;
}

/// @return the descriptor of a slot's queue as it exists now, or -1 with `errno` set
mqd_t peer_queue(unsigned slot, bool may_keep) {
    peer &one = peers[slot];
    if (one.is_known) {
        errno = ENOENT;
        return one.queue;
    }
    if (one.queue >= 0 && is_unlinked(one.queue)) {
        mq_close(one.queue);
        one.queue = -1;
    }
    if (one.queue < 0)
        one.queue = mq_open(p_mq_name[slot], O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    one.is_known = may_keep && (one.queue >= 0 || errno == ENOENT);
    return one.queue;
}

/// Sends a message to a slot's queue, if there is one, and counts a refusal.
///
/// @return whether the queue took it
bool deliver(unsigned slot, bool may_keep, const char *message, size_t size) {
    const mqd_t queue = peer_queue(slot, may_keep);
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
    const bool may_keep = watch_directory();
    for (unsigned slot = 0; slot < WL_MQ_SLOTS; slot++) {
        if (is_addressed(slot, event) && deliver(slot, may_keep, message, size))
            taken++;
    }
    pthread_mutex_unlock(&wl_bus_mutex);
    std::free(message);
    return taken > 0 ? taken : -1;
}
