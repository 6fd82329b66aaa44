// The handlers: what each event makes of its message.
#include "wl_bw_fixture.h"

#include "vap_profile_map.h"
#include "wl_ssid_profile.h"

void __real_dllist_delink_node(dllist_ctrl_t *ctrl,
                               dllist_t *node) asm("__real__Z18dllist_delink_nodeP13dllist_ctrl_tP8dllist_t");
void __wrap_dllist_delink_node(dllist_ctrl_t *ctrl,
                               dllist_t *node) asm("__wrap__Z18dllist_delink_nodeP13dllist_ctrl_tP8dllist_t");

namespace {

int unlinked;
bool unlinked_without_lock;

}  // namespace

void __wrap_dllist_delink_node(dllist_ctrl_t *ctrl, dllist_t *node) {
    unlinked++;
    unlinked_without_lock = unlinked_without_lock || others_may_lock();
    __real_dllist_delink_node(ctrl, node);
}

namespace {

constexpr uint32_t PROFILE = 3;

// Items of a message.
constexpr uint32_t BSSID = 2;
constexpr uint32_t NAME = 3;
constexpr uint32_t PRIORITY = 8;
constexpr uint32_t UPLOAD = 9;
constexpr uint32_t DOWNLOAD = 10;
constexpr uint32_t PER_BSS = 11;
constexpr uint32_t APPLY = 12;

using handler = void (*)(vre_iw_cmd_t event, void *msg, int len);

class BandwidthEvents : public BandwidthFixture {
protected:
    BandwidthEvents() {
        unlinked = 0;
        unlinked_without_lock = false;
        profile_id_for_vap[0].profile_id = PROFILE;
        profile_id_for_vap[0].profile_data = 1;
        profile_id_for_vap[1].profile_id = 9;  // without bandwidth control
        ssid_profile_list = hash_table_init(nullptr, SSID_PROFILE_BUCKETS, &ssid_cache_hash_fn, nullptr);
    }

    ~BandwidthEvents() override {
        hash_table_destroy(ssid_profile_list);
        free(ssid_profile_list);
        ssid_profile_list = nullptr;
    }

    static event_payload message(uint32_t profile_id = PROFILE, uint8_t number = 1) {
        return event_payload().header(mac_of(number), profile_id);
    }

    static event_payload limits(event_payload payload, uint8_t pri, uint32_t up, uint32_t down) {
        return payload.item(PRIORITY, {pri}).u32(UPLOAD, up).u32(DOWNLOAD, down);
    }

    static void deliver(handler to, vre_iw_cmd_t event, const event_payload &payload) {
        received_payload received(payload);
        to(event, received.data(), received.length());
    }

    static void set_by(const event_payload &payload) {
        deliver(vre_bw_set_limit, VRE_BW_SET, payload);
    }

    static void clear_by(const event_payload &payload) {
        deliver(vre_bw_clr_limit, VRE_BW_CLR, payload);
    }

    static void authorize(const event_payload &payload) {
        deliver(bw_set_limit_node_authorized, VRE_NODE_AUTHORIZE, payload);
    }

    static void leave(const event_payload &payload) {
        deliver(vre_bw_clr_limit_disassoc, VRE_NODE_LEAVE, payload);
    }

    /// An SSID whose stations have a limit.
    static ssid_profile_info *add_ssid(uint32_t profile_id = PROFILE) {
        ssid_profile_info *const ssid = create_ssid_profile_data();
        ssid->profile_id = profile_id;
        ssid->per_user_bw_enable = 1;
        ssid->per_user_bw_down_limit = 5;
        ssid->per_user_bw_up_limit = 6;
        EXPECT_EQ(hash_table_add(ssid_profile_list, &ssid->profile_id, ssid), 0);
        return ssid;
    }

    static std::string no_interface(const std::string &function) {
        return function + ": could not able to find interface name for BW event for client 00:11:22:33:44:AB";
    }
};

// --- set and clear ---

TEST_F(BandwidthEvents, ASetOfAStationIsQueuedAsTheEventSays) {
    set_by(limits(message().text(NAME, "ath0"), 7, 100, 0xFFFFFFFF));
    const auto all = commands();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].action, 3);
    EXPECT_EQ(all[0].record, record_bytes({.pri = 7, .up = 100, .down = -1, .classid = 2}));
}

TEST_F(BandwidthEvents, ASetThatAppliesIsRun) {
    set_by(limits(message().text(NAME, "ath0"), 7, 100, 200).item(APPLY));
    const auto all = commands();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].action, 1);
    EXPECT_EQ(all[0].record,
              record_bytes({.pri = 7, .up = 100, .down = 200, .transition = true, .applied = true, .classid = 2}));
}

TEST_F(BandwidthEvents, ASetOfABssRecordsTheEventsMacToo) {
    set_by(limits(message().text(NAME, "ath0"), 7, 100, 200).item(PER_BSS));
    byte_string expected = record_bytes({.pri = 7, .up = 100, .down = 200, .bss = true, .classid = 1});
    const byte_string mac = mac_of(1);
    std::copy(mac.begin(), mac.end(), expected.begin());
    const auto all = commands();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].record, expected);
    EXPECT_EQ(all[0].line, "/sbin/tc_wrapper.sh limit profile 3 bss up 100 down 200 priority 7");
}

TEST_F(BandwidthEvents, ASetTakesTheProfileOfItsMessageAndNotOfItsVap) {
    set_by(limits(message(9).text(NAME, "ath0"), 1, 1, 1));
    EXPECT_NE(profile(9), nullptr);
    EXPECT_EQ(profile(PROFILE), nullptr);
}

TEST_F(BandwidthEvents, ASetKeepsAll15CharactersOfAName) {
    set_by(limits(message().text(NAME, "a12345678901234"), 1, 1, 1));
    ASSERT_NE(station(1), nullptr);
    EXPECT_STREQ(station(1)->interface, "a12345678901234");
}

TEST_F(BandwidthEvents, ASetWithoutANameFindsItsVapByTheBssid) {
    add_vap("ath4", {1, 2, 3, 4, 5, 6});
    add_vap("ath5", {7, 7, 7, 7, 7, 7});
    add_vap("ath6", {7, 7, 7, 7, 7, 7});
    log_capture log(3);
    set_by(limits(message().item(BSSID, {7, 7, 7, 7, 7, 7}), 1, 1, 1));
    EXPECT_STREQ(station(1)->interface, "ath5");
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(BandwidthEvents, AVapsNameMayFillItsField) {
    add_vap("a123456789012345", {7, 7, 7, 7, 7, 7});
    set_by(limits(message().item(BSSID, {7, 7, 7, 7, 7, 7}), 1, 1, 1));
    EXPECT_STREQ(station(1)->interface, "a123456789012345");
}

TEST_F(BandwidthEvents, ANameCountsMoreThanABssid) {
    add_vap("ath5", {7, 7, 7, 7, 7, 7});
    set_by(limits(message().text(NAME, "ath0").item(BSSID, {7, 7, 7, 7, 7, 7}), 1, 1, 1));
    EXPECT_STREQ(station(1)->interface, "ath0");
}

TEST_F(BandwidthEvents, ASetGoesOnWithoutAnInterface) {
    add_vap("ath5", {7, 7, 7, 7, 7, 7});
    log_capture log(3);
    set_by(limits(message(PROFILE, 0xAB).item(BSSID, {7, 7, 7, 7, 7, 8}), 1, 1, 1));
    EXPECT_EQ(log.lines(), lines({no_interface("bw_create_info")}));
    ASSERT_NE(station(0xAB), nullptr);
    EXPECT_STREQ(station(0xAB)->interface, "");
}

TEST_F(BandwidthEvents, AVapBehindTheTableIsNotFound) {
    add_vap("ath5", {7, 7, 7, 7, 7, 7});
    vap_count = 0;
    set_by(limits(message().item(BSSID, {7, 7, 7, 7, 7, 7}), 1, 1, 1));
    EXPECT_STREQ(station(1)->interface, "");
}

TEST_F(BandwidthEvents, AClearGoesOnWithoutAnInterface) {
    set({.station = 0xAB, .interface = ""});
    log_capture log(3);
    clear_by(message(PROFILE, 0xAB).item(PRIORITY, {1}));
    EXPECT_EQ(log.lines(), lines({no_interface("bw_create_info")}));
    EXPECT_EQ(station(0xAB), nullptr);
}

TEST_F(BandwidthEvents, AMissingInterfaceIsAnError) {
    log_capture log(2);
    set_by(limits(message(), 1, 1, 1));
    clear_by(message());
    authorize(message());
    leave(message());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(BandwidthEvents, AClearOfAStationIsRecordedAsTheEventSays) {
    apply({.pri = 7});
    queued();
    clear_by(limits(message().text(NAME, "ath0"), 0, 5, 6).item(APPLY));
    const auto all = commands();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].record,
              record_bytes(
                  {.pri = 0, .up = 5, .down = 6, .transition = true, .applied = true, .e = VRE_BW_CLR, .classid = 2}));
    EXPECT_EQ(station(1), nullptr);
}

TEST_F(BandwidthEvents, AClearOfABss) {
    set({.pri = 7, .bss = true});
    clear_by(message().item(PRIORITY, {7}).item(PER_BSS));
    EXPECT_EQ(profile(PROFILE), nullptr);
}

TEST_F(BandwidthEvents, AMessageOfNoBytesIsOfNoProfile) {
    const event_payload empty;
    log_capture log(7);
    set_by(empty);
    clear_by(empty);
    EXPECT_TRUE(contains(log.lines(), "__bw_set_limit: Invalid profile id"));
    EXPECT_TRUE(contains(log.lines(), "__bw_clr_limit: Invalid profile id"));
}

TEST_F(BandwidthEvents, NoMessageIsOfNoProfile) {
    vre_bw_set_limit(VRE_BW_SET, nullptr, 0);
    vre_bw_clr_limit(VRE_BW_CLR, nullptr, 0);
    bw_set_limit_node_authorized(VRE_NODE_AUTHORIZE, nullptr, 0);
    vre_bw_clr_limit_disassoc(VRE_NODE_LEAVE, nullptr, 0);
    EXPECT_EQ(bw_profile_hash_t.entry_count, 0U);
}

// --- authorized ---

TEST_F(BandwidthEvents, AnAuthorizedStationGetsAnAppliedRuleWithoutLimits) {
    add_ssid();
    authorize(message().text(NAME, "ath0"));
    const auto all = commands();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].action, 1);
    EXPECT_EQ(all[0].line, "/sbin/tc_wrapper.sh limit profile 3 sta 00:11:22:33:44:01 classid 2 up -1 down -1 bssid "
                           "00:00:00:00:00:00 priority 0");
    EXPECT_EQ(all[0].record,
              record_bytes({.pri = 0, .up = -1, .down = -1, .transition = true, .applied = true, .classid = 2}));
}

TEST_F(BandwidthEvents, AnAuthorizedStationsHeldRuleIsAppliedWithItsLimits) {
    set({.pri = 2, .up = 10, .down = 20});
    queued();
    authorize(message().text(NAME, "ath0"));
    EXPECT_EQ(queued(), lines({"1 limit profile 3 sta 00:11:22:33:44:01 classid 2 up 10 down 20 bssid "
                               "00:00:00:00:00:00 priority 2"}));
}

TEST_F(BandwidthEvents, AnAuthorizationKeepsItsPriorityAndNoneOfItsLimits) {
    authorize(limits(message().text(NAME, "ath0"), 9, 100, 200).item(PER_BSS));
    ASSERT_NE(station(1), nullptr);
    EXPECT_EQ(station(1)->pri, 9);
    EXPECT_EQ(station(1)->up, -1);
    EXPECT_EQ(station(1)->down, -1);
    EXPECT_EQ(profile(PROFILE)->bw_bss.pri, 0);
}

TEST_F(BandwidthEvents, AnAuthorizationWithANameIsOfItsVapsProfile) {
    authorize(message(77).text(NAME, "ath0"));
    EXPECT_NE(profile(PROFILE), nullptr);
    EXPECT_EQ(profile(77), nullptr);
}

TEST_F(BandwidthEvents, AnAuthorizationOnAVapWithoutBandwidthControlIsRefused) {
    log_capture log;
    authorize(message().text(NAME, "ath1"));
    EXPECT_EQ(log.lines(), lines({"__bw_set_limit: Invalid profile id"}));
    EXPECT_EQ(bw_profile_hash_t.entry_count, 0U);
}

TEST_F(BandwidthEvents, AnAuthorizationWithoutANameIsOfItsOwnProfile) {
    add_vap("ath5", {7, 7, 7, 7, 7, 7});
    authorize(message(77).item(BSSID, {7, 7, 7, 7, 7, 7}));
    ASSERT_NE(station(1, 77), nullptr);
    EXPECT_STREQ(station(1, 77)->interface, "ath5");
}

TEST_F(BandwidthEvents, AnAuthorizationGoesOnWithoutAnInterface) {
    log_capture log(3);
    authorize(message(PROFILE, 0xAB));
    EXPECT_EQ(log.lines(), lines({no_interface("bw_set_limit_node_authorized")}));
    EXPECT_NE(station(0xAB), nullptr);
}

TEST_F(BandwidthEvents, AnAuthorizationIsSilentlyLeftWhereStationsHaveNoLimit) {
    add_ssid()->per_user_bw_enable = 0;
    log_capture log;
    authorize(message().text(NAME, "ath0"));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(bw_profile_hash_t.entry_count, 0U);
}

TEST_F(BandwidthEvents, AnAuthorizationIsSilentlyLeftWhereTheLimitsAreZero) {
    ssid_profile_info *const ssid = add_ssid();
    ssid->per_user_bw_down_limit = 0;
    ssid->per_user_bw_up_limit = 0;
    log_capture log;
    authorize(message().text(NAME, "ath0"));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(BandwidthEvents, OneLimitOfTheSsidIsEnough) {
    ssid_profile_info *const ssid = add_ssid();
    ssid->per_user_bw_down_limit = 0;
    authorize(message(PROFILE, 1).text(NAME, "ath0"));
    ssid->per_user_bw_down_limit = 5;
    ssid->per_user_bw_up_limit = 0;
    authorize(message(PROFILE, 2).text(NAME, "ath0"));
    EXPECT_EQ(stations(), 2U);
}

TEST_F(BandwidthEvents, AnotherNumberThanOneEnablesEvenWithoutLimits) {
    ssid_profile_info *const ssid = add_ssid();
    ssid->per_user_bw_enable = 2;
    ssid->per_user_bw_down_limit = 0;
    ssid->per_user_bw_up_limit = 0;
    authorize(message().text(NAME, "ath0"));
    EXPECT_NE(station(1), nullptr);
}

TEST_F(BandwidthEvents, TheSsidIsLookedUpByTheVapsProfile) {
    add_ssid(77)->per_user_bw_enable = 0;
    authorize(message(77).text(NAME, "ath0"));
    EXPECT_NE(station(1), nullptr);
}

TEST_F(BandwidthEvents, ARoleOverridesTheDefault) {
    add_ssid()->flags.role_profile_enabled = 1;
    log_capture log(3);
    authorize(message().text(NAME, "ath0"));
    EXPECT_EQ(log.lines(), lines({"bw_set_limit_node_authorized: Role profile is enabled for this client, do not apply "
                                  "default BW limit"}));
    EXPECT_EQ(bw_profile_hash_t.entry_count, 0U);
}

TEST_F(BandwidthEvents, ARoleIsAnError) {
    add_ssid()->flags.role_profile_enabled = 1;
    log_capture log(2);
    authorize(message().text(NAME, "ath0"));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(BandwidthEvents, ARolesOwnProfileHasADefault) {
    ssid_profile_info *const ssid = add_ssid();
    ssid->flags.role_profile_enabled = 1;
    ssid->flags.is_role_profile = 1;
    authorize(message().text(NAME, "ath0"));
    EXPECT_NE(station(1), nullptr);
}

TEST_F(BandwidthEvents, WithoutSsidsAtAllThereIsADefault) {
    hash_table_t *const ssids = ssid_profile_list;
    ssid_profile_list = nullptr;
    authorize(message().text(NAME, "ath0"));
    ssid_profile_list = ssids;
    EXPECT_NE(station(1), nullptr);
}

// --- leave ---

TEST_F(BandwidthEvents, AStationThatLeavesIsClearedWhenItsRuleIsApplied) {
    apply({.pri = 2});
    queued();
    leave(message().text(NAME, "ath0"));
    EXPECT_EQ(station(1), nullptr);
    const auto all = commands();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].action, 1);
    EXPECT_EQ(all[0].line, "/sbin/tc_wrapper.sh clear profile 3 sta 00:11:22:33:44:01 classid 2 bssid "
                           "00:00:00:00:00:00 priority 2");
    EXPECT_EQ(all[0].record,
              record_bytes({.pri = 0, .up = 0, .down = 0, .transition = true, .e = VRE_BW_CLR, .classid = 2}));
}

TEST_F(BandwidthEvents, AHeldStationThatLeavesIsOnlyRecorded) {
    set({.pri = 2});
    queued();
    leave(message().text(NAME, "ath0"));
    EXPECT_EQ(station(1), nullptr);
    EXPECT_EQ(commands().at(0).action, 3);
}

TEST_F(BandwidthEvents, ItsWaitingSetCommandsAreDroppedAndOthersStay) {
    apply({.station = 1, .pri = 2});
    apply({.station = 2, .pri = 2});
    leave(message().text(NAME, "ath0"));
    EXPECT_EQ(queued(), lines({"1 limit profile 3 sta 00:11:22:33:44:02 classid 3 up 2048 down 4096 bssid "
                               "00:00:00:00:00:00 priority 2",
                               "1 clear profile 3 sta 00:11:22:33:44:01 classid 2 bssid 00:00:00:00:00:00 priority "
                               "2"}));
}

TEST_F(BandwidthEvents, AnUnknownStationThatLeavesIsSaidAndLeavesAnEmptyProfile) {
    log_capture log;
    leave(message(PROFILE, 0xAB).text(NAME, "ath0"));
    EXPECT_EQ(log.lines(),
              lines({"__bw_set_limit:  Clearing bandwidth limits for STA 00:11:22:33:44:AB  (profile 3 priority 0)",
                     "bw_set_sta_limit: Could not find BW rule to clear for disassociating STA 00:11:22:33:44:AB with "
                     "priority #0",
                     "__bw_set_limit:  Rule applied ++ SUCCESS"}));
    ASSERT_NE(profile(PROFILE), nullptr);
    EXPECT_EQ(stations(), 0U);
    EXPECT_TRUE(commands().empty());
}

TEST_F(BandwidthEvents, AStationLeavesTheProfileOfItsVap) {
    set({.profile = PROFILE});
    set({.profile = 77});
    leave(message(77).text(NAME, "ath0"));
    EXPECT_EQ(station(1, PROFILE), nullptr);
    EXPECT_NE(station(1, 77), nullptr);
}

TEST_F(BandwidthEvents, AStationThatLeavesAVapWithoutBandwidthControlIsRefused) {
    const limit waiting{.interface = "ath1"};
    const bw_rule_info req = request(waiting);
    bw_enqueue("/sbin/tc_wrapper.sh waits", &req, BW_RUN);
    log_capture log;
    leave(message().text(NAME, "ath1"));
    EXPECT_EQ(log.lines(), lines({"__bw_set_limit: Invalid profile id"}));
    EXPECT_EQ(queued(), lines({"2 waits"}));
}

TEST_F(BandwidthEvents, AStationThatLeavesWithABssidAloneIsClearedButNotPurged) {
    add_vap("ath0", {7, 7, 7, 7, 7, 7});
    apply({.pri = 2});
    log_capture log(3);
    leave(message().item(BSSID, {7, 7, 7, 7, 7, 7}));
    EXPECT_EQ(log.lines(), lines({"find_node_for_sta: Invalid arguments"}));
    EXPECT_EQ(station(1), nullptr);
    EXPECT_EQ(queued().size(), 2U);
}

TEST_F(BandwidthEvents, AStationThatLeavesWithoutAnInterfaceIsSaid) {
    log_capture log(3);
    leave(message(PROFILE, 0xAB));
    EXPECT_EQ(log.lines(), lines({no_interface("bw_clr_limit_disassoc"), "find_node_for_sta: Invalid arguments"}));
}

TEST_F(BandwidthEvents, ALeaveOfAnotherPriorityOnlyHoldsTheRule) {
    apply({.pri = 5});
    queued();
    leave(message().text(NAME, "ath0").item(PRIORITY, {2}).item(PER_BSS).item(APPLY));
    ASSERT_NE(station(1), nullptr);
    EXPECT_EQ(station(1)->state, BW_HELD);
    EXPECT_EQ(station(1)->pri, 5);
}

TEST_F(BandwidthEvents, WaitingCommandsAreDroppedWithTheMutexHeld) {
    apply({.pri = 2});
    leave(message().text(NAME, "ath0"));
    EXPECT_EQ(unlinked, 1);
    EXPECT_FALSE(unlinked_without_lock);
    EXPECT_TRUE(others_may_lock());
}

}  // namespace
