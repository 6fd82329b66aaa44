// The communication VLAN, the state of interfaces, inter-AP parameters, steering attempts and the gateway of a VLAN.
#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include "files.h"
#include "wl_evt_payloads.h"
#include "wl_synch_fixture.h"

namespace {

/// The kernel that answers for interfaces.
struct {
    bool used;
    int socket_error;
    int ioctl_error;
    unsigned flags;
    int domain, type, protocol;  // of the last socket
    int descriptor;
    unsigned long request;
    std::string name;  // of the last question
} kernel;

}  // namespace

extern "C" int __real_socket(int domain, int type, int protocol);
extern "C" int __wrap_socket(int domain, int type, int protocol) {
    if (!kernel.used)
        return __real_socket(domain, type, protocol);
    kernel.domain = domain;
    kernel.type = type;
    kernel.protocol = protocol;
    errno = kernel.socket_error;
    return kernel.descriptor = kernel.socket_error != 0 ? -1 : open("/dev/null", O_RDONLY | O_CLOEXEC);
}

extern "C" int __real_ioctl(int fd, unsigned long request, void *argument);
extern "C" int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    if (!kernel.used)
        return __real_ioctl(fd, request, argument);
    EXPECT_EQ(fd, kernel.descriptor);
    kernel.request = request;
    kernel.name = static_cast<ifreq *>(argument)->ifr_name;
    static_cast<ifreq *>(argument)->ifr_flags = static_cast<short>(kernel.flags);
    errno = kernel.ioctl_error;
    return kernel.ioctl_error != 0 ? -1 : 0;
}

namespace {

class SynchParams : public SynchFixture {
protected:
    SynchParams() {
        kernel = {};
        std::memset(g_comm_vlan_iface_name, 0, sizeof g_comm_vlan_iface_name);
        unlink(g_discovery_conf_file);
    }

    ~SynchParams() override {
        unlink("/tmp/profile258/nat.conf");
        unlink("/tmp/network5923/network.conf");
    }
};

/// Sets the communication VLAN from a file.
///
/// @return what that logs at level 2
lines set_from(const std::string &text) {
    mkdir("/opt/sensor", 0755);
    write_file("/opt/sensor/discovery.conf", text);
    return lines_at_level(2, set_comm_vlan_iface_name);
}

lines pair_and_name(const std::string &value, const std::string &key, const std::string &name) {
    return {"set_comm_vlan_iface_name: pos : [" + value + "], buf : [" + key + "]", "",
            "set_comm_vlan_iface_name: g_comm_vlan_iface_name : " + name};
}

bool is_open(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

/// The record of profile 258 behind the tunnel of profile 5923.
const byte_string GATEWAY = bytes_of("01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 13 14 15 16 17 17 23 01");

int send_gateway() {
    vre_vg_evt_data gateway;
    static_assert(sizeof gateway == 26);
    std::memcpy(&gateway, GATEWAY.data(), sizeof gateway);
    return send_vlan_gateway_info_packet(&gateway);
}

}  // namespace

TEST_F(SynchParams, WithoutItsFileTheCommunicationVlanStaysUnknown) {
    const lines expected{"set_comm_vlan_iface_name: Could not open file : /opt/sensor/discovery.conf, error : No such "
                         "file or directory"};
    EXPECT_EQ(lines_at_level(7, set_comm_vlan_iface_name), expected);
    EXPECT_STREQ(g_comm_vlan_iface_name, "");
    EXPECT_EQ(lines_at_level(3, set_comm_vlan_iface_name), expected);
    EXPECT_EQ(lines_at_level(2, set_comm_vlan_iface_name), lines{});
}

TEST_F(SynchParams, TheCommunicationVlanNamesItsInterface) {
    EXPECT_EQ(set_from("communication_vlan=12\n"), pair_and_name("12", "communication_vlan", "br0.12"));
    EXPECT_STREQ(g_comm_vlan_iface_name, "br0.12");
    EXPECT_EQ(lines_at_level(1, set_comm_vlan_iface_name), lines{});
}

TEST_F(SynchParams, BlanksAroundKeyAndValueAreAllowed) {
    for (const char *const text : {"communication_vlan = 12", " \t\v\f\rcommunication_vlan\t=\t12\t\n",
                                   "communication_vlan more = 12 more\n", "communication_vlan=12\r\n"}) {
        g_comm_vlan_iface_name[0] = '\0';
        EXPECT_EQ(set_from(text), pair_and_name("12", "communication_vlan", "br0.12"));
    }
}

TEST_F(SynchParams, VlansThatMeanNoneLeaveTheBridgeItself) {
    for (const std::string value : {"0", "-1", "none", "", "00"}) {
        EXPECT_EQ(set_from("communication_vlan=" + value), pair_and_name(value, "communication_vlan", "br0"));
        EXPECT_STREQ(g_comm_vlan_iface_name, "br0");
    }
}

TEST_F(SynchParams, AnyOtherNumberIsTaken) {
    set_from("communication_vlan=-5");
    EXPECT_STREQ(g_comm_vlan_iface_name, "br0.-5");
    set_from("communication_vlan=-2147483649");
    EXPECT_STREQ(g_comm_vlan_iface_name, "br0.-2147483648");
    set_from("communication_vlan=4094x");
    EXPECT_STREQ(g_comm_vlan_iface_name, "br0.4094");
}

TEST_F(SynchParams, WithoutTheKeyTheInterfaceIsTheBridge) {
    const lines expected{"set_comm_vlan_iface_name: g_comm_vlan_iface_name : br0"};
    EXPECT_EQ(set_from(""), expected);
    EXPECT_EQ(set_from("\n\ncommunication_vlan 12\n"), expected);
    EXPECT_EQ(set_from("Communication_vlan=12\n"), pair_and_name("12", "Communication_vlan", "br0"));
    EXPECT_EQ(set_from("communication_vlan2=12\n"), pair_and_name("12", "communication_vlan2", "br0"));
    EXPECT_EQ(set_from("=\n"), pair_and_name("", "", "br0"));
}

TEST_F(SynchParams, EveryPairIsLoggedUpToTheFirstCommunicationVlan) {
    const lines expected{"set_comm_vlan_iface_name: pos : [b=c], buf : [a]", "",
                         "set_comm_vlan_iface_name: pos : [7], buf : [communication_vlan]", "",
                         "set_comm_vlan_iface_name: g_comm_vlan_iface_name : br0.7"};
    EXPECT_EQ(set_from("a=b=c\n\nno pair\ncommunication_vlan=7\ncommunication_vlan=8\nd=e\n"), expected);
}

TEST_F(SynchParams, ALineIsReadInPiecesOf511Characters) {
    set_from(std::string(511, 'x') + "communication_vlan=12\n");
    EXPECT_STREQ(g_comm_vlan_iface_name, "br0.12");
    set_from(std::string(510, 'x') + "communication_vlan=13\n");
    EXPECT_STREQ(g_comm_vlan_iface_name, "br0");
}

TEST_F(SynchParams, AnInterfaceThatIsUpAndRunningIsUp) {
    kernel.used = true;
    kernel.flags = IFF_UP | IFF_RUNNING | IFF_BROADCAST | 0x8000;
    EXPECT_EQ(lines_at_level(7, [] { EXPECT_EQ(is_iface_up("eth0"), 0); }), lines{});
    EXPECT_EQ(kernel.domain, PF_PACKET);
    EXPECT_EQ(kernel.type, SOCK_RAW | SOCK_CLOEXEC);
    EXPECT_EQ(kernel.protocol, htons(0x890D));
    EXPECT_EQ(kernel.request, static_cast<unsigned long>(SIOCGIFFLAGS));
    EXPECT_EQ(kernel.name, "eth0");
    EXPECT_FALSE(is_open(kernel.descriptor));
}

TEST_F(SynchParams, AnInterfaceThatIsNotUpOrNotRunningIsDown) {
    kernel.used = true;
    const struct {
        unsigned flags;
        const char *text;
    } cases[] = {{0, "00"}, {IFF_UP, "01"}, {IFF_RUNNING, "40"}, {IFF_BROADCAST | IFF_UP, "03"}, {0x9002, "9002"}};
    for (const auto &[flags, text] : cases) {
        kernel.flags = flags;
        expect_logged(3, std::string("is_iface_up: ioctl[SIOCGIFFLAGS], iface name eth0 flags ") + text,
                      [] { EXPECT_EQ(is_iface_up("eth0"), -1); });
        EXPECT_FALSE(is_open(kernel.descriptor));
    }
}

TEST_F(SynchParams, AnInterfaceIsDownWhenItCannotBeAsked) {
    kernel.used = true;
    kernel.socket_error = EPERM;
    expect_logged(3, "is_iface_up: socket(PF_PACKET), error [Operation not permitted]",
                  [] { EXPECT_EQ(is_iface_up("eth0"), -1); });
    kernel.socket_error = 0;
    kernel.ioctl_error = ENODEV;
    kernel.flags = IFF_UP | IFF_RUNNING;
    expect_logged(3, "is_iface_up: ioctl[SIOCGIFFLAGS], error [No such device]",
                  [] { EXPECT_EQ(is_iface_up("eth0"), -1); });
    EXPECT_FALSE(is_open(kernel.descriptor));
}

TEST_F(SynchParams, AnInterfaceNameIsCutAt15CharactersForTheKernelAndLoggedWhole) {
    kernel.used = true;
    expect_logged(3, "is_iface_up: ioctl[SIOCGIFFLAGS], iface name a234567890123456789 flags 00",
                  [] { EXPECT_EQ(is_iface_up("a234567890123456789"), -1); });
    EXPECT_EQ(kernel.name, "a23456789012345");
}

TEST_F(SynchParams, AnInterfaceWithoutANameIsDown) {
    kernel.used = true;
    kernel.protocol = -1;
    EXPECT_EQ(lines_at_level(7, [] { EXPECT_EQ(is_iface_up(nullptr), -1); }), lines{});
    EXPECT_EQ(kernel.protocol, -1);  // the kernel is not asked
}

TEST_F(SynchParams, InterApParametersAreTwoItems) {
    uint8_t parameters[] = {0xFE, 0x07, 0x55};
    for (int len = 2; len <= 3; len++) {
        handle_inter_ap_synch_params(VRE_INTER_AP_SYNCH_CONF, parameters, len);
        EXPECT_EQ(sent(), packets{bytes_of("01 0C 02 00 03 00 00 06 FF FF FF FF FF FF 09 01 FE 0A 01 07")});
    }
    EXPECT_EQ(handle_inter_ap_params(parameters), 0);
}

TEST_F(SynchParams, InterApParametersThatAreCutShortAreLogged) {
    uint8_t parameters[] = {1, 2};
    for (const int len : {1, 0, -1})
        expect_logged(3,
                      "handle_inter_ap_synch_params: Insufficient data len [" + std::to_string(len) +
                          "] received for event[101]",
                      [&] { handle_inter_ap_synch_params(VRE_INTER_AP_SYNCH_CONF, parameters, len); });
    EXPECT_EQ(sent(), packets{});
}

TEST_F(SynchParams, InterApParametersThatAreMissingAreLogged) {
    const std::string line = "handle_inter_ap_params: handle_inter_ap_params: Return , Inter AP parmas NULL";
    expect_logged(3, line, [] { EXPECT_EQ(handle_inter_ap_params(nullptr), -1); });
    expect_logged(3, line, [] { handle_inter_ap_synch_params(VRE_INTER_AP_SYNCH_CONF, nullptr, 2); });
    EXPECT_EQ(sent(), packets{});
}

TEST_F(SynchParams, SteeringAttemptsNameTheClient) {
    const uint8_t mac[] = {2, 0x11, 0x22, 0x33, 0x44, 0x55};
    EXPECT_EQ(send_client_steering_attempts_packet(mac, 0x1919, 200), 0);
    EXPECT_EQ(sent(), packets{bytes_of("01 0C 02 00 02 00 00 0B FF FF FF FF FF FF 05 06 02 11 22 33 44 55 06 01 C8")});
}

TEST_F(SynchParams, SteeringAttemptsWithoutAClientAreLogged) {
    expect_logged(3,
                  "send_client_steering_attempts_packet: send_client_steering_attempts_packet: Return , client mac is "
                  "NULL",
                  [] { EXPECT_EQ(send_client_steering_attempts_packet(nullptr, 2, 1), -1); });
    EXPECT_EQ(sent(), packets{});
}

TEST_F(SynchParams, WhatCannotBeSentDropsTheConnection) {
    const uint8_t bytes[6] = {};
    stop_agent();
    EXPECT_EQ(handle_inter_ap_params(bytes), -1);
    EXPECT_EQ(g_synch_sock, -1);
    EXPECT_EQ(send_client_steering_attempts_packet(bytes, 2, 1), -1);
    EXPECT_EQ(send_gateway(), -1);
}

TEST_F(SynchParams, AGatewayIs27BytesTheLastOfThemZero) {
    const std::string line = "send_vlan_gateway_info_packet: Set packet path [0] for profile ID [258] for "
                             "VRE_VLAN_GATEWAY_INFO_PACKET";
    expect_logged(3, line, [] { EXPECT_EQ(send_gateway(), 0); });
    const byte_string packet = bytes_of("01 10 00 00 01 00 00 1D FF FF FF FF FF FF 10 1B") + GATEWAY + byte_string{0};
    EXPECT_EQ(sent(), (packets{packet, packet}));
}

TEST_F(SynchParams, AGatewayBehindNatIsNotSent) {
    mkdir("/tmp/profile258", 0755);
    write_file("/tmp/profile258/nat.conf", "");
    EXPECT_EQ(lines_at_level(7, [] { EXPECT_EQ(send_gateway(), 0); }), lines{});
    EXPECT_EQ(sent(), packets{});
}

TEST_F(SynchParams, AGatewayBehindATunnelIsNotSent) {
    mkdir("/tmp/network5923", 0755);
    write_file("/tmp/network5923/network.conf", "");
    EXPECT_EQ(lines_at_level(7, [] { EXPECT_EQ(send_gateway(), 0); }), lines{});
    EXPECT_EQ(sent(), packets{});
}

TEST_F(SynchParams, FilesOfOtherProfilesAreOfNoAccount) {
    for (const char *const folder : {"/tmp/profile5923", "/tmp/network258"})
        mkdir(folder, 0755);
    write_file("/tmp/profile5923/nat.conf", "");
    write_file("/tmp/network258/network.conf", "");
    EXPECT_EQ(send_gateway(), 0);
    EXPECT_EQ(sent().size(), 1U);
}

TEST_F(SynchParams, AGatewayThatIsMissingIsLogged) {
    expect_logged(3, "send_vlan_gateway_info_packet: send_vlan_gateway_info_packet: Return , vlan gateway parmas NULL",
                  [] { EXPECT_EQ(send_vlan_gateway_info_packet(nullptr), -1); });
    EXPECT_EQ(sent(), packets{});
}
