#include "valtrix_socklib.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <net/ethernet.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "fault.h"
#include "fault_point.h"
#include "valtrix_socklib_expect.h"

namespace {

/// A bind, or an option that was set.
struct call {
    int level;
    int option;
    bool operator==(const call &) const = default;
};
constexpr call BIND{-1, -1};

/// What the library asked of its sockets, in order.
std::vector<call> calls;

/// Runs just before a socket is bound when set.
std::function<void()> before_bind;

/// IP_MULTICAST_IF by socket: the emulator of the other machines has this option neither to set nor to get.
std::map<int, in_addr> outgoing_interfaces;

bool is_unknown_to_emulator(int result, int level, int option) {
    return result < 0 && errno == ENOPROTOOPT && level == IPPROTO_IP && option == IP_MULTICAST_IF;
}

}  // namespace

extern "C" int __real_setsockopt(int fd, int level, int option, const void *value, socklen_t size);
extern "C" int __wrap_setsockopt(int fd, int level, int option, const void *value, socklen_t size) {
    calls.push_back({level, option});
    if (fault_is_due("setsockopt"))
        return -1;
    const int result = __real_setsockopt(fd, level, option, value, size);
    if (!is_unknown_to_emulator(result, level, option))
        return result;
    EXPECT_EQ(size, sizeof(in_addr));
    std::memcpy(&outgoing_interfaces[fd], value, sizeof(in_addr));
    return 0;
}

extern "C" int __real_getsockopt(int fd, int level, int option, void *value, socklen_t *size);
extern "C" int __wrap_getsockopt(int fd, int level, int option, void *value, socklen_t *size) {
    const int result = __real_getsockopt(fd, level, option, value, size);
    if (!is_unknown_to_emulator(result, level, option))
        return result;
    std::memcpy(value, &outgoing_interfaces[fd], sizeof(in_addr));
    return 0;
}

extern "C" int __real_bind(int fd, const sockaddr *address, socklen_t length);
extern "C" int __wrap_bind(int fd, const sockaddr *address, socklen_t length) {
    calls.push_back(BIND);
    if (before_bind)
        before_bind();
    return fault_is_due("bind") ? -1 : __real_bind(fd, address, length);
}

namespace {

// The digits of this group are the same in either byte order, and so in the kernel's listing on every machine.
constexpr char GROUP[] = "239.1.1.239";
constexpr char GROUP_LISTED[] = "EF0101EF";
constexpr char NOT_OF_THIS_MACHINE[] = "192.0.2.1";

socklib_inet_addr ipv4(const char *text) {
    socklib_inet_addr address{};
    address.family = AF_INET;
    EXPECT_EQ(inet_pton(AF_INET, text, &address.address.ipv4), 1);
    return address;
}

socklib_inet_addr ipv6(const char *text) {
    socklib_inet_addr address{};
    address.family = AF_INET6;
    EXPECT_EQ(inet_pton(AF_INET6, text, &address.address.ipv6), 1);
    return address;
}

int option_of(int sock, int level, int option) {
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(getsockopt(sock, level, option, &value, &size), 0);
    return value;
}

std::string outgoing_interface_of(int sock) {
    in_addr value{};
    socklen_t size = sizeof value;
    EXPECT_EQ(getsockopt(sock, IPPROTO_IP, IP_MULTICAST_IF, &value, &size), 0);
    return inet_ntoa(value);
}

/// "<address>:<port>" to which an IPv4 socket is bound.
std::string bound_to(int sock) {
    sockaddr_in name{};
    socklen_t size = sizeof name;
    EXPECT_EQ(getsockname(sock, reinterpret_cast<sockaddr *>(&name), &size), 0);
    EXPECT_EQ(name.sin_family, AF_INET);
    return std::string(inet_ntoa(name.sin_addr)) + ":" + std::to_string(ntohs(name.sin_port));
}

bool is_closed_on_exec(int sock) {
    return (fcntl(sock, F_GETFD) & FD_CLOEXEC) != 0;
}

/// @return a port that no socket of the type is bound to
uint16_t free_port(int type) {
    const descriptor sock(socket(AF_INET, type, 0));
    sockaddr_in name{};
    name.sin_family = AF_INET;
    EXPECT_EQ(__real_bind(sock, reinterpret_cast<const sockaddr *>(&name), sizeof name), 0);
    socklen_t size = sizeof name;
    EXPECT_EQ(getsockname(sock, reinterpret_cast<sockaddr *>(&name), &size), 0);
    return ntohs(name.sin_port);
}

/// Whether a socket of the machine is a member of GROUP on the device, by the kernel's own listing: a line that begins
/// with the device's index, then an indented line for each of its groups.
bool group_has_member_on(const std::string &device) {
    std::ifstream listing("/proc/net/igmp");
    std::string current;
    for (std::string line; std::getline(listing, line);) {
        std::istringstream words(line);
        std::string first;
        words >> first;
        if (line[0] != '\t')
            words >> current;
        else if (current == device && first == GROUP_LISTED)
            return true;
    }
    return false;
}

class SocklibSocket : public testing::Test {
protected:
    void SetUp() override {
        calls.clear();
    }
    void TearDown() override {
        clear_faults();
        before_bind = nullptr;
        outgoing_interfaces.clear();
    }

    /// Expects that `make` gives -1, logs just this line at level 3 and leaves no descriptor behind.
    template <class Make> static void expect_no_socket(const std::string &line, Make make) {
        const size_t descriptors = open_descriptors();
        expect_lines(3, {line}, [&make] {
            EXPECT_EQ(make(), -1);
            clear_faults();
        });
        EXPECT_EQ(open_descriptors(), descriptors);
    }
};

TEST_F(SocklibSocket, InitAndExitDoNothing) {
    const size_t descriptors = open_descriptors();
    expect_no_line([] {
        EXPECT_EQ(socklib_init(), 0);
        EXPECT_EQ(socklib_exit(), 0);
        EXPECT_EQ(socklib_exit(), 0);
        EXPECT_EQ(socklib_init(), 0);
    });
    EXPECT_EQ(open_descriptors(), descriptors);
}

// Local

TEST_F(SocklibSocket, UnixSocketIsALocalStreamSocket) {
    expect_no_line([] {
        const descriptor sock(socklib_create_unix_socket());
        ASSERT_GE(sock, 0);
        sockaddr name{};
        socklen_t size = sizeof name;
        EXPECT_EQ(getsockname(sock, &name, &size), 0);
        EXPECT_EQ(name.sa_family, AF_UNIX);
        EXPECT_EQ(option_of(sock, SOL_SOCKET, SO_TYPE), SOCK_STREAM);
        EXPECT_TRUE(is_closed_on_exec(sock));
    });
}

TEST_F(SocklibSocket, UnixSocketThatCannotBeMade) {
    expect_no_socket("socklib_create_unix_socket:  unix socket creation failed", [] {
        fail_nth_call("socket", 1, EMFILE);
        return socklib_create_unix_socket();
    });
}

// TCP

TEST_F(SocklibSocket, TcpSocketIsBoundToThePortOnEveryAddress) {
    const uint16_t port = free_port(SOCK_STREAM);
    calls.clear();
    expect_no_line([port] {
        const descriptor sock(socklib_create_valtrix_tcp_socket(port));
        ASSERT_GE(sock, 0);
        EXPECT_EQ(bound_to(sock), "0.0.0.0:" + std::to_string(port));
        EXPECT_EQ(option_of(sock, SOL_SOCKET, SO_TYPE), SOCK_STREAM);
        EXPECT_EQ(option_of(sock, SOL_SOCKET, SO_REUSEADDR), 1);
        EXPECT_EQ(option_of(sock, SOL_SOCKET, SO_ACCEPTCONN), 0);
        EXPECT_TRUE(is_closed_on_exec(sock));
    });
    EXPECT_EQ(calls, (std::vector<call>{{SOL_SOCKET, SO_REUSEADDR}, BIND}));
}

TEST_F(SocklibSocket, TcpSocketThatCannotBeMade) {
    expect_no_socket("socklib_create_valtrix_tcp_socket: socket creation failed", [] {
        fail_nth_call("socket", 1, ENFILE);
        return socklib_create_valtrix_tcp_socket(0);
    });
}

TEST_F(SocklibSocket, TcpSocketWhoseOptionIsRefused) {
    expect_no_socket("socklib_create_valtrix_tcp_socket: setsockopt SO_REUSEADDR failed", [] {
        fail_nth_call("setsockopt", 1, ENOMEM);
        return socklib_create_valtrix_tcp_socket(0);
    });
}

TEST_F(SocklibSocket, TcpSocketWhosePortIsTaken) {
    const descriptor listener(socklib_create_valtrix_tcp_socket(0));
    ASSERT_EQ(listen(listener, 1), 0);
    sockaddr_in name{};
    socklen_t size = sizeof name;
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr *>(&name), &size), 0);
    expect_no_socket("socklib_create_valtrix_tcp_socket: bind failed",
                     [&name] { return socklib_create_valtrix_tcp_socket(ntohs(name.sin_port)); });
}

TEST_F(SocklibSocket, TcpSocketNamesItsFirstFailure) {
    expect_no_socket("socklib_create_valtrix_tcp_socket: socket creation failed", [] {
        for (const char *step : {"socket", "setsockopt", "bind"})
            fail_every_call(step, EIO);
        return socklib_create_valtrix_tcp_socket(0);
    });
    expect_no_socket("socklib_create_valtrix_tcp_socket: setsockopt SO_REUSEADDR failed", [] {
        for (const char *step : {"setsockopt", "bind"})
            fail_every_call(step, EIO);
        return socklib_create_valtrix_tcp_socket(0);
    });
}

// IPv4 of any type

TEST_F(SocklibSocket, OpenedSocketIsOfTheTypeAndHasTheFlags) {
    for (const int type : {SOCK_STREAM, SOCK_DGRAM}) {
        for (const int flags : {0, O_NONBLOCK}) {
            expect_no_line([type, flags] {
                const descriptor sock(socklib_open_socket(type, flags));
                ASSERT_GE(sock, 0);
                EXPECT_EQ(bound_to(sock), "0.0.0.0:0");
                EXPECT_EQ(option_of(sock, SOL_SOCKET, SO_TYPE), type);
                EXPECT_EQ(fcntl(sock, F_GETFL) & O_NONBLOCK, flags);
                EXPECT_TRUE(is_closed_on_exec(sock));
            });
        }
    }
}

TEST_F(SocklibSocket, OpenedSocketOfAnUnknownType) {
    expect_no_socket("socklib_open_socket: could not create socket", [] { return socklib_open_socket(99, 0); });
}

TEST_F(SocklibSocket, OpenedSocketThatCannotBeMade) {
    expect_no_socket("socklib_open_socket: could not create socket", [] {
        fail_nth_call("socket", 1, EMFILE);
        fail_every_call("fcntl", EIO);
        return socklib_open_socket(SOCK_DGRAM, 0);
    });
}

TEST_F(SocklibSocket, OpenedSocketWhoseFlagsAreRefused) {
    expect_no_socket("socklib_open_socket: fcntl failed", [] {
        fail_nth_call("fcntl", 1, EPERM);
        return socklib_open_socket(SOCK_DGRAM, O_NONBLOCK);
    });
}

TEST_F(SocklibSocket, BindingTakesTheAddressFromTheWireAndThePortAsANumber) {
    const uint16_t port = free_port(SOCK_DGRAM);
    expect_no_line([port] {
        const descriptor sock(socklib_open_socket(SOCK_DGRAM, 0));
        EXPECT_EQ(socklib_bind_socket(sock, inet_addr("127.0.0.1"), port), 0);
        EXPECT_EQ(bound_to(sock), "127.0.0.1:" + std::to_string(port));
    });
}

TEST_F(SocklibSocket, BindingToAnAddressOfAnotherMachineFailsAndKeepsTheSocket) {
    const descriptor sock(socklib_open_socket(SOCK_DGRAM, 0));
    expect_lines(3, {"socklib_bind_socket: bind failed"},
                 [&sock] { EXPECT_EQ(socklib_bind_socket(sock, inet_addr(NOT_OF_THIS_MACHINE), 0), -1); });
    EXPECT_EQ(bound_to(sock), "0.0.0.0:0");
}

TEST_F(SocklibSocket, BindingNoSocketFails) {
    expect_lines(3, {"socklib_bind_socket: bind failed"}, [] { EXPECT_EQ(socklib_bind_socket(-1, 0, 0), -1); });
}

TEST_F(SocklibSocket, ClosingEndsTheDescriptor) {
    const size_t descriptors = open_descriptors();
    expect_no_line([descriptors] {
        const int sock = socklib_open_socket(SOCK_DGRAM, 0);
        EXPECT_EQ(socklib_close_socket(sock), 0);
        EXPECT_EQ(open_descriptors(), descriptors);
    });
}

TEST_F(SocklibSocket, ClosingNoSocketFails) {
    expect_lines(3, {"socklib_close_socket: close failed: Bad file descriptor"},
                 [] { EXPECT_EQ(socklib_close_socket(-1), -1); });
}

// UDP. The loopback device, 127.0.0.1, serves for groups too.

class SocklibUdp : public SocklibSocket {
protected:
    int make() const {
        return socklib_create_valtrix_udp_socket(device, has_peer ? &peer : nullptr, port, tobind, self);
    }

    /// Expects that making one logs these messages at level 3 after the family at level 7.
    /// @param accept  what must be true of the socket; it may be -1
    void expect_messages(const std::vector<std::string> &messages, const std::function<void()> &arm,
                         const std::function<void(int)> &accept) const {
        std::vector<std::string> expected;
        for (const std::string &message : messages)
            expected.push_back("socklib_create_valtrix_udp_socket: " + message);
        for (const int level : {2, 3, 6, 7}) {
            if (level == 7)
                expected.insert(expected.begin(), "socklib_create_valtrix_udp_socket: " + family);
            arm();
            log_capture log(level);
            const descriptor sock(make());
            clear_faults();
            EXPECT_EQ(log.lines(), level == 2 ? std::vector<std::string>{} : expected) << "at level " << level;
            accept(sock);
        }
    }

    /// Expects that none can be made.
    /// @param arm  what makes it fail, for each attempt
    void expect_refused(
        const std::vector<std::string> &messages, const std::function<void()> &arm = [] {}) const {
        const size_t descriptors = open_descriptors();
        expect_messages(messages, arm, [](int sock) { EXPECT_EQ(sock, -1); });
        EXPECT_EQ(open_descriptors(), descriptors);
    }

    /// Expects that one can be made.
    void expect_made(
        bool multicast, const std::function<void(int)> &accept = [](int) {}) const {
        expect_messages(
            {"mcast_enabled [" + std::to_string(multicast) + "]"}, [] {},
            [&accept](int sock) {
                ASSERT_GE(sock, 0);
                accept(sock);
            });
    }

    const char *device = "lo";
    bool has_peer = true;
    socklib_inet_addr peer = ipv4(GROUP);
    std::string family = "AF_INET";
    uint16_t port = free_port(SOCK_DGRAM);
    int tobind = 1;
    uint32_t *self = nullptr;
};

TEST_F(SocklibUdp, GroupSocketIsAMemberThatSendsThroughTheDevice) {
    expect_made(true, [this](int sock) {
        EXPECT_EQ(bound_to(sock), GROUP + (":" + std::to_string(port)));
        EXPECT_EQ(option_of(sock, SOL_SOCKET, SO_TYPE), SOCK_DGRAM);
        EXPECT_EQ(option_of(sock, SOL_SOCKET, SO_REUSEADDR), 1);
        EXPECT_EQ(option_of(sock, SOL_SOCKET, SO_BROADCAST), 1);
        EXPECT_EQ(option_of(sock, IPPROTO_IP, IP_MULTICAST_TTL), 64);
        EXPECT_EQ(option_of(sock, IPPROTO_IP, IP_MULTICAST_LOOP), 0);
        EXPECT_EQ(outgoing_interface_of(sock), "127.0.0.1");
        EXPECT_TRUE(group_has_member_on("lo"));
        EXPECT_TRUE(is_closed_on_exec(sock));
    });
    EXPECT_FALSE(group_has_member_on("lo"));
}

TEST_F(SocklibUdp, GroupSocketTakesItsStepsInOrder) {
    calls.clear();
    const descriptor sock(make());
    EXPECT_EQ(calls, (std::vector<call>{{SOL_SOCKET, SO_REUSEADDR},
                                        BIND,
                                        {SOL_SOCKET, SO_BROADCAST},
                                        {IPPROTO_IP, IP_MULTICAST_IF},
                                        {IPPROTO_IP, IP_ADD_MEMBERSHIP},
                                        {IPPROTO_IP, IP_MULTICAST_TTL},
                                        {IPPROTO_IP, IP_MULTICAST_LOOP}}));
}

TEST_F(SocklibUdp, GroupSocketThatIsNotBoundIsAMemberAllTheSame) {
    tobind = 0;
    expect_made(true, [](int sock) {
        EXPECT_EQ(bound_to(sock), "0.0.0.0:0");
        EXPECT_EQ(outgoing_interface_of(sock), "127.0.0.1");
        EXPECT_TRUE(group_has_member_on("lo"));
    });
}

TEST_F(SocklibUdp, SocketOfOnePeerIsBoundToEveryAddressAndMayBroadcast) {
    peer = ipv4("127.0.0.1");
    calls.clear();
    expect_made(false, [this](int sock) {
        EXPECT_EQ(bound_to(sock), "0.0.0.0:" + std::to_string(port));
        EXPECT_EQ(option_of(sock, SOL_SOCKET, SO_REUSEADDR), 1);
        EXPECT_EQ(option_of(sock, SOL_SOCKET, SO_BROADCAST), 1);
        EXPECT_EQ(option_of(sock, IPPROTO_IP, IP_MULTICAST_TTL), 1);
        EXPECT_TRUE(is_closed_on_exec(sock));
    });
    calls.resize(3);
    EXPECT_EQ(calls, (std::vector<call>{{SOL_SOCKET, SO_REUSEADDR}, BIND, {SOL_SOCKET, SO_BROADCAST}}));
}

TEST_F(SocklibUdp, SocketThatIsNotBoundHasNoPort) {
    peer = ipv4("127.0.0.1");
    tobind = 0;
    expect_made(false, [](int sock) {
        EXPECT_EQ(bound_to(sock), "0.0.0.0:0");
        EXPECT_EQ(option_of(sock, SOL_SOCKET, SO_BROADCAST), 1);
    });
    EXPECT_EQ(std::count(calls.begin(), calls.end(), BIND), 0);
}

TEST_F(SocklibUdp, AnyValueButZeroBinds) {
    tobind = -1;
    expect_made(true, [this](int sock) { EXPECT_EQ(bound_to(sock), GROUP + (":" + std::to_string(port))); });
}

TEST_F(SocklibUdp, GroupsBeginAt224AndEndAt239) {
    for (const char *group : {"224.0.0.0", "239.255.255.255"}) {
        peer = ipv4(group);
        expect_made(true, [this, group](int sock) { EXPECT_EQ(bound_to(sock), group + (":" + std::to_string(port))); });
    }
    for (const char *other : {"223.255.255.255", "240.0.0.0", "255.255.255.255", "0.0.0.0"}) {
        peer = ipv4(other);
        expect_made(false, [this](int sock) { EXPECT_EQ(bound_to(sock), "0.0.0.0:" + std::to_string(port)); });
    }
}

TEST_F(SocklibUdp, AddressOfTheOtherFamilyIsNoGroup) {
    family = "AF_INET6";
    for (const char *other : {"ff02::1", "e001:1ef::", "::1"}) {
        peer = ipv6(other);
        expect_made(false, [this](int sock) { EXPECT_EQ(bound_to(sock), "0.0.0.0:" + std::to_string(port)); });
    }
}

TEST_F(SocklibUdp, NoPeerInParticularIsNoGroup) {
    has_peer = false;
    expect_made(false, [this](int sock) { EXPECT_EQ(bound_to(sock), "0.0.0.0:" + std::to_string(port)); });
}

TEST_F(SocklibUdp, OwnAddressIsReportedWhenBoundAndAskedFor) {
    uint32_t own = 0;
    self = &own;
    expect_made(true);
    EXPECT_EQ(own, inet_addr("127.0.0.1"));
    own = 0;
    peer = ipv4("10.0.0.1");
    expect_made(false);
    EXPECT_EQ(own, inet_addr("127.0.0.1"));
}

TEST_F(SocklibUdp, OwnAddressIsNotReportedWhenNotBound) {
    uint32_t own = 77;
    self = &own;
    tobind = 0;
    expect_made(true);
    device = "nosuch0";
    has_peer = false;
    expect_made(false);
    EXPECT_EQ(own, 77u);
}

TEST_F(SocklibUdp, DeviceDoesNotMatterWithoutAGroupOrAnOwnAddress) {
    peer = ipv4("10.0.0.1");
    for (const char *name : {"nosuch0", static_cast<const char *>(nullptr)}) {
        device = name;
        expect_made(false);
    }
}

TEST_F(SocklibUdp, SeveralSocketsShareAGroupsPort) {
    const descriptor first(make());
    const descriptor second(make());
    EXPECT_GE(first, 0);
    EXPECT_GE(second, 0);
}

TEST_F(SocklibUdp, SocketThatCannotBeMade) {
    expect_no_socket("socklib_create_valtrix_udp_socket: socket creation failed Too many open files ", [this] {
        fail_nth_call("socket", 1, EMFILE);
        fail_every_call("setsockopt", EIO);
        return make();
    });
}

TEST_F(SocklibUdp, EachRefusedOptionHasItsMessage) {
    const std::vector<std::vector<std::string>> messages = {
        {"setsockopt SO_REUSEADDR failed"},
        {"mcast_enabled [1]", "Error setting socket options BROADCAST"},
        {"mcast_enabled [1]", "setting multicast i/f to lo failed"},
        {"mcast_enabled [1]", "setsockopt IP_ADD_MEMBERSHIP failed, error: No buffer space available"},
        {"mcast_enabled [1]", "setsockopt IP_MULTICAST_TTL failed"},
        {"mcast_enabled [1]", "setsockopt IP_MULTICAST_LOOP failed"},
    };
    int nth = 0;
    for (const std::vector<std::string> &expected : messages) {
        ++nth;
        expect_refused(expected, [nth] { fail_nth_call("setsockopt", nth, ENOBUFS); });
        EXPECT_FALSE(group_has_member_on("lo"));
    }
    fail_nth_call("setsockopt", nth + 1, ENOBUFS);
    const descriptor sock(make());
    EXPECT_GE(sock, 0);
    EXPECT_EQ(faults_fired("setsockopt"), 0);
}

TEST_F(SocklibUdp, RefusedBroadcastOfASocketOfOnePeer) {
    peer = ipv4("10.0.0.1");
    expect_refused({"mcast_enabled [0]", "Error setting socket options BROADCAST"},
                   [] { fail_nth_call("setsockopt", 2, ENOBUFS); });
}

TEST_F(SocklibUdp, RefusedBindingNamesTheFamily) {
    const auto arm = [] {
        fail_nth_call("bind", 1, EADDRINUSE);
        fail_nth_call("setsockopt", 2, ENOBUFS);
    };
    expect_refused({"mcast_enabled [1]", "bind failed for remote_family = AF_INET"}, arm);
    peer = ipv6("ff02::1");
    family = "AF_INET6";
    expect_refused({"mcast_enabled [0]", "bind failed for remote_family = AF_INET6"}, arm);
    has_peer = false;
    family = "AF_INET";
    expect_refused({"mcast_enabled [0]", "bind failed for remote_family = AF_INET"}, arm);
}

TEST_F(SocklibUdp, RefusedReuseComesBeforeARefusedBinding) {
    expect_refused({"setsockopt SO_REUSEADDR failed"}, [] {
        fail_nth_call("setsockopt", 1, ENOBUFS);
        fail_nth_call("bind", 1, EADDRINUSE);
    });
}

TEST_F(SocklibUdp, RefusedBindingReportsNoOwnAddress) {
    uint32_t own = 77;
    self = &own;
    expect_refused({"mcast_enabled [1]", "bind failed for remote_family = AF_INET"},
                   [] { fail_nth_call("bind", 1, EACCES); });
    EXPECT_EQ(own, 77u);
}

TEST_F(SocklibUdp, OwnAddressOfADeviceWithoutOne) {
    uint32_t own = 77;
    self = &own;
    peer = ipv4("10.0.0.1");
    for (const char *name : {"nosuch0", static_cast<const char *>(nullptr)}) {
        device = name;
        expect_refused({"mcast_enabled [0]", "get device addr failed"},
                       [] { fail_nth_call("setsockopt", 2, ENOBUFS); });  // after the address
    }
    EXPECT_EQ(own, 77u);
}

TEST_F(SocklibUdp, GroupOnADeviceWithoutAnAddress) {
    for (const char *name : {"nosuch0", static_cast<const char *>(nullptr)}) {
        device = name;
        expect_refused({"mcast_enabled [1]", "get device addr failed"});
        expect_refused({"mcast_enabled [1]", "Error setting socket options BROADCAST"},
                       [] { fail_nth_call("setsockopt", 2, ENOBUFS); });  // before the address
    }
}

// The end of a socket

TEST_F(SocklibUdp, DestroyingLeavesTheGroupAndCloses) {
    const int sock = make();
    const descriptor kept(dup(sock));  // so that it is not the closing that leaves the group
    ASSERT_TRUE(group_has_member_on("lo"));
    const size_t descriptors = open_descriptors();
    expect_no_line([this, sock] { EXPECT_EQ(socklib_destroy_valtrix_socket(sock, &peer), 0); });
    EXPECT_FALSE(group_has_member_on("lo"));
    EXPECT_EQ(open_descriptors(), descriptors - 1);
}

TEST_F(SocklibUdp, DestroyingClosesAlsoWhatIsNoMember) {
    const int sock = socklib_open_socket(SOCK_DGRAM, 0);
    const size_t descriptors = open_descriptors();
    calls.clear();
    expect_no_line([this, sock] { EXPECT_EQ(socklib_destroy_valtrix_socket(sock, &peer), 0); });
    EXPECT_EQ(calls, (std::vector<call>{{IPPROTO_IP, IP_DROP_MEMBERSHIP}}));
    EXPECT_EQ(open_descriptors(), descriptors - 1);
}

TEST_F(SocklibUdp, DestroyingWithoutAGroupOnlyCloses) {
    const socklib_inet_addr others[] = {ipv4("223.255.255.255"), ipv4("240.0.0.0"), ipv6("e001:1ef::")};
    const size_t descriptors = open_descriptors();
    calls.clear();
    expect_no_line([&others] {
        for (const socklib_inet_addr &other : others)
            EXPECT_EQ(socklib_destroy_valtrix_socket(socklib_open_socket(SOCK_DGRAM, 0), &other), 0);
        EXPECT_EQ(socklib_destroy_valtrix_socket(socklib_open_socket(SOCK_DGRAM, 0), nullptr), 0);
    });
    EXPECT_EQ(calls, std::vector<call>{});
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(SocklibUdp, DestroyingNoSocketFails) {
    const socklib_inet_addr *const addresses[] = {&peer, nullptr};
    for (const socklib_inet_addr *address : addresses)
        expect_lines(3, {"socklib_close_socket: close failed: Bad file descriptor"},
                     [address] { EXPECT_EQ(socklib_destroy_valtrix_socket(-1, address), -1); });
}

// Whole frames: "sock0", with 10.1.2.3/24, and "sock1", without an address, are the ends of a cable of the sandbox.

using frame = std::vector<uint8_t>;

constexpr uint16_t TYPE = 0x88b5;  // those of local experiments
constexpr uint16_t OTHER_TYPE = 0x88b6;

frame frame_of(uint16_t type, uint8_t content) {
    frame bytes(60, content);
    std::fill_n(bytes.begin(), 6, static_cast<uint8_t>(0xff));
    bytes[12] = static_cast<uint8_t>(type >> 8);
    bytes[13] = static_cast<uint8_t>(type);
    return bytes;
}

void send_through(const char *device, const frame &bytes) {
    const descriptor sock(socket(AF_PACKET, SOCK_RAW, 0));
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = static_cast<int>(if_nametoindex(device));
    EXPECT_EQ(sendto(sock, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to),
              static_cast<ssize_t>(bytes.size()));
}

/// @return the next frame; an empty one when nothing comes
frame next_frame(int sock) {
    frame bytes(2000);
    const ssize_t size = something_comes(sock) ? recv(sock, bytes.data(), bytes.size(), MSG_DONTWAIT) : 0;
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
    return bytes;
}

class SocklibCable : public SocklibUdp {
protected:
    void SetUp() override {
        if (std::system("ip link add sock0 type veth peer name sock1 2>/dev/null") != 0)
            GTEST_SKIP() << "`ip link add` is refused here, so there are no devices to use";
        ASSERT_EQ(std::system("ip addr add 10.1.2.3/24 dev sock0 && ip link set sock0 up && ip link set sock1 up"), 0);
        SocklibUdp::SetUp();
    }
    void TearDown() override {
        SocklibUdp::TearDown();
        EXPECT_EQ(std::system("ip link del sock0 2>/dev/null || true"), 0);
    }
};

TEST_F(SocklibCable, GroupIsJoinedOnTheNamedDeviceOnly) {
    device = "sock0";
    uint32_t own = 0;
    self = &own;
    expect_made(true, [](int sock) {
        EXPECT_EQ(outgoing_interface_of(sock), "10.1.2.3");
        EXPECT_TRUE(group_has_member_on("sock0"));
        EXPECT_FALSE(group_has_member_on("lo"));
    });
    EXPECT_EQ(own, inet_addr("10.1.2.3"));
    device = "sock1";
    self = nullptr;
    expect_refused({"mcast_enabled [1]", "get device addr failed"});
}

TEST_F(SocklibCable, GroupOfANamedDeviceIsLeft) {
    device = "sock0";
    const int sock = make();
    const descriptor kept(dup(sock));
    ASSERT_TRUE(group_has_member_on("sock0"));
    EXPECT_EQ(socklib_destroy_valtrix_socket(sock, &peer), 0);
    EXPECT_FALSE(group_has_member_on("sock0"));
}

TEST_F(SocklibCable, RawSocketReceivesFramesOfItsDeviceAndProtocolOnly) {
    const descriptor sock(socklib_open_socket_raw("sock0", 0, TYPE));
    ASSERT_GE(sock, 0);
    send_through("lo", frame_of(TYPE, 1));
    send_through("sock1", frame_of(OTHER_TYPE, 2));
    send_through("sock1", frame_of(TYPE, 3));
    EXPECT_EQ(next_frame(sock), frame_of(TYPE, 3));
    EXPECT_EQ(recv(sock, nullptr, 0, MSG_DONTWAIT), -1);
}

TEST_F(SocklibCable, RawSocketCollectsNothingBeforeItIsBound) {
    before_bind = [] {
        send_through("lo", frame_of(TYPE, 1));
        send_through("sock1", frame_of(TYPE, 2));
    };
    const descriptor sock(socklib_open_socket_raw("sock0", 0, TYPE));
    send_through("sock1", frame_of(TYPE, 3));
    EXPECT_EQ(next_frame(sock), frame_of(TYPE, 3));
}

TEST_F(SocklibCable, RawSocketOfEveryProtocol) {
    const descriptor sock(socklib_open_socket_raw("sock0", 0, ETH_P_ALL));
    send_through("lo", frame_of(TYPE, 1));
    send_through("sock1", frame_of(TYPE, 2));
    send_through("sock1", frame_of(OTHER_TYPE, 3));
    std::vector<frame> found;
    while (found.size() < 2) {
        const frame next = next_frame(sock);
        ASSERT_FALSE(next.empty());
        if (next[12] == 0x88)  // the kernel sends of its own accord too
            found.push_back(next);
    }
    EXPECT_EQ(found, (std::vector<frame>{frame_of(TYPE, 2), frame_of(OTHER_TYPE, 3)}));
}

TEST_F(SocklibCable, RawSocketSendsWholeFramesThroughItsDevice) {
    const descriptor sender(socklib_open_socket_raw("sock1", 0, TYPE));
    const descriptor receiver(socklib_open_socket_raw("sock0", 0, TYPE));
    const frame bytes = frame_of(TYPE, 4);
    EXPECT_EQ(send(sender, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    EXPECT_EQ(next_frame(receiver), bytes);
}

TEST_F(SocklibSocket, RawSocketHasItsFlags) {
    for (const int flags : {0, O_NONBLOCK}) {
        expect_no_line([flags] {
            const descriptor sock(socklib_open_socket_raw("lo", flags, TYPE));
            ASSERT_GE(sock, 0);
            EXPECT_EQ(option_of(sock, SOL_SOCKET, SO_TYPE), SOCK_RAW);
            EXPECT_EQ(fcntl(sock, F_GETFL) & O_NONBLOCK, flags);
            EXPECT_TRUE(is_closed_on_exec(sock));
        });
    }
}

TEST_F(SocklibSocket, RawSocketThatCannotBeMade) {
    expect_no_socket("socklib_open_socket_raw: could not create raw socket", [] {
        fail_nth_call("socket", 1, EPERM);
        fail_every_call("bind", EIO);
        return socklib_open_socket_raw("lo", 0, TYPE);
    });
}

TEST_F(SocklibSocket, RawSocketOfADeviceThatIsNotThere) {
    for (const std::string name : {"nosuch0", "", "aNameLongerThanTheKernelAllows"}) {
        expect_no_socket("socklib_open_socket_raw: bind failed to device " + name,
                         [&name] { return socklib_open_socket_raw(name.c_str(), 0, TYPE); });
    }
    expect_no_socket("socklib_open_socket_raw: bind failed to device (null)",
                     [] { return socklib_open_socket_raw(nullptr, 0, TYPE); });
}

TEST_F(SocklibSocket, RawSocketThatCannotBeBound) {
    expect_no_socket("socklib_open_socket_raw: bind failed to device lo", [] {
        fail_nth_call("bind", 1, ENETDOWN);
        fail_every_call("fcntl", EIO);
        return socklib_open_socket_raw("lo", 0, TYPE);
    });
}

TEST_F(SocklibSocket, RawSocketWhoseFlagsAreRefused) {
    expect_no_socket("socklib_open_socket_raw: fcntl failed on socket!", [] {
        fail_nth_call("fcntl", 1, EPERM);
        return socklib_open_socket_raw("lo", O_NONBLOCK, TYPE);
    });
}

}  // namespace
