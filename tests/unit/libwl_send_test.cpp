#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <mqueue.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "fault.h"
#include "libwl.h"
#include "wl_common.h"

extern "C" mqd_t __real_mq_open(const char *name, int flags, mode_t mode, mq_attr *attributes);

namespace {

const char *const OWN_QUEUE = "/wl_evt_handler";
const std::vector<std::string> PEERS = {"/wl_evt_proxy", "/example1", "/splashd",     "/sensord",
                                        "/hostapd",      "/wgd",      "/wl_simulator"};

struct open_call {
    std::string name;
    int flags;
};

std::vector<open_call> opened;             // by the library, while record_opens is set
std::map<std::string, int> refused_opens;  // queue's name to `errno` value
bool record_opens;

}  // namespace

extern "C" mqd_t __wrap_mq_open(const char *name, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    mq_attr *const attributes = (flags & O_CREAT) != 0 ? va_arg(arguments, mq_attr *) : nullptr;
    va_end(arguments);
    if (record_opens)
        opened.push_back({name, flags});
    const auto refused = refused_opens.find(name);
    if (refused == refused_opens.end())
        return __real_mq_open(name, flags, mode, attributes);
    errno = refused->second;
    return -1;
}

namespace {

/// A queue of another process.
class peer {
public:
    explicit peer(const std::string &name, long depth = 4, long message_size = 2048) {
        mq_attr sizes{};
        sizes.mq_maxmsg = depth;
        sizes.mq_msgsize = message_size;
        queue_ = __real_mq_open(name.c_str(), O_RDWR | O_NONBLOCK | O_CREAT | O_EXCL, 0777, &sizes);
        EXPECT_GE(queue_, 0) << name << ": " << strerror(errno);
    }

    ~peer() {
        if (queue_ >= 0)
            mq_close(queue_);
    }

    peer(peer &&other) : queue_(std::exchange(other.queue_, -1)) {}

    /// The next message, or "(none)".
    std::string receive() const {
        std::string message(8192, '\0');
        const ssize_t size = mq_receive(queue_, message.data(), message.size(), nullptr);
        if (size < 0)
            return "(none)";
        message.resize(static_cast<size_t>(size));
        return message;
    }

private:
    mqd_t queue_;
};

void ignore(vre_iw_cmd_t, void *, int) {}

int bind_nothing() {
    return 0;
}

class LibwlSend : public testing::Test {
protected:
    void SetUp() override {
        clear_faults();
        opened.clear();
        refused_opens.clear();
        record_opens = false;
        for (const auto &name : p_mq_name)
            mq_unlink(name);
        own_ = wl_mq_register_and_init(WL_MQ_WL_HANDLER_KEY, bind_nothing);
        ASSERT_GE(own_, 0);
        before_ = statistics();
    }

    void TearDown() override {
        clear_faults();
    }

    static mq_failure_statistics statistics() {
        mq_failure_statistics now;
        get_mq_failure_statistics(&now);
        return now;
    }

    int new_send_failures() const {
        return statistics().send_failure_count - before_.send_failure_count;
    }

    long messages_in_own_queue() const {
        mq_attr attributes{};
        mq_getattr(own_, &attributes);
        return attributes.mq_curmsgs;
    }

    mqd_t own_ = -1;
    mq_failure_statistics before_{};
};

/// The message of event 14 with a payload.
std::string node_leave(const std::string &payload) {
    return std::string("VRE.node_leave\0", 15) + payload;
}

TEST_F(LibwlSend, ReachesEveryOtherProcessThatHasAQueue) {
    std::vector<peer> peers;
    for (const std::string &name : PEERS)
        peers.emplace_back(name);
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "pay\0load", 8), 7);
    for (const peer &one : peers)
        EXPECT_EQ(one.receive(), node_leave(std::string("pay\0load", 8)));
    EXPECT_EQ(messages_in_own_queue(), 0);
    EXPECT_EQ(new_send_failures(), 0);
}

TEST_F(LibwlSend, AnAbsentQueueIsNoDelivery) {
    const peer sensor("/sensord");
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "x", 1), 1);
    EXPECT_EQ(new_send_failures(), 0);
    EXPECT_EQ(mq_unlink("/hostapd"), -1) << "a sender must not create queues";
}

TEST_F(LibwlSend, WithoutAnyQueueIsMinusOne) {
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "x", 1), -1);
    EXPECT_EQ(new_send_failures(), 0);
}

TEST_F(LibwlSend, AnEmptyPayloadNeedsNoPointer) {
    const peer sensor("/sensord");
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, nullptr, 0), 1);
    EXPECT_EQ(sensor.receive(), node_leave(""));
}

TEST_F(LibwlSend, ANegativeLengthIsRefused) {
    const peer sensor("/sensord");
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "x", -1), -1);
    EXPECT_EQ(sensor.receive(), "(none)");
    EXPECT_EQ(new_send_failures(), 0);
}

TEST_F(LibwlSend, ANullPayloadWithALengthIsRefused) {
    const peer sensor("/sensord");
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, nullptr, 1), -1);
    EXPECT_EQ(sensor.receive(), "(none)");
    EXPECT_EQ(new_send_failures(), 0);
}

class LibwlSendUnnamed : public LibwlSend, public testing::WithParamInterface<int> {};

TEST_P(LibwlSendUnnamed, EventIsRefused) {
    const peer sensor("/sensord");
    EXPECT_EQ(wl_send_evt(static_cast<vre_iw_cmd_t>(GetParam()), "x", 1), -1);
    EXPECT_EQ(sensor.receive(), "(none)");
    EXPECT_EQ(new_send_failures(), 0);
}

INSTANTIATE_TEST_SUITE_P(Indices, LibwlSendUnnamed,
                         testing::Values(45, 61, 66, 79, 80, 86, 87, 88, 89, 90, 91, 92, -1, 109, INT32_MAX,
                                         INT32_MIN));

TEST_F(LibwlSend, AFailedAllocationIsMinusOne) {
    const peer sensor("/sensord");
    fail_nth_call("malloc", 1);
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "x", 1), -1);
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_EQ(sensor.receive(), "(none)");
    EXPECT_EQ(new_send_failures(), 0);
}

TEST_F(LibwlSend, TheOwnQueueTakesAnEventThatHasAHandler) {
    ASSERT_EQ(wl_register_handler(VRE_NODE_LEAVE, ignore), 0);
    const peer sensor("/sensord");
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "x", 1), 2);
    EXPECT_EQ(messages_in_own_queue(), 1);
}

TEST_F(LibwlSend, TheOwnQueueDoesNotTakeWhatOnlyTheGroupOfAllEventsHandles) {
    ASSERT_EQ(wl_register_handler(VRE_ALL, ignore), 0);
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "x", 1), -1);
    EXPECT_EQ(messages_in_own_queue(), 0);
    EXPECT_EQ(new_send_failures(), 0);
}

TEST_F(LibwlSend, TheOwnQueueDoesNotTakeWhatOnlyTheTrafficGroupHandles) {
    ASSERT_EQ(wl_register_handler(VRE_TARGET_AP_TRAFFIC_TEST, ignore), 0);
    EXPECT_EQ(wl_send_evt(VRE_TARGET_AP_TRAFFIC_TEST_INFO, "x", 1), -1);
    EXPECT_EQ(wl_send_evt(VRE_TARGET_AP_TRAFFIC_TEST_PID, "x", 1), -1);
    EXPECT_EQ(messages_in_own_queue(), 0);
    EXPECT_EQ(wl_send_evt(VRE_TARGET_AP_TRAFFIC_TEST, "x", 1), 1);
    EXPECT_EQ(messages_in_own_queue(), 1);
}

TEST_F(LibwlSend, TheOwnQueueIsThatOfTheRegisteredKey) {
    const int simulator = wl_mq_register_and_init(WL_MQ_SIMULATOR, bind_nothing);
    ASSERT_GE(simulator, 0);
    mq_unlink(OWN_QUEUE);
    const peer daemon(OWN_QUEUE);
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "x", 1), 1);
    EXPECT_EQ(daemon.receive(), node_leave("x"));
}

TEST_F(LibwlSend, AKeyWithoutAQueueIsNeverSentTo) {
    EXPECT_EQ(wl_mq_register_and_init(WL_MQ_START, bind_nothing), -1);
    ASSERT_EQ(wl_register_handler(VRE_NODE_LEAVE, ignore), 0);
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "x", 1), 1);  // the queue that is now another process's
    EXPECT_EQ(new_send_failures(), 0);
}

TEST_F(LibwlSend, AFullQueueRefusesAndCounts) {
    const peer sensor("/sensord", 1);
    const peer hostapd("/hostapd", 2);
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "1", 1), 2);
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "2", 1), 1);
    EXPECT_EQ(new_send_failures(), 1);
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "3", 1), -1);
    EXPECT_EQ(new_send_failures(), 3);
    EXPECT_EQ(sensor.receive(), node_leave("1"));
    EXPECT_EQ(sensor.receive(), "(none)");
    EXPECT_EQ(hostapd.receive(), node_leave("1"));
    EXPECT_EQ(hostapd.receive(), node_leave("2"));
}

TEST_F(LibwlSend, AMessageThatFillsTheQueuesSizeIsTaken) {
    const peer sensor("/sensord");
    const std::string payload(2048 - sizeof "VRE.node_leave", 'x');
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, payload.data(), static_cast<int>(payload.size())), 1);
    EXPECT_EQ(sensor.receive(), node_leave(payload));
}

TEST_F(LibwlSend, AMessageThatIsTooLargeForEveryQueueIsMinusOne) {
    const peer sensor("/sensord");
    const peer hostapd("/hostapd");
    const std::string payload(2049 - sizeof "VRE.node_leave", 'x');
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, payload.data(), static_cast<int>(payload.size())), -1);
    EXPECT_EQ(new_send_failures(), 2);
}

TEST_F(LibwlSend, AMessageThatIsTooLargeForOneQueueReachesTheWiderOne) {
    const peer sensor("/sensord");
    const peer simulator("/wl_simulator", 4, 2056);
    const std::string payload(2056 - sizeof "VRE.node_leave", 'x');
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, payload.data(), static_cast<int>(payload.size())), 1);
    EXPECT_EQ(simulator.receive(), node_leave(payload));
    EXPECT_EQ(new_send_failures(), 1);
}

class LibwlSendRefusedOpen : public LibwlSend, public testing::WithParamInterface<int> {};

TEST_P(LibwlSendRefusedOpen, Counts) {
    const peer sensor("/sensord");
    const peer hostapd("/hostapd");
    refused_opens = {{"/hostapd", GetParam()}};
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "x", 1), 1);
    EXPECT_EQ(new_send_failures(), 1);
    refused_opens.clear();
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "y", 1), 2);
    EXPECT_EQ(hostapd.receive(), node_leave("y"));
}

INSTANTIATE_TEST_SUITE_P(Errors, LibwlSendRefusedOpen, testing::Values(EACCES, EMFILE, ENFILE, ENOMEM));

class LibwlSendRefusedMessage : public LibwlSend, public testing::WithParamInterface<int> {};

TEST_P(LibwlSendRefusedMessage, Counts) {
    const peer sensor("/sensord");
    fail_nth_call("mq_send", 1, GetParam());
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "x", 1), -1);
    EXPECT_EQ(new_send_failures(), 1);
}

INSTANTIATE_TEST_SUITE_P(Errors, LibwlSendRefusedMessage, testing::Values(EAGAIN, EBADF, EINTR, EMSGSIZE));

TEST_F(LibwlSend, SendFailuresAreNoReceiveFailures) {
    const peer sensor("/sensord");
    fail_nth_call("mq_send", 1, EAGAIN);
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "x", 1), -1);
    EXPECT_EQ(statistics().recv_failure_count, before_.recv_failure_count);
}

TEST_F(LibwlSend, OpensAQueueOnceForWritingWithoutCreatingIt) {
    const peer sensor("/sensord");
    record_opens = true;
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "1", 1), 1);
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "2", 1), 1);
    int opens_of_sensor = 0;
    for (const open_call &call : opened) {
        EXPECT_EQ(call.flags, O_WRONLY | O_NONBLOCK | O_CLOEXEC) << call.name;
        EXPECT_NE(call.name, "");
        opens_of_sensor += call.name == "/sensord" ? 1 : 0;
    }
    EXPECT_EQ(opens_of_sensor, 1);
}

TEST_F(LibwlSend, NoticesAQueueThatAppears) {
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "1", 1), -1);
    const peer sensor("/sensord");
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "2", 1), 1);
    EXPECT_EQ(sensor.receive(), node_leave("2"));
}

TEST_F(LibwlSend, NoticesAQueueThatWasRemovedAndMadeAnew) {
    const peer before("/sensord");
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "1", 1), 1);
    mq_unlink("/sensord");
    const peer after("/sensord");
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "2", 1), 1);
    EXPECT_EQ(after.receive(), node_leave("2"));
    EXPECT_EQ(before.receive(), node_leave("1"));
    EXPECT_EQ(before.receive(), "(none)");
}

TEST_F(LibwlSend, ARemovedQueueIsNoDelivery) {
    const peer sensor("/sensord");
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "1", 1), 1);
    mq_unlink("/sensord");
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "2", 1), -1);
    EXPECT_EQ(new_send_failures(), 0);
}

TEST_F(LibwlSend, LooksForAbsentQueuesAgainOnlyWhenAQueueWasMadeOrRemoved) {
    if (access("/dev/mqueue", R_OK) != 0)
        GTEST_SKIP() << "the kernel does not show its queues here";
    const peer sensor("/sensord");
    record_opens = true;
    for (int i = 0; i < 5000 && (i == 0 || !opened.empty()); i++) {  // changes are stamped with whole seconds
        opened.clear();
        usleep(1000);
        ASSERT_EQ(wl_send_evt(VRE_NODE_LEAVE, "x", 1), 1);
        ASSERT_EQ(sensor.receive(), node_leave("x"));
    }
    EXPECT_TRUE(opened.empty());
    const peer hostapd("/hostapd");
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "y", 1), 2);
    EXPECT_EQ(hostapd.receive(), node_leave("y"));
    mq_unlink("/sensord");
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "z", 1), 1);
    EXPECT_EQ(hostapd.receive(), node_leave("z"));
}

TEST_F(LibwlSend, TheOwnQueueIsFoundWhenItGetsAHandlerAfterwards) {
    const peer sensor("/sensord");
    sleep(2);  // until the directory of queues has a stamp of its own
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "x", 1), 1);
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "x", 1), 1);
    ASSERT_EQ(wl_register_handler(VRE_NODE_LEAVE, ignore), 0);
    EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "x", 1), 2);
    EXPECT_EQ(messages_in_own_queue(), 1);
}

TEST_F(LibwlSend, WhatSeveralThreadsSendArrivesOrIsCounted) {
    constexpr int THREADS = 4;
    constexpr int SENDS = 300;
    const peer sensor("/sensord", 8);
    ASSERT_EQ(wl_register_handler(VRE_NODE_LEAVE, ignore), 0);
    std::atomic<int> running = THREADS;
    std::atomic<int> taken = 0;
    std::vector<std::thread> senders;
    for (int i = 0; i < THREADS; i++) {
        senders.emplace_back([&] {
            for (int n = 0; n < SENDS; n++)
                taken += std::max(wl_send_evt(VRE_NODE_LEAVE, "payload", 7), 0);
            running--;
        });
    }
    int received = 0;
    while (running > 0) {  // meanwhile the main thread binds and reads as it may
        (void)wl_register_handler(VRE_BW_SET, ignore);
        EXPECT_EQ(handle_wl_evt(), 0);
        for (std::string message; (message = sensor.receive()) != "(none)"; received++)
            EXPECT_EQ(message, node_leave("payload"));
    }
    for (std::thread &sender : senders)
        sender.join();
    while (sensor.receive() != "(none)")
        received++;
    EXPECT_EQ(taken + new_send_failures(), 2 * THREADS * SENDS);
    EXPECT_GT(received, 0);
    EXPECT_LE(received, taken);
}

TEST_F(LibwlSend, AThreadMaySendWhileTheMainThreadRegistersAnew) {
    const peer sensor("/sensord", 8);
    std::atomic<bool> done = false;
    std::thread sender([&] {
        while (!done)
            wl_send_evt(VRE_NODE_LEAVE, "payload", 7);
    });
    for (int i = 0; i < 50; i++)
        EXPECT_GE(
            wl_mq_register_and_init(WL_MQ_WL_HANDLER_KEY, [] { return wl_register_handler(VRE_NODE_LEAVE, ignore); }),
            0);
    done = true;
    sender.join();
}

}  // namespace
