// Client disconnect: which VAPs a client is kicked off, and the command lines for the shell.
#include "wl_disconnect.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "event_payload.h"
#include "log_capture.h"
#include "noted_commands.h"
#include "vap_table.h"

namespace {

using lines = std::vector<std::string>;

// Items of a message.
constexpr uint32_t SSID = 1;
constexpr uint32_t SUBINFO_CODE = 6;

const byte_string CLIENT = {0x02, 0xab, 0x00, 0x9c, 0xde, 0x0f};

class Disconnect : public testing::Test {
protected:
    Disconnect() {
        init_iface_table();
        noted_commands.clear();
        status_of_commands = 0;
    }

    static vap_info &add_vap(const std::string &name, const std::string &ssid) {
        vap_info &vap = vap_array[vap_count++];
        std::memcpy(vap.name, name.data(), std::min(name.size(), sizeof vap.name - 1));
        std::memcpy(vap.ssid, ssid.data(), std::min(ssid.size(), sizeof vap.ssid - 1));
        return vap;
    }

    static event_payload of_client() {
        return event_payload().header(CLIENT, 7);
    }

    static void disconnect(const event_payload &payload, vre_iw_cmd_t event = VRE_CLIENT_DISCONNECT) {
        received_payload received(payload);
        handle_vre_disconnect_event(event, received.data(), received.length());
    }

    static void disconnect_from(const std::string &ssid) {
        disconnect(of_client().text(SSID, ssid));
    }
};

TEST_F(Disconnect, AClientIsKickedOffTheOpenVapOfItsSsid) {
    add_vap("ath0", "Lobby");
    disconnect_from("Lobby");
    EXPECT_EQ(noted_commands, lines({"iwpriv ath0 kickmac 02:AB:00:9C:DE:0F &"}));
}

TEST_F(Disconnect, TheRequestAndTheCommandAreLoggedBeforeItRuns) {
    add_vap("ath0", "Lobby");
    log_capture log(2);
    disconnect_from("Lobby");
    const std::string me = "handle_vre_disconnect_event: ZEL DISCONNECT: ";
    EXPECT_EQ(log.lines(), lines({me + "Recived disconnect event for mac 02:AB:00:9C:DE:0F ssid=Lobby ssid_len=5",
                                  me + "command iwpriv ath0 kickmac 02:AB:00:9C:DE:0F &",
                                  "system: iwpriv ath0 kickmac 02:AB:00:9C:DE:0F &"}));
}

TEST_F(Disconnect, ItsLinesAreCritical) {
    add_vap("ath0", "Lobby");
    log_capture log(1);
    disconnect_from("Lobby");
    EXPECT_EQ(log.lines(), lines());
    EXPECT_EQ(noted_commands.size(), 1U);
}

TEST_F(Disconnect, EveryVapOfTheSsidGetsACommandInTheTablesOrder) {
    add_vap("ath3", "Lobby");
    add_vap("ath1", "Hall");
    add_vap("ath0", "Lobby");
    disconnect_from("Lobby");
    EXPECT_EQ(noted_commands, lines({"iwpriv ath3 kickmac 02:AB:00:9C:DE:0F &",  //
                                     "iwpriv ath0 kickmac 02:AB:00:9C:DE:0F &"}));
}

TEST_F(Disconnect, AFullTableIsWalkedToItsEnd) {
    for (int n = 0; n < MAX_VAPS; n++)
        add_vap("ath" + std::to_string(n), n == MAX_VAPS - 1 ? "Lobby" : "Hall");
    disconnect_from("Lobby");
    EXPECT_EQ(noted_commands, lines({"iwpriv ath15 kickmac 02:AB:00:9C:DE:0F &"}));
}

TEST_F(Disconnect, ACommandThatFailsDoesNotKeepTheNextFromRunning) {
    add_vap("ath0", "Lobby");
    add_vap("ath1", "Lobby");
    status_of_commands = -1;
    log_capture log;
    disconnect_from("Lobby");
    EXPECT_EQ(noted_commands.size(), 2U);
    EXPECT_EQ(log.lines().size(), 5U);  // nothing is said about the status
}

TEST_F(Disconnect, AVapWhoseClientsAuthenticateIsLeftAlone) {
    add_vap("ath0", "Lobby").secured_vap = 1;
    add_vap("ath1", "Lobby").samog_enabled = 1;
    add_vap("ath2", "Lobby").gauth_enabled = 1;
    log_capture log;
    disconnect_from("Lobby");
    EXPECT_EQ(noted_commands, lines());
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(Disconnect, AnyValueOfAFlagCounts) {
    add_vap("ath0", "Lobby").secured_vap = 0x80;
    add_vap("ath1", "Lobby").samog_enabled = 2;
    add_vap("ath2", "Lobby").gauth_enabled = 255;
    disconnect_from("Lobby");
    EXPECT_EQ(noted_commands, lines());
}

TEST_F(Disconnect, OtherPropertiesOfAVapDoNotKeepItsClients) {
    vap_info &vap = add_vap("ath0", "Lobby");
    vap.portal_enabled = vap.dot1x_enabled = vap.tunneled_vap = vap.nat_vap = vap.proto = 1;
    disconnect_from("Lobby");
    EXPECT_EQ(noted_commands.size(), 1U);
}

TEST_F(Disconnect, AnOpenVapBesideASecuredOneOfTheSameSsidIsServed) {
    add_vap("ath0", "Lobby").secured_vap = 1;
    add_vap("ath1", "Lobby");
    disconnect_from("Lobby");
    EXPECT_EQ(noted_commands, lines({"iwpriv ath1 kickmac 02:AB:00:9C:DE:0F &"}));
}

TEST_F(Disconnect, ABeginningOfAVapsSsidDoesNotMatch) {
    add_vap("ath0", "Lobby");
    disconnect_from("Lobb");
    disconnect_from("");
    EXPECT_EQ(noted_commands, lines());
}

TEST_F(Disconnect, AnSsidThatBeginsLikeAVapsDoesNotMatch) {
    add_vap("ath0", "Lobby");
    disconnect_from("Lobby2");
    EXPECT_EQ(noted_commands, lines());
}

TEST_F(Disconnect, AnSsidOfTheSameLengthMustHaveTheSameBytes) {
    add_vap("ath0", "Lobby");
    disconnect_from("lobby");
    disconnect_from("Lobbx");
    EXPECT_EQ(noted_commands, lines());
}

TEST_F(Disconnect, AnSsidMayFillItsField) {
    const std::string ssid(32, '\xe4');
    add_vap("ath0", ssid);
    disconnect_from(ssid);
    EXPECT_EQ(noted_commands.size(), 1U);
}

TEST_F(Disconnect, AnSsidThatIsTooLongMatchesByItsFirst32Bytes) {
    add_vap("ath0", std::string(32, 'a'));
    add_vap("ath1", std::string(31, 'a'));
    log_capture log(3);
    disconnect_from(std::string(40, 'a'));
    EXPECT_EQ(noted_commands, lines({"iwpriv ath0 kickmac 02:AB:00:9C:DE:0F &"}));
    EXPECT_EQ(log.lines()[1],
              "handle_vre_disconnect_event: ZEL DISCONNECT: Recived disconnect event for mac 02:AB:00:9C:DE:0F ssid=" +
                  std::string(32, 'a') + " ssid_len=32");
}

TEST_F(Disconnect, AnEventWithoutAnSsidMatchesNothing) {
    add_vap("ath0", "Lobby");
    add_vap("ath1", "");
    log_capture log;
    disconnect(of_client());
    EXPECT_EQ(noted_commands, lines());
    EXPECT_EQ(log.lines(), lines({"handle_vre_disconnect_event: ZEL DISCONNECT: Recived disconnect event for mac "
                                  "02:AB:00:9C:DE:0F ssid=(null) ssid_len=0"}));
}

TEST_F(Disconnect, AVapBehindTheTableIsNotServed) {
    add_vap("ath0", "Lobby");
    vap_count = 0;
    disconnect_from("Lobby");
    EXPECT_EQ(noted_commands, lines());
}

TEST_F(Disconnect, ANameOf15CharactersStandsWholeInTheCommand) {
    add_vap("a12345678901234", "Lobby");
    disconnect_from("Lobby");
    EXPECT_EQ(noted_commands, lines({"iwpriv a12345678901234 kickmac 02:AB:00:9C:DE:0F &"}));
}

TEST_F(Disconnect, AnyOtherEventIsIgnored) {
    add_vap("ath0", "Lobby");
    log_capture log;
    for (int e = 0; e <= VRE_MAX_EVT; e++) {
        if (e != 50)
            disconnect(of_client().text(SSID, "Lobby"), static_cast<vre_iw_cmd_t>(e));
    }
    EXPECT_EQ(noted_commands, lines());
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(Disconnect, AnEventWithoutAPayloadIsIgnored) {
    add_vap("ath0", "Lobby");
    log_capture log;
    handle_vre_disconnect_event(VRE_CLIENT_DISCONNECT, nullptr, 0);
    EXPECT_EQ(log.lines(), lines());
    EXPECT_EQ(noted_commands, lines());
}

TEST_F(Disconnect, AMacThatIsCutShortReadsAsZeros) {
    log_capture log;
    disconnect(event_payload().bytes({0x02, 0xab}));
    EXPECT_EQ(log.lines(), lines({"handle_vre_disconnect_event: ZEL DISCONNECT: Recived disconnect event for mac "
                                  "02:AB:00:00:00:00 ssid=(null) ssid_len=0"}));
}

TEST_F(Disconnect, TheProfileAndTheReasonOfAnEventDoNotMatter) {
    add_vap("ath0", "Lobby").profile_id = 3;
    disconnect(event_payload().header(CLIENT, 9).u16(SUBINFO_CODE, 4).text(SSID, "Lobby"));
    EXPECT_EQ(noted_commands.size(), 1U);
}

}  // namespace
