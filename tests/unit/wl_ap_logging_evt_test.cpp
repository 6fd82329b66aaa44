// The access point's own events: from the payload to the report on the bus, and the files of the transmit power.
#include "wl_ap_logging_evt_fixture.h"

#include "wl_events.h"

namespace {

using handler = void (*)(vre_iw_cmd_t, void *, int);

constexpr char POWER_2G[] = "/opt/last_tx_power_2G";
constexpr char POWER_5G[] = "/opt/last_tx_power_5G";

struct bound_handler {
    handler handle;
    vre_iw_cmd_t event;
};
constexpr bound_handler HANDLERS[] = {
    {handle_vre_userspace_event, VRE_USERSPACE_EVT},
    {handle_vre_evt_txpow_change, VRE_EVT_TXPOW_CHANGE},
    {handle_vre_evt_txpow_not_changed, VRE_EVT_TXPOW_NOT_CHANGED},
    {handle_vre_evt_chan_info, VRE_EVT_CHAN_INFO},
    {handle_vre_vap_down, VRE_VAP_DOWN},
};

byte_string joined(std::initializer_list<byte_string> parts) {
    byte_string all;
    for (const byte_string &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

/// A text in a field of fixed size, with NULs behind it.
byte_string field(const std::string &text, size_t size) {
    byte_string bytes = text_bytes(text);
    bytes.resize(size);
    return bytes;
}

byte_string power(int32_t before, int32_t now, const std::string &radio) {
    return joined({big_endian_bytes(static_cast<uint32_t>(before), 4), big_endian_bytes(static_cast<uint32_t>(now), 4),
                   field(radio, 10)});
}

byte_string vap_event(uint8_t up, uint8_t band, const std::string &vap, uint8_t reason = 9) {
    return joined({{up, band, reason}, field(vap, 33)});
}

byte_string user_value(uint32_t length, const byte_string &text) {
    return joined({big_endian_bytes(length, 4), text});
}

class ApEvents : public ApReports {
protected:
    void SetUp() override {
        ApReports::SetUp();
        write_profile("profile1", "Lobby", "ath0,ath1");
    }

    void TearDown() override {
        for (const char *const path : {"/tmp/profile1", "/tmp/profile2", POWER_2G, POWER_5G})
            std::filesystem::remove_all(path);
        ApReports::TearDown();
    }

    static void write_profile(const std::string &name, const std::string &ssid, const std::string &vaps) {
        const std::string folder = "/tmp/" + name + "/";
        std::filesystem::create_directories(folder);
        write_file(folder + "profile.conf", "VAP_LIST=" + vaps + "\n");
        write_file(folder + "wl.conf", "WL_PROFILE_SSID=" + ssid + "\n");
        write_file(folder + "running", "");
    }

    /// Hands over a payload as the bus does.
    static void receive(handler handle, vre_iw_cmd_t e, const byte_string &payload) {
        received_payload received(payload);
        handle(e, received.data(), received.length());
    }

    static void channel(const byte_string &payload) {
        receive(handle_vre_evt_chan_info, VRE_EVT_CHAN_INFO, payload);
    }

    static void power_changed(int32_t before, int32_t now, const std::string &radio) {
        receive(handle_vre_evt_txpow_change, VRE_EVT_TXPOW_CHANGE, power(before, now, radio));
    }

    static void power_kept(int32_t before, int32_t now, const std::string &radio) {
        receive(handle_vre_evt_txpow_not_changed, VRE_EVT_TXPOW_NOT_CHANGED, power(before, now, radio));
    }

    static void vap(const byte_string &payload) {
        receive(handle_vre_vap_down, VRE_VAP_DOWN, payload);
    }

    /// A user-space event with an info code and a value.
    static void user(uint32_t info_code, const byte_string &value) {
        receive(handle_vre_userspace_event, VRE_USERSPACE_EVT,
                event_payload().u32(5, info_code).item(7, value).bytes());
    }

    static void user_text(uint32_t info_code, const std::string &text) {
        user(info_code, user_value(static_cast<uint32_t>(text.size()), text_bytes(text)));
    }

    /// The one report of an event that nothing was reported before.
    static void expect_report(const std::function<void()> &event, uint32_t server_code, const std::string &text) {
        start_again();
        event();
        EXPECT_EQ(posted, std::vector{report_of(server_code, text)}) << text;
    }

    static void expect_nothing(const std::function<void()> &event) {
        start_again();
        event();
        EXPECT_TRUE(posted.empty());
        EXPECT_EQ(ap_logging_hash_t.entry_count, 0U);
    }

    /// As expect_logged, of events that nothing was reported before.
    static void expect_said(int level, const std::string &line, const std::function<void()> &event) {
        expect_logged(level, line, [&event] {
            start_again();
            event();
        });
    }
};

}  // namespace

// Channels: statistics

TEST_F(ApEvents, ChannelStatisticsAreNeverReported) {
    const byte_string statistics = {1, 0, 0, 0, 36, 0, 7, 0, 0, 1, 0, 55, 0xF0};
    expect_nothing([&statistics] { channel(statistics); });
    EXPECT_EQ(clock_reads, 0);
}

TEST_F(ApEvents, ChannelStatisticsAreLogged) {
    expect_said(7, "handle_vre_evt_chan_info: acs chan : 36  and non wifi : 55% ", [] {
        channel({1, 0, 0, 0, 36, 0, 7, 0, 0, 1, 0, 55, 0xF0});
    });
    EXPECT_EQ(lines_at_level(7,
                             [] {
                                 channel({1, 0xFF, 0xFF, 0xFF, 0xFE, 0, 7, 0, 0, 1, 0, 255, 0xF0});
                             }),
              (lines{"handle_vre_evt_chan_info: acs chan : -2  and non wifi : 255% ", ""}));
}

TEST_F(ApEvents, ShortStatisticsCountAsZeros) {
    EXPECT_EQ(lines_at_level(7,
                             [] {
                                 channel({1, 1});
                             })[0],
              "handle_vre_evt_chan_info: acs chan : 16777216  and non wifi : 0% ");
    EXPECT_EQ(lines_at_level(7, [] { channel({1}); })[0], "handle_vre_evt_chan_info: acs chan : 0  and non wifi : 0% ");
}

// Channels: changes

TEST_F(ApEvents, EveryCauseOfAChannelChangeHasItsName) {
    const char *const names[] = {"DFS", "CCI", "ACI", "DCS", "Periodic ACS"};
    for (int cause = 0; cause < 256; cause++) {
        const std::string name = cause < 5 ? names[cause] : "Unknown";
        expect_report([cause] { channel({2, static_cast<uint8_t>(cause)}); }, 14, "RADIO,1," + name);
    }
}

TEST_F(ApEvents, AChannelChangeIsLogged) {
    expect_said(7, "handle_vre_evt_chan_info: chan cause : 4 and str: Periodic ACS", [] { channel({2, 4}); });
    expect_said(7, "handle_vre_evt_chan_info: chan cause : 255 and str: Unknown", [] { channel({2, 255}); });
    expect_said(7, "", [] { channel({2, 4}); });  // the message ends its line itself
}

TEST_F(ApEvents, AChannelChangeWithoutACauseIsDfs) {
    expect_report([] { channel({2}); }, 14, "RADIO,1,DFS");
}

// Channels: selected and unchanged

TEST_F(ApEvents, EveryOperatingModeHasItsName) {
    const char *const names[] = {"AUTO",
                                 "11A",
                                 "11B",
                                 "11G",
                                 "FH",
                                 "TURBO A",
                                 "TURBO G",
                                 "11NA HT20",
                                 "11NG HT20",
                                 "11NA HT40PLUS",
                                 "11NA HT40MINUS",
                                 "11NG HT40PLUS",
                                 "11NG HT40MINUS",
                                 "",
                                 "",
                                 "11AC VHT20",
                                 "11AC VHT40PLUS",
                                 "11AC VHT40MINUS",
                                 "11AC VHT40",
                                 "11AC VHT80",
                                 "11AC VHT160",
                                 "11AC VHT80 80"};
    for (int mode = 0; mode < 256; mode++) {
        const std::string name = mode < 22 ? names[mode] : "";
        expect_report([mode] { channel({3, 36, static_cast<uint8_t>(mode)}); }, 15, "RADIO,1,36," + name);
        expect_report([mode] { channel({4, 36, static_cast<uint8_t>(mode)}); }, 19, "RADIO,1,36," + name);
    }
}

TEST_F(ApEvents, AnUnknownOperatingModeIsLogged) {
    const std::string line = "translate_driver_operating_mode: No matching operating mode found";
    for (const uint8_t mode : {13, 14, 22, 255}) {
        expect_said(3, line, [mode] { channel({3, 36, mode}); });
        expect_said(3, line, [mode] { channel({4, 36, mode}); });
    }
    for (const uint8_t mode : {0, 12, 15, 21})
        EXPECT_FALSE(holds(lines_at_level(7, [mode] { channel({3, 36, mode}); }), line));
}

TEST_F(ApEvents, ChannelsHaveOneByte) {
    expect_report([] { channel({3, 0, 1}); }, 15, "RADIO,1,0,11A");
    expect_report([] { channel({4, 255, 21}); }, 19, "RADIO,1,255,11AC VHT80 80");
}

TEST_F(ApEvents, ASelectedChannelIsLogged) {
    expect_said(7, "handle_vre_evt_chan_info: current chan set : 149 and operating mode 11AC VHT80", [] {
        channel({3, 149, 19});
    });
    expect_said(7, "handle_vre_evt_chan_info: current chan set : 149 and operating mode ", [] {
        channel({3, 149, 13});
    });
}

TEST_F(ApEvents, AnUnchangedChannelIsLogged) {
    expect_said(
        7, "handle_vre_evt_chan_info: channel remains same, current chan set : 149 and operating mode 11AC VHT80", [] {
            channel({4, 149, 19});
        });
}

TEST_F(ApEvents, MissingBytesOfAChannelAreZeros) {
    expect_report([] { channel({3}); }, 15, "RADIO,1,0,AUTO");
    expect_report([] { channel({4, 6}); }, 19, "RADIO,1,6,AUTO");
}

TEST_F(ApEvents, OtherChannelEventsHaveNoCode) {
    for (const byte_string &payload : {byte_string{}, byte_string{0}, byte_string{5, 36, 1}, byte_string{255}}) {
        expect_nothing([&payload] { channel(payload); });
        EXPECT_EQ(lines_at_level(7, [&payload] { channel(payload); }),
                  lines{"wl_ap_ts: No info code mapping to server found... Skipping event "});
    }
}

TEST_F(ApEvents, TheNameOfAChannelEventIsThatOfTheBus) {
    set_markers(false, true, true);
    EXPECT_EQ(lines_at_level(3,
                             [] {
                                 channel({2, 1});
                             }),
              lines{"wl_ap_ts: AP in offline mode... Skipping event : VRE.evt_chan_debug_info"});
}

// Transmit power

TEST_F(ApEvents, AChangedPowerIsReported) {
    expect_report([] { power_changed(20, 17, "5 GHz"); }, 17, "RADIO,3,20,17,5 GHz");
    expect_report([] { power_changed(-1, -20, "wifi0"); }, 17, "RADIO,3,-1,-20,wifi0");
    expect_report([] { power_changed(-2147483647 - 1, 2147483647, ""); }, 17, "RADIO,3,-2147483648,2147483647,");
}

TEST_F(ApEvents, AnUnchangedPowerIsReported) {
    expect_report([] { power_kept(20, 20, "2.4 GHz"); }, 18, "RADIO,3,20,20,2.4 GHz");
}

TEST_F(ApEvents, ARadiosNameMayLackItsNul) {
    expect_report([] { power_changed(1, 2, "0123456789"); }, 17, "RADIO,3,1,2,0123456789");
    expect_report([] { power_kept(1, 2, "abcdefghij"); }, 18, "RADIO,3,1,2,abcdefghij");
}

TEST_F(ApEvents, PowerIsLogged) {
    expect_said(7, "handle_vre_evt_txpow_change: AP Transmit power is updated from 20 dBm to -3 dBm for 5G radio",
                [] { power_changed(20, -3, "5G"); });
    expect_said(7,
                "handle_vre_evt_txpow_not_changed: AP Transmit power remains same from 20 dBm to 20 dBm for 5G radio",
                [] { power_kept(20, 20, "5G"); });
}

TEST_F(ApEvents, MissingBytesOfAPowerAreZeros) {
    expect_report([] { receive(handle_vre_evt_txpow_change, VRE_EVT_TXPOW_CHANGE, {}); }, 17, "RADIO,3,0,0,");
    expect_report(
        [] {
            receive(handle_vre_evt_txpow_change, VRE_EVT_TXPOW_CHANGE, {0, 0, 0, 9, 0, 0, 1});
        },
        17, "RADIO,3,9,256,");
    expect_report(
        [] {
            receive(handle_vre_evt_txpow_not_changed, VRE_EVT_TXPOW_NOT_CHANGED, {0, 0, 0, 9, 0, 0, 0, 8, 'w'});
        },
        18, "RADIO,3,9,8,w");
}

TEST_F(ApEvents, TheNewPowerIsWrittenForTheRadiosBand) {
    power_changed(20, 17, "wifi2");
    EXPECT_EQ(file_text(POWER_2G), "17");
    EXPECT_FALSE(std::filesystem::exists(POWER_5G));
    power_changed(20, -4, "5 GHz");
    EXPECT_EQ(file_text(POWER_5G), "-4");
    EXPECT_EQ(file_text(POWER_2G), "17");
}

TEST_F(ApEvents, ATwoAnywhereInTheNameIsTheLowerBand) {
    for (const char *const radio : {"2", "2.4 Ghz", "abcdefghi2", "5 and 2"}) {
        std::filesystem::remove(POWER_2G);
        power_changed(1, 30, radio);
        EXPECT_EQ(file_text(POWER_2G), "30") << radio;
    }
    for (const std::string &radio : {std::string(), std::string("5 Ghz"),
                                     std::string("5\0"
                                                 "2",
                                                 3)}) {
        std::filesystem::remove(POWER_5G);
        power_changed(1, 31, radio);
        EXPECT_EQ(file_text(POWER_5G), "31") << radio;
    }
}

TEST_F(ApEvents, ThePowersFileIsReplaced) {
    write_file(POWER_5G, "123456");
    power_changed(1, 7, "5G");
    EXPECT_EQ(file_text(POWER_5G), "7");
}

TEST_F(ApEvents, ThePowerIsWrittenAlsoWhenNothingIsReported) {
    set_markers(false, true, true);
    power_changed(20, 17, "5G");
    EXPECT_TRUE(posted.empty());
    EXPECT_EQ(file_text(POWER_5G), "17");
    set_markers(false, true, false);
    power_changed(20, 18, "5G");
    std::filesystem::remove(POWER_5G);
    power_changed(20, 18, "5G");
    EXPECT_EQ(posted.size(), 1U);
    EXPECT_EQ(file_text(POWER_5G), "18");
}

TEST_F(ApEvents, AnUnchangedPowerIsNotWritten) {
    power_kept(20, 20, "2G");
    power_kept(20, 20, "5G");
    EXPECT_FALSE(std::filesystem::exists(POWER_2G));
    EXPECT_FALSE(std::filesystem::exists(POWER_5G));
}

TEST_F(ApEvents, APowersFileThatCannotBeOpenedIsIgnored) {
    const auto scenario = [] {
        start_again();
        power_changed(20, 17, "5G");
    };
    const lines usual = lines_at_level(7, scenario);
    std::filesystem::remove(POWER_5G);
    std::filesystem::create_directory(POWER_5G);
    EXPECT_EQ(lines_at_level(7, scenario), usual);
    EXPECT_EQ(posted.size(), 1U);
}

// VAPs

TEST_F(ApEvents, AVapThatGoesDownIsReported) {
    expect_report([] { vap(vap_event(0, 1, "ath0")); }, 1, "RADIO,1,Lobby (2.4 Ghz),DOWN");
    expect_report([] { vap(vap_event(0, 0, "ath1")); }, 1, "RADIO,1,Lobby (5 Ghz),DOWN");
}

TEST_F(ApEvents, AVapThatComesUpIsReported) {
    expect_report([] { vap(vap_event(1, 1, "ath0")); }, 1, "RADIO,1,Lobby (2.4 Ghz),UP");
    expect_report([] { vap(vap_event(1, 0, "ath0")); }, 1, "RADIO,1,Lobby (5 Ghz),UP");
}

TEST_F(ApEvents, OnlyOneMeansUp) {
    for (const uint8_t state : {2, 128, 255})
        expect_report([state] { vap(vap_event(state, 0, "ath0")); }, 1, "RADIO,1,Lobby (5 Ghz),DOWN");
}

TEST_F(ApEvents, AnUnknownBandEndsTheEvent) {
    for (int band = 2; band < 256; band++)
        expect_nothing([band] { vap(vap_event(1, static_cast<uint8_t>(band), "ath0")); });
    std::filesystem::remove("/tmp/profile1/profile.conf");  // nobody looks for the SSID
    EXPECT_EQ(lines_at_level(7, [] { vap(vap_event(1, 2, "ath0")); }),
              lines{"handle_vre_vap_down: VAP ath0 Band not sane. Dropping this event"});
    expect_said(3, "handle_vre_vap_down: VAP ath0 Band not sane. Dropping this event",
                [] { vap(vap_event(0, 255, "ath0")); });
}

TEST_F(ApEvents, AVapWithoutAnSsidIsNotReported) {
    expect_nothing([] { vap(vap_event(0, 1, "ath7")); });
    expect_nothing([] { vap(vap_event(0, 1, "")); });
    EXPECT_EQ(lines_at_level(7, [] { vap(vap_event(0, 1, "ath7")); }), lines{});
}

TEST_F(ApEvents, AVapIsLogged) {
    const auto event = [] { vap(vap_event(0, 1, "ath0", 200)); };
    expect_said(7,
                "handle_vre_vap_down: Vap band : 1  and Vap down reason  : 200 and Vap name : ath0  SSID name : Lobby ",
                event);
    expect_said(3, "handle_vre_vap_down: Event with LOG : RADIO,1,Lobby (2.4 Ghz),DOWN and len 28", event);
}

TEST_F(ApEvents, AVapsNameMayLackItsNul) {
    const std::string name(33, 'v');
    write_profile("profile2", "Long", "ath5," + name);
    expect_report([&name] { vap(vap_event(1, 0, name)); }, 1, "RADIO,1,Long (5 Ghz),UP");
    byte_string longer = vap_event(1, 0, name);
    longer.push_back('w');
    expect_report([&longer] { vap(longer); }, 1, "RADIO,1,Long (5 Ghz),UP");
}

TEST_F(ApEvents, MissingBytesOfAVapAreZeros) {
    expect_nothing([] { vap({}); });
    expect_report([] { vap({1, 1, 0, 'a', 't', 'h', '1'}); }, 1, "RADIO,1,Lobby (2.4 Ghz),UP");
}

TEST_F(ApEvents, AnSsidOf33BytesFits) {
    write_profile("profile2", std::string(40, 's'), "ath9");
    expect_report([] { vap(vap_event(1, 0, "ath9")); }, 1, "RADIO,1," + std::string(33, 's') + " (5 Ghz),UP");
}

TEST_F(ApEvents, UpAndDownOfAVapAreTwoTexts) {
    vap(vap_event(0, 1, "ath0"));
    vap(vap_event(1, 1, "ath0"));
    vap(vap_event(0, 1, "ath1"));  // of the same SSID and band: the same text
    EXPECT_EQ(posted.size(), 2U);
}

// Events of user space

TEST_F(ApEvents, AUserSpaceTextIsReportedUnderItsOwnCode) {
    expect_report([] { user_text(VRE_INTERNET_DOWN_EVT, "Internet down"); }, 11, "Internet down");
    expect_report([] { user_text(VRE_USERSPACE_EVT, "Something"); }, 78, "Something");
    expect_report([] { user_text(4711, "Else"); }, 4711, "Else");
}

TEST_F(ApEvents, AUserSpaceTextWithoutACodeIsNotReported) {
    expect_nothing([] { user_text(0, "text"); });
    expect_nothing([] { user_text(VRE_SYSTEM_SERVICE_CRASH_EVT, "text"); });
    expect_nothing([] {
        receive(handle_vre_userspace_event, VRE_USERSPACE_EVT,
                event_payload().item(7, user_value(4, text_bytes("text"))).bytes());
    });
}

TEST_F(ApEvents, AUserSpaceEventsSubinfoCodeStaysBehind) {
    expect_report(
        [] {
            receive(handle_vre_userspace_event, VRE_USERSPACE_EVT,
                    event_payload().u32(5, VRE_REBOOT_EVT).u16(6, 99).item(7, user_value(2, {'o', 'k'})).bytes());
        },
        3, "ok");
}

TEST_F(ApEvents, AUserSpaceTextIsLogged) {
    expect_said(3, "handle_vre_userspace_event: Evt with LOG:Internet down and len 13 and infocode : 68",
                [] { user_text(VRE_INTERNET_DOWN_EVT, "Internet down"); });
}

TEST_F(ApEvents, AUserSpaceTextHasUpTo254Characters) {
    for (const size_t length : {0U, 1U, 253U, 254U}) {
        const std::string text(length, 'u');
        expect_report([&text] { user_text(VRE_REBOOT_EVT, text); }, 3, text);
    }
}

TEST_F(ApEvents, ALongerUserSpaceTextIsRefused) {
    struct {
        uint32_t length;
        const char *printed;
    } const cases[] = {{255, "255"},       {256, "256"},      {0x7FFFFFFF, "2147483647"}, {0x80000000, "-2147483648"},
                       {0xFFFFFFFE, "-2"}, {0xFFFFFFFF, "-1"}};
    for (const auto &of : cases) {
        const auto event = [&of] { user(VRE_REBOOT_EVT, user_value(of.length, byte_string(300, 'u'))); };
        expect_nothing(event);
        expect_said(3,
                    std::string("handle_vre_userspace_event: Unable to send greter length[") + of.printed +
                        "] packet to server limit[255]",
                    event);
    }
}

TEST_F(ApEvents, AUserSpaceTextEndsWithItsValue) {
    expect_report([] { user(VRE_REBOOT_EVT, user_value(254, text_bytes("short"))); }, 3, "short");
    expect_report([] { user(VRE_REBOOT_EVT, user_value(200, {})); }, 3, "");
}

TEST_F(ApEvents, NothingBehindAUserSpaceValueIsOfItsText) {
    expect_report(
        [] {
            const event_payload payload =
                event_payload().u32(5, VRE_REBOOT_EVT).item(7, user_value(254, text_bytes("short")));
            received_payload received(payload, 'x');
            handle_vre_userspace_event(VRE_USERSPACE_EVT, received.data(), received.length());
        },
        3, "short");
}

TEST_F(ApEvents, AUserSpaceTextEndsAtItsLength) {
    expect_report([] { user(VRE_REBOOT_EVT, user_value(3, text_bytes("longer"))); }, 3, "lon");
}

TEST_F(ApEvents, AUserSpaceTextEndsAtANul) {
    expect_report([] { user(VRE_REBOOT_EVT, user_value(7, text_bytes(std::string("abc\0def", 7)))); }, 3, "abc");
}

TEST_F(ApEvents, AUserSpaceTextMayHaveAnyBytes) {
    std::string text;
    for (int byte = 1; byte < 255; byte++)
        text += static_cast<char>(byte);
    expect_report([&text] { user_text(VRE_REBOOT_EVT, text); }, 3, text);
    expect_report([] { user_text(VRE_REBOOT_EVT, "%s%n%d"); }, 3, "%s%n%d");
}

TEST_F(ApEvents, AUserSpaceValueBeyondThePayloadIsCut) {
    expect_report(
        [] {
            receive(handle_vre_userspace_event, VRE_USERSPACE_EVT,
                    event_payload()
                        .u32(5, VRE_REBOOT_EVT)
                        .item_claiming(7, 500, user_value(254, text_bytes("cut")))
                        .bytes());
        },
        3, "cut");
}

TEST_F(ApEvents, AUserSpaceEventWithoutAValueIsLogged) {
    const std::string line = "handle_vre_userspace_event:  subinfo value null";
    for (const byte_string &payload :
         {byte_string{}, event_payload().u32(5, VRE_REBOOT_EVT).bytes(), byte_string(7, 0xFF)}) {
        const auto event = [&payload] { receive(handle_vre_userspace_event, VRE_USERSPACE_EVT, payload); };
        expect_nothing(event);
        expect_said(3, line, event);
    }
}

TEST_F(ApEvents, AUserSpaceValueWithoutItsLengthCountsAsNone) {
    for (const byte_string &value : {byte_string{}, byte_string{0}, byte_string{0, 0, 0}}) {
        const auto event = [&value] { user(VRE_REBOOT_EVT, value); };
        expect_nothing(event);
        expect_said(3, "handle_vre_userspace_event:  subinfo value null", event);
    }
}

// Every handler

TEST_F(ApEvents, AnAbsentPayloadIsIgnored) {
    for (const bound_handler &of : HANDLERS) {
        const bool is_user_event = of.event == VRE_USERSPACE_EVT;
        EXPECT_EQ(lines_at_level(7, [&of] { of.handle(of.event, nullptr, 10); }),
                  is_user_event ? lines{"handle_vre_userspace_event:  Payload null"} : lines{});
    }
    EXPECT_TRUE(posted.empty());
    expect_said(3, "handle_vre_userspace_event:  Payload null",
                [] { handle_vre_userspace_event(VRE_USERSPACE_EVT, nullptr, 0); });
}

TEST_F(ApEvents, ANegativeLengthCountsAsNone) {
    uint8_t bytes[64] = {2, 1};
    for (const bound_handler &of : HANDLERS) {
        start_again();
        of.handle(of.event, bytes, -1);
        const bool is_power = of.event == VRE_EVT_TXPOW_CHANGE || of.event == VRE_EVT_TXPOW_NOT_CHANGED;
        EXPECT_EQ(posted.size(), is_power ? 1U : 0U) << of.event;
    }
}

TEST_F(ApEvents, PayloadsOfAnyLengthAreReadWithinTheirBounds) {
    for (const bound_handler &of : HANDLERS) {
        for (size_t length = 0; length < 300; length++) {
            for (const uint8_t filler : {0x00, 0x01, 0x03, 0xFF}) {
                const byte_string payload(length, filler);
                receive(of.handle, of.event, payload);
            }
        }
    }
}

TEST_F(ApEvents, EveryAllocationMayFail) {
    const std::function<void()> events[] = {
        [] {
            channel({2, 1});
        },
        [] {
            channel({3, 1, 1});
        },
        [] { channel({9}); },
        [] { power_changed(1, 2, "5G"); },
        [] { power_kept(1, 2, "5G"); },
        [] { vap(vap_event(1, 1, "ath0")); },
        [] { user_text(VRE_REBOOT_EVT, "x"); },
    };
    for (const auto &event : events) {
        int faults = 0;
        for (const char *const function : {"calloc", "malloc"}) {
            int fired = 1;
            for (int nth = 1; fired > 0; nth++) {
                ASSERT_LT(nth, 20);
                start_again();
                fail_nth_call(function, nth);
                event();
                fired = faults_fired(function);
                clear_faults();
                EXPECT_LE(posted.size(), 1U);
                faults += fired;
            }
        }
        EXPECT_GT(faults, 0);
    }
}

TEST_F(ApEvents, WithoutMemoryForATextThePowerIsStillWritten) {
    std::filesystem::remove(POWER_5G);
    fail_nth_call("calloc", 1);
    power_changed(20, 17, "5G");
    EXPECT_EQ(faults_fired("calloc"), 1);
    clear_faults();
    EXPECT_TRUE(posted.empty());
    EXPECT_EQ(file_text(POWER_5G), "17");
}
