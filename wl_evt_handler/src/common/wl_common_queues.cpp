#include <cerrno>
#include <fcntl.h>
#include <sys/resource.h>

#include "debug_log.h"
#include "error_text.h"
#include "wl_common.h"

const char p_mq_name[WL_MQ_SLOTS][64] = {
    "", "/wl_evt_proxy", "/example1", "/splashd", "/sensord", "/hostapd", "/wgd", "/wl_evt_handler", "/wl_simulator",
};
const int p_mq_maxmsg[WL_MQ_SLOTS] = {0, 512, 256, 256, 512, 256, 256, 512, 512};
const int p_mq_msgsize[WL_MQ_SLOTS] = {0, 2056, 2048, 2048, 2048, 2048, 2048, 2048, 2056};

namespace {

/// @param flags  of mq_open, beside those that every queue has
mqd_t open_queue(int key, int flags) {
    const unsigned slot = wl_mq_slot(key);
    mq_attr sizes{};
    sizes.mq_maxmsg = p_mq_maxmsg[slot];
    sizes.mq_msgsize = p_mq_msgsize[slot];
    return mq_open(p_mq_name[slot], O_RDWR | O_NONBLOCK | O_EXCL | flags, 0777, &sizes);
}

}  // namespace

int increse_rlimit_msgqueue() {
    rlimit limit{};  // read first: a platform's record may hold more than the two limits set here
    getrlimit(RLIMIT_MSGQUEUE, &limit);
    rlim_t bytes = 0;
    for (int key = WL_MQ_START + 1; key < WL_MQ_MAX; key++)
        bytes += static_cast<rlim_t>(p_mq_maxmsg[wl_mq_slot(key)] * p_mq_msgsize[wl_mq_slot(key)]);
    limit.rlim_cur = bytes;
    limit.rlim_max = bytes;
    return setrlimit(RLIMIT_MSGQUEUE, &limit);
}

mqd_t check_posix_mq(int key) {
    increse_rlimit_msgqueue();
    return open_queue(key, 0);
}

mqd_t create_posix_mq(int key) {
    increse_rlimit_msgqueue();
    const mqd_t queue = open_queue(key, O_CREAT);
    if (queue != -1)
        return queue;
    const int error = errno;
    if (error == EEXIST)
        return open_queue(key, 0);
    WL_LOG(3, "mq_open error: %s", error_text(error));
    errno = error;
    return -error;
}
