// The traffic test: who takes part, when its script is started and killed, and the command lines for the shell.
#include "wl_traffic_test.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "event_payload.h"
#include "log_capture.h"
#include "noted_commands.h"
#include "wl_evt_payloads.h"
#include "wl_ssid_profile.h"

namespace {

using lines = std::vector<std::string>;
using handler = void (*)(vre_iw_cmd_t event, void *msg, int len);

constexpr uint8_t CLIENT_DETAILS = 1;
constexpr uint8_t SERVER_DETAILS = 2;
constexpr uint32_t NAME = 3;  // an item of a message
constexpr uint16_t PROFILE = 7;

const byte_string SERVER = {0x02, 0x5e, 0x00, 0x00, 0xfa, 0x01};
const byte_string CLIENT = {0x02, 0xab, 0x00, 0x9c, 0xde, 0x0f};
const byte_string STRANGER = {0x02, 0xab, 0x00, 0x9c, 0xde, 0x10};

const std::string DETAILS = "wl_handle_traffic_test_details: wl_traffic_test: ";
const std::string AUTHORIZED = "vre_handle_traffic_authorized_event: wl_traffic_test: ";
const std::string LEAVE = "vre_handle_traffic_leave_event: wl_traffic_test: ";
const std::string START =
    "/opt/ap/cl_test_target.sh 192.168.1.20 02:5E:00:00:FA:01 10.0.200.3 02:AB:00:9C:DE:0F 7 5001 > "
    "/tmp/target_ap_log &";

byte_string details(uint8_t subinfo, const byte_string &mac, uint32_t ip, uint16_t port = 0, uint16_t profile = PROFILE,
                    std::string interface = "ath0") {
    interface.resize(16);
    return event_payload()
        .bytes({subinfo})
        .bytes(big_endian_bytes(profile, 2))
        .bytes(text_bytes(interface))
        .bytes(mac)
        .bytes(big_endian_bytes(ip, 4))
        .bytes(big_endian_bytes(port, 2))
        .bytes();
}

byte_string server_details() {
    return details(SERVER_DETAILS, SERVER, 0xC0A80114, 5001);
}

byte_string client_details() {
    return details(CLIENT_DETAILS, CLIENT, 0x0A00C803);
}

byte_string pid_payload(const byte_string &mac, uint32_t pid) {
    return event_payload().bytes(mac).bytes(big_endian_bytes(pid, 4)).bytes();
}

class TrafficTest : public testing::Test {
protected:
    TrafficTest() {
        ssid_profile_list = hash_table_init(nullptr, SSID_PROFILE_BUCKETS, &ssid_cache_hash_fn, nullptr);
        add_profile(PROFILE);
        start_afresh();
    }

    ~TrafficTest() override {
        start_afresh();
        hash_table_destroy(ssid_profile_list);
        std::free(ssid_profile_list);
        ssid_profile_list = nullptr;
    }

    /// No test, no client, no script.
    static void start_afresh() {
        arm();
        leave();
        noted_commands.clear();
        status_of_commands = 0;
    }

    static ssid_profile_info *add_profile(uint32_t profile_id) {
        ssid_profile_info *const profile = create_ssid_profile_data();
        profile->profile_id = profile_id;
        EXPECT_EQ(hash_table_add(ssid_profile_list, &profile->profile_id, profile), 0);
        return profile;
    }

    static void deliver(handler to, vre_iw_cmd_t event, const byte_string &payload) {
        received_payload received(payload);
        to(event, received.data(), received.length());
    }

    /// As the bus delivers events 93 and 94: the bytes behind the payload are not part of it.
    static void tell(const byte_string &payload) {
        deliver(wl_handle_traffic_test_details, VRE_TARGET_AP_TRAFFIC_TEST_INFO, payload);
    }

    static void tell_pid(const byte_string &payload) {
        deliver(wl_handle_traffic_test_details, VRE_TARGET_AP_TRAFFIC_TEST_PID, payload);
    }

    static void tell_pid(uint32_t pid, const byte_string &mac = CLIENT) {
        tell_pid(pid_payload(mac, pid));
    }

    static void arm() {
        tell(client_details());
        tell(server_details());
    }

    static void authorize(const std::string &vap = "ath0", const byte_string &mac = CLIENT) {
        deliver(vre_handle_traffic_authorized_event, VRE_NODE_AUTHORIZE,
                event_payload().header(mac, 3).text(NAME, vap).bytes());
    }

    static void leave(const std::string &vap = "ath0", const byte_string &mac = CLIENT) {
        deliver(vre_handle_traffic_leave_event, VRE_NODE_LEAVE, event_payload().header(mac, 3).text(NAME, vap).bytes());
    }

    /// Whether a test of the client on ath0 is armed.
    static bool is_armed() {
        noted_commands.clear();
        authorize();
        return noted_commands.size() == 1;
    }
};

// --- the records ---

TEST(TrafficTestRecords, FieldsStandWhereTheSendersPutThem) {
    EXPECT_EQ(sizeof(vre_traffic_test_evt_data), 31U);
    EXPECT_EQ(offsetof(vre_traffic_test_evt_data, subinfo_code), 0U);
    EXPECT_EQ(offsetof(vre_traffic_test_evt_data, profile_id), 1U);
    EXPECT_EQ(offsetof(vre_traffic_test_evt_data, interface_name), 3U);
    EXPECT_EQ(offsetof(vre_traffic_test_evt_data, vre_mac_addr), 19U);
    EXPECT_EQ(offsetof(vre_traffic_test_evt_data, vre_ip_addr), 25U);
    EXPECT_EQ(offsetof(vre_traffic_test_evt_data, vre_port), 29U);
    EXPECT_EQ(sizeof(vre_traffic_test_pid), 10U);
    EXPECT_EQ(offsetof(vre_traffic_test_pid, client_mac_addr), 0U);
    EXPECT_EQ(offsetof(vre_traffic_test_pid, pid), 6U);
}

// --- details ---

TEST_F(TrafficTest, AServersDetailsArmTheTest) {
    log_capture log(2);
    tell(server_details());
    EXPECT_EQ(log.lines(), lines({DETAILS + "Traffic test event of len 31",
                                  DETAILS + "traffic_test subinfo = 2 MAC = 02:5e:00:00:fa:01 Ip=0xc0a80114 Port=5001 ",
                                  DETAILS + "setting active flag for profile id 7 vap ath0"}));
    tell(client_details());
    EXPECT_TRUE(is_armed());
}

TEST_F(TrafficTest, AClientsDetailsAreKeptAndArmNothing) {
    log_capture log(2);
    tell(client_details());
    EXPECT_EQ(log.lines(), lines({DETAILS + "Traffic test event of len 31",
                                  DETAILS + "traffic_test subinfo = 1 MAC = 02:ab:00:9c:de:0f Ip=0xa00c803 Port=0 "}));
    EXPECT_FALSE(is_armed());
}

TEST_F(TrafficTest, DetailsMayComeInEitherOrder) {
    tell(server_details());
    tell(client_details());
    authorize();
    EXPECT_EQ(noted_commands, lines({START}));
}

TEST_F(TrafficTest, AClientsDetailsLeaveTheServersAsTheyAre) {
    tell(server_details());
    tell(details(CLIENT_DETAILS, CLIENT, 0x0A00C803, 99, 99, "ath9"));
    authorize();
    EXPECT_EQ(noted_commands, lines({START}));
}

TEST_F(TrafficTest, DetailsOfNobodyAreOnlyLogged) {
    arm();
    log_capture log(2);
    for (const uint8_t subinfo : {0, 3, 255})
        tell(details(subinfo, STRANGER, 0xFFFFFFFF, 65535, 9, "ath9"));
    EXPECT_EQ(log.lines().size(), 6U);
    EXPECT_EQ(log.lines()[5], DETAILS + "traffic_test subinfo = 255 MAC = 02:ab:00:9c:de:10 Ip=0xffffffff Port=65535 ");
    authorize();
    EXPECT_EQ(noted_commands, lines({START}));
}

TEST_F(TrafficTest, TheNextServersDetailsReplaceTheFirst) {
    arm();
    add_profile(65535);
    tell(details(SERVER_DETAILS, STRANGER, 0xFFFE0001, 65535, 65535, "ath1"));
    authorize("ath1");
    EXPECT_EQ(noted_commands, lines({"/opt/ap/cl_test_target.sh 255.254.0.1 02:AB:00:9C:DE:10 10.0.200.3 "
                                     "02:AB:00:9C:DE:0F 65535 65535 > /tmp/target_ap_log &"}));
}

TEST_F(TrafficTest, MissingBytesOfDetailsAreZero) {
    log_capture log(2);
    byte_string cut = server_details();
    cut.resize(20);
    deliver(wl_handle_traffic_test_details, VRE_TARGET_AP_TRAFFIC_TEST_INFO, cut);
    EXPECT_EQ(log.lines(), lines({DETAILS + "Traffic test event of len 20",
                                  DETAILS + "traffic_test subinfo = 2 MAC = 02:00:00:00:00:00 Ip=0x0 Port=0 ",
                                  DETAILS + "setting active flag for profile id 7 vap ath0"}));
}

TEST_F(TrafficTest, BytesBehindShortDetailsAreNotRead) {
    log_capture log(2);
    received_payload received(byte_string{SERVER_DETAILS, 0}, 0xEE);
    wl_handle_traffic_test_details(VRE_TARGET_AP_TRAFFIC_TEST_INFO, received.data(), received.length());
    EXPECT_EQ(log.lines()[2], DETAILS + "setting active flag for profile id 0 vap ");
}

TEST_F(TrafficTest, DetailsOfNoBytesAreAllZero) {
    log_capture log(2);
    deliver(wl_handle_traffic_test_details, VRE_TARGET_AP_TRAFFIC_TEST_INFO, {});
    EXPECT_EQ(log.lines(), lines({DETAILS + "Traffic test event of len 0",
                                  DETAILS + "traffic_test subinfo = 0 MAC = 00:00:00:00:00:00 Ip=0x0 Port=0 "}));
}

TEST_F(TrafficTest, BytesAfterDetailsAreIgnored) {
    byte_string longer = server_details();
    longer.resize(100, 0xEE);
    tell(client_details());
    tell(longer);
    authorize();
    EXPECT_EQ(noted_commands, lines({START}));
}

TEST_F(TrafficTest, AnInterfaceNameMayFillItsField) {
    log_capture log(2);
    tell(details(SERVER_DETAILS, SERVER, 0, 0, PROFILE, "a123456789012345"));
    EXPECT_EQ(log.lines()[2], DETAILS + "setting active flag for profile id 7 vap a123456789012345");
}

TEST_F(TrafficTest, AShorterInterfaceNameReplacesALongerOneWhole) {
    tell(details(SERVER_DETAILS, SERVER, 0, 0, PROFILE, "a123456789012345"));
    log_capture log(2);
    tell(server_details());
    EXPECT_EQ(log.lines()[2], DETAILS + "setting active flag for profile id 7 vap ath0");
}

TEST_F(TrafficTest, NoPayloadAndANegativeLengthAreIgnored) {
    log_capture log;
    byte_string payload = server_details();
    wl_handle_traffic_test_details(VRE_TARGET_AP_TRAFFIC_TEST_INFO, nullptr, 31);
    wl_handle_traffic_test_details(VRE_TARGET_AP_TRAFFIC_TEST_INFO, payload.data(), -1);
    wl_handle_traffic_test_details(VRE_TARGET_AP_TRAFFIC_TEST_PID, nullptr, 10);
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(TrafficTest, OtherEventsOfTheGroupAreOnlyLogged) {
    arm();
    log_capture log;
    deliver(wl_handle_traffic_test_details, VRE_TARGET_AP_TRAFFIC_TEST,
            details(SERVER_DETAILS, STRANGER, 0, 0, 9, "ath9"));
    EXPECT_EQ(log.lines(), lines({DETAILS + "Traffic test event of len 31"}));
    authorize();
    EXPECT_EQ(noted_commands, lines({START}));
}

TEST_F(TrafficTest, ASecondServersDetailsKillTheRunningScriptFirst) {
    arm();
    tell_pid(4711);
    log_capture log(2);
    tell(server_details());
    EXPECT_EQ(log.lines(),
              lines({DETAILS + "Traffic test event of len 31",
                     DETAILS + "traffic_test subinfo = 2 MAC = 02:5e:00:00:fa:01 Ip=0xc0a80114 Port=5001 ",
                     DETAILS + "Killing the Target AP script as client connecting again -> 4711",
                     "system: kill -15 4711 &", DETAILS + "setting active flag for profile id 7 vap ath0"}));
}

TEST_F(TrafficTest, AClientsDetailsKillTheRunningScriptToo) {
    arm();
    tell_pid(4711);
    tell(client_details());
    EXPECT_EQ(noted_commands, lines({"kill -15 4711 &"}));
    EXPECT_TRUE(is_armed());
}

TEST_F(TrafficTest, DetailsOfNobodyKillTheRunningScriptToo) {
    arm();
    tell_pid(4711);
    tell(details(9, STRANGER, 0));
    EXPECT_EQ(noted_commands, lines({"kill -15 4711 &"}));
}

TEST_F(TrafficTest, AScriptIsKilledOnlyOnce) {
    arm();
    tell_pid(4711);
    arm();
    arm();
    EXPECT_EQ(noted_commands, lines({"kill -15 4711 &"}));
}

TEST_F(TrafficTest, WithoutAnArmedTestDetailsKillNothing) {
    tell(client_details());
    tell_pid(4711);
    tell(client_details());
    EXPECT_EQ(noted_commands, lines());
    tell(server_details());  // arms it, and is no second one
    EXPECT_EQ(noted_commands, lines());
    leave();  // the script is still known
    EXPECT_EQ(noted_commands, lines({"kill -15 4711 &"}));
}

TEST_F(TrafficTest, AKillThatFailsIsForgotten) {
    arm();
    tell_pid(4711);
    status_of_commands = -1;
    arm();
    arm();
    EXPECT_EQ(noted_commands.size(), 1U);
}

// --- the script's process id ---

TEST_F(TrafficTest, TheScriptsProcessIdIsRecorded) {
    arm();
    log_capture log(2);
    tell_pid(0x01020304);
    EXPECT_EQ(log.lines(),
              lines({DETAILS + "Traffic test event of len 10", DETAILS + "Received PID info of Target Ap script",
                     DETAILS + "Updated PID info, Target script pid 16909060"}));
    EXPECT_EQ(noted_commands, lines());
}

TEST_F(TrafficTest, AProcessIdThatIsTooShortIsRefused) {
    arm();
    byte_string cut = pid_payload(CLIENT, 4711);
    cut.resize(9);
    log_capture log(2);
    tell_pid(cut);
    tell_pid(byte_string());
    EXPECT_EQ(log.lines(),
              lines({DETAILS + "Traffic test event of len 9",
                     "wl_handle_traffic_test_details: wl_traffic_test:Invalid PID data length Actual 9 Expected 10",
                     DETAILS + "Traffic test event of len 0",
                     "wl_handle_traffic_test_details: wl_traffic_test:Invalid PID data length Actual 0 Expected 10"}));
    leave();
    EXPECT_EQ(noted_commands, lines());
}

TEST_F(TrafficTest, BytesAfterAProcessIdAreIgnored) {
    arm();
    byte_string longer = pid_payload(CLIENT, 4711);
    longer.push_back(0xEE);
    tell_pid(longer);
    leave();
    EXPECT_EQ(noted_commands, lines({"kill -15 4711 &"}));
}

TEST_F(TrafficTest, AProcessIdOfZeroIsIgnored) {
    arm();
    tell_pid(4711);
    log_capture log(2);
    tell_pid(0);
    tell_pid(0, STRANGER);
    const std::string length = DETAILS + "Traffic test event of len 10";
    const std::string received = DETAILS + "Received PID info of Target Ap script";
    EXPECT_EQ(log.lines(), lines({length, received, length, received}));
    leave();
    EXPECT_EQ(noted_commands, lines({"kill -15 4711 &"}));
}

TEST_F(TrafficTest, AProcessIdForAnotherMacChangesNothing) {
    arm();
    tell_pid(4711);
    log_capture log(2);
    tell_pid(815, STRANGER);
    EXPECT_EQ(log.lines(),
              lines({DETAILS + "Traffic test event of len 10", DETAILS + "Received PID info of Target Ap script",
                     DETAILS + "PID data for wrong mac addr 02:ab:00:9c:de:10"}));
    EXPECT_EQ(noted_commands, lines());
    leave();
    EXPECT_EQ(noted_commands, lines({"kill -15 4711 &"}));
}

TEST_F(TrafficTest, ASecondScriptEndsTheFirst) {
    arm();
    tell_pid(4711);
    log_capture log(2);
    tell_pid(4712);
    EXPECT_EQ(log.lines(),
              lines({DETAILS + "Traffic test event of len 10", DETAILS + "Received PID info of Target Ap script",
                     DETAILS + "Killing the Target AP script as already script is running", "system: kill -15 4711 &",
                     DETAILS + "Updated PID info, Target script pid 4712"}));
    leave();
    EXPECT_EQ(noted_commands, lines({"kill -15 4711 &", "kill -15 4712 &"}));
}

TEST_F(TrafficTest, AProcessIdIsTakenWithoutAnArmedTest) {
    tell(client_details());
    tell_pid(4711);
    tell_pid(4712);
    EXPECT_EQ(noted_commands, lines({"kill -15 4711 &"}));
}

TEST_F(TrafficTest, WithoutAClientTheZeroMacIsTheClients) {
    const byte_string nobody(6);
    tell_pid(4711, nobody);
    tell_pid(4712, nobody);
    EXPECT_EQ(noted_commands, lines({"kill -15 4711 &"}));
}

TEST_F(TrafficTest, AProcessIdKeepsItsSign) {
    arm();
    tell_pid(0xFFFFFFFE);
    leave();
    EXPECT_EQ(noted_commands, lines({"kill -15 -2 &"}));
}

// --- the client is authorised ---

TEST_F(TrafficTest, AnAuthorisedClientStartsTheScript) {
    arm();
    log_capture log(2);
    authorize();
    EXPECT_EQ(log.lines(), lines({AUTHORIZED + "Got authorized event from client, 02:ab:00:9c:de:0f",
                                  AUTHORIZED + "Start the Target AP script (" + START + ")", "system: " + START}));
}

TEST_F(TrafficTest, TheLongestCommandIsWhole) {
    add_profile(65535);
    tell(details(CLIENT_DETAILS, byte_string(6, 0xFF), 0xFFFFFFFF));
    tell(details(SERVER_DETAILS, byte_string(6, 0xFF), 0xFFFFFFFF, 65535, 65535, "a12345678901234"));
    authorize("a12345678901234", byte_string(6, 0xFF));
    EXPECT_EQ(noted_commands,
              lines({"/opt/ap/cl_test_target.sh 255.255.255.255 FF:FF:FF:FF:FF:FF 255.255.255.255 FF:FF:FF:FF:FF:FF "
                     "65535 65535 > /tmp/target_ap_log &"}));
}

TEST_F(TrafficTest, EveryAuthorisationStartsAScript) {
    arm();
    tell_pid(4711);
    authorize();
    authorize();
    EXPECT_EQ(noted_commands, lines({START, START}));
}

TEST_F(TrafficTest, WithoutAnArmedTestAnAuthorisationDoesNothing) {
    tell(client_details());
    log_capture log;
    authorize();
    EXPECT_EQ(log.lines(), lines());
    EXPECT_EQ(noted_commands, lines());
}

TEST_F(TrafficTest, AnotherClientsAuthorisationDoesNothing) {
    arm();
    log_capture log;
    authorize("ath0", STRANGER);
    EXPECT_EQ(log.lines(), lines());
    EXPECT_EQ(noted_commands, lines());
}

TEST_F(TrafficTest, AnAuthorisationOnAnotherVapStartsNothing) {
    arm();
    log_capture log(2);
    authorize("ath1");
    EXPECT_EQ(log.lines(), lines({AUTHORIZED + "Received authorize event for  Invalid interface name(ath1 ath0) for "
                                               "client  02:ab:00:9c:de:0f"}));
    EXPECT_TRUE(is_armed());
}

TEST_F(TrafficTest, AVapsNameMustBeTheSameToItsEnd) {
    arm();
    authorize("ath");
    authorize("ath01");
    authorize("");
    EXPECT_EQ(noted_commands, lines());
}

TEST_F(TrafficTest, ANameWithoutNulMatchesNoVap) {
    tell(client_details());
    tell(details(SERVER_DETAILS, SERVER, 0, 0, PROFILE, "a123456789012345"));
    log_capture log(2);
    authorize("a12345678901234");
    EXPECT_EQ(noted_commands, lines());
    EXPECT_EQ(log.lines(), lines({AUTHORIZED + "Received authorize event for  Invalid interface name(a12345678901234 "
                                               "a123456789012345) for client  02:ab:00:9c:de:0f"}));
}

TEST_F(TrafficTest, AnAuthorisationWithoutAVapOrAPayloadDoesNothing) {
    arm();
    log_capture log;
    deliver(vre_handle_traffic_authorized_event, VRE_NODE_AUTHORIZE, event_payload().header(CLIENT, 3).bytes());
    vre_handle_traffic_authorized_event(VRE_NODE_AUTHORIZE, nullptr, 0);
    EXPECT_EQ(log.lines(), lines());
    EXPECT_EQ(noted_commands, lines());
}

TEST_F(TrafficTest, AnEventOfTheAccessPointItselfNamesNoClient) {
    arm();
    log_capture log;
    const byte_string of_the_access_point = event_payload().text(NAME, "ath0").bytes();
    deliver(vre_handle_traffic_authorized_event, VRE_USERSPACE_EVT, of_the_access_point);
    deliver(vre_handle_traffic_leave_event, VRE_USERSPACE_EVT, of_the_access_point);
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(TrafficTest, WithoutItsProfileATestIsNotStarted) {
    arm();
    const uint32_t id = PROFILE;
    hash_table_delete(ssid_profile_list, &id);
    log_capture log(2);
    authorize();
    EXPECT_EQ(log.lines(), lines({AUTHORIZED + "Got authorized event from client, 02:ab:00:9c:de:0f",
                                  "vre_traffic_fetch_vap_info: wl_traffic_test: No matching ssid profile found"}));
    EXPECT_EQ(noted_commands, lines());
    add_profile(PROFILE);
    EXPECT_TRUE(is_armed());
}

TEST_F(TrafficTest, AProfileIsFoundByItsId) {
    ssid_profile_info *const profile = add_profile(PROFILE + SSID_PROFILE_BUCKETS);  // in the same bucket
    EXPECT_EQ(vre_traffic_fetch_vap_info(PROFILE + SSID_PROFILE_BUCKETS), profile);
    log_capture log(2);
    EXPECT_EQ(vre_traffic_fetch_vap_info(0), nullptr);
    EXPECT_EQ(vre_traffic_fetch_vap_info(-1), nullptr);
    EXPECT_EQ(log.lines().size(), 2U);
}

// --- the client leaves ---

TEST_F(TrafficTest, AClientThatLeavesEndsTheScriptAndTheTest) {
    arm();
    tell_pid(4711);
    log_capture log(2);
    leave();
    EXPECT_EQ(log.lines(), lines({LEAVE + "Received Leave event for 02:ab:00:9c:de:0f vap ath0",
                                  LEAVE + "Got leave event from client, 02:ab:00:9c:de:0f",
                                  LEAVE + "Killing the Target AP script ", "system: kill -15 4711 &"}));
    EXPECT_FALSE(is_armed());
}

TEST_F(TrafficTest, AClientThatLeavesBeforeTheScriptRunsEndsTheTest) {
    arm();
    log_capture log(2);
    leave();
    EXPECT_EQ(log.lines(), lines({LEAVE + "Received Leave event for 02:ab:00:9c:de:0f vap ath0",
                                  LEAVE + "Got leave event from client, 02:ab:00:9c:de:0f"}));
    EXPECT_EQ(noted_commands, lines());
    EXPECT_FALSE(is_armed());
}

TEST_F(TrafficTest, TheEndOfATestForgetsTheClientAndTheServer) {
    arm();
    leave();
    tell(server_details());
    EXPECT_FALSE(is_armed());  // for the client that was
    authorize("ath0", byte_string(6));
    EXPECT_EQ(noted_commands, lines({"/opt/ap/cl_test_target.sh 192.168.1.20 02:5E:00:00:FA:01 0.0.0.0 "
                                     "00:00:00:00:00:00 7 5001 > /tmp/target_ap_log &"}));
    log_capture log(2);
    tell_pid(4711);
    EXPECT_EQ(log.lines()[2], DETAILS + "PID data for wrong mac addr 02:ab:00:9c:de:0f");
}

TEST_F(TrafficTest, ALeaveOnAnotherVapKeepsTheTestAndTheScript) {
    arm();
    tell_pid(4711);
    log_capture log(2);
    leave("ath1");
    EXPECT_EQ(
        log.lines(),
        lines({LEAVE + "Received Leave event for 02:ab:00:9c:de:0f vap ath1",
               LEAVE + "Received Leave event for Invalid interface name(ath1 ath0) for client  02:ab:00:9c:de:0f"}));
    EXPECT_EQ(noted_commands, lines());
    leave();
    EXPECT_EQ(noted_commands, lines({"kill -15 4711 &"}));
}

TEST_F(TrafficTest, AnotherClientsLeaveIsOnlyLogged) {
    arm();
    tell_pid(4711);
    log_capture log(2);
    leave("ath0", STRANGER);
    EXPECT_EQ(log.lines(), lines({LEAVE + "Received Leave event for 02:ab:00:9c:de:10 vap ath0"}));
    EXPECT_EQ(noted_commands, lines());
    EXPECT_TRUE(is_armed());
}

TEST_F(TrafficTest, WithoutAnArmedTestALeaveDoesNothing) {
    tell(client_details());
    tell_pid(4711);
    log_capture log;
    leave();
    EXPECT_EQ(log.lines(), lines());
    EXPECT_EQ(noted_commands, lines());
}

TEST_F(TrafficTest, ALeaveWithoutAVapOrAPayloadDoesNothing) {
    arm();
    log_capture log;
    deliver(vre_handle_traffic_leave_event, VRE_NODE_LEAVE, event_payload().header(CLIENT, 3).bytes());
    vre_handle_traffic_leave_event(VRE_NODE_LEAVE, nullptr, 0);
    EXPECT_EQ(log.lines(), lines());
    EXPECT_TRUE(is_armed());
}

// --- levels ---

TEST_F(TrafficTest, EveryLineIsCritical) {
    log_capture log(1);
    tell_pid(byte_string());
    tell_pid(1, STRANGER);
    arm();
    tell_pid(2);
    tell_pid(3);
    arm();
    authorize("ath1");
    authorize();
    tell_pid(4);
    leave("ath1");
    leave();
    (void)vre_traffic_fetch_vap_info(99);
    EXPECT_EQ(log.lines(), lines());
    EXPECT_EQ(noted_commands, lines({"kill -15 2 &", "kill -15 3 &", START, "kill -15 4 &"}));
}

}  // namespace
