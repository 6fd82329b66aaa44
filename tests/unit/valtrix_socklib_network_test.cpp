#include "valtrix_socklib.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <net/if_arp.h>
#include <netdb.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include "fault.h"
#include "fault_point.h"
#include "valtrix_socklib_expect.h"

namespace {

/// Read in place of the kernel's route table when set.
const char *route_table;

/// Answers in place of the resolver when `addresses` is not 0.
struct {
    int addresses;                // of the answer: 10.0.0.1, 10.0.0.2, ...
    size_t size_needed;           // of the buffer
    int family;                   // of the answer
    std::vector<size_t> offered;  // sizes of the buffers so far
} scripted;

int answer_by_script(hostent *host, char *buffer, size_t size, hostent **result) {
    *result = nullptr;
    scripted.offered.push_back(size);
    if (size < scripted.size_needed)
        return ERANGE;
    static in_addr addresses[8];
    auto **list = reinterpret_cast<char **>(buffer);  // from malloc, so aligned
    for (int at = 0; at < scripted.addresses; ++at) {
        addresses[at].s_addr = htonl(0x0a000001u + static_cast<uint32_t>(at));
        list[at] = reinterpret_cast<char *>(&addresses[at]);
    }
    list[scripted.addresses] = nullptr;
    *host = {};
    host->h_addrtype = scripted.family;
    host->h_length = 4;
    host->h_addr_list = list;
    *result = host;
    return 0;
}

/// Answers an ARP query from the kernel's own listing: the emulator of the other machines does not hand the query's
/// argument to the kernel.
int answer_from_arp_listing(arpreq *query) {
    sockaddr_in wanted;
    std::memcpy(&wanted, &query->arp_pa, sizeof wanted);
    std::ifstream listing("/proc/net/arp");
    std::string line;
    while (std::getline(listing, line)) {
        char address[16];
        unsigned flags;
        unsigned mac[6];
        char device[16];
        if (std::sscanf(line.c_str(), "%15s 0x%*x 0x%x %x:%x:%x:%x:%x:%x * %15s", address, &flags, &mac[0], &mac[1],
                        &mac[2], &mac[3], &mac[4], &mac[5], device) != 9)
            continue;
        if (inet_addr(address) != wanted.sin_addr.s_addr || std::strcmp(device, query->arp_dev) != 0)
            continue;
        std::copy(std::begin(mac), std::end(mac), query->arp_ha.sa_data);
        query->arp_flags = static_cast<int>(flags);
        return 0;
    }
    errno = ENXIO;
    return -1;
}

}  // namespace

extern "C" int __real_ioctl(int fd, unsigned long request, void *argument);
extern "C" int __wrap_ioctl(int fd, unsigned long request, void *argument) {
    if (fault_is_due("ioctl"))
        return -1;
    const int result = __real_ioctl(fd, request, argument);
    auto *query = static_cast<arpreq *>(argument);
    if (result < 0 && errno == EPFNOSUPPORT && request == SIOCGARP && query->arp_pa.sa_family == AF_INET)
        return answer_from_arp_listing(query);
    return result;
}

extern "C" FILE *__real_fopen(const char *path, const char *mode);
extern "C" FILE *__wrap_fopen(const char *path, const char *mode) {
    const bool redirected = route_table != nullptr && std::strcmp(path, "/proc/net/route") == 0;
    return __real_fopen(redirected ? route_table : path, mode);
}

extern "C" int __real_gethostbyname_r(const char *name, hostent *host, char *buffer, size_t size, hostent **result,
                                      int *error);
extern "C" int __wrap_gethostbyname_r(const char *name, hostent *host, char *buffer, size_t size, hostent **result,
                                      int *error) {
    return scripted.addresses != 0 ? answer_by_script(host, buffer, size, result)
                                   : __real_gethostbyname_r(name, host, buffer, size, result, error);
}

namespace {

using mac_bytes = std::array<uint8_t, 6>;

uint32_t address_of(const char *text) {
    return inet_addr(text);
}

// Interfaces: a pair of cables of the sandbox, "sock0" with 10.1.2.3/24 and "sock1" without an address.

class SocklibInterface : public testing::Test {
protected:
    void SetUp() override {
        if (std::system("ip link add sock0 address 02:00:00:00:00:01 type veth peer name sock1 2>/dev/null") != 0)
            GTEST_SKIP() << "`ip link add` is refused here, so there is no interface to ask about";
        ASSERT_EQ(std::system("ip addr add 10.1.2.3/24 broadcast 10.1.2.250 dev sock0 && ip link set sock0 up"), 0);
    }
    void TearDown() override {
        clear_faults();
        EXPECT_EQ(std::system("ip link del sock0 2>/dev/null || true"), 0);
    }
};

TEST_F(SocklibInterface, AddressesOfAnInterface) {
    uint32_t address = 0;
    uint32_t mask = 0;
    uint32_t broadcast = 0;
    EXPECT_EQ(socklib_get_saddr("sock0", &address), 0);
    EXPECT_EQ(socklib_get_netmask("sock0", &mask), 0);
    EXPECT_EQ(socklib_get_brdaddr("sock0", &broadcast), 0);
    EXPECT_EQ(address, address_of("10.1.2.3"));
    EXPECT_EQ(mask, address_of("255.255.255.0"));
    EXPECT_EQ(broadcast, address_of("10.1.2.250"));
}

TEST_F(SocklibInterface, HardwareAddressOfAnInterface) {
    mac_bytes mac{};
    EXPECT_EQ(socklib_get_hwaddr("sock0", mac.data()), 0);
    EXPECT_EQ(mac, (mac_bytes{0x02, 0, 0, 0, 0, 0x01}));
}

TEST_F(SocklibInterface, InterfaceWithoutAddressFailsAndChangesNothing) {
    uint32_t address = 77;
    EXPECT_EQ(socklib_get_saddr("sock1", &address), -1);
    EXPECT_EQ(socklib_get_netmask("sock1", &address), -1);
    EXPECT_EQ(socklib_get_brdaddr("sock1", &address), -1);
    EXPECT_EQ(address, 77u);
}

TEST_F(SocklibInterface, NameOfFifteenCharactersIsAsked) {
    ASSERT_EQ(std::system("ip link set sock1 name abcdefghijklmno && ip addr add 10.9.9.9/32 dev abcdefghijklmno"), 0);
    uint32_t address = 0;
    EXPECT_EQ(socklib_get_saddr("abcdefghijklmno", &address), 0);
    EXPECT_EQ(address, address_of("10.9.9.9"));
}

TEST_F(SocklibInterface, MacOfANeighbour) {
    ASSERT_EQ(std::system("ip neigh add 10.1.2.9 lladdr 02:aa:bb:cc:dd:09 nud permanent dev sock0"), 0);
    mac_bytes mac{};
    EXPECT_EQ(socklib_get_macfromip("sock0", address_of("10.1.2.9"), mac.data()), 0);
    EXPECT_EQ(mac, (mac_bytes{0x02, 0xaa, 0xbb, 0xcc, 0xdd, 0x09}));
}

TEST_F(SocklibInterface, UnknownNeighbourIsLoggedAndChangesNothing) {
    mac_bytes mac{9};
    expect_line(3, "socklib_get_macfromip: Ioctl failed, errno " + std::to_string(ENXIO),
                [&] { EXPECT_EQ(socklib_get_macfromip("sock0", address_of("10.1.2.10"), mac.data()), -1); });
    EXPECT_EQ(mac, (mac_bytes{9}));
}

TEST_F(SocklibInterface, NeighbourThatHasNotAnsweredHasNoMac) {
    ASSERT_EQ(std::system("ip neigh add 10.1.2.11 nud incomplete dev sock0"), 0);
    mac_bytes mac{9};
    EXPECT_EQ(socklib_get_macfromip("sock0", address_of("10.1.2.11"), mac.data()), -1);
    EXPECT_EQ(mac, (mac_bytes{9}));
}

TEST_F(SocklibInterface, DefaultGatewayOfTheDevice) {
    ASSERT_EQ(std::system("ip route add default via 10.1.2.1 dev sock0"), 0);
    uint32_t gateway = 0;
    EXPECT_EQ(socklib_get_defgw("sock0", &gateway), 0);
    EXPECT_EQ(gateway, address_of("10.1.2.1"));
}

TEST_F(SocklibInterface, DeviceWithRoutesButNoDefaultHasNoGateway) {
    uint32_t gateway = 77;
    EXPECT_EQ(socklib_get_defgw("sock0", &gateway), -1);
    EXPECT_EQ(gateway, 77u);
}

// The loopback interface is always there.

class SocklibQuery : public testing::Test {
protected:
    void TearDown() override {
        clear_faults();
    }
};

using address_query = int (*)(const char *device, uint32_t *address);
constexpr address_query ADDRESS_QUERIES[] = {socklib_get_saddr, socklib_get_netmask, socklib_get_brdaddr};

TEST_F(SocklibQuery, Loopback) {
    uint32_t address = 0;
    EXPECT_EQ(socklib_get_saddr("lo", &address), 0);
    EXPECT_EQ(address, address_of("127.0.0.1"));
    EXPECT_EQ(socklib_get_netmask("lo", &address), 0);
    EXPECT_EQ(address, address_of("255.0.0.0"));
    mac_bytes mac{9};
    EXPECT_EQ(socklib_get_hwaddr("lo", mac.data()), 0);
    EXPECT_EQ(mac, mac_bytes{});
}

TEST_F(SocklibQuery, UnknownInterfaceFailsSilentlyAndChangesNothing) {
    uint32_t address = 77;
    mac_bytes mac{9};
    expect_no_line([&] {
        for (const address_query query : ADDRESS_QUERIES)
            EXPECT_EQ(query("nosuch0", &address), -1);
        EXPECT_EQ(socklib_get_hwaddr("nosuch0", mac.data()), -1);
    });
    EXPECT_EQ(address, 77u);
    EXPECT_EQ(mac, (mac_bytes{9}));
}

TEST_F(SocklibQuery, NameLongerThanTheKernelsFailsWithoutAsking) {
    fail_every_call("socket", EIO);
    uint32_t address = 77;
    mac_bytes mac{9};
    for (const std::string &name : {std::string(16, 'a'), std::string(5000, 'a')}) {
        for (const address_query query : ADDRESS_QUERIES)
            EXPECT_EQ(query(name.c_str(), &address), -1);
        EXPECT_EQ(socklib_get_hwaddr(name.c_str(), mac.data()), -1);
        EXPECT_EQ(socklib_get_macfromip(name.c_str(), address_of("10.1.2.9"), mac.data()), -1);
        EXPECT_EQ(socklib_get_defgw(name.c_str(), &address), -1);
    }
    EXPECT_EQ(faults_fired("socket"), 0);
    EXPECT_EQ(address, 77u);
    EXPECT_EQ(mac, (mac_bytes{9}));
}

TEST_F(SocklibQuery, NullArgumentsFail) {
    uint32_t address = 77;
    mac_bytes mac{9};
    for (const address_query query : ADDRESS_QUERIES) {
        EXPECT_EQ(query(nullptr, &address), -1);
        EXPECT_EQ(query("lo", nullptr), -1);
    }
    EXPECT_EQ(socklib_get_hwaddr(nullptr, mac.data()), -1);
    EXPECT_EQ(socklib_get_hwaddr("lo", nullptr), -1);
    EXPECT_EQ(socklib_get_macfromip(nullptr, 0, mac.data()), -1);
    EXPECT_EQ(socklib_get_macfromip("lo", 0, nullptr), -1);
    EXPECT_EQ(socklib_get_defgw(nullptr, &address), -1);
    EXPECT_EQ(socklib_get_defgw("lo", nullptr), -1);
}

TEST_F(SocklibQuery, FailingSocketFailsTheQuery) {
    uint32_t address = 77;
    mac_bytes mac{9};
    fail_every_call("socket", EMFILE);
    for (const address_query query : ADDRESS_QUERIES)
        EXPECT_EQ(query("lo", &address), -1);
    EXPECT_EQ(socklib_get_hwaddr("lo", mac.data()), -1);
    EXPECT_EQ(faults_fired("socket"), 4);
    expect_line(3, "socklib_get_macfromip: Ioctl failed, errno " + std::to_string(EMFILE),
                [&] { EXPECT_EQ(socklib_get_macfromip("lo", address_of("127.0.0.2"), mac.data()), -1); });
    EXPECT_EQ(address, 77u);
    EXPECT_EQ(mac, (mac_bytes{9}));
}

TEST_F(SocklibQuery, FailingIoctlFailsTheQueryAndClosesTheSocket) {
    uint32_t address = 77;
    mac_bytes mac{9};
    const size_t descriptors = open_descriptors();
    fail_every_call("ioctl", EIO);
    for (const address_query query : ADDRESS_QUERIES)
        EXPECT_EQ(query("lo", &address), -1);
    EXPECT_EQ(socklib_get_hwaddr("lo", mac.data()), -1);
    EXPECT_EQ(faults_fired("ioctl"), 4);
    expect_line(3, "socklib_get_macfromip: Ioctl failed, errno " + std::to_string(EIO),
                [&] { EXPECT_EQ(socklib_get_macfromip("lo", address_of("127.0.0.2"), mac.data()), -1); });
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(address, 77u);
    EXPECT_EQ(mac, (mac_bytes{9}));
}

TEST_F(SocklibQuery, NoDescriptorStaysOpen) {
    const size_t descriptors = open_descriptors();
    uint32_t address = 0;
    mac_bytes mac{};
    EXPECT_EQ(socklib_get_saddr("lo", &address), 0);
    EXPECT_EQ(socklib_get_hwaddr("lo", mac.data()), 0);
    EXPECT_EQ(socklib_get_defgw("nosuch0", &address), -1);
    EXPECT_EQ(open_descriptors(), descriptors);
}

// Route tables the kernel of the moment does not have: the file is a stand-in. Its addresses are numbers of the
// machine.

std::string route(const char *device, const char *destination, const std::string &gateway) {
    return std::string(device) + "\t" + destination + "\t" + gateway + "\t0003\t0\t0\t0\t00000000\t0\t0\t0   \n";
}

std::string column(const char *address, const char *format = "%08X") {
    char digits[9];
    std::snprintf(digits, sizeof digits, format, address_of(address));
    return digits;
}

class SocklibDefaultGateway : public testing::Test {
protected:
    void use_table(const std::string &rows) {
        std::ofstream("/tmp/route") << "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow"
                                       "\tIRTT\n"
                                    << rows;
        route_table = "/tmp/route";
    }
    void TearDown() override {
        route_table = nullptr;
    }
    uint32_t gateway = 77;
};

TEST_F(SocklibDefaultGateway, ColumnHoldsTheAddressAsANumberOfTheMachine) {
    use_table(route("eth0", "0000FEA9", "00000000") + route("eth0", "00000000", column("192.168.1.254")));
    EXPECT_EQ(socklib_get_defgw("eth0", &gateway), 0);
    EXPECT_EQ(gateway, address_of("192.168.1.254"));
}

TEST_F(SocklibDefaultGateway, DigitsOfBothCases) {
    use_table(route("eth0", "00000000", column("171.205.239.10", "%08x")));
    EXPECT_EQ(socklib_get_defgw("eth0", &gateway), 0);
    EXPECT_EQ(gateway, address_of("171.205.239.10"));
}

TEST_F(SocklibDefaultGateway, OnlyTheDevicesOwnRouteCounts) {
    use_table(route("eth0", "00000000", column("10.0.0.1")) + route("eth1", "00000000", column("10.0.1.1")));
    EXPECT_EQ(socklib_get_defgw("eth1", &gateway), 0);
    EXPECT_EQ(gateway, address_of("10.0.1.1"));
    EXPECT_EQ(socklib_get_defgw("eth", &gateway), -1);
}

TEST_F(SocklibDefaultGateway, NameOfFifteenCharactersIsFound) {
    use_table(route("abcdefghijklmno", "00000000", column("10.0.0.1")));
    EXPECT_EQ(socklib_get_defgw("abcdefghijklmno", &gateway), 0);
    EXPECT_EQ(gateway, address_of("10.0.0.1"));
}

TEST_F(SocklibDefaultGateway, TheFirstOfSeveralCounts) {
    use_table(route("eth0", "00000000", column("10.0.0.1")) + route("eth0", "00000000", column("10.0.0.2")));
    EXPECT_EQ(socklib_get_defgw("eth0", &gateway), 0);
    EXPECT_EQ(gateway, address_of("10.0.0.1"));
}

TEST_F(SocklibDefaultGateway, RouteStraightToTheLinkHasGatewayZero) {
    use_table(route("eth0", "00000000", "00000000"));
    EXPECT_EQ(socklib_get_defgw("eth0", &gateway), 0);
    EXPECT_EQ(gateway, 0u);
}

TEST_F(SocklibDefaultGateway, BrokenLinesArePassedOver) {
    use_table("\neth0\neth0\t00000000\n" + route("eth0", "00000000", "0A0000G1") + route("eth0", "00000000", "0A0001") +
              std::string(2000, 'x') + "\n" + route("aVeryLongInterfaceName", "00000000", "01010101") +
              route("eth0", "00000000", column("10.0.0.9")));
    EXPECT_EQ(socklib_get_defgw("eth0", &gateway), 0);
    EXPECT_EQ(gateway, address_of("10.0.0.9"));
}

TEST_F(SocklibDefaultGateway, ColumnsAfterTheGatewayDoNotMatter) {
    use_table("eth0\t00000000\t" + column("10.0.0.1") + "\n");
    EXPECT_EQ(socklib_get_defgw("eth0", &gateway), 0);
    EXPECT_EQ(gateway, address_of("10.0.0.1"));
}

TEST_F(SocklibDefaultGateway, ColumnsOfMoreThanEightDigitsArePassedOver) {
    use_table(route("eth0", "000000000", "01010101") + route("eth0", "0000000001010101", "02020202") +
              route("eth0", "00000000", "010101010") + route("eth0", "00000000", column("10.0.0.9")));
    EXPECT_EQ(socklib_get_defgw("eth0", &gateway), 0);
    EXPECT_EQ(gateway, address_of("10.0.0.9"));
}

TEST_F(SocklibDefaultGateway, TableWithoutADefaultFailsSilently) {
    use_table(route("eth0", "0000FEA9", "00000000"));
    expect_no_line([&] { EXPECT_EQ(socklib_get_defgw("eth0", &gateway), -1); });
    EXPECT_EQ(gateway, 77u);
}

TEST_F(SocklibDefaultGateway, UnreadableTableIsLogged) {
    route_table = "/tmp/nosuch/route";
    expect_line(3, "socklib_get_defgw: Some error (" + std::to_string(ENOENT) + ") in opening file /proc/net/route",
                [&] { EXPECT_EQ(socklib_get_defgw("eth0", &gateway), -1); });
    EXPECT_EQ(gateway, 77u);
}

// Name resolution

TEST(SocklibGethostbyname, KnownNameAndLiteral) {
    char text[16];
    EXPECT_EQ(socklib_gethostbyname("localhost", text), 0);
    EXPECT_STREQ(text, "127.0.0.1");
    expect_line(6, "socklib_gethostbyname: Server IP : 203.113.200.201",
                [&] { EXPECT_EQ(socklib_gethostbyname("203.113.200.201", text), 0); });
    EXPECT_STREQ(text, "203.113.200.201");
}

TEST(SocklibGethostbyname, UnknownNameIsLoggedAndChangesNothing) {
    char text[16] = "kept";
    expect_line(3, "socklib_gethostbyname: DNS Entry for no-such-host.invalid not found!",
                [&] { EXPECT_EQ(socklib_gethostbyname("no-such-host.invalid", text), -1); });
    EXPECT_STREQ(text, "kept");
}

TEST(SocklibGethostbyname, NullArgumentsFail) {
    char text[16];
    expect_line(3, "socklib_gethostbyname: DNS Entry for (null) not found!",
                [&] { EXPECT_EQ(socklib_gethostbyname(nullptr, text), -1); });
    EXPECT_EQ(socklib_gethostbyname("localhost", nullptr), -1);
}

TEST(SocklibGethostbyname, ThreadsDoNotMixTheirAnswers) {
    const auto resolve_often = [](const char *address) {
        for (int turn = 0; turn < 200; ++turn) {
            char text[16];
            ASSERT_EQ(socklib_gethostbyname(address, text), 0);
            ASSERT_STREQ(text, address);
        }
    };
    std::thread other(resolve_often, "10.0.0.1");
    resolve_often("192.168.100.200");
    other.join();
}

TEST(SocklibGetaddrinfo, UsesTheCallersFamilyAndSocketType) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *result = nullptr;
    ASSERT_EQ(socklib_getaddrinfo("192.0.2.7", &result, &hints), 0);
    EXPECT_EQ(result->ai_family, AF_INET);
    EXPECT_EQ(result->ai_socktype, SOCK_DGRAM);
    EXPECT_EQ(reinterpret_cast<sockaddr_in *>(result->ai_addr)->sin_addr.s_addr, address_of("192.0.2.7"));
    EXPECT_EQ(result->ai_next, nullptr);
    freeaddrinfo(result);
}

TEST(SocklibGetaddrinfo, AddressOfAnotherFamilyThanTheCallersFails) {
    addrinfo hints{};
    hints.ai_family = AF_INET6;
    addrinfo *result = nullptr;
    EXPECT_NE(socklib_getaddrinfo("192.0.2.7", &result, &hints), 0);
}

TEST(SocklibGetaddrinfo, OtherHintsDoNotCount) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST;
    hints.ai_family = AF_INET;
    addrinfo *result = nullptr;
    ASSERT_EQ(socklib_getaddrinfo("localhost", &result, &hints), 0);
    freeaddrinfo(result);
}

TEST(SocklibGetaddrinfo, WithoutHintsEveryFamilyIsAsked) {
    addrinfo *result = nullptr;
    ASSERT_EQ(socklib_getaddrinfo("fe80::1", &result, nullptr), 0);
    EXPECT_EQ(result->ai_family, AF_INET6);
    freeaddrinfo(result);
}

TEST(SocklibGetaddrinfo, SuccessIsLogged) {
    expect_line(7, "socklib_getaddrinfo:  getaddrinfo return val= [0]", [] {
        addrinfo *result = nullptr;
        ASSERT_EQ(socklib_getaddrinfo("192.0.2.7", &result, nullptr), 0);
        freeaddrinfo(result);
    });
}

TEST(SocklibGetaddrinfo, FailureReturnsAndLogsTheCode) {
    expect_line(7, "socklib_getaddrinfo:  getaddrinfo return val= [" + std::to_string(EAI_NONAME) + "]", [] {
        addrinfo *result = nullptr;
        EXPECT_EQ(socklib_getaddrinfo(nullptr, &result, nullptr), EAI_NONAME);
        EXPECT_EQ(result, nullptr);
    });
}

class SocklibAllAddresses : public testing::Test {
protected:
    void TearDown() override {
        clear_faults();
        scripted = {};
        std::free(addresses);
    }
    void script(int answers, size_t size_needed) {
        scripted = {answers, size_needed, AF_INET, {}};
    }
    int get() {
        return socklib_getalladdrsbyname("collector", &addresses, &count);
    }
    uint32_t *addresses = nullptr;
    int count = -1;
};

TEST_F(SocklibAllAddresses, OfARealName) {
    ASSERT_EQ(socklib_getalladdrsbyname("localhost", &addresses, &count), 0);
    ASSERT_GE(count, 1);
    EXPECT_EQ(addresses[0], address_of("127.0.0.1"));
}

TEST_F(SocklibAllAddresses, AreReturnedInOrder) {
    script(3, 0);
    ASSERT_EQ(get(), 0);
    ASSERT_EQ(count, 3);
    EXPECT_EQ(addresses[0], address_of("10.0.0.1"));
    EXPECT_EQ(addresses[1], address_of("10.0.0.2"));
    EXPECT_EQ(addresses[2], address_of("10.0.0.3"));
}

TEST_F(SocklibAllAddresses, TheBufferGrowsUntilTheAnswerFits) {
    script(2, 5000);
    ASSERT_EQ(get(), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(scripted.offered, (std::vector<size_t>{1024, 2048, 4096, 8192}));
}

TEST_F(SocklibAllAddresses, AnAnswerThatNeverFitsFails) {
    script(1, SIZE_MAX);
    EXPECT_EQ(get(), -1);
    EXPECT_EQ(scripted.offered.back(), 1024u * 1024);
    EXPECT_EQ(addresses, nullptr);
    EXPECT_EQ(count, 0);
}

TEST_F(SocklibAllAddresses, AnAnswerOfAnotherFamilyFails) {
    script(1, 0);
    scripted.family = AF_INET6;
    EXPECT_EQ(get(), -1);
    EXPECT_EQ(addresses, nullptr);
}

TEST_F(SocklibAllAddresses, UnknownNameFailsSilently) {
    expect_no_line([&] { EXPECT_EQ(socklib_getalladdrsbyname("no-such-host.invalid", &addresses, &count), -1); });
    EXPECT_EQ(addresses, nullptr);
    EXPECT_EQ(count, 0);
}

TEST_F(SocklibAllAddresses, NullArgumentsFail) {
    EXPECT_EQ(socklib_getalladdrsbyname(nullptr, &addresses, &count), -1);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(socklib_getalladdrsbyname("localhost", nullptr, &count), -1);
    EXPECT_EQ(socklib_getalladdrsbyname("localhost", &addresses, nullptr), -1);
}

TEST_F(SocklibAllAddresses, MemoryShortAtAnyGrowthFails) {
    for (int growth = 1; growth <= 4; ++growth) {
        script(1, 5000);
        fail_nth_call("realloc", growth);
        EXPECT_EQ(get(), -1);
        EXPECT_EQ(faults_fired("realloc"), 1);
        EXPECT_EQ(scripted.offered.size(), static_cast<size_t>(growth - 1));
        EXPECT_EQ(addresses, nullptr);
        EXPECT_EQ(count, 0);
    }
}

TEST_F(SocklibAllAddresses, MemoryShortForTheListFails) {
    script(3, 0);
    fail_nth_call("malloc", 1);
    EXPECT_EQ(get(), -1);
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_EQ(addresses, nullptr);
    EXPECT_EQ(count, 0);
}

TEST_F(SocklibAllAddresses, FirstAddressWithMemoryShortIsReportedAsUnknownName) {
    script(1, 0);
    char text[16] = "kept";
    fail_every_call("realloc");
    expect_line(3, "socklib_gethostbyname: DNS Entry for collector not found!",
                [&] { EXPECT_EQ(socklib_gethostbyname("collector", text), -1); });
    EXPECT_STREQ(text, "kept");
}

TEST_F(SocklibAllAddresses, TheFirstIsTheOneOfTheSingleLookup) {
    script(3, 5000);
    char text[16];
    EXPECT_EQ(socklib_gethostbyname("collector", text), 0);
    EXPECT_STREQ(text, "10.0.0.1");
}

}  // namespace
