// The table of message queues and the calls that open them: what the kernel is asked, and what is made of its answers.
#include "wl_common.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "log_capture.h"
#include "wl_log.h"

namespace {

struct open_call {
    std::string name;
    int flags;
    mode_t mode;
    long depth;
    long message_size;
};

struct answer {
    mqd_t result;
    int error;
};

std::vector<open_call> open_calls;
std::deque<answer> open_answers;  // scripted; the kernel's own when empty
std::vector<rlimit> limits_set;
int limit_reads;
std::deque<answer> limit_answers;

using lines = std::vector<std::string>;

constexpr int DAEMON_QUEUE = 1240;

/// Creates the daemon's queue in a size that any kernel takes, for as long as it lives.
class existing_queue {
public:
    existing_queue() {
        mq_attr sizes{};
        sizes.mq_maxmsg = 2;
        sizes.mq_msgsize = 64;
        queue_ = mq_open("/wl_evt_handler", O_RDWR | O_CREAT, 0600, &sizes);
        open_calls.clear();
    }

    ~existing_queue() {
        mq_close(queue_);
        mq_unlink("/wl_evt_handler");
    }

    existing_queue(const existing_queue &) = delete;
    existing_queue &operator=(const existing_queue &) = delete;

    mqd_t descriptor() const {
        return queue_;
    }

private:
    mqd_t queue_;
};

}  // namespace

extern "C" mqd_t __real_mq_open(const char *name, int flags, mode_t mode, mq_attr *sizes);
extern "C" mqd_t __wrap_mq_open(const char *name, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    mq_attr *sizes = va_arg(arguments, mq_attr *);
    va_end(arguments);
    open_calls.push_back({name, flags, mode, sizes->mq_maxmsg, sizes->mq_msgsize});
    if (open_answers.empty())
        return __real_mq_open(name, flags, mode, sizes);
    const answer next = open_answers.front();
    open_answers.pop_front();
    errno = next.error;
    return next.result;
}

extern "C" int __wrap_setrlimit(int resource, const rlimit *limit) {
    EXPECT_EQ(resource, RLIMIT_MSGQUEUE);
    limits_set.push_back(*limit);
    if (limit_answers.empty())
        return 0;
    const answer next = limit_answers.front();
    limit_answers.pop_front();
    errno = next.error;
    return next.result;
}

extern "C" int __wrap_getrlimit(int resource, rlimit *limit) {
    EXPECT_EQ(resource, RLIMIT_MSGQUEUE);
    *limit = {819200, 819200};
    limit_reads++;
    return 0;
}

TEST(QueueTable, EveryKeyHasItsNameAndSizes) {
    struct row {
        int key;
        const char *name;
        int depth;
        int message_size;
    };
    for (const row &expected :
         {row{1233, "", 0, 0}, row{1234, "/wl_evt_proxy", 512, 2056}, row{1235, "/example1", 256, 2048},
          row{1236, "/splashd", 256, 2048}, row{1237, "/sensord", 512, 2048}, row{1238, "/hostapd", 256, 2048},
          row{1239, "/wgd", 256, 2048}, row{1240, "/wl_evt_handler", 512, 2048},
          row{1241, "/wl_simulator", 512, 2056}}) {
        const int slot = expected.key % 9;
        EXPECT_EQ(slot, expected.key - 1233);
        EXPECT_EQ(wl_mq_slot(expected.key), static_cast<unsigned>(slot));
        EXPECT_STREQ(p_mq_name[slot], expected.name);
        EXPECT_EQ(p_mq_maxmsg[slot], expected.depth);
        EXPECT_EQ(p_mq_msgsize[slot], expected.message_size);
    }
}

TEST(QueueTable, KeysHaveTheirNumbers) {
    EXPECT_EQ(WL_MQ_START, 1233);
    EXPECT_EQ(WL_MQ_WL_KEY, 1234);
    EXPECT_EQ(WL_MQ_EXAMPLE1_KEY, 1235);
    EXPECT_EQ(WL_MQ_SPLASHD_KEY, 1236);
    EXPECT_EQ(WL_MQ_SENSORD_KEY, 1237);
    EXPECT_EQ(WL_MQ_HOSTAPD_KEY, 1238);
    EXPECT_EQ(WL_MQ_WGD_KEY, 1239);
    EXPECT_EQ(WL_MQ_WL_HANDLER_KEY, DAEMON_QUEUE);
    EXPECT_EQ(WL_MQ_SIMULATOR, 1241);
    EXPECT_EQ(WL_MQ_MAX, 1242);
}

TEST(QueueTable, HasNineSlotsOfUpTo64Characters) {
    EXPECT_EQ(std::size(p_mq_name), 9U);
    EXPECT_EQ(sizeof p_mq_name[0], 64U);
    EXPECT_EQ(std::size(p_mq_maxmsg), 9U);
    EXPECT_EQ(std::size(p_mq_msgsize), 9U);
}

TEST(QueueTable, NegativeKeysStayInTheTable) {
    for (const int key : {-1, -9, INT32_MIN})
        EXPECT_LT(wl_mq_slot(key), 9U);
}

TEST(QueueLimit, IsRaisedToTheSumOfAllQueues) {
    EXPECT_EQ(increse_rlimit_msgqueue(), 0);
    EXPECT_EQ(limit_reads, 1);
    ASSERT_EQ(limits_set.size(), 1U);
    EXPECT_EQ(limits_set[0].rlim_cur, 6299648U);
    EXPECT_EQ(limits_set[0].rlim_max, 6299648U);
}

TEST(QueueLimit, ResultIsThatOfSetrlimit) {
    limit_answers = {{-1, EPERM}};
    EXPECT_EQ(increse_rlimit_msgqueue(), -1);
    EXPECT_EQ(errno, EPERM);
}

TEST(CheckPosixMq, OpensTheQueueOfTheKeyWithoutCreatingIt) {
    open_answers = {{77, 0}};
    EXPECT_EQ(check_posix_mq(1241), 77);
    ASSERT_EQ(open_calls.size(), 1U);
    EXPECT_EQ(open_calls[0].name, "/wl_simulator");
    EXPECT_EQ(open_calls[0].flags, O_RDWR | O_NONBLOCK | O_EXCL);
    EXPECT_EQ(open_calls[0].mode, 0777U);
    EXPECT_EQ(open_calls[0].depth, 512);
    EXPECT_EQ(open_calls[0].message_size, 2056);
    EXPECT_EQ(limits_set.size(), 1U);
}

TEST(CheckPosixMq, GoesOnWhenTheLimitCannotBeRaised) {
    limit_answers = {{-1, EPERM}};
    open_answers = {{77, 0}};
    EXPECT_EQ(check_posix_mq(DAEMON_QUEUE), 77);
}

TEST(CheckPosixMq, FailsWithTheKernelsErrorAndNoLine) {
    log_capture log;
    open_answers = {{-1, EACCES}};
    EXPECT_EQ(check_posix_mq(DAEMON_QUEUE), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(log.lines(), lines());
}

TEST(CheckPosixMq, FailsForAQueueThatDoesNotExist) {
    EXPECT_EQ(check_posix_mq(DAEMON_QUEUE), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(CheckPosixMq, OpensAnExistingQueueForReadingAndWritingWithoutBlocking) {
    const existing_queue existing;
    const mqd_t queue = check_posix_mq(DAEMON_QUEUE);
    ASSERT_GE(queue, 0);
    char message[64];
    EXPECT_EQ(mq_receive(queue, message, sizeof message, nullptr), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(mq_send(queue, "x", 1, 0), 0);
    EXPECT_EQ(mq_receive(queue, message, sizeof message, nullptr), 1);
    mq_close(queue);
}

TEST(CreatePosixMq, AsksForANewQueueOfTheTablesSizes) {
    open_answers = {{78, 0}};
    EXPECT_EQ(create_posix_mq(DAEMON_QUEUE), 78);
    ASSERT_EQ(open_calls.size(), 1U);
    EXPECT_EQ(open_calls[0].name, "/wl_evt_handler");
    EXPECT_EQ(open_calls[0].flags, O_RDWR | O_NONBLOCK | O_EXCL | O_CREAT);
    EXPECT_EQ(open_calls[0].mode, 0777U);
    EXPECT_EQ(open_calls[0].depth, 512);
    EXPECT_EQ(open_calls[0].message_size, 2048);
    EXPECT_EQ(limits_set.size(), 1U);
}

TEST(CreatePosixMq, OpensAQueueThatExistsWithoutCreatingIt) {
    open_answers = {{-1, EEXIST}, {79, 0}};
    log_capture log;
    EXPECT_EQ(create_posix_mq(DAEMON_QUEUE), 79);
    ASSERT_EQ(open_calls.size(), 2U);
    EXPECT_EQ(open_calls[1].name, "/wl_evt_handler");
    EXPECT_EQ(open_calls[1].flags, O_RDWR | O_NONBLOCK | O_EXCL);
    EXPECT_EQ(log.lines(), lines());
}

TEST(CreatePosixMq, ExistingQueueThatCannotBeOpenedGivesMinusOneWithoutALine) {
    open_answers = {{-1, EEXIST}, {-1, EACCES}};
    log_capture log;
    EXPECT_EQ(create_posix_mq(DAEMON_QUEUE), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(log.lines(), lines());
}

TEST(CreatePosixMq, AnyOtherFailureGivesTheNegatedErrorAndALine) {
    for (const int error : {EINVAL, EMFILE, ENOMEM, ENOENT, EACCES}) {
        open_answers = {{-1, error}};
        open_calls.clear();
        log_capture log;
        EXPECT_EQ(create_posix_mq(DAEMON_QUEUE), -error);
        EXPECT_EQ(errno, error);
        EXPECT_EQ(open_calls.size(), 1U);
        EXPECT_EQ(log.lines(), lines{std::string("create_posix_mq: mq_open error: ") + std::strerror(error)});
    }
}

TEST(CreatePosixMq, FailureIsLoggedAtLevel3) {
    log_capture log;
    open_answers = {{-1, EINVAL}, {-1, EINVAL}};
    debug = 2;
    EXPECT_EQ(create_posix_mq(DAEMON_QUEUE), -EINVAL);
    EXPECT_EQ(log.lines().size(), 0U);
    debug = 3;
    EXPECT_EQ(create_posix_mq(DAEMON_QUEUE), -EINVAL);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST(CreatePosixMq, OpensTheQueueThatAnotherProcessMade) {
    const existing_queue existing;
    const mqd_t queue = create_posix_mq(DAEMON_QUEUE);
    ASSERT_GE(queue, 0);
    EXPECT_EQ(mq_send(existing.descriptor(), "hi", 2, 0), 0);
    char message[64];
    EXPECT_EQ(mq_receive(queue, message, sizeof message, nullptr), 2);
    mq_close(queue);
}
