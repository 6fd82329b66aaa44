#include "valtrix_socklib.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <netdb.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

#include "valtrix_socklib_expect.h"

namespace {

/// What gettimeofday says: 2024-03-05 07:08:09.123456 UTC unless a test sets it for a moment.
constexpr timeval USUAL_TIME = {1709622489, 123456};
timeval clock_of_the_test = USUAL_TIME;

}  // namespace

extern "C" int __wrap_gettimeofday(timeval *now, void * /*zone*/) {
    *now = clock_of_the_test;
    return 0;
}

namespace {

// The header

std::string header(int severity, int facility, const char *message_id, const char *host) {
    char text[4096] = "";
    const int length = add_syslog_rfc5424_header(text, sizeof text, severity, facility, message_id, host);
    EXPECT_EQ(static_cast<size_t>(length), std::strlen(text));
    return text;
}

std::string header_at(time_t seconds, int microseconds) {
    clock_of_the_test = {seconds, microseconds};
    const std::string text = header(LOG_INFO, LOG_LOCAL0, "id", "ap");
    clock_of_the_test = USUAL_TIME;
    return text;
}

TEST(SyslogHeader, TimeHostAndMessageIdBetweenNilValues) {
    EXPECT_EQ(header(6, 128, "wl_evt", "ap-7.example"), "<134>1 2024.03.05T07:08:09.123Z ap-7.example - - wl_evt - ");
}

TEST(SyslogHeader, EveryPartOfTheTimeKeepsItsWidth) {
    EXPECT_EQ(header_at(0, 0), "<134>1 1970.01.01T00:00:00.000Z ap - - id - ");
    EXPECT_EQ(header_at(946684799, 999999), "<134>1 1999.12.31T23:59:59.999Z ap - - id - ");
    EXPECT_EQ(header_at(1709164800, 7000), "<134>1 2024.02.29T00:00:00.007Z ap - - id - ");
}

TEST(SyslogHeader, MillisecondsAreCutNotRounded) {
    EXPECT_EQ(header_at(1709622489, 999), "<134>1 2024.03.05T07:08:09.000Z ap - - id - ");
    EXPECT_EQ(header_at(1709622489, 1000), "<134>1 2024.03.05T07:08:09.001Z ap - - id - ");
    EXPECT_EQ(header_at(1709622489, 1999), "<134>1 2024.03.05T07:08:09.001Z ap - - id - ");
    EXPECT_EQ(header_at(1709622489, 999999), "<134>1 2024.03.05T07:08:09.999Z ap - - id - ");
}

TEST(SyslogHeader, TheTimeZoneOfTheMachineDoesNotMatter) {
    for (const char *zone : {"UTC0", "EST5EDT", "IST-5:30", "NZST-12NZDT"}) {
        setenv("TZ", zone, 1);
        tzset();
        EXPECT_EQ(header(6, 128, "id", "ap"), "<134>1 2024.03.05T07:08:09.123Z ap - - id - ") << zone;
    }
    unsetenv("TZ");
    tzset();
}

TEST(SyslogHeader, PriorityIsFacilityOrSeverity) {
    for (int facility = LOG_KERN; facility <= LOG_LOCAL7; facility += 8) {
        for (int severity = LOG_EMERG; severity <= LOG_DEBUG; ++severity)
            EXPECT_EQ(header(severity, facility, "id", "ap"),
                      "<" + std::to_string(facility + severity) + ">1 2024.03.05T07:08:09.123Z ap - - id - ");
    }
    EXPECT_EQ(header(12, 8, "id", "ap").substr(0, 4), "<12>");  // the bit that both have counts once
}

TEST(SyslogHeader, MissingMessageIdIsWrittenAsNull) {
    EXPECT_EQ(header(6, 128, nullptr, "ap"), "<134>1 2024.03.05T07:08:09.123Z ap - - (null) - ");
}

TEST(SyslogHeader, EmptyTextsLeaveTheirPlacesEmpty) {
    EXPECT_EQ(header(6, 128, "", ""), "<134>1 2024.03.05T07:08:09.123Z  - -  - ");
}

TEST(SyslogHeader, TextsAreNoFormats) {
    EXPECT_EQ(header(6, 128, "%n%s", "100%d"), "<134>1 2024.03.05T07:08:09.123Z 100%d - - %n%s - ");
}

TEST(SyslogHeader, IsCutToTheBufferAndReturnsItsWholeLength) {
    const std::string whole = header(6, 128, "id", "ap");
    for (int size = 1; size <= static_cast<int>(whole.size()) + 2; ++size) {
        char text[64];
        std::fill_n(text, sizeof text, '#');
        EXPECT_EQ(add_syslog_rfc5424_header(text, size, 6, 128, "id", "ap"), static_cast<int>(whole.size()));
        const std::string expected = whole.substr(0, static_cast<size_t>(size) - 1);
        EXPECT_STREQ(text, expected.c_str());
        EXPECT_EQ(std::string(text + size, text + sizeof text),
                  std::string(sizeof text - static_cast<size_t>(size), '#'));
    }
}

TEST(SyslogHeader, WithoutABufferNothingIsWritten) {
    expect_no_line([] { EXPECT_EQ(add_syslog_rfc5424_header(nullptr, 100, 6, 128, "id", "ap"), 0); });
}

TEST(SyslogHeader, WithoutRoomNothingIsWritten) {
    char text[] = "kept";
    expect_no_line([&] {
        for (const int size : {0, -1, INT32_MIN})
            EXPECT_EQ(add_syslog_rfc5424_header(text, size, 6, 128, "id", "ap"), 0);
    });
    EXPECT_STREQ(text, "kept");
}

TEST(SyslogHeader, WithoutAHostNothingIsWritten) {
    char text[100] = "kept";
    expect_no_line([&] { EXPECT_EQ(add_syslog_rfc5424_header(text, sizeof text, 6, 128, "id", nullptr), 0); });
    EXPECT_STREQ(text, "kept");
}

TEST(SyslogHeader, IsLoggedForDebugging) {
    char text[100];
    expect_line(7,
                "add_syslog_rfc5424_header: Pri 6 Fac 128 "
                "Header[<134>1 2024.03.05T07:08:09.123Z ap - - id - ]",
                [&] { add_syslog_rfc5424_header(text, sizeof text, 6, 128, "id", "ap"); });
}

TEST(SyslogHeader, IsLoggedAsItWasCut) {
    char text[10];
    expect_line(7, "add_syslog_rfc5424_header: Pri 6 Fac 128 Header[<134>1 20]",
                [&] { add_syslog_rfc5424_header(text, sizeof text, 6, 128, "id", "ap"); });
}

// Lines over UDP. The collectors are sockets of the loopback interface.

/// A collector that tells what it got.
class collector {
public:
    explicit collector(int family = AF_INET) : socket_(::socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        auto *v4 = reinterpret_cast<sockaddr_in *>(&address);
        auto *v6 = reinterpret_cast<sockaddr_in6 *>(&address);
        address.ss_family = static_cast<sa_family_t>(family);
        if (family == AF_INET)
            v4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        else
            v6->sin6_addr = in6addr_loopback;
        length = family == AF_INET ? sizeof *v4 : sizeof *v6;
        socklen_t size = length;
        EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr *>(&address), length), 0) << std::strerror(errno);
        EXPECT_EQ(getsockname(socket_, reinterpret_cast<sockaddr *>(&address), &size), 0);
    }
    ~collector() {
        close(socket_);
    }
    collector(const collector &) = delete;
    collector &operator=(const collector &) = delete;

    /// The lines so far; on the loopback interface a line has arrived when it has been sent.
    std::vector<std::string> lines() const {
        std::vector<std::string> got;
        std::vector<char> buffer(70000);
        for (;;) {
            const ssize_t size = recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (size < 0)
                return got;
            got.emplace_back(buffer.data(), static_cast<size_t>(size));
        }
    }

    sockaddr_storage address{};
    socklen_t length = 0;

private:
    int socket_;
};

/// A list as getaddrinfo makes it.
class destinations {
public:
    destinations &add(const sockaddr_storage &address, socklen_t length) {
        entries_.push_back({address, length});
        return *this;
    }
    destinations &add(const collector &to) {
        return add(to.address, to.length);
    }
    destinations &add(const char *ipv4, uint16_t port) {
        sockaddr_storage address{};
        auto *v4 = reinterpret_cast<sockaddr_in *>(&address);
        v4->sin_family = AF_INET;
        v4->sin_addr.s_addr = inet_addr(ipv4);
        v4->sin_port = htons(port);
        return add(address, sizeof *v4);
    }
    destinations &add_without_address() {
        return add(sockaddr_storage{}, 0);
    }
    addrinfo *list() {
        infos_.assign(entries_.size(), {});
        for (size_t at = 0; at < entries_.size(); ++at) {
            infos_[at].ai_family = entries_[at].address.ss_family;
            infos_[at].ai_addrlen = entries_[at].length;
            infos_[at].ai_addr =
                entries_[at].length == 0 ? nullptr : reinterpret_cast<sockaddr *>(&entries_[at].address);
            infos_[at].ai_next = at + 1 < entries_.size() ? &infos_[at + 1] : nullptr;
        }
        return infos_.data();
    }

private:
    struct entry {
        sockaddr_storage address;
        socklen_t length;
    };
    std::vector<entry> entries_;
    std::vector<addrinfo> infos_;
};

constexpr char HEADER[] = "<134>1 2024.03.05T07:08:09.123Z ap - - id - ";

class SyslogNetwork : public testing::Test {
protected:
    ~SyslogNetwork() override {
        close(sender);
    }
    int send_plain(const std::string &message, int facility = 128, int severity = 6) {
        return socklib_syslog_network(sender, to.list(), 0, facility, severity, 0, "ap", "id", "%s", message.c_str());
    }
    int send_with_header(const std::string &message, const char *host = "ap", const char *message_id = "id") {
        return socklib_syslog_network(sender, to.list(), 0, 128, 6, 1, host, message_id, "%s", message.c_str());
    }
    void send_over_ipv6() {
        close(sender);
        sender = socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    }

    int sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    collector first;
    collector second;
    destinations to;
};

using lines = std::vector<std::string>;

/// What failed and why, as the log tells it.
std::string failure(const std::string &host, int error) {
    return "socklib_syslog_network: " + host + " send failed " + std::to_string(error) + " " + gai_strerror(error);
}

constexpr char ADDRESS_MISSING[] = "socklib_syslog_network: NULL ai_addr in syslog destination addr_info";
constexpr char SENT[] = "socklib_syslog_network: Successfully sent syslog message to 127.0.0.1";

// Destinations that the kernel refuses, each for a reason of its own.
constexpr uint16_t NO_PORT = 0;                     // EINVAL
constexpr char BROADCAST[] = "127.255.255.255";     // EACCES: the sender has not asked to broadcast
constexpr int OTHER_FAMILY_REFUSED = EAFNOSUPPORT;  // an IPv6 destination of an IPv4 socket

TEST_F(SyslogNetwork, PlainLineIsPriorityAndMessageAndNothingElse) {
    to.add(first);
    EXPECT_EQ(send_plain("link is up"), 0);
    EXPECT_EQ(first.lines(), lines{"<134>link is up"});
}

TEST_F(SyslogNetwork, LineWithHeader) {
    to.add(first);
    EXPECT_EQ(send_with_header("link is up"), 0);
    EXPECT_EQ(first.lines(), lines{std::string(HEADER) + "link is up"});
}

TEST_F(SyslogNetwork, AnyFlagButZeroAsksForTheHeader) {
    to.add(first);
    for (const int flag : {-1, 2, 256})
        EXPECT_EQ(socklib_syslog_network(sender, to.list(), 0, 128, 6, flag, "ap", "id", "x"), 0);
    EXPECT_EQ(first.lines(), lines(3, std::string(HEADER) + "x"));
}

TEST_F(SyslogNetwork, PriorityOfAPlainLineIsFacilityOrSeverity) {
    to.add(first);
    for (int facility = LOG_KERN; facility <= LOG_LOCAL7; facility += 8) {
        for (int severity = LOG_EMERG; severity <= LOG_DEBUG; ++severity) {
            EXPECT_EQ(send_plain("x", facility, severity), 0);
            EXPECT_EQ(first.lines(), lines{"<" + std::to_string(facility + severity) + ">x"});
        }
    }
    EXPECT_EQ(send_plain("x", 8, 12), 0);
    EXPECT_EQ(first.lines(), lines{"<12>x"});  // the bit that both have counts once
}

TEST_F(SyslogNetwork, PriorityOfALineWithHeaderIsFacilityOrSeverity) {
    to.add(first);
    for (int facility = LOG_KERN; facility <= LOG_LOCAL7; facility += 8) {
        for (int severity = LOG_EMERG; severity <= LOG_DEBUG; ++severity) {
            EXPECT_EQ(socklib_syslog_network(sender, to.list(), 0, facility, severity, 1, "ap", "id", "x"), 0);
            EXPECT_EQ(first.lines(),
                      lines{"<" + std::to_string(facility + severity) + ">1 2024.03.05T07:08:09.123Z ap - - id - x"});
        }
    }
}

TEST_F(SyslogNetwork, MessageIsFormatted) {
    to.add(first);
    EXPECT_EQ(socklib_syslog_network(sender, to.list(), 0, 128, 6, 0, "ap", "id", "%s has %d of %5.1f%%, 0x%04x",
                                     "ap-7", -3, 12.5, 0xbeu),
              0);
    EXPECT_EQ(first.lines(), lines{"<134>ap-7 has -3 of  12.5%, 0x00be"});
}

TEST_F(SyslogNetwork, HostAndMessageIdAreNoFormats) {
    to.add(first);
    EXPECT_EQ(send_with_header("x", "100%s", "%n"), 0);
    EXPECT_EQ(first.lines(), lines{"<134>1 2024.03.05T07:08:09.123Z 100%s - - %n - x"});
}

TEST_F(SyslogNetwork, PlainLineNeedsNeitherHostNorMessageId) {
    to.add(first);
    EXPECT_EQ(socklib_syslog_network(sender, to.list(), 0, 128, 6, 0, nullptr, nullptr, "x"), 0);
    EXPECT_EQ(first.lines(), lines{"<134>x"});
}

TEST_F(SyslogNetwork, MissingMessageIdIsWrittenAsNull) {
    to.add(first);
    EXPECT_EQ(send_with_header("x", "ap", nullptr), 0);
    EXPECT_EQ(first.lines(), lines{"<134>1 2024.03.05T07:08:09.123Z ap - - (null) - x"});
}

TEST_F(SyslogNetwork, HeaderWithoutAHostIsLeftOut) {
    to.add(first);
    EXPECT_EQ(send_with_header("x", nullptr), 0);
    EXPECT_EQ(first.lines(), lines{"x"});
}

TEST_F(SyslogNetwork, LineOfNothingIsSent) {
    to.add(first).add(second);
    EXPECT_EQ(send_plain("earlier"), 0);
    EXPECT_EQ(send_with_header("", nullptr), 0);
    EXPECT_EQ(first.lines(), (lines{"<134>earlier", ""}));
    EXPECT_EQ(second.lines(), lines{});
}

TEST_F(SyslogNetwork, SecurityModeDoesNotMatter) {
    to.add(first);
    for (const uint16_t mode : {0, 1, 65535})
        EXPECT_EQ(socklib_syslog_network(sender, to.list(), mode, 128, 6, 0, "ap", "id", "x"), 0);
    EXPECT_EQ(first.lines(), lines(3, "<134>x"));
}

/// Messages that make lines of 4093 to 4097 characters behind such a beginning.
template <class Send> void expect_lines_around_the_limit(const collector &at, const std::string &beginning, Send send) {
    for (size_t length = 4093; length <= 4097; ++length) {
        std::string message;
        for (size_t i = 0; beginning.size() + i < length; ++i)
            message += static_cast<char>('a' + i % 26);
        EXPECT_EQ(send(message), 0);
        EXPECT_EQ(at.lines(), lines{(beginning + message).substr(0, 4095)}) << length;
    }
}

TEST_F(SyslogNetwork, PlainLineIsCutTo4095Characters) {
    to.add(first);
    expect_lines_around_the_limit(first, "<134>", [this](const std::string &message) { return send_plain(message); });
}

TEST_F(SyslogNetwork, LineWithHeaderIsCutTo4095Characters) {
    to.add(first);
    expect_lines_around_the_limit(first, HEADER,
                                  [this](const std::string &message) { return send_with_header(message); });
}

TEST_F(SyslogNetwork, MessageOfAnyLengthIsCut) {
    to.add(first);
    const std::string message(100000, 'm');
    EXPECT_EQ(send_plain(message), 0);
    EXPECT_EQ(first.lines(), lines{("<134>" + message).substr(0, 4095)});
}

/// The whole header with a host name that makes it so long.
std::string header_of(size_t length, std::string *host) {
    *host = std::string(length - std::strlen(HEADER) + 2, 'h');
    return "<134>1 2024.03.05T07:08:09.123Z " + *host + " - - id - ";
}

TEST_F(SyslogNetwork, HeaderThatJustFitsLeavesTheMessageWhatIsLeft) {
    to.add(first);
    std::string host;
    for (const size_t length : {4093u, 4094u}) {
        const std::string whole = header_of(length, &host);
        ASSERT_EQ(whole.size(), length);
        EXPECT_EQ(send_with_header("abc", host.c_str()), 0);
        EXPECT_EQ(first.lines(), lines{(whole + "abc").substr(0, 4095)});
    }
}

TEST_F(SyslogNetwork, HeaderThatDoesNotFitIsCutAndLeavesTheMessageNothing) {
    to.add(first);
    std::string host;
    for (const size_t length : {4095u, 4096u, 4097u, 5044u, 70000u}) {
        const std::string whole = header_of(length, &host);
        ASSERT_EQ(whole.size(), length);
        EXPECT_EQ(send_with_header("abc", host.c_str()), 0);
        EXPECT_EQ(first.lines(), lines{whole.substr(0, 4094)}) << length;
    }
}

TEST_F(SyslogNetwork, HostNameOf5000CharactersIsCut) {
    to.add(first);
    const std::string host(5000, 'h');
    EXPECT_EQ(send_with_header("lost", host.c_str()), 0);
    EXPECT_EQ(first.lines(), lines{("<134>1 2024.03.05T07:08:09.123Z " + host).substr(0, 4094)});
}

TEST_F(SyslogNetwork, NothingOfALongLineIsLeftInTheNext) {
    to.add(first);
    EXPECT_EQ(send_plain(std::string(5000, 'l')), 0);
    EXPECT_EQ(send_plain("s"), 0);
    EXPECT_EQ(send_with_header(""), 0);
    EXPECT_EQ(send_with_header("", std::string(5000, 'h').c_str()), 0);
    EXPECT_EQ(send_plain(""), 0);
    const lines got = first.lines();
    ASSERT_EQ(got.size(), 5u);
    EXPECT_EQ(got[1], "<134>s");
    EXPECT_EQ(got[2], HEADER);
    EXPECT_EQ(got[3].size(), 4094u);
    EXPECT_EQ(got[4], "<134>");
}

TEST_F(SyslogNetwork, MessageMayHaveLinesOfItsOwn) {
    to.add(first);
    EXPECT_EQ(send_plain("one\ntwo\n"), 0);
    EXPECT_EQ(first.lines(), lines{"<134>one\ntwo\n"});
}

// Destinations

TEST_F(SyslogNetwork, NullListFailsSilently) {
    expect_no_line([&] {
        EXPECT_EQ(socklib_syslog_network(sender, nullptr, 0, 128, 6, 0, "ap", "id", "x"), -1);
        EXPECT_EQ(socklib_syslog_network(sender, nullptr, 0, 128, 6, 1, "ap", "id", "x"), -1);
    });
}

TEST_F(SyslogNetwork, OnlyTheFirstDestinationThatTakesTheLineGetsIt) {
    to.add(first).add(second);
    EXPECT_EQ(send_plain("x"), 0);
    EXPECT_EQ(first.lines(), lines{"<134>x"});
    EXPECT_EQ(second.lines(), lines{});
}

TEST_F(SyslogNetwork, SuccessIsLogged) {
    to.add(first).add(second);
    expect_line(6, SENT, [&] { EXPECT_EQ(send_plain("x"), 0); });
}

TEST_F(SyslogNetwork, EntryWithoutAddressAloneIsAnError) {
    to.add_without_address();
    expect_line(3, ADDRESS_MISSING, [&] { EXPECT_EQ(send_plain("x"), -1); });
}

TEST_F(SyslogNetwork, EntryWithoutAddressFirstIsPassedOverAndReported) {
    to.add_without_address().add(first);
    log_capture log;
    EXPECT_EQ(send_plain("x"), -1);
    EXPECT_EQ(log.lines(), (lines{ADDRESS_MISSING, SENT}));
    EXPECT_EQ(first.lines(), lines{"<134>x"});
}

TEST_F(SyslogNetwork, EntryWithoutAddressBehindTheOneThatTakesTheLineIsNotReached) {
    to.add(first).add_without_address();
    log_capture log;
    EXPECT_EQ(send_plain("x"), 0);
    EXPECT_EQ(log.lines(), lines{SENT});
    EXPECT_EQ(first.lines(), lines{"<134>x"});
}

TEST_F(SyslogNetwork, EntryWithoutAddressLastIsTheLastError) {
    to.add("127.0.0.1", NO_PORT).add_without_address();
    log_capture log;
    EXPECT_EQ(send_plain("x"), -1);
    EXPECT_EQ(log.lines(), (lines{failure("127.0.0.1", EINVAL), ADDRESS_MISSING}));
}

TEST_F(SyslogNetwork, FailureIsLoggedAtTheErrorLevel) {
    to.add(BROADCAST, 9999);
    expect_line(3, "socklib_syslog_network: 127.255.255.255 send failed 13 Unknown error",
                [&] { EXPECT_EQ(send_plain("x"), EACCES); });
}

TEST_F(SyslogNetwork, FirstFailsAndTheSecondGetsTheLineButTheErrorIsReturned) {
    to.add(BROADCAST, 9999).add(first).add(second);
    log_capture log;
    EXPECT_EQ(send_with_header("x"), EACCES);
    const lines logged = log.lines();
    ASSERT_EQ(logged.size(), 3u);  // the header's comes first
    EXPECT_EQ(lines(logged.begin() + 1, logged.end()), (lines{failure(BROADCAST, EACCES), SENT}));
    EXPECT_EQ(first.lines(), lines{std::string(HEADER) + "x"});
    EXPECT_EQ(second.lines(), lines{});
}

TEST_F(SyslogNetwork, LastOfSeveralFailuresBeforeTheSuccessIsReturned) {
    to.add("127.0.0.1", NO_PORT).add(BROADCAST, 9999).add(first);
    EXPECT_EQ(send_plain("x"), EACCES);
    EXPECT_EQ(first.lines(), lines{"<134>x"});
}

TEST_F(SyslogNetwork, AllFailingReturnsTheLastError) {
    to.add(BROADCAST, 9999).add_without_address().add("127.0.0.1", NO_PORT);
    log_capture log;
    EXPECT_EQ(send_plain("x"), EINVAL);
    EXPECT_EQ(log.lines(), (lines{failure(BROADCAST, EACCES), ADDRESS_MISSING, failure("127.0.0.1", EINVAL)}));
}

TEST_F(SyslogNetwork, ErrorOfOneLineIsForgottenInTheNext) {
    to.add(BROADCAST, 9999).add(first);
    EXPECT_EQ(send_plain("x"), EACCES);
    destinations good;
    good.add(first);
    to = good;
    EXPECT_EQ(send_plain("y"), 0);
    EXPECT_EQ(first.lines(), (lines{"<134>x", "<134>y"}));
}

TEST_F(SyslogNetwork, SocketThatIsNoneFailsForEveryDestination) {
    to.add(first).add(second);
    close(sender);
    sender = -1;
    log_capture log;
    EXPECT_EQ(send_plain("x"), EBADF);
    EXPECT_EQ(log.lines(), lines(2, failure("127.0.0.1", EBADF)));
    EXPECT_EQ(first.lines(), lines{});
}

TEST_F(SyslogNetwork, StreamSocketWithoutAPeerFailsWithoutASignal) {
    to.add(first);
    close(sender);
    sender = socket(AF_INET, SOCK_STREAM, 0);
    log_capture log;
    EXPECT_EQ(send_plain("x"), EPIPE);
    EXPECT_EQ(log.lines(), lines(1, failure("127.0.0.1", EPIPE)));
}

TEST_F(SyslogNetwork, AddressThatIsNoneHasNoText) {
    destinations cut;
    cut.add(first.address, 1);
    to = cut;
    expect_line(3, failure("", EINVAL), [&] { EXPECT_EQ(send_plain("x"), EINVAL); });
}

TEST_F(SyslogNetwork, OverIpv6) {
    const collector third(AF_INET6);
    send_over_ipv6();
    to.add(third);
    expect_line(6, "socklib_syslog_network: Successfully sent syslog message to ::1",
                [&] { EXPECT_EQ(send_plain("x"), 0); });
    EXPECT_EQ(third.lines(), lines(2, "<134>x"));
}

TEST_F(SyslogNetwork, DestinationOfTheOtherFamilyIsPassedOver) {
    const collector third(AF_INET6);
    to.add(third).add(first);
    log_capture log;
    EXPECT_EQ(send_plain("x"), OTHER_FAMILY_REFUSED);
    EXPECT_EQ(log.lines(), (lines{failure("::1", OTHER_FAMILY_REFUSED), SENT}));
    EXPECT_EQ(third.lines(), lines{});
    EXPECT_EQ(first.lines(), lines{"<134>x"});
}

TEST_F(SyslogNetwork, FamiliesMayBeMixedOnASocketOfBoth) {
    const collector third(AF_INET6);
    send_over_ipv6();
    to.add("127.0.0.1", NO_PORT).add(third).add(first);
    log_capture log;
    EXPECT_EQ(send_plain("x"), EINVAL);
    EXPECT_EQ(log.lines(),
              (lines{failure("127.0.0.1", EINVAL), "socklib_syslog_network: Successfully sent syslog message to ::1"}));
    EXPECT_EQ(third.lines(), lines{"<134>x"});
    EXPECT_EQ(first.lines(), lines{});
}

TEST_F(SyslogNetwork, ListOfTheResolverIsTakenAsItIs) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *resolved = nullptr;
    const std::string port = std::to_string(ntohs(reinterpret_cast<const sockaddr_in *>(&first.address)->sin_port));
    ASSERT_EQ(getaddrinfo("127.0.0.1", port.c_str(), &hints, &resolved), 0);
    EXPECT_EQ(socklib_syslog_network(sender, resolved, 0, 128, 6, 0, "ap", "id", "x"), 0);
    freeaddrinfo(resolved);
    EXPECT_EQ(first.lines(), lines{"<134>x"});
}

// Lines in frames of their own. The raw socket is one end of a pair: the other end has the frame.

class SyslogRaw : public testing::Test {
protected:
    SyslogRaw() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends), 0);
    }
    ~SyslogRaw() override {
        close(ends[0]);
        close(ends[1]);
    }
    /// The next frame; empty when there is none.
    std::string frame() {
        char buffer[2000];
        const ssize_t size = recv(ends[1], buffer, sizeof buffer, MSG_DONTWAIT);
        return {buffer, static_cast<size_t>(std::max<ssize_t>(size, 0))};
    }
    /// The next frame's line.
    std::string line() {
        const std::string all = frame();
        EXPECT_GE(all.size(), 42u);
        return all.size() < 42 ? "" : all.substr(42);
    }
    int send(const char *message, const char *destination_ip = "10.1.2.9", uint16_t port = 0, int facility = 128,
             int severity = 6) {
        return socklib_syslog_network_raw(ends[0], "nosuch0", "0a:0b:0c:0d:0e:0f", destination_ip, port, facility,
                                          severity, "%s", message);
    }
    int ends[2];
};

std::string hex(const std::string &bytes) {
    std::string text;
    for (const char byte : bytes) {
        constexpr char DIGITS[] = "0123456789abcdef";
        text += DIGITS[static_cast<uint8_t>(byte) >> 4];
        text += DIGITS[static_cast<uint8_t>(byte) & 15];
    }
    return text;
}

TEST_F(SyslogRaw, WithoutADestinationNothingIsSent) {
    expect_no_line([&] {
        EXPECT_EQ(send("x", nullptr), -1);
        EXPECT_EQ(send("x", ""), -1);
    });
    EXPECT_EQ(frame(), "");
}

TEST_F(SyslogRaw, LineIsPriorityMacAndMessage) {
    expect_no_line([&] { EXPECT_EQ(send("link is up"), 0); });
    EXPECT_EQ(line(), "<134><00:00:00:00:00:00>link is up");
}

TEST_F(SyslogRaw, PriorityIsSeverityOrFacility) {
    for (int facility = LOG_KERN; facility <= LOG_LOCAL7; facility += 8) {
        for (int severity = LOG_EMERG; severity <= LOG_DEBUG; ++severity) {
            EXPECT_EQ(send("x", "10.1.2.9", 0, facility, severity), 0);
            EXPECT_EQ(line(), "<" + std::to_string(facility + severity) + "><00:00:00:00:00:00>x");
        }
    }
    EXPECT_EQ(send("x", "10.1.2.9", 0, 8, 12), 0);
    EXPECT_EQ(line(), "<12><00:00:00:00:00:00>x");  // the bit that both have counts once
}

TEST_F(SyslogRaw, MessageIsFormatted) {
    EXPECT_EQ(socklib_syslog_network_raw(ends[0], "nosuch0", nullptr, "10.1.2.9", 0, 128, 6, "%s has %d%%", "ap", -3),
              0);
    EXPECT_EQ(line(), "<134><00:00:00:00:00:00>ap has -3%");
}

TEST_F(SyslogRaw, LineIsCutTo1023Characters) {
    const std::string beginning = "<134><00:00:00:00:00:00>";
    for (const size_t length : {1021u, 1022u, 1023u, 1024u, 1025u, 5000u}) {
        std::string message;
        for (size_t i = 0; beginning.size() + i < length; ++i)
            message += static_cast<char>('a' + i % 26);
        EXPECT_EQ(send(message.c_str()), 0);
        EXPECT_EQ(line(), (beginning + message).substr(0, 1023)) << length;
    }
}

TEST_F(SyslogRaw, BothPortsAre514WhenNoneIsGiven) {
    EXPECT_EQ(send("x", "10.1.2.9", 0), 0);
    EXPECT_EQ(hex(frame().substr(34, 4)), "02020202");
}

TEST_F(SyslogRaw, BothPortsAreTheGivenOne) {
    for (const uint16_t port : {1, 514, 5140, 65535}) {
        EXPECT_EQ(send("x", "10.1.2.9", port), 0);
        const std::string ports = frame().substr(34, 4);
        const std::string expected = {static_cast<char>(port >> 8), static_cast<char>(port & 255)};
        EXPECT_EQ(ports, expected + expected);
    }
}

TEST_F(SyslogRaw, DeviceThatIsNotThereHasZerosForAddresses) {
    EXPECT_EQ(send("x"), 0);
    const std::string sent = frame();
    EXPECT_EQ(hex(sent.substr(0, 14)), "0a0b0c0d0e0f0000000000000800");
    EXPECT_EQ(hex(sent.substr(26, 8)), "000000000a010209");
}

TEST_F(SyslogRaw, NullDeviceHasZerosForAddresses) {
    EXPECT_EQ(socklib_syslog_network_raw(ends[0], nullptr, nullptr, "10.1.2.9", 0, 128, 6, "x"), 0);
    const std::string sent = frame();
    EXPECT_EQ(hex(sent.substr(0, 14)), "ffffffffffff0000000000000800");
    EXPECT_EQ(hex(sent.substr(26, 8)), "000000000a010209");
    EXPECT_EQ(sent.substr(42), "<134><00:00:00:00:00:00>x");
}

TEST_F(SyslogRaw, WithoutADestinationMacItIsBroadcast) {
    EXPECT_EQ(socklib_syslog_network_raw(ends[0], "nosuch0", nullptr, "10.1.2.9", 0, 128, 6, "x"), 0);
    EXPECT_EQ(hex(frame().substr(0, 6)), "ffffffffffff");
}

TEST_F(SyslogRaw, GroupHasItsOwnMacWhateverTheGivenOne) {
    for (const char *mac : {static_cast<const char *>(nullptr), "0a:0b:0c:0d:0e:0f", "FF:FF:FF:FF:FF:FF"}) {
        EXPECT_EQ(socklib_syslog_network_raw(ends[0], "nosuch0", mac, "239.1.2.3", 0, 128, 6, "x"), 0);
        const std::string sent = frame();
        EXPECT_EQ(hex(sent.substr(0, 6)), "01005e010203");
        EXPECT_EQ(hex(sent.substr(30, 4)), "ef010203");
    }
}

TEST_F(SyslogRaw, DestinationThatIsNoAddressIsRefused) {
    expect_line(3,
                "socklib_send_eth_raw: invalid address, source [00:00:00:00:00:00][(null)] destination "
                "[0a:0b:0c:0d:0e:0f][collector]",
                [this] { EXPECT_EQ(send("x", "collector"), -1); });
    EXPECT_EQ(socklib_syslog_network_raw(ends[0], "nosuch0", "0a:0b", "10.1.2.9", 0, 128, 6, "x"), -1);
    EXPECT_EQ(frame(), "");
}

TEST_F(SyslogRaw, FailedWriteIsReported) {
    expect_line(3, "socklib_send_eth_raw: send failed on socket",
                [] { EXPECT_EQ(socklib_syslog_network_raw(-1, "nosuch0", nullptr, "10.1.2.9", 0, 128, 6, "x"), -1); });
}

TEST_F(SyslogRaw, LoopbackHasAnAddress) {
    EXPECT_EQ(socklib_syslog_network_raw(ends[0], "lo", nullptr, "10.1.2.9", 0, 128, 6, "x"), 0);
    const std::string sent = frame();
    EXPECT_EQ(hex(sent.substr(26, 4)), "7f000001");
    EXPECT_EQ(sent.substr(42), "<134><00:00:00:00:00:00>x");
}

/// A device with addresses of its own: a cable's end.
class SyslogRawDevice : public SyslogRaw {
protected:
    void SetUp() override {
        if (std::system("ip link add sock0 address 02:00:00:00:0a:bc type veth peer name sock1 2>/dev/null") != 0)
            GTEST_SKIP() << "`ip link add` is refused here, so there is no device to send from";
        ASSERT_EQ(std::system("ip addr add 10.1.2.3/24 dev sock0"), 0);
    }
    void TearDown() override {
        EXPECT_EQ(std::system("ip link del sock0 2>/dev/null || true"), 0);
    }
};

TEST_F(SyslogRawDevice, LineAndFrameCarryItsAddresses) {
    EXPECT_EQ(socklib_syslog_network_raw(ends[0], "sock0", "0a:0b:0c:0d:0e:0f", "10.1.2.9", 0, 128, 6, "x"), 0);
    const std::string sent = frame();
    EXPECT_EQ(hex(sent.substr(0, 14)), "0a0b0c0d0e0f020000000abc0800");
    EXPECT_EQ(hex(sent.substr(26, 8)), "0a0102030a010209");
    EXPECT_EQ(sent.substr(42), "<134><02:00:00:00:0A:BC>x");
}

TEST_F(SyslogRawDevice, WithoutAnIpAddressTheSourceIsZero) {
    ASSERT_EQ(std::system("ip addr flush dev sock0"), 0);
    EXPECT_EQ(socklib_syslog_network_raw(ends[0], "sock0", nullptr, "255.255.255.255", 0, 128, 6, "x"), 0);
    const std::string sent = frame();
    EXPECT_EQ(hex(sent.substr(0, 12)), "ffffffffffff020000000abc");
    EXPECT_EQ(hex(sent.substr(26, 8)), "00000000ffffffff");
}

}  // namespace
