// The simulated wireless driver, linked in place of the C library's calls as a preloaded library stands in for them.
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "files.h"
#include "libwl.h"
#include "wlan_ioctl.h"

namespace {

constexpr char OFFICE[] = "101 ath3 Office 02:11:22:33:44:55 2 up\n";
constexpr unsigned long APP_VISIBILITY_REQUEST = 0x40046401;

void set_driver(const std::string &configuration) {
    mkdir("/tmp/sim", 0755);
    write_file("/tmp/sim/driver.conf", configuration);
}

void set_faults(const std::string &faults) {
    mkdir("/tmp/sim", 0755);
    write_file("/tmp/sim/driver.faults", faults);
}

/// The record without its process ids.
std::string record() {
    std::string all = file_text("/tmp/sim/driver.jsonl");
    const std::string id = "{\"pid\": " + std::to_string(getpid()) + ", ";
    for (size_t at = all.find(id); at != std::string::npos; at = all.find(id, at))
        all.replace(at, id.size(), "{");
    return all;
}

/// The last line of the record.
std::string last_record() {
    const std::string all = record();
    const size_t end = all.rfind('\n', all.size() - 2);
    return end == std::string::npos ? all : all.substr(end + 1);
}

/// The first 110 bytes that "get_vaps" gives; empty when it fails.
std::string get_vaps(const char *interface = "ath3") {
    std::string reply(VAP_IOCTL_DATA_SIZE, '\0');
    if (do_ioctl_on_vap(reply.data(), nullptr, interface, "get_vaps") < 0)
        return "";
    return reply.substr(0, 110);
}

int set_user_vlan() {
    uint8_t data[VAP_IOCTL_DATA_SIZE] = {2, 0, 0, 0, 0, 1, 0x0F, 0xA0};
    return do_wlan_priv_ioctl("set_user_vlan", data, 0, "ath3");
}

/// An interface request for `name`; `errno` tells why it failed.
int interface_request(unsigned long number, ifreq *request) {
    const int sock = socket(AF_INET, SOCK_DGRAM, 0);
    const int result = ioctl(sock, number, request);
    const int error = errno;
    close(sock);
    errno = error;
    return result;
}

ifreq named(const char *name) {
    ifreq request{};
    std::strcpy(request.ifr_name, name);
    return request;
}

TEST(SimDriver, AnswersGetVapsAndRecordsIt) {
    set_driver(OFFICE);
    const std::string reply = get_vaps();
    ASSERT_EQ(reply.size(), 110U);
    EXPECT_EQ(reply.substr(1, 33), "Office" + std::string(27, '\0'));
    EXPECT_EQ(reply.substr(34, 6), "\x02\x11\x22\x33\x44\x55");
    EXPECT_EQ(reply[54], 2);
    EXPECT_EQ(reply[0], '\xEE');
    EXPECT_EQ(record(), "{\"call\": \"SIOCGIWPRIV\", \"interface\": \"ath3\", \"number\": 128, \"sub_command\": 0, "
                        "\"data\": \"\", \"error\": \"\"}\n"
                        "{\"call\": \"get_vaps\", \"interface\": \"ath3\", \"number\": 35809, \"sub_command\": 0, "
                        "\"data\": \"\", \"error\": \"\"}\n");
}

TEST(SimDriver, ReadsItsConfigurationAtEveryCall) {
    set_driver(OFFICE);
    EXPECT_EQ(get_vaps().substr(1, 6), "Office");
    set_driver("101 ath3 Caf%C3%A9%20Bar 02:11:22:33:44:55 2 up\n");
    EXPECT_EQ(get_vaps().substr(1, 9), "Caf\xC3\xA9 Bar");
    set_driver("# 101 ath3 Office 02:11:22:33:44:55 2 up\n");
    EXPECT_EQ(get_vaps(), "");
}

TEST(SimDriver, AVapThatIsDownHasNoBssid) {
    set_driver("101 ath3 Office 02:11:22:33:44:55 2 down\n");
    EXPECT_EQ(get_vaps().substr(34, 6), std::string(6, '\0'));
}

TEST(SimDriver, RecordsWhatIsSet) {
    set_driver(OFFICE);
    EXPECT_EQ(set_user_vlan(), 0);
    EXPECT_EQ(last_record(), "{\"call\": \"set_user_vlan\", \"interface\": \"ath3\", \"number\": 35810, "
                             "\"sub_command\": 0, \"data\": \"0200000000010fa0\", \"error\": \"\"}\n");
}

TEST(SimDriver, TakesLongDataByPointer) {
    set_driver(OFFICE);
    std::string data(VAP_IOCTL_DATA_SIZE, 'A');
    EXPECT_EQ(do_wlan_priv_ioctl("set_mac_acl", data.data(), 0, "ath3"), 0);
    EXPECT_NE(last_record().find("414141414141414141414141414141414141414141414141\""), std::string::npos);
}

TEST(SimDriver, TakesAsMuchAsItDeclares) {
    set_driver(std::string(OFFICE) + "args set_user_vlan 0x1A00 0\n");
    EXPECT_EQ(set_user_vlan(), 0);
    EXPECT_NE(last_record().find("\"data\": \"0200000000010fa0" + std::string(1008, '0') + "\""), std::string::npos);
}

TEST(SimDriver, HasNoPlaceForAReplyByPointerToARequestThatCarriesItsData) {
    for (const char *arrangement : {"", "subcommands 1\n"}) {
        set_driver(std::string(OFFICE) + "args get_vaps 0x1804 0x106E\n" + arrangement);
        EXPECT_EQ(get_vaps(), "");
        EXPECT_NE(last_record().find("\"data\": \"00000000\", \"error\": \"EFAULT\""), std::string::npos);
    }
}

TEST(SimDriver, ArrangesTheCommandsAsSubCommands) {
    set_driver(std::string(OFFICE) + "client 02:00:00:00:00:07 ath3 1\nsubcommands 1\n");
    EXPECT_EQ(get_vaps().substr(1, 6), "Office");
    EXPECT_NE(last_record().find("\"number\": 35825, \"sub_command\": 1"), std::string::npos);
    EXPECT_EQ(set_user_vlan(), 0);
    EXPECT_NE(last_record().find("\"number\": 35826, \"sub_command\": 2, \"data\": \"0200000000010fa0\""),
              std::string::npos);
    std::string data(VAP_IOCTL_DATA_SIZE, 'A');
    EXPECT_EQ(do_wlan_priv_ioctl("set_mac_acl", data.data(), 0, "ath3"), 0);
    const uint8_t mac[] = {2, 0, 0, 0, 0, 7};
    EXPECT_EQ(get_wl_client_radio(mac), 1);
}

TEST(SimDriver, KnowsTheRadioOfItsClients) {
    set_driver(std::string(OFFICE) + "102 ath4 Guest 02:11:22:33:44:56 1 up\nclient 02:00:00:00:00:07 ath4 1\n");
    const uint8_t known[] = {2, 0, 0, 0, 0, 7};
    const uint8_t unknown[] = {2, 0, 0, 0, 0, 8};
    EXPECT_EQ(get_wl_client_radio(known), 1);
    EXPECT_NE(last_record().find("\"get_cl_radio\", \"interface\": \"ath4\""), std::string::npos);
    EXPECT_NE(last_record().find("\"data\": \"020000000007\""), std::string::npos);
    EXPECT_EQ(get_wl_client_radio(unknown), -1);
}

TEST(SimDriver, MakesTheNthCallFail) {
    set_driver(OFFICE);
    set_faults("# comment\nget_vaps 2 EIO\n");
    EXPECT_NE(get_vaps(), "");
    EXPECT_EQ(get_vaps(), "");
    EXPECT_NE(last_record().find("\"error\": \"EIO\""), std::string::npos);
    EXPECT_NE(get_vaps(), "");
}

TEST(SimDriver, CountsAnewWhenTheFaultFileChanges) {
    set_driver(OFFICE);
    EXPECT_NE(get_vaps(), "");
    set_faults("get_vaps 1 EIO\n");
    EXPECT_EQ(get_vaps(), "");
    EXPECT_NE(get_vaps(), "");
    set_faults("SIOCGIWPRIV * 22\n");
    EXPECT_EQ(get_vaps(), "");
    EXPECT_EQ(get_vaps(), "");
    EXPECT_NE(last_record().find("\"SIOCGIWPRIV\", \"interface\": \"ath3\", \"number\": 128, \"sub_command\": 0, "
                                 "\"data\": \"\", \"error\": \"EINVAL\""),
              std::string::npos);
    unlink("/tmp/sim/driver.faults");
    EXPECT_NE(get_vaps(), "");
}

TEST(SimDriver, RefusesAFaultThatIsNoError) {
    set_driver(OFFICE);
    for (const char *error : {"EIOO", "5x", "0", "-1"}) {
        set_faults(std::string("get_vaps 1 ") + error + "\n");
        EXPECT_EXIT(get_vaps(), testing::KilledBySignal(SIGABRT),
                    "sim_driver: unknown error \"" + std::string(error) + "\"\n");
    }
}

TEST(SimDriver, ReachesItsOwnerDespiteEveryMisbehaviour) {
    for (const char *misbehaviour : {"names_without_nul 1", "table_claims 65535", "table_count 4000", "reply_size 512",
                                     "reply_claims 65535", "subcommands 1\nnames_without_nul 1\ntable_claims 65535"}) {
        set_driver(std::string(OFFICE) + misbehaviour + "\n");
        EXPECT_EQ(get_vaps().substr(1, 6), "Office") << misbehaviour;
    }
}

TEST(SimDriver, SaysThatATableNeedsMoreRoom) {
    set_driver(std::string(OFFICE) + "table_count 60000\n");
    EXPECT_EQ(get_vaps(), "");
    EXPECT_NE(last_record().find("\"error\": \"E2BIG\""), std::string::npos);
}

TEST(SimDriver, DeclaresOtherArguments) {
    set_driver(std::string(OFFICE) + "args get_vaps 0 0x17FF\nargs set_user_vlan 0x6801 0\n");
    EXPECT_EQ(get_vaps(), "");
    testing::internal::CaptureStderr();
    EXPECT_EQ(set_user_vlan(), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[ath3]: Unsupported argument type (24576) for command set_user_vlan\n");
}

TEST(SimDriver, NamesTheInterfacesThatTheKernelDoesNotHave) {
    set_driver(OFFICE);
    ifreq request{};
    request.ifr_ifindex = 101;
    EXPECT_EQ(interface_request(SIOCGIFNAME, &request), 0);
    EXPECT_STREQ(request.ifr_name, "ath3");
    EXPECT_EQ(last_record(), "{\"call\": \"SIOCGIFNAME\", \"interface\": \"ath3\", \"number\": 101, "
                             "\"sub_command\": 0, \"data\": \"\", \"error\": \"\"}\n");
    request = {};
    request.ifr_ifindex = 1;
    EXPECT_EQ(interface_request(SIOCGIFNAME, &request), 0);
    EXPECT_STREQ(request.ifr_name, "lo");
    request = {};
    request.ifr_ifindex = 102;
    EXPECT_EQ(interface_request(SIOCGIFNAME, &request), -1);
    EXPECT_EQ(errno, ENODEV);
}

TEST(SimDriver, TellsIndexFlagsAndAddressOfAVap) {
    set_driver(std::string(OFFICE) + "102 ath4 Guest 02:11:22:33:44:56 1 down\n- ath5 Lab 02:11:22:33:44:57 1 up\n");
    ifreq request = named("ath3");
    EXPECT_EQ(interface_request(SIOCGIFINDEX, &request), 0);
    EXPECT_EQ(request.ifr_ifindex, 101);
    request = named("ath3");
    EXPECT_EQ(interface_request(SIOCGIFFLAGS, &request), 0);
    EXPECT_EQ(request.ifr_flags, IFF_UP | IFF_RUNNING);
    request = named("ath4");
    EXPECT_EQ(interface_request(SIOCGIFFLAGS, &request), 0);
    EXPECT_EQ(request.ifr_flags, 0);
    request = named("ath3");
    EXPECT_EQ(interface_request(SIOCGIFHWADDR, &request), 0);
    EXPECT_EQ(std::memcmp(request.ifr_hwaddr.sa_data, "\x02\x11\x22\x33\x44\x55", 6), 0);
    for (const char *name : {"ath5", "ath6"}) {
        request = named(name);
        EXPECT_EQ(interface_request(SIOCGIFINDEX, &request), -1);
        EXPECT_EQ(errno, ENODEV);
    }
}

TEST(SimDriver, ListsItsVapsAmongTheInterfaces) {
    set_driver(std::string(OFFICE) + "1 lo Loop 02:11:22:33:44:56 1 up\n- ath5 Lab 02:11:22:33:44:57 1 up\n");
    struct if_nameindex *all = if_nameindex();
    ASSERT_NE(all, nullptr);
    std::string names;
    for (const auto *one = all; one->if_index != 0; one++)
        names += std::to_string(one->if_index) + " " + one->if_name + "\n";
    if_freenameindex(all);
    EXPECT_EQ(names, "1 lo\n101 ath3\n");
}

TEST(SimDriver, PlaysTheAppVisibilityDevice) {
    set_driver("");
    write_file("/dev/app_visibility", "");
    const int device = open("/dev/app_visibility", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(device, 0);
    EXPECT_EQ(fcntl(device, F_GETFD), FD_CLOEXEC);
    std::string data(58, 'A');
    data[57] = 'Z';
    EXPECT_EQ(ioctl(device, APP_VISIBILITY_REQUEST, data.data()), 0);
    std::string expected;
    for (int i = 0; i < 57; i++)
        expected += "41";
    EXPECT_EQ(last_record(), "{\"call\": \"app_visibility\", \"interface\": \"\", \"number\": 1074029569, "
                             "\"sub_command\": 0, \"data\": \"" +
                                 expected + "5a\", \"error\": \"\"}\n");
    const int copy = dup(device);
    close(device);
    EXPECT_EQ(ioctl(copy, APP_VISIBILITY_REQUEST, data.data()), 0);
    close(copy);
    EXPECT_EQ(ioctl(copy, APP_VISIBILITY_REQUEST, data.data()), -1);
}

TEST(SimDriver, LeavesNoRecordOfOpeningAMissingAppVisibilityDevice) {
    set_driver("");
    EXPECT_EQ(open("/dev/app_visibility", O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_NE(access("/tmp/sim/driver.jsonl", F_OK), 0);
}

TEST(SimDriver, RefusesAnAppVisibilityRequestWithoutData) {
    set_driver("");
    write_file("/dev/app_visibility", "");
    const int device = open("/dev/app_visibility", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(device, 0);
    EXPECT_EQ(ioctl(device, APP_VISIBILITY_REQUEST, nullptr), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(last_record(), "{\"call\": \"app_visibility\", \"interface\": \"\", \"number\": 1074029569, "
                             "\"sub_command\": 0, \"data\": \"\", \"error\": \"EFAULT\"}\n");
    close(device);
}

TEST(SimDriver, FailsToOpenTheAppVisibilityDevice) {
    write_file("/dev/app_visibility", "");
    set_faults("open_app_visibility 1 ENOENT\napp_visibility 1 EPERM\n");
    EXPECT_EQ(open("/dev/app_visibility", O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
    const int device = open("/dev/app_visibility", O_RDONLY);
    ASSERT_GE(device, 0);
    const std::string data(58, '\0');
    EXPECT_EQ(ioctl(device, APP_VISIBILITY_REQUEST, data.data()), -1);
    EXPECT_EQ(errno, EPERM);
    close(device);
}

TEST(SimDriver, LeavesOtherFilesAndRequestsToTheKernel) {
    const int null_device = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(null_device, 0);
    EXPECT_EQ(ioctl(null_device, APP_VISIBILITY_REQUEST, nullptr), -1);
    close(null_device);
    EXPECT_EQ(open("/tmp/absent", O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
    const int made = open("/tmp/made", O_WRONLY | O_CREAT, 0640);
    struct stat status;
    EXPECT_EQ(fstat(made, &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640U);
    close(made);
}

TEST(SimDriver, ReadsItsFilesFromWhereTheEnvironmentSays) {
    write_file("/tmp/vaps", OFFICE);
    write_file("/tmp/faults", "get_vaps 2 EIO\n");
    setenv("SIM_DRIVER_CONF", "/tmp/vaps", 1);
    setenv("SIM_DRIVER_FAULTS", "/tmp/faults", 1);
    setenv("SIM_DRIVER_RECORD", "/tmp/record", 1);
    EXPECT_NE(get_vaps(), "");
    EXPECT_EQ(get_vaps(), "");
    EXPECT_NE(file_text("/tmp/record"), "");
}

}  // namespace
