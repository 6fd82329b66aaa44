#include "libwl.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <mqueue.h>
#include <string>
#include <sys/select.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "debug_log.h"
#include "fault.h"
#include "log_capture.h"
#include "wl_common.h"
#include "wl_evt_register.h"

extern "C" {
mqd_t __real_mq_open(const char *name, int flags, mode_t mode, mq_attr *attributes);
int __real_wl_register_handler(vre_iw_cmd_t event, wl_evt_handler_t handler);
}

namespace {

const char *const OWN_QUEUE = "/wl_evt_handler";

/// What the kernel is made to say to the attempts at opening a queue: an `errno` value each, 0 for the kernel's own
/// answer. Attempts beyond the list get the last one.
std::vector<int> open_answers;
std::vector<long> depths_tried;  // of the attempts that would create the queue
std::function<void()> before_failed_open;

/// While set, wl_register_handler binds a recorder instead of the given handler, numbered from 1 on.
bool record_registrations;
int registrations;

struct delivery {
    int binding;
    int event;
    std::string payload;
    bool padded;  // by 64 zero bytes

    bool operator==(const delivery &) const = default;
};

std::vector<delivery> deliveries;
std::function<void(char *payload, int length)> in_handler;

template <int Binding> void record(vre_iw_cmd_t event, void *buf, int len) {
    auto *const payload = static_cast<char *>(buf);
    const auto length = static_cast<size_t>(len);
    const std::string padding(payload + length, 64);
    deliveries.push_back({Binding, event, std::string(payload, length), padding == std::string(64, '\0')});
    if (in_handler)
        in_handler(payload, len);
}

template <int... Bindings> constexpr auto make_recorders(std::integer_sequence<int, Bindings...>) {
    return std::array<wl_evt_handler_t, sizeof...(Bindings)>{record<Bindings>...};
}
constexpr auto RECORDERS = make_recorders(std::make_integer_sequence<int, 40>());

/// The block of the message whose release is waited for, and whether its bytes were all zero then.
const char *watched_message;
bool released, released_clear;

}  // namespace

extern "C" void __real_free(void *block);
extern "C" void __wrap_free(void *block) {
    if (block != nullptr && block == watched_message) {
        released = true;
        released_clear = std::all_of(watched_message, watched_message + 2048 + 64, [](char byte) { return byte == 0; });
        watched_message = nullptr;
    }
    __real_free(block);
}

extern "C" mqd_t __wrap_mq_open(const char *name, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    mq_attr *const attributes = (flags & O_CREAT) != 0 ? va_arg(arguments, mq_attr *) : nullptr;
    va_end(arguments);
    if (attributes != nullptr)
        depths_tried.push_back(attributes->mq_maxmsg);
    int answer = 0;
    if (!open_answers.empty()) {
        answer = open_answers.front();
        if (open_answers.size() > 1)
            open_answers.erase(open_answers.begin());
    }
    if (answer == 0)
        return __real_mq_open(name, flags, mode, attributes);
    if (before_failed_open)
        before_failed_open();
    errno = answer;
    return -1;
}

extern "C" int __wrap_wl_register_handler(vre_iw_cmd_t event, wl_evt_handler_t handler) {
    if (record_registrations)
        handler = RECORDERS[static_cast<size_t>(++registrations)];
    return __real_wl_register_handler(event, handler);
}

namespace {

class Libwl : public testing::Test {
protected:
    void SetUp() override {
        clear_faults();
        open_answers.clear();
        depths_tried.clear();
        before_failed_open = nullptr;
        deliveries.clear();
        in_handler = nullptr;
        record_registrations = false;
        registrations = 0;
        for (const auto &name : p_mq_name)
            mq_unlink(name);
        failures_before_ = receive_failures();
    }

    void TearDown() override {
        clear_faults();
    }

    /// Creates the own queue before the library does.
    static void make_queue(long depth, long message_size) {
        mq_attr sizes{};
        sizes.mq_maxmsg = depth;
        sizes.mq_msgsize = message_size;
        const mqd_t queue = __real_mq_open(OWN_QUEUE, O_RDWR | O_CREAT | O_EXCL, 0777, &sizes);
        ASSERT_GE(queue, 0);
        mq_close(queue);
    }

    static mq_attr attributes_of(mqd_t queue) {
        mq_attr attributes{};
        EXPECT_EQ(mq_getattr(queue, &attributes), 0);
        return attributes;
    }

    /// Puts bytes on the own queue as another process would.
    static void post(const std::string &message) {
        const mqd_t queue = __real_mq_open(OWN_QUEUE, O_WRONLY | O_NONBLOCK, 0, nullptr);
        ASSERT_EQ(mq_send(queue, message.data(), message.size(), 0), 0);
        mq_close(queue);
    }

    /// The message of an event.
    static std::string event(const char *name, const std::string &payload = "") {
        return name + std::string(1, '\0') + payload;
    }

    static int receive(const std::string &message) {
        post(message);
        return handle_wl_evt();
    }

    static int receive_failures() {
        mq_failure_statistics statistics;
        get_mq_failure_statistics(&statistics);
        return statistics.recv_failure_count;
    }

    int new_receive_failures() const {
        return receive_failures() - failures_before_;
    }

    static std::vector<int> bindings_called() {
        std::vector<int> called;
        for (const delivery &one : deliveries)
            called.push_back(one.binding);
        return called;
    }

    static int lowest_free_descriptor() {
        const int descriptor = dup(STDOUT_FILENO);
        close(descriptor);
        return descriptor;
    }

    int failures_before_ = 0;
};

int register_own(int (*register_callback)()) {
    return wl_mq_register_and_init(WL_MQ_WL_HANDLER_KEY, register_callback);
}

int bind_nothing() {
    return 0;
}

int bind_1_to_node_leave() {
    return wl_register_handler(VRE_NODE_LEAVE, record<1>);
}

int bind_2_to_node_leave() {
    return wl_register_handler(VRE_NODE_LEAVE, record<2>);
}

int bind_1_and_2_to_node_leave() {
    return wl_register_handler(VRE_NODE_LEAVE, record<1>) + wl_register_handler(VRE_NODE_LEAVE, record<2>);
}

int bind_1_to_all() {
    return wl_register_handler(VRE_ALL, record<1>);
}

int bind_1_to_traffic_group() {
    return wl_register_handler(VRE_TARGET_AP_TRAFFIC_TEST, record<1>);
}

using LibwlRegistration = Libwl;

TEST_F(LibwlRegistration, ReturnsAReadableDescriptorOfTheOwnQueue) {
    const int queue = register_own(bind_nothing);
    ASSERT_GE(queue, 0);
    EXPECT_EQ(attributes_of(queue).mq_msgsize, 2048);
    EXPECT_EQ(fcntl(queue, F_GETFL) & (O_NONBLOCK | O_ACCMODE), O_NONBLOCK | O_RDWR);
    EXPECT_EQ(fcntl(queue, F_GETFD), FD_CLOEXEC);
    post(event("VRE.node_leave"));
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(queue, &readable);
    timeval no_wait{};
    EXPECT_EQ(select(queue + 1, &readable, nullptr, nullptr, &no_wait), 1);
}

TEST_F(LibwlRegistration, OpensTheQueueOfTheGivenKey) {
    ASSERT_GE(wl_mq_register_and_init(WL_MQ_SENSORD_KEY, bind_nothing), 0);
    EXPECT_EQ(mq_unlink("/sensord"), 0);
    EXPECT_EQ(mq_unlink(OWN_QUEUE), -1);
}

TEST_F(LibwlRegistration, TakesTheGreatestHalvedDepthThatTheKernelAllows) {
    mqd_t trial = -1;
    long expected = 1024;
    mq_attr sizes{};
    sizes.mq_msgsize = 2048;
    while (trial < 0 && expected > 8) {
        expected /= 2;
        sizes.mq_maxmsg = expected;
        trial = __real_mq_open("/libwl_test_trial", O_RDWR | O_CREAT, 0777, &sizes);
    }
    ASSERT_GE(trial, 0);
    mq_close(trial);
    mq_unlink("/libwl_test_trial");
    const int queue = register_own(bind_nothing);
    ASSERT_GE(queue, 0);
    EXPECT_EQ(attributes_of(queue).mq_maxmsg, expected);
}

TEST_F(LibwlRegistration, SaysInOneLineWhatDepthItGot) {
    log_capture log;
    open_answers = {EINVAL, EMFILE, ENOMEM, EINVAL, EINVAL, EINVAL, 0};
    ASSERT_GE(register_own(bind_nothing), 0);
    EXPECT_EQ(depths_tried, (std::vector<long>{512, 256, 128, 64, 32, 16, 8}));
    EXPECT_EQ(log.lines().back(), "wl_mq_register_and_init: queue /wl_evt_handler holds 8 messages instead of 512");
    EXPECT_EQ(log.lines().size(), 2u);
}

TEST_F(LibwlRegistration, SaysNothingOfTheDepthBelowLevelSix) {
    log_capture log;
    debug = 5;
    open_answers = {EINVAL, EINVAL, EINVAL, EINVAL, EINVAL, EINVAL, 0};
    ASSERT_GE(register_own(bind_nothing), 0);
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(LibwlRegistration, SaysNothingWhenTheDocumentedDepthIsThere) {
    log_capture log;
    make_queue(4, 2048);
    ASSERT_GE(register_own(bind_nothing), 0);
    EXPECT_TRUE(log.lines().empty());
}

class LibwlRefusedDepth : public Libwl, public testing::WithParamInterface<int> {};

TEST_P(LibwlRefusedDepth, IsHalvedDownToEight) {
    log_capture log;
    open_answers = {GetParam()};
    errno = 0;
    EXPECT_EQ(register_own(bind_nothing), -1);
    EXPECT_EQ(errno, GetParam());
    EXPECT_EQ(depths_tried, (std::vector<long>{512, 256, 128, 64, 32, 16, 8}));
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{"create_posix_mq: mq_open error: " + std::string(strerror(GetParam()))});
}

INSTANTIATE_TEST_SUITE_P(Errors, LibwlRefusedDepth, testing::Values(EINVAL, EMFILE, ENOMEM));

class LibwlRefusedQueue : public Libwl, public testing::WithParamInterface<int> {};

TEST_P(LibwlRefusedQueue, IsGivenUpAtOnce) {
    open_answers = {GetParam()};
    errno = 0;
    EXPECT_EQ(register_own(bind_nothing), -1);
    EXPECT_EQ(errno, GetParam());
    EXPECT_EQ(depths_tried, std::vector<long>{512});
}

INSTANTIATE_TEST_SUITE_P(Errors, LibwlRefusedQueue, testing::Values(EACCES, ENFILE, ENOSPC, ENOSYS, EPERM));

TEST_F(LibwlRegistration, StopsHalvingAtAnotherError) {
    open_answers = {EINVAL, EINVAL, ENOSPC};
    EXPECT_EQ(register_own(bind_nothing), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(depths_tried, (std::vector<long>{512, 256, 128}));
}

TEST_F(LibwlRegistration, StartsFromTheDepthDocumentedForTheKey) {
    open_answers = {EINVAL};
    EXPECT_EQ(wl_mq_register_and_init(WL_MQ_HOSTAPD_KEY, bind_nothing), -1);
    EXPECT_EQ(depths_tried, (std::vector<long>{256, 128, 64, 32, 16, 8}));
}

TEST_F(LibwlRegistration, ReportsTheErrorOfAnExistingQueueThatCannotBeOpened) {
    open_answers = {EEXIST, EACCES};
    errno = 0;
    EXPECT_EQ(register_own(bind_nothing), -1);
    EXPECT_EQ(errno, EACCES);
}

TEST_F(LibwlRegistration, TakesAQueueThatAppearsWhileItHalvesTheDepth) {
    open_answers = {EINVAL, EEXIST, 0};
    before_failed_open = [] {
        if (depths_tried.back() == 256)
            make_queue(3, 2048);
    };
    const int queue = register_own(bind_nothing);
    ASSERT_GE(queue, 0);
    EXPECT_EQ(attributes_of(queue).mq_maxmsg, 3);
    EXPECT_EQ(fcntl(queue, F_GETFL) & (O_NONBLOCK | O_ACCMODE), O_NONBLOCK | O_RDWR);
}

TEST_F(LibwlRegistration, LogsTheTrueDepthOfAQueueThatAppears) {
    log_capture log;
    open_answers = {EINVAL, EEXIST, 0};
    before_failed_open = [] {
        if (depths_tried.back() == 256)
            make_queue(3, 2048);
    };
    ASSERT_GE(register_own(bind_nothing), 0);
    EXPECT_EQ(log.lines().back(), "wl_mq_register_and_init: queue /wl_evt_handler holds 3 messages instead of 512");
}

TEST_F(LibwlRegistration, KeyWithoutAQueueIsRefused) {
    EXPECT_EQ(wl_mq_register_and_init(WL_MQ_START, bind_nothing), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(LibwlRegistration, CallsTheRegistrationFunctionAfterTheQueueIsOpen) {
    static bool existed;
    existed = false;
    ASSERT_GE(register_own([] {
                  existed = __real_mq_open(OWN_QUEUE, O_RDONLY, 0, nullptr) >= 0;
                  return 0;
              }),
              0);
    EXPECT_TRUE(existed);
}

TEST_F(LibwlRegistration, IgnoresTheResultOfTheRegistrationFunction) {
    EXPECT_GE(register_own([] { return -1; }), 0);
}

TEST_F(LibwlRegistration, DoesNotCallTheRegistrationFunctionWithoutAQueue) {
    static bool called;
    called = false;
    open_answers = {EACCES};
    EXPECT_EQ(register_own([] {
                  called = true;
                  return 0;
              }),
              -1);
    EXPECT_FALSE(called);
}

TEST_F(LibwlRegistration, ReportsAFailedAllocationAndClosesTheQueue) {
    const int before = lowest_free_descriptor();
    fail_nth_call("calloc", 1);
    errno = 0;
    EXPECT_EQ(register_own(bind_nothing), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(faults_fired("calloc"), 1);
    EXPECT_EQ(lowest_free_descriptor(), before);
}

TEST_F(LibwlRegistration, ReportsAQueueWithoutAttributesAndClosesIt) {
    const int before = lowest_free_descriptor();
    make_queue(4, 2048);
    fail_nth_call("mq_getattr", 1, EIO);
    errno = 0;
    EXPECT_EQ(register_own(bind_nothing), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(lowest_free_descriptor(), before);
}

TEST_F(LibwlRegistration, ClosesThePreviousDescriptorSoThatItsNumberComesBack) {
    const int first = register_own(bind_nothing);
    const int free = lowest_free_descriptor();
    EXPECT_EQ(register_own(bind_nothing), first);
    EXPECT_EQ(lowest_free_descriptor(), free);
}

TEST_F(LibwlRegistration, EmptiesTheBindingTable) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    EXPECT_EQ(receive(event("VRE.node_leave")), 0);
    EXPECT_EQ(bindings_called(), std::vector<int>{1});
}

TEST_F(LibwlRegistration, EmptiesTheBindingTableAlsoWhenItFails) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    open_answers = {EACCES};
    EXPECT_EQ(register_own(bind_2_to_node_leave), -1);
    open_answers.clear();
    ASSERT_GE(register_own(bind_nothing), 0);
    EXPECT_EQ(receive(event("VRE.node_leave")), 0);
    EXPECT_TRUE(deliveries.empty());
}

using LibwlBinding = Libwl;

TEST_F(LibwlBinding, RefusesIndicesOutsideTheTable) {
    ASSERT_GE(register_own(bind_nothing), 0);
    EXPECT_EQ(wl_register_handler(static_cast<vre_iw_cmd_t>(-1), record<1>), -1);
    EXPECT_EQ(wl_register_handler(static_cast<vre_iw_cmd_t>(109), record<1>), -1);
    EXPECT_EQ(wl_register_handler(static_cast<vre_iw_cmd_t>(0), record<1>), 0);
    EXPECT_EQ(wl_register_handler(static_cast<vre_iw_cmd_t>(108), record<1>), 0);
}

TEST_F(LibwlBinding, RefusesANullHandler) {
    ASSERT_GE(register_own(bind_nothing), 0);
    EXPECT_EQ(wl_register_handler(VRE_NODE_LEAVE, nullptr), -1);
}

TEST_F(LibwlBinding, TakesA128thAndRefusesA129th) {
    ASSERT_GE(register_own(bind_nothing), 0);
    for (int i = 0; i < 128; i++)
        ASSERT_EQ(wl_register_handler(VRE_NODE_LEAVE, record<1>), 0);
    EXPECT_EQ(wl_register_handler(VRE_NODE_LEAVE, record<1>), -1);
    EXPECT_EQ(receive(event("VRE.node_leave")), 0);
    EXPECT_EQ(deliveries.size(), 128u);
}

using LibwlOrder = Libwl;

int bind_recorders_as_the_daemon_binds() {
    record_registrations = true;
    const int result = wl_evt_register_events();
    record_registrations = false;
    return result;
}

TEST_F(LibwlOrder, EveryEventReachesTheDaemonsBindingsInTheirOrder) {
    // Of the daemon's 31 bindings, the 17th and the 18th are of index 66 and the 28th of the group 95.
    const std::map<int, std::vector<int>> expected = {
        {14, {1, 2, 17, 18, 30}}, {17, {3, 4, 17, 18, 29}}, {24, {5, 17, 18}},  {25, {6, 17, 18}},  {26, {7, 17, 18}},
        {40, {8, 17, 18}},        {50, {9, 17, 18}},        {84, {10, 17, 18}}, {81, {11, 17, 18}}, {82, {12, 17, 18}},
        {78, {13, 17, 18}},       {59, {14, 17, 18}},       {65, {15, 17, 18}}, {83, {16, 17, 18}}, {105, {17, 18, 19}},
        {106, {17, 18, 20}},      {96, {17, 18, 21}},       {97, {17, 18, 22}}, {98, {17, 18, 23}}, {99, {17, 18, 24}},
        {101, {17, 18, 25}},      {102, {17, 18, 26}},      {32, {17, 18, 27}}, {93, {17, 18, 28}}, {94, {17, 18, 28}},
        {95, {17, 18, 28}},       {43, {17, 18, 31}},
    };
    ASSERT_GE(register_own(bind_recorders_as_the_daemon_binds), 0);
    ASSERT_EQ(registrations, 31);
    for (int index = 0; index < VRE_MAX_EVT; index++) {
        if (wl_events[index] == nullptr)
            continue;
        deliveries.clear();
        ASSERT_EQ(receive(event(wl_events[index], "payload")), 0);
        const auto listed = expected.find(index);
        EXPECT_EQ(bindings_called(), listed == expected.end() ? (std::vector<int>{17, 18}) : listed->second) << index;
        for (const delivery &one : deliveries)
            EXPECT_EQ(one, (delivery{one.binding, index, "payload", true}));
    }
}

TEST_F(LibwlOrder, TheGroupOfAllEventsKeepsItsOwnPlace) {
    ASSERT_GE(register_own([] {
                  return wl_register_handler(VRE_NODE_LEAVE, record<1>) + wl_register_handler(VRE_ALL, record<2>) +
                         wl_register_handler(VRE_NODE_LEAVE, record<3>);
              }),
              0);
    EXPECT_EQ(receive(event("VRE.node_leave")), 0);
    EXPECT_EQ(bindings_called(), (std::vector<int>{1, 2, 3}));
}

TEST_F(LibwlOrder, TheTrafficGroupReceivesItsThreeEventsUnderTheirOwnIndices) {
    ASSERT_GE(register_own(bind_1_to_traffic_group), 0);
    EXPECT_EQ(receive(event("VRE.Target.AP.Traffic.details")), 0);
    EXPECT_EQ(receive(event("VRE.Target.AP.Traffic.PID")), 0);
    EXPECT_EQ(receive(event("VRE.Target.AP.Traffic.test")), 0);
    EXPECT_EQ(receive(event("VRE.ssid_profile_update")), 0);
    EXPECT_EQ(deliveries, (std::vector<delivery>{{1, 93, "", true}, {1, 94, "", true}, {1, 95, "", true}}));
}

TEST_F(LibwlOrder, AMemberOfTheTrafficGroupIsNoGroupItself) {
    ASSERT_GE(register_own([] { return wl_register_handler(VRE_TARGET_AP_TRAFFIC_TEST_INFO, record<1>); }), 0);
    EXPECT_EQ(receive(event("VRE.Target.AP.Traffic.PID")), 0);
    EXPECT_EQ(receive(event("VRE.Target.AP.Traffic.test")), 0);
    EXPECT_TRUE(deliveries.empty());
}

using LibwlMessage = Libwl;

TEST_F(LibwlMessage, OneCallHandlesOneMessage) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    post(event("VRE.node_leave", "first"));
    post(event("VRE.node_leave", "second"));
    EXPECT_EQ(handle_wl_evt(), 0);
    EXPECT_EQ(deliveries, (std::vector<delivery>{{1, 14, "first", true}}));
    EXPECT_EQ(handle_wl_evt(), 0);
    EXPECT_EQ(deliveries, (std::vector<delivery>{{1, 14, "first", true}, {1, 14, "second", true}}));
}

TEST_F(LibwlMessage, HandsOutBytesOfAnyValue) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    const std::string payload("\0\xff\0VRE.bw.set\0", 14);
    EXPECT_EQ(receive(event("VRE.node_leave", payload)), 0);
    EXPECT_EQ(deliveries, (std::vector<delivery>{{1, 14, payload, true}}));
}

TEST_F(LibwlMessage, HandsOutAnEmptyPayload) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    EXPECT_EQ(receive(event("VRE.node_leave")), 0);
    EXPECT_EQ(deliveries, (std::vector<delivery>{{1, 14, "", true}}));
}

TEST_F(LibwlMessage, HandsOutAPayloadThatFillsTheQueuesSize) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    const std::string payload(2048 - sizeof "VRE.node_leave", 'x');
    EXPECT_EQ(receive(event("VRE.node_leave", payload)), 0);
    EXPECT_EQ(deliveries, (std::vector<delivery>{{1, 14, payload, true}}));
}

TEST_F(LibwlMessage, ReadsFromAnExistingQueueThatIsWider) {
    make_queue(2, 4096);
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    const std::string payload(4096 - sizeof "VRE.node_leave", 'x');
    EXPECT_EQ(receive(event("VRE.node_leave", payload)), 0);
    EXPECT_EQ(deliveries, (std::vector<delivery>{{1, 14, payload, true}}));
}

TEST_F(LibwlMessage, AfterALongMessageAShortOneIsPaddedWithZeros) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    EXPECT_EQ(receive(event("VRE.node_leave", std::string(2000, 'x'))), 0);
    EXPECT_EQ(receive(event("VRE.node_leave", "short")), 0);
    EXPECT_EQ(deliveries.back(), (delivery{1, 14, "short", true}));
}

TEST_F(LibwlMessage, EverythingBehindAShortMessageIsZeroAgain) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    EXPECT_EQ(receive(event("VRE.node_leave", std::string(2000, 'x'))), 0);
    std::string behind;
    in_handler = [&behind](const char *payload, int length) { behind.assign(payload + length, 1900); };
    EXPECT_EQ(receive(event("VRE.node_leave")), 0);
    EXPECT_EQ(behind, std::string(1900, '\0'));
}

TEST_F(LibwlMessage, WhatAHandlerWroteBehindThePayloadIsGoneWithTheNextMessage) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    in_handler = [](char *payload, int length) { std::memset(payload, 'w', static_cast<size_t>(length) + 64); };
    EXPECT_EQ(receive(event("VRE.node_leave", "12345")), 0);
    EXPECT_EQ(receive(event("VRE.node_leave", "123")), 0);
    EXPECT_EQ(receive(event("VRE.node_leave", std::string(2000, 'x'))), 0);
    EXPECT_EQ(receive(event("VRE.node_leave", std::string(1990, 'x'))), 0);
    for (const delivery &one : deliveries)
        EXPECT_TRUE(one.padded) << one.payload.size();
}

TEST_F(LibwlMessage, ADroppedMessageLeavesNothingBehind) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    EXPECT_EQ(receive(std::string(2048, 'x')), 0);
    EXPECT_EQ(receive(event("VRE.node_leave")), 0);
    EXPECT_EQ(deliveries, (std::vector<delivery>{{1, 14, "", true}}));
}

class LibwlDropped : public Libwl, public testing::WithParamInterface<std::string> {};

TEST_P(LibwlDropped, ReachesNoHandlerAndCountsAsAReceiveFailure) {
    ASSERT_GE(register_own(bind_1_to_all), 0);
    EXPECT_EQ(receive(GetParam()), 0);
    EXPECT_TRUE(deliveries.empty());
    EXPECT_EQ(new_receive_failures(), 1);
}

INSTANTIATE_TEST_SUITE_P(Messages, LibwlDropped,
                         testing::Values("", std::string(1, '\0'), "VRE.node_leave", std::string(2048, 'x'),
                                         std::string("VRE.unknown\0payload", 19), std::string("VRE.max_evt\0", 12),
                                         std::string("vre.node_leave\0", 15), std::string("VRE.node_leav\0", 14),
                                         std::string("VRE.node_leave \0", 16)));

TEST_F(LibwlMessage, AHandledMessageCountsAsNoFailure) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    EXPECT_EQ(receive(event("VRE.node_leave")), 0);
    EXPECT_EQ(receive(event("VRE.bw.set")), 0);  // no handler
    EXPECT_EQ(new_receive_failures(), 0);
}

using LibwlRead = Libwl;

TEST_F(LibwlRead, AnEmptyQueueIsNotGone) {
    ASSERT_GE(register_own(bind_nothing), 0);
    EXPECT_EQ(handle_wl_evt(), 0);
    EXPECT_EQ(new_receive_failures(), 0);
}

TEST_F(LibwlRead, AnInterruptedReadIsNotGone) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    post(event("VRE.node_leave"));
    fail_nth_call("mq_receive", 1, EINTR);
    EXPECT_EQ(handle_wl_evt(), 0);
    EXPECT_TRUE(deliveries.empty());
    EXPECT_EQ(new_receive_failures(), 0);
    EXPECT_EQ(handle_wl_evt(), 0);
    EXPECT_EQ(bindings_called(), std::vector<int>{1});
}

class LibwlFailedRead : public Libwl, public testing::WithParamInterface<int> {};

TEST_P(LibwlFailedRead, IsExactlyMinusOneAndCounts) {
    ASSERT_GE(register_own(bind_nothing), 0);
    fail_nth_call("mq_receive", 1, GetParam());
    EXPECT_EQ(handle_wl_evt(), -1);
    EXPECT_EQ(new_receive_failures(), 1);
}

INSTANTIATE_TEST_SUITE_P(Errors, LibwlFailedRead, testing::Values(EBADF, EMSGSIZE, EINVAL, ENOMEM, EIO));

TEST_F(LibwlRead, AClosedQueueIsGone) {
    mq_close(register_own(bind_nothing));
    EXPECT_EQ(handle_wl_evt(), -1);
    EXPECT_EQ(handle_wl_evt(), -1);
    EXPECT_EQ(new_receive_failures(), 2);
}

TEST_F(LibwlRead, AfterTheQueueIsGoneARegistrationRestoresIt) {
    mq_close(register_own(bind_1_to_node_leave));
    EXPECT_EQ(handle_wl_evt(), -1);
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    EXPECT_EQ(receive(event("VRE.node_leave", "again")), 0);
    EXPECT_EQ(deliveries, (std::vector<delivery>{{1, 14, "again", true}}));
}

TEST_F(LibwlRead, AFileThatTookTheNumberOfAClosedQueueStaysOpen) {
    const int number = register_own(bind_nothing);
    mq_close(number);
    ASSERT_EQ(dup2(STDOUT_FILENO, number), number);
    EXPECT_EQ(handle_wl_evt(), -1);
    EXPECT_NE(register_own(bind_nothing), number);
    close(number);
}

TEST_F(LibwlRead, WithoutARegisteredQueueThereIsNoneToRead) {
    open_answers = {EACCES};
    EXPECT_EQ(register_own(bind_nothing), -1);
    EXPECT_EQ(handle_wl_evt(), -1);
    EXPECT_EQ(new_receive_failures(), 0);
}

using LibwlHandler = Libwl;

TEST_F(LibwlHandler, BindingAHandlerCountsFromTheNextMessage) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    in_handler = [](char *, int) {
        in_handler = nullptr;
        EXPECT_EQ(bind_2_to_node_leave(), 0);
    };
    EXPECT_EQ(receive(event("VRE.node_leave")), 0);
    EXPECT_EQ(bindings_called(), std::vector<int>{1});
    EXPECT_EQ(receive(event("VRE.node_leave")), 0);
    EXPECT_EQ(bindings_called(), (std::vector<int>{1, 1, 2}));
}

TEST_F(LibwlHandler, RegisteringAnewLeavesTheMessageToThoseItCameFor) {
    ASSERT_GE(register_own(bind_1_and_2_to_node_leave), 0);
    in_handler = [](char *, int) {
        in_handler = nullptr;
        EXPECT_GE(register_own(bind_2_to_node_leave), 0);
    };
    EXPECT_EQ(receive(event("VRE.node_leave", "payload")), 0);
    EXPECT_EQ(deliveries, (std::vector<delivery>{{1, 14, "payload", true}, {2, 14, "payload", true}}));
}

TEST_F(LibwlHandler, RegisteringAnewTakesEffectWithTheNextMessage) {
    ASSERT_GE(register_own(bind_1_and_2_to_node_leave), 0);
    in_handler = [](char *, int) {
        in_handler = nullptr;
        EXPECT_GE(register_own(bind_2_to_node_leave), 0);
    };
    EXPECT_EQ(receive(event("VRE.node_leave")), 0);
    deliveries.clear();
    EXPECT_EQ(receive(event("VRE.node_leave", "next")), 0);
    EXPECT_EQ(deliveries, (std::vector<delivery>{{2, 14, "next", true}}));
}

TEST_F(LibwlHandler, RegisteringAnewOnAWiderQueueReadsItsMessages) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    in_handler = [](char *, int) {
        in_handler = nullptr;
        mq_unlink(OWN_QUEUE);
        make_queue(2, 4096);
        EXPECT_GE(register_own(bind_1_to_node_leave), 0);
    };
    EXPECT_EQ(receive(event("VRE.node_leave")), 0);
    const std::string payload(4096 - sizeof "VRE.node_leave", 'x');
    EXPECT_EQ(receive(event("VRE.node_leave", payload)), 0);
    EXPECT_EQ(deliveries.back(), (delivery{1, 14, payload, true}));
}

TEST_F(LibwlHandler, RegisteringAnewReleasesTheMessageCleared) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    released = released_clear = false;
    in_handler = [](char *payload, int) {
        in_handler = nullptr;
        watched_message = payload - sizeof "VRE.node_leave";
        EXPECT_GE(register_own(bind_1_to_node_leave), 0);
        EXPECT_FALSE(released);
    };
    EXPECT_EQ(receive(event("VRE.node_leave", std::string(2000, 'x'))), 0);
    EXPECT_TRUE(released);
    EXPECT_TRUE(released_clear);
}

TEST_F(LibwlHandler, RegisteringAnewInVainLeavesNoQueue) {
    ASSERT_GE(register_own(bind_1_and_2_to_node_leave), 0);
    in_handler = [](char *, int) {
        open_answers = {EACCES};
        EXPECT_EQ(register_own(bind_1_to_node_leave), -1);
    };
    EXPECT_EQ(receive(event("VRE.node_leave", "payload")), 0);
    EXPECT_EQ(deliveries, (std::vector<delivery>{{1, 14, "payload", true}, {2, 14, "payload", true}}));
    EXPECT_EQ(handle_wl_evt(), -1);
}

TEST_F(LibwlHandler, MaySendToItsOwnQueue) {
    ASSERT_GE(register_own(bind_1_to_node_leave), 0);
    in_handler = [](char *, int) {
        in_handler = nullptr;
        EXPECT_EQ(wl_send_evt(VRE_NODE_LEAVE, "sent", 4), 1);
    };
    EXPECT_EQ(receive(event("VRE.node_leave", "first")), 0);
    EXPECT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(handle_wl_evt(), 0);
    EXPECT_EQ(deliveries, (std::vector<delivery>{{1, 14, "first", true}, {1, 14, "sent", true}}));
}

}  // namespace
