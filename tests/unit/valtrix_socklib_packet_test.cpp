#include "valtrix_socklib.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <semaphore>
#include <string>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "fault.h"
#include "fault_point.h"
#include "valtrix_socklib_expect.h"

namespace {

/// Bytes that FIONREAD announces in place of the kernel's when not negative.
int announced = -1;

/// Bytes of the latest allocation.
size_t allocated;

/// What the library asked of recv and select.
struct watch {
    std::vector<size_t> asked;         // sizes of the reads
    int flags = 0;                     // of the last read
    std::function<void()> after_read;  // runs after each that got something
    int waits = 0;                     // calls of select
    int times_out_at = 0;              // the wait whose time passes at once; 0: none
    timeval limit{};                   // of the last wait
};
watch tcp;

}  // namespace

extern "C" void *__real_calloc(size_t count, size_t size);
extern "C" void *__wrap_calloc(size_t count, size_t size) {
    allocated = count * size;
    return fault_is_due("calloc") ? nullptr : __real_calloc(count, size);
}

extern "C" int __real_ioctl(int fd, unsigned long request, void *argument);
extern "C" int __wrap_ioctl(int fd, unsigned long request, void *argument) {
    if (fault_is_due("ioctl"))
        return -1;
    if (announced < 0 || request != FIONREAD)
        return __real_ioctl(fd, request, argument);
    *static_cast<int *>(argument) = announced;
    return 0;
}

extern "C" ssize_t __real_recv(int fd, void *buffer, size_t size, int flags);
extern "C" ssize_t __wrap_recv(int fd, void *buffer, size_t size, int flags) {
    tcp.asked.push_back(size);
    tcp.flags = flags;
    if (fault_is_due("recv"))
        return -1;
    const ssize_t received = __real_recv(fd, buffer, size, flags);
    if (received > 0 && tcp.after_read)
        tcp.after_read();
    return received;
}

extern "C" int __real_select(int count, fd_set *in, fd_set *out, fd_set *other, timeval *limit);
extern "C" int __wrap_select(int count, fd_set *in, fd_set *out, fd_set *other, timeval *limit) {
    ++tcp.waits;
    tcp.limit = *limit;
    if (fault_is_due("select"))
        return -1;
    if (tcp.waits != tcp.times_out_at)
        return __real_select(count, in, out, other, limit);
    FD_ZERO(in);
    return 0;
}

namespace {

// A descriptor that an ordinary process cannot have: no select, send or receive is ever right on it.
constexpr int NO_SOCKET = INT32_MAX;

sockaddr_in name_of(int sock) {
    sockaddr_in name{};
    socklen_t size = sizeof name;
    EXPECT_EQ(getsockname(sock, reinterpret_cast<sockaddr *>(&name), &size), 0);
    return name;
}

std::string text_of(const sockaddr_in &address) {
    return std::string(inet_ntoa(address.sin_addr)) + ":" + std::to_string(ntohs(address.sin_port));
}

void bind_to_loopback(int sock) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = inet_addr("127.0.0.1");
    EXPECT_EQ(bind(sock, reinterpret_cast<const sockaddr *>(&name), sizeof name), 0);
}

/// What socklib_receive_packet gave.
struct received {
    int result;
    bool has_buffer;
    std::string bytes;
    sockaddr_in from;
};

constexpr sockaddr_in UNTOUCHED{AF_UNIX, 1, {2}, {}};

received receive(int sock, int flags = 0) {
    uint8_t before = 0;
    uint8_t *buf = &before;  // must not survive
    received got{0, false, "", UNTOUCHED};
    got.result = socklib_receive_packet(sock, &buf, flags, &got.from);
    got.has_buffer = buf != nullptr;
    if (got.has_buffer && got.result > 0)
        got.bytes.assign(reinterpret_cast<const char *>(buf), static_cast<size_t>(got.result));
    std::free(buf);
    return got;
}

void expect_nothing_received(const received &got) {
    EXPECT_EQ(got.result, -1);
    EXPECT_FALSE(got.has_buffer);
    EXPECT_EQ(std::memcmp(&got.from, &UNTOUCHED, sizeof UNTOUCHED), 0);
}

volatile std::sig_atomic_t pipe_signals;

/// Two UDP sockets of the loopback device.
class SocklibPacket : public testing::Test {
protected:
    void SetUp() override {
        bind_to_loopback(sender);
        bind_to_loopback(receiver);
        to = name_of(receiver);
        pipe_signals = 0;
        (void)std::signal(SIGPIPE, [](int) { pipe_signals = 1; });
    }
    void TearDown() override {
        clear_faults();
        announced = -1;
        EXPECT_EQ(pipe_signals, 0);
        (void)std::signal(SIGPIPE, SIG_DFL);
    }

    /// Sends a datagram and waits until it has come.
    void deliver(const std::string &bytes) const {
        EXPECT_EQ(sendto(sender, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to),
                  static_cast<ssize_t>(bytes.size()));
        EXPECT_TRUE(something_comes(receiver));
    }

    void expect_received(const std::string &bytes) const {
        ASSERT_TRUE(something_comes(receiver));
        const received got = receive(receiver);
        EXPECT_EQ(got.result, static_cast<int>(bytes.size()));
        EXPECT_EQ(got.bytes, bytes);
        EXPECT_EQ(text_of(got.from), text_of(name_of(sender)));
    }

    /// Expects that a datagram that waits is not received after `arm`, and that just these messages say so.
    void expect_lost(const std::vector<std::string> &messages, const std::function<void()> &arm) const {
        std::vector<std::string> lines;
        for (const std::string &message : messages)
            lines.push_back("socklib_receive_packet: " + message);
        expect_lines(3, lines, [&arm, this] {
            deliver("datagram");
            arm();
            expect_nothing_received(receive(receiver));
            clear_faults();
            announced = -1;
            expect_received("datagram");  // it still waits: nothing was taken
        });
    }

    bool something_waits() const {
        char byte;
        return recv(receiver, &byte, sizeof byte, MSG_DONTWAIT | MSG_PEEK) >= 0;
    }

    const descriptor sender{socket(AF_INET, SOCK_DGRAM, 0)};
    const descriptor receiver{socket(AF_INET, SOCK_DGRAM, 0)};
    sockaddr_in to{};
};

std::string number_and_text(int error) {
    return std::to_string(error) + "," + std::strerror(error);
}

// Sending

TEST_F(SocklibPacket, SentToAnAddress) {
    expect_no_line([this] { EXPECT_EQ(socklib_send_packet(sender, "hello", 5, 0, &to), 5); });
    expect_received("hello");
}

TEST_F(SocklibPacket, SentToWhomTheSocketIsConnected) {
    ASSERT_EQ(connect(sender, reinterpret_cast<const sockaddr *>(&to), sizeof to), 0);
    expect_no_line([this] { EXPECT_EQ(socklib_send_packet(sender, "hello", 5, 0, nullptr), 5); });
    expect_received("hello");
}

TEST_F(SocklibPacket, EmptyPacketIsSentAsSuch) {
    EXPECT_EQ(socklib_send_packet(sender, nullptr, 0, 0, &to), 0);
    EXPECT_EQ(socklib_send_udp_packet(sender, nullptr, 0, 0, to.sin_addr.s_addr, to.sin_port), 0);
    for (int packet = 0; packet < 2; ++packet) {
        ASSERT_TRUE(something_comes(receiver));
        EXPECT_EQ(recv(receiver, nullptr, 0, MSG_DONTWAIT), 0);
    }
}

TEST_F(SocklibPacket, FlagsOfTheCallerCount) {
    EXPECT_EQ(socklib_send_packet(sender, "one", 3, MSG_MORE, &to), 3);
    EXPECT_EQ(socklib_send_packet(sender, "packet", 6, 0, &to), 6);
    expect_received("onepacket");
    EXPECT_EQ(socklib_send_udp_packet(sender, "two", 3, MSG_MORE, to.sin_addr.s_addr, to.sin_port), 3);
    EXPECT_EQ(socklib_send_udp_packet(sender, "packets", 7, 0, to.sin_addr.s_addr, to.sin_port), 7);
    expect_received("twopackets");
}

TEST_F(SocklibPacket, RefusedSendingToAnAddress) {
    expect_lines(3, {"socklib_send_packet: Sendto error: Network is unreachable"}, [this] {
        fail_nth_call("sendto", 1, ENETUNREACH);
        EXPECT_EQ(socklib_send_packet(sender, "hello", 5, 0, &to), -1);
    });
    expect_lines(3, {"socklib_send_packet: Sendto error: Bad file descriptor"},
                 [this] { EXPECT_EQ(socklib_send_packet(NO_SOCKET, "hello", 5, 0, &to), -1); });
    expect_lines(3, {"socklib_send_packet: Sendto error: Destination address required"},
                 [this] { EXPECT_EQ(socklib_send_packet(sender, "hello", 5, 0, nullptr), -1); });
}

TEST_F(SocklibPacket, PacketThatIsTooLongIsRefused) {
    const std::string bytes(65508, 'x');
    expect_lines(3, {"socklib_send_packet: Sendto error: Message too long"},
                 [&] { EXPECT_EQ(socklib_send_packet(sender, bytes.data(), bytes.size(), 0, &to), -1); });
    expect_lines(3, {"socklib_send_udp_packet: sendto error: Message too long"}, [&] {
        EXPECT_EQ(socklib_send_udp_packet(sender, bytes.data(), 65508, 0, to.sin_addr.s_addr, to.sin_port), -1);
    });
}

TEST_F(SocklibPacket, UdpPacketTakesAddressAndPortFromTheWire) {
    expect_no_line(
        [this] { EXPECT_EQ(socklib_send_udp_packet(sender, "hello", 5, 0, to.sin_addr.s_addr, to.sin_port), 5); });
    expect_received("hello");
}

TEST_F(SocklibPacket, RefusedSendingOfAUdpPacket) {
    const uint32_t ip = to.sin_addr.s_addr;
    expect_lines(3, {"socklib_send_udp_packet: sendto error: Operation not permitted"}, [this, ip] {
        fail_nth_call("sendto", 1, EPERM);
        EXPECT_EQ(socklib_send_udp_packet(sender, "hello", 5, 0, ip, to.sin_port), -1);
    });
    expect_lines(3, {"socklib_send_udp_packet: sendto error: Bad file descriptor"},
                 [this, ip] { EXPECT_EQ(socklib_send_udp_packet(NO_SOCKET, "hello", 5, 0, ip, to.sin_port), -1); });
}

TEST_F(SocklibPacket, UdpPacketOfNegativeLengthIsRefused) {
    for (const int length : {-1, INT32_MIN}) {
        const auto size = static_cast<size_t>(length);
        expect_lines(3, {"socklib_send_udp_packet: sendto error: Message too long"}, [this, size] {
            EXPECT_EQ(socklib_send_udp_packet(sender, "hello", size, 0, to.sin_addr.s_addr, to.sin_port), -1);
        });
    }
    EXPECT_FALSE(something_waits());
}

// Local stream sockets

class SocklibUnixPacket : public SocklibPacket {
protected:
    void SetUp() override {
        SocklibPacket::SetUp();
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        sock.reset(ends[0]);
        peer.reset(ends[1]);
    }

    /// All that the peer has been sent; the sender sends no more.
    std::string all_of_the_peer() {
        sock.reset();
        std::string all;
        char bytes[4096];
        for (ssize_t size; (size = read(peer, bytes, sizeof bytes)) > 0;)
            all.append(bytes, static_cast<size_t>(size));
        return all;
    }

    descriptor sock;
    descriptor peer;
};

TEST_F(SocklibUnixPacket, SentWhole) {
    expect_no_line([this] { EXPECT_EQ(socklib_send_unix_packet(sock, "hello", 5, 0), 5); });
    EXPECT_EQ(socklib_send_unix_packet(sock, "", 0, 0), 0);
    EXPECT_EQ(all_of_the_peer(), "hello");
}

TEST_F(SocklibUnixPacket, SocketThatWasNotMadeYet) {
    for (const int none : {-1, INT32_MIN}) {
        fail_every_call("send", EIO);
        expect_lines(3, {"socklib_send_unix_packet: unix socket not initialised"},
                     [none] { EXPECT_EQ(socklib_send_unix_packet(none, "hello", 5, 0), -1); });
        EXPECT_EQ(faults_fired("send"), 0);
    }
}

TEST_F(SocklibUnixPacket, RefusedSending) {
    expect_lines(3, {"socklib_send_unix_packet: send failed on unix socket: No buffer space available"}, [this] {
        fail_nth_call("send", 1, ENOBUFS);
        EXPECT_EQ(socklib_send_unix_packet(sock, "hello", 5, 0), -1);
    });
    EXPECT_EQ(all_of_the_peer(), "");
}

TEST_F(SocklibUnixPacket, SocketThatIsNotConnected) {
    const descriptor alone(socklib_create_unix_socket());
    expect_lines(3, {"socklib_send_unix_packet: send failed on unix socket: Transport endpoint is not connected"},
                 [&alone] { EXPECT_EQ(socklib_send_unix_packet(alone, "hello", 5, 0), -1); });
}

TEST_F(SocklibUnixPacket, PartialSendingIsAFailure) {
    const std::string much(32 * 1024 * 1024, 'x');
    log_capture log(3);
    EXPECT_EQ(socklib_send_unix_packet(sock, much.data(), much.size(), MSG_DONTWAIT), -1);
    const std::vector<std::string> lines = log.lines();
    const size_t sent = all_of_the_peer().size();
    EXPECT_GT(sent, 0u);
    EXPECT_EQ(lines, (std::vector<std::string>{"socklib_send_unix_packet: partial send on unix socket: " +
                                               std::to_string(sent) + " of 33554432 bytes"}));
}

TEST_F(SocklibUnixPacket, FullPeerIsAFailureWhenNotToWait) {
    const std::string much(1024 * 1024, 'x');
    while (send(sock, much.data(), much.size(), MSG_DONTWAIT) > 0) {
    }
    expect_lines(3, {"socklib_send_unix_packet: send failed on unix socket: Resource temporarily unavailable"},
                 [this] { EXPECT_EQ(socklib_send_unix_packet(sock, "hello", 5, MSG_DONTWAIT), -1); });
}

TEST_F(SocklibUnixPacket, PacketOfNegativeLengthIsRefusedAndSendsNothing) {
    const auto block = std::make_unique<char[]>(5);
    for (const int length : {-1, INT32_MIN}) {
        const auto size = static_cast<size_t>(length);
        expect_lines(3, {"socklib_send_unix_packet: send failed on unix socket: Message too long"},
                     [&] { EXPECT_EQ(socklib_send_unix_packet(sock, block.get(), size, MSG_DONTWAIT), -1); });
        expect_lines(3, {"socklib_send_packet: Sendto error: Message too long"},
                     [&] { EXPECT_EQ(socklib_send_packet(sock, block.get(), size, MSG_DONTWAIT, nullptr), -1); });
    }
    EXPECT_EQ(all_of_the_peer().size(), 0u);
}

// A peer that has gone. The fixture's end sees whether a signal came.

TEST_F(SocklibUnixPacket, GonePeerIsAFailureWithoutASignal) {
    peer.reset();
    expect_lines(3, {"socklib_send_unix_packet: send failed on unix socket: Broken pipe"},
                 [this] { EXPECT_EQ(socklib_send_unix_packet(sock, "hello", 5, 0), -1); });
    expect_lines(3, {"socklib_send_packet: Sendto error: Broken pipe"},
                 [this] { EXPECT_EQ(socklib_send_packet(sock, "hello", 5, 0, nullptr), -1); });
}

TEST_F(SocklibPacket, SendingOnATcpSocketWithoutAPeerIsAFailureWithoutASignal) {
    const descriptor alone(socklib_create_valtrix_tcp_socket(0));
    expect_lines(3, {"socklib_send_udp_packet: sendto error: Broken pipe"}, [this, &alone] {
        EXPECT_EQ(socklib_send_udp_packet(alone, "hello", 5, 0, to.sin_addr.s_addr, to.sin_port), -1);
    });
}

// Receiving

TEST_F(SocklibPacket, ReceivedWithItsSender) {
    expect_no_line([this] {
        deliver("hello");
        const received got = receive(receiver);
        EXPECT_EQ(got.result, 5);
        EXPECT_EQ(got.bytes, "hello");
        EXPECT_EQ(got.from.sin_family, AF_INET);
        EXPECT_EQ(text_of(got.from), text_of(name_of(sender)));
    });
}

TEST_F(SocklibPacket, SenderNeedNotBeAskedFor) {
    for (const std::string bytes : {"hello", ""}) {
        deliver(bytes);
        uint8_t *buf = nullptr;
        EXPECT_EQ(socklib_receive_packet(receiver, &buf, 0, nullptr), static_cast<int>(bytes.size()));
        std::free(buf);
    }
}

TEST_F(SocklibPacket, ReceivedOneByOne) {
    deliver("first");
    deliver("the second");
    deliver("3");
    for (const char *bytes : {"first", "the second", "3"})
        expect_received(bytes);
}

TEST_F(SocklibPacket, BufferIsOfTheDatagramsSize) {
    for (const size_t size : {1u, 5u, 1000u}) {
        deliver(std::string(size, 'x'));
        allocated = 0;
        EXPECT_EQ(receive(receiver).result, static_cast<int>(size));
        EXPECT_EQ(allocated, size);
    }
}

TEST_F(SocklibPacket, LongestDatagram) {
    std::string bytes(65507, 'x');
    bytes.back() = 'y';
    deliver(bytes);
    expect_no_line([this, &bytes] { expect_received(bytes); });
}

TEST_F(SocklibPacket, EveryByteValueIsReceived) {
    std::string bytes(256, 0);
    for (size_t at = 0; at < bytes.size(); ++at)
        bytes[at] = static_cast<char>(at);
    deliver(bytes);
    expect_received(bytes);
}

TEST_F(SocklibPacket, EmptyDatagramHasNoBufferButASender) {
    const std::string from = text_of(name_of(sender));
    expect_lines(3, {"socklib_receive_packet: Packet with bytes to read = 0 received from " + from}, [this, &from] {
        deliver("");
        const received got = receive(receiver);
        EXPECT_EQ(got.result, 0);
        EXPECT_FALSE(got.has_buffer);
        EXPECT_EQ(text_of(got.from), from);
    });
    EXPECT_FALSE(something_waits());
}

TEST_F(SocklibPacket, FlagsOfTheCallerCountWhenReceiving) {
    deliver("hello");
    EXPECT_EQ(receive(receiver, MSG_PEEK).bytes, "hello");
    expect_received("hello");
    const std::string line = "socklib_receive_packet: recvfrom function failed ![" + number_and_text(EAGAIN) + "]";
    expect_lines(3, {line}, [this] { expect_nothing_received(receive(receiver, MSG_DONTWAIT)); });
}

TEST_F(SocklibPacket, NothingWaitingOnASocketThatDoesNotBlock) {
    ASSERT_EQ(fcntl(receiver, F_SETFL, O_NONBLOCK), 0);
    const std::string line = "socklib_receive_packet: recvfrom function failed ![" + number_and_text(EAGAIN) + "]";
    expect_lines(3, {line}, [this] { expect_nothing_received(receive(receiver)); });
}

TEST_F(SocklibPacket, FailingQuestionHowMuchIsWaiting) {
    expect_lost({"ioctl to find bytes to read failed"}, [] { fail_nth_call("ioctl", 1, EIO); });
    expect_lines(3, {"socklib_receive_packet: ioctl to find bytes to read failed"},
                 [] { expect_nothing_received(receive(NO_SOCKET)); });
}

TEST_F(SocklibPacket, DatagramStaysWhenMemoryIsShort) {
    expect_lost({"MALLOC for receive buffer for 8 bytes failed"}, [] { fail_nth_call("calloc", 1); });
    deliver(std::string(65507, 'x'));
    expect_lines(3, {"socklib_receive_packet: MALLOC for receive buffer for 65507 bytes failed"}, [this] {
        fail_nth_call("calloc", 1);
        expect_nothing_received(receive(receiver));
    });
}

TEST_F(SocklibPacket, LargerDatagramThanAnnouncedIsCut) {
    expect_lines(3, {"socklib_receive_packet: buffer size[3] and actual bytes read[8] do not match"}, [this] {
        deliver("datagram");
        announced = 3;
        const received got = receive(receiver);
        EXPECT_EQ(got.result, 3);
        EXPECT_EQ(got.bytes, "dat");
        EXPECT_EQ(text_of(got.from), text_of(name_of(sender)));
    });
    EXPECT_FALSE(something_waits());
}

TEST_F(SocklibPacket, SmallerDatagramThanAnnouncedIsWhole) {
    expect_lines(3, {"socklib_receive_packet: buffer size[10] and actual bytes read[8] do not match"}, [this] {
        deliver("datagram");
        announced = 10;
        const received got = receive(receiver);
        EXPECT_EQ(got.result, 8);
        EXPECT_EQ(got.bytes, "datagram");
    });
}

TEST_F(SocklibPacket, EmptyDatagramInPlaceOfTheAnnouncedOneHasNoBuffer) {
    expect_lines(3, {"socklib_receive_packet: buffer size[10] and actual bytes read[0] do not match"}, [this] {
        deliver("");
        announced = 10;
        const received got = receive(receiver);
        EXPECT_EQ(got.result, 0);
        EXPECT_FALSE(got.has_buffer);
        EXPECT_EQ(text_of(got.from), text_of(name_of(sender)));
    });
}

TEST_F(SocklibPacket, DatagramThatWasNotAnnouncedIsTakenForAnEmptyOne) {
    const std::string from = text_of(name_of(sender));
    expect_lines(3, {"socklib_receive_packet: Packet with bytes to read = 0 received from " + from}, [this] {
        deliver("datagram");
        announced = 0;
        const received got = receive(receiver);
        EXPECT_EQ(got.result, 0);
        EXPECT_FALSE(got.has_buffer);
    });
    EXPECT_FALSE(something_waits());
}

TEST_F(SocklibPacket, ResetConnectionIsNamed) {
    const std::vector<std::string> messages = {"recvfrom function failed ![" + number_and_text(ECONNRESET) + "]",
                                               "Connection reset error, so returning"};
    expect_lost(messages, [] { fail_nth_call("recvfrom", 1, ECONNRESET); });
    expect_lost(messages, [] {
        announced = 0;
        fail_nth_call("recvfrom", 1, ECONNRESET);
    });
}

TEST_F(SocklibPacket, AnnouncedDatagramThatTheKernelDropped) {
    expect_lost({"recvfrom function failed ![" + number_and_text(EAGAIN) + "]", "Seems like UDP checksum failed"},
                [] { fail_nth_call("recvfrom", 1, EAGAIN); });
}

TEST_F(SocklibPacket, OtherFailuresHaveTheirNumberAndText) {
    for (const int error : {EINTR, ENOMEM, ECONNREFUSED, ENOTCONN}) {
        for (const int bytes : {-1, 0}) {
            expect_lost({"recvfrom function failed ![" + number_and_text(error) + "]"}, [error, bytes] {
                announced = bytes;
                fail_nth_call("recvfrom", 1, error);
            });
        }
    }
}

// A fixed amount from a connection

class SocklibTcp : public testing::Test {
protected:
    void SetUp() override {
        const descriptor listener(socket(AF_INET, SOCK_STREAM, 0));
        bind_to_loopback(listener);
        ASSERT_EQ(listen(listener, 1), 0);
        const sockaddr_in name = name_of(listener);
        peer.reset(socket(AF_INET, SOCK_STREAM, 0));
        ASSERT_EQ(connect(peer, reinterpret_cast<const sockaddr *>(&name), sizeof name), 0);
        sock.reset(accept(listener, nullptr, nullptr));
        ASSERT_GE(sock, 0);
        tcp = {};
    }
    void TearDown() override {
        clear_faults();
        tcp = {};
    }

    void write_to_reader(const std::string &bytes) const {
        EXPECT_EQ(write(peer, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    /// Reads into a block of its own size. @return what was read; "-1" for a failure
    std::string read_exactly(uint32_t size, int flags = 0) const {
        const auto block = std::make_unique<char[]>(size);
        const int result = socklib_receive_tcp(sock, block.get(), size, flags);
        if (result < 0)
            return "-1";
        EXPECT_EQ(result, static_cast<int>(size));
        return {block.get(), size};
    }

    /// Expects that of 10 bytes the reader gets `begin` only and then fails, saying so with this message alone.
    void expect_failure(const std::string &message, const std::string &begin, const std::function<void()> &arm) {
        expect_lines(3, {"socklib_receive_tcp: " + message}, [&] {
            SetUp();
            if (!begin.empty())
                write_to_reader(begin);
            arm();
            EXPECT_EQ(read_exactly(10), "-1");
            clear_faults();
        });
    }

    /// Sends each byte once the one before has been read, from a thread of its own, then does `then`; reads meanwhile.
    std::string read_byte_by_byte(const std::string &bytes, uint32_t size, const std::function<void()> &then) {
        std::counting_semaphore<> may_send(1);
        tcp.after_read = [&may_send] { may_send.release(); };
        std::thread sender([&] {
            for (const char byte : bytes) {
                may_send.acquire();
                write_to_reader(std::string(1, byte));
            }
            may_send.acquire();
            then();
        });
        const std::string got = read_exactly(size);
        sender.join();
        return got;
    }

    descriptor sock;
    descriptor peer;
};

TEST_F(SocklibTcp, AllAtOnce) {
    expect_no_line([this] {
        write_to_reader("0123456789");
        EXPECT_EQ(read_exactly(10), "0123456789");
    });
    EXPECT_EQ(tcp.limit.tv_sec, 5);
    EXPECT_EQ(tcp.limit.tv_usec, 0);
}

TEST_F(SocklibTcp, NoByteMoreThanAskedFor) {
    write_to_reader("0123456789");
    EXPECT_EQ(read_exactly(4), "0123");
    EXPECT_EQ(read_exactly(1), "4");
    EXPECT_EQ(read_exactly(5), "56789");
}

TEST_F(SocklibTcp, OneByteAtATime) {
    expect_no_line([this] { EXPECT_EQ(read_byte_by_byte("01234567", 8, [] {}), "01234567"); });
    EXPECT_EQ(tcp.asked, (std::vector<size_t>{8, 7, 6, 5, 4, 3, 2, 1}));
    EXPECT_EQ(tcp.waits, 8);  // each byte with the whole time
    EXPECT_EQ(tcp.limit.tv_sec, 5);
}

TEST_F(SocklibTcp, MoreThanTheKernelHoldsAtOnce) {
    std::string bytes(8 * 1024 * 1024, 0);
    for (size_t at = 0; at < bytes.size(); ++at)
        bytes[at] = static_cast<char>(at * 7 + at / 251);
    std::thread sender([this, &bytes] {
        for (size_t at = 0; at < bytes.size();) {
            const ssize_t sent = send(peer, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
            ASSERT_GT(sent, 0);
            at += static_cast<size_t>(sent);
        }
    });
    const bool whole = read_exactly(static_cast<uint32_t>(bytes.size())) == bytes;
    sock.reset();  // so that the sender ends in any case
    sender.join();
    EXPECT_TRUE(whole);
}

TEST_F(SocklibTcp, NoBytesAreThereAtOnce) {
    expect_no_line([this] { EXPECT_EQ(socklib_receive_tcp(sock, nullptr, 0, 0), 0); });
    EXPECT_EQ(tcp.waits, 0);
    EXPECT_EQ(tcp.asked, std::vector<size_t>{});
}

TEST_F(SocklibTcp, FlagsOfTheCallerReachTheRead) {
    write_to_reader("0123");
    EXPECT_EQ(read_exactly(4, MSG_WAITALL), "0123");
    EXPECT_EQ(tcp.flags, MSG_WAITALL);
}

TEST_F(SocklibTcp, InterruptedReadIsLoggedAndGoesOn) {
    expect_lines(3, {"socklib_receive_tcp: EINTR occurred so recv failed"}, [this] {
        write_to_reader("0123456789");
        fail_nth_call("recv", 1, EINTR);
        EXPECT_EQ(read_exactly(10), "0123456789");
    });
}

TEST_F(SocklibTcp, InterruptionInTheMiddleLosesNothing) {
    expect_lines(3, {"socklib_receive_tcp: EINTR occurred so recv failed"}, [this] {
        fail_nth_call("recv", 4, EINTR);
        EXPECT_EQ(read_byte_by_byte("01234567", 8, [] {}), "01234567");
    });
}

TEST_F(SocklibTcp, ReadThatFindsNothingAfterAllWaitsAgain) {
    expect_no_line([this] {
        write_to_reader("0123456789");
        fail_nth_call("recv", 1, EAGAIN);
        EXPECT_EQ(read_exactly(10), "0123456789");
    });
    EXPECT_EQ(tcp.waits, 2);
}

TEST_F(SocklibTcp, PeerThatClosesInTheMiddleEndsTheCall) {
    expect_lines(3, {"socklib_receive_tcp: recv on tcp socket: closed by the peer, bytes_to_read=10, bytes_read=3"},
                 [this] {
                     SetUp();
                     EXPECT_EQ(read_byte_by_byte("012", 10, [this] { peer.reset(); }), "-1");
                 });
}

TEST_F(SocklibTcp, PeerThatClosesAtOnceEndsTheCall) {
    expect_failure("recv on tcp socket: closed by the peer, bytes_to_read=10, bytes_read=0", "",
                   [this] { peer.reset(); });
}

TEST_F(SocklibTcp, PeerThatResetsEndsTheCall) {
    expect_failure("recv on tcp socket: Connection reset by peer, bytes_to_read=10, bytes_read=0", "", [this] {
        const linger at_once{1, 0};
        EXPECT_EQ(setsockopt(peer, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once), 0);
        peer.reset();
    });
}

TEST_F(SocklibTcp, FailingReadInTheMiddleEndsTheCall) {
    expect_failure("recv on tcp socket: Cannot allocate memory, bytes_to_read=10, bytes_read=4", "0123", [this] {
        tcp.after_read = [] { fail_nth_call("recv", 1, ENOMEM); };
        peer.reset();  // so that there is something to read: its end
    });
}

TEST_F(SocklibTcp, SilentPeerEndsTheCall) {
    expect_failure("select failed or timed out[5 s.0 usec] on tcp socket, retval = 0, errno = "
                   "0bytes_to_read=10, bytes_read=0",
                   "", [] {
                       errno = EPERM;  // of something else
                       tcp.times_out_at = 1;
                   });
    EXPECT_EQ(tcp.asked, std::vector<size_t>{});
}

TEST_F(SocklibTcp, PeerThatFallsSilentInTheMiddleEndsTheCall) {
    expect_failure("select failed or timed out[5 s.0 usec] on tcp socket, retval = 0, errno = "
                   "0bytes_to_read=10, bytes_read=4",
                   "0123", [] { tcp.times_out_at = 2; });
}

TEST_F(SocklibTcp, FailingWaitEndsTheCall) {
    for (const int error : {EINTR, ENOMEM}) {
        expect_failure("select failed or timed out[5 s.0 usec] on tcp socket, retval = -1, errno = " +
                           std::to_string(error) + "bytes_to_read=10, bytes_read=0",
                       "0123", [error] { fail_nth_call("select", 1, error); });
    }
    expect_failure("select failed or timed out[5 s.0 usec] on tcp socket, retval = -1, errno = " +
                       std::to_string(ENOMEM) + "bytes_to_read=10, bytes_read=4",
                   "0123", [] { fail_nth_call("select", 2, ENOMEM); });
}

TEST_F(SocklibTcp, ClosedDescriptorEndsTheCall) {
    const std::string line = "socklib_receive_tcp: select failed or timed out[5 s.0 usec] on tcp socket, retval = -1, "
                             "errno = 9bytes_to_read=4294967295, bytes_read=0";
    const int gone = dup(sock);
    close(gone);
    expect_lines(3, {line}, [gone] {
        char byte;
        EXPECT_EQ(socklib_receive_tcp(gone, &byte, UINT32_MAX, 0), -1);
    });
}

TEST_F(SocklibTcp, DescriptorThatNoSetHoldsEndsTheCall) {
    const std::string line = "socklib_receive_tcp: select failed or timed out[5 s.0 usec] on tcp socket, retval = -1, "
                             "errno = 9bytes_to_read=1, bytes_read=0";
    for (const int fd : {FD_SETSIZE, 100000, INT32_MAX, -1, INT32_MIN}) {
        expect_lines(3, {line}, [fd] {
            char byte;
            EXPECT_EQ(socklib_receive_tcp(fd, &byte, 1, 0), -1);
        });
    }
    EXPECT_EQ(tcp.waits, 0);
}

}  // namespace
