// The rules: what a set and a clear request do, step by step, and what each says.
#include "wl_bw_fixture.h"

#include <functional>

#include "fault.h"

int __real_hash_table_add(hash_table_t *table, void *key,
                          void *value) asm("__real__Z14hash_table_addP12hash_table_tPvS1_");
int __wrap_hash_table_add(hash_table_t *table, void *key,
                          void *value) asm("__wrap__Z14hash_table_addP12hash_table_tPvS1_");
int __real_hash_table_delete(hash_table_t *table,
                             const void *key) asm("__real__Z17hash_table_deleteP12hash_table_tPKv");
int __wrap_hash_table_delete(hash_table_t *table,
                             const void *key) asm("__wrap__Z17hash_table_deleteP12hash_table_tPKv");

namespace {

bool deletion_fails;
int table_changes;
bool changed_without_lock;

void note_table_change() {
    table_changes++;
    changed_without_lock = changed_without_lock || others_may_lock();
}

}  // namespace

int __wrap_hash_table_add(hash_table_t *table, void *key, void *value) {
    note_table_change();
    return __real_hash_table_add(table, key, value);
}

int __wrap_hash_table_delete(hash_table_t *table, const void *key) {
    note_table_change();
    return deletion_fails ? -1 : __real_hash_table_delete(table, key);
}

namespace {

class BandwidthRules : public BandwidthFixture {
protected:
    BandwidthRules() {
        table_changes = 0;
        changed_without_lock = false;
    }

    ~BandwidthRules() override {
        clear_faults();
        deletion_fails = false;
    }

    static std::string cache() {
        std::string text;
        FILE *const file = std::fopen(BW_CACHE_FILE, "r");
        for (int byte = 0; (byte = std::fgetc(file)) != EOF;)
            text.push_back(static_cast<char>(byte));
        std::fclose(file);
        return text;
    }

    static void expect_rule(uint8_t number, uint8_t pri, int32_t up, int32_t down, uint8_t state) {
        const bw_rule *const rule = station(number);
        ASSERT_NE(rule, nullptr);
        EXPECT_EQ(rule->pri, pri);
        EXPECT_EQ(rule->up, up);
        EXPECT_EQ(rule->down, down);
        EXPECT_EQ(rule->state, state);
    }
};

// --- records ---

TEST_F(BandwidthRules, ANewProfileIsEmpty) {
    bw_profile *const made = create_bwp(0x01020304);
    EXPECT_EQ(made->profile_id, 0x01020304U);
    EXPECT_EQ(made->bw_sta_hash_t.table_size, 23U);
    EXPECT_EQ(made->bw_sta_hash_t.entry_count, 0U);
    const bw_rule zero{};
    EXPECT_EQ(std::memcmp(&made->bw_bss, &zero, sizeof zero), 0);
    bw_profile_hash_fn.free_value(made, nullptr);
}

TEST_F(BandwidthRules, ANewRuleIsHeldAndWithoutLimits) {
    bw_rule *const made = create_bw_rule(mac_of(5).data());
    EXPECT_EQ(std::memcmp(made->mac, mac_of(5).data(), 6), 0);
    EXPECT_EQ(made->pri, 0);
    EXPECT_EQ(made->state, 0);
    EXPECT_EQ(made->classid, 0U);
    EXPECT_EQ(made->up, -1);
    EXPECT_EQ(made->down, -1);
    EXPECT_EQ(made->interface[0], 0);
    free(made);
}

TEST_F(BandwidthRules, StationsHashBySumOfTheirBytesModulo23) {
    bw_rule key{};
    const byte_string mac = {0xFF, 0xFE, 1, 2, 3, 4};
    std::copy(mac.begin(), mac.end(), key.mac);
    EXPECT_EQ(bw_sta_hash_fn.hash_function(&key, nullptr), (255U + 254 + 1 + 2 + 3 + 4) % 23);
}

TEST_F(BandwidthRules, StationsCompareByAllSixBytes) {
    bw_rule one{};
    bw_rule other{};
    EXPECT_EQ(bw_sta_hash_fn.compare_keys(&one, &other, nullptr), 0);
    other.pri = 7;
    EXPECT_EQ(bw_sta_hash_fn.compare_keys(&one, &other, nullptr), 0);
    other.mac[5] = 1;
    EXPECT_LT(bw_sta_hash_fn.compare_keys(&one, &other, nullptr), 0);
    one.mac[0] = 0x80;
    EXPECT_GT(bw_sta_hash_fn.compare_keys(&one, &other, nullptr), 0);
}

TEST_F(BandwidthRules, ProfilesHashByIdModulo23AndAreAllEqual) {
    bw_profile one{};
    bw_profile other{};
    one.profile_id = 0xFFFFFFFF;
    EXPECT_EQ(bw_profile_hash_fn.hash_function(&one, nullptr), 0xFFFFFFFFU % 23);
    EXPECT_EQ(bw_profile_hash_fn.compare_keys(&one, &other, nullptr), 0);
}

// --- set: profile ---

TEST_F(BandwidthRules, SetWithoutAProfileIsRefused) {
    log_capture log;
    set({.profile = 0});
    EXPECT_EQ(log.lines(), lines({"__bw_set_limit: Invalid profile id"}));
    EXPECT_EQ(bw_profile_hash_t.entry_count, 0U);
}

TEST_F(BandwidthRules, SetCreatesTheProfileAndGivesTheRequestItsClassId) {
    const bw_rule_info req = set({.bss = true, .classid = 99});
    ASSERT_NE(profile(3), nullptr);
    EXPECT_EQ(profile(3)->profile_id, 3U);
    EXPECT_EQ(req.classid, 1U);
}

TEST_F(BandwidthRules, SetOfAProfileThatExistsLeavesTheRequestsClassId) {
    set({.bss = true});
    const bw_rule_info req = set({.pri = 2, .bss = true, .classid = 99});
    EXPECT_EQ(req.classid, 99U);
    EXPECT_EQ(bw_profile_hash_t.entry_count, 1U);
}

TEST_F(BandwidthRules, ARefusedStationRequestStillGetsTheNewProfilesClassId) {
    const bw_rule_info req = set({.e = VRE_BW_CLR, .classid = 99});
    EXPECT_EQ(req.classid, 1U);
}

TEST_F(BandwidthRules, ARestoredStationKeepsItsClassIdInANewProfile) {
    replay({.classid = 99});
    ASSERT_NE(station(1), nullptr);
    EXPECT_EQ(station(1)->classid, 99U);
    EXPECT_EQ(profile(3)->last_classid, 99U);
}

TEST_F(BandwidthRules, SuccessIsSaidOfARefusedRequestToo) {
    set({.pri = 2, .bss = true});
    log_capture log(6);
    set({.pri = 1, .bss = true});
    EXPECT_EQ(log.lines().back(), "__bw_set_limit:  Rule applied ++ SUCCESS");
}

TEST_F(BandwidthRules, ProfilesOfOneBucketShareTheFirstOnesRecord) {
    set({.profile = 5, .pri = 2, .bss = true});
    EXPECT_EQ(profile(5), profile(28));
    set({.profile = 28, .pri = 3, .up = 7, .down = 8, .bss = true});
    EXPECT_EQ(bw_profile_hash_t.entry_count, 1U);
    EXPECT_EQ(profile(28)->profile_id, 5U);
    EXPECT_EQ(profile(28)->bw_bss.up, 7);
    EXPECT_EQ(queued(), lines({"1 limit profile 5 bss up 2048 down 4096 priority 2",
                               "1 limit profile 28 bss up 7 down 8 priority 3"}));
}

TEST_F(BandwidthRules, StationsOfProfilesThatShareABucketShareTheClassIds) {
    set({.profile = 28, .station = 1});
    set({.profile = 5, .station = 2});
    EXPECT_EQ(station(1, 5)->classid, 2U);
    EXPECT_EQ(station(2, 28)->classid, 3U);
}

TEST_F(BandwidthRules, ClearingABssClearsTheProfilesThatShareItsBucket) {
    set({.profile = 5, .bss = true});
    clear({.profile = 28, .bss = true});
    EXPECT_EQ(profile(5), nullptr);
}

// --- set: BSS ---

TEST_F(BandwidthRules, SetOfABss) {
    set({.pri = 1, .up = 2048, .down = 4096, .bss = true});
    const bw_rule &bss = profile(3)->bw_bss;
    EXPECT_EQ(bss.up, 2048);
    EXPECT_EQ(bss.down, 4096);
    EXPECT_EQ(bss.pri, 1);
    EXPECT_EQ(queued(), lines({"1 limit profile 3 bss up 2048 down 4096 priority 1"}));
}

TEST_F(BandwidthRules, SetOfABssIsRecordedAsRequested) {
    limit wanted{.pri = 1, .up = -1, .down = INT32_MAX, .bss = true};
    set(wanted);
    const auto all = commands();
    wanted.classid = 1;
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].record, record_bytes(wanted));
}

TEST_F(BandwidthRules, AWeakerBssLimitIsRefused) {
    set({.pri = 2, .bss = true});
    queued();
    set({.pri = 1, .up = 1, .down = 1, .bss = true});
    EXPECT_EQ(profile(3)->bw_bss.up, 2048);
    EXPECT_EQ(profile(3)->bw_bss.pri, 2);
    EXPECT_TRUE(queued().empty());
}

TEST_F(BandwidthRules, TheSameBssLimitIssuesNothing) {
    set({.bss = true});
    queued();
    set({.bss = true});
    EXPECT_TRUE(queued().empty());
}

TEST_F(BandwidthRules, EachPartOfABssLimitAloneIsAChange) {
    set({.bss = true});
    set({.up = 1, .bss = true});
    set({.up = 1, .down = 2, .bss = true});
    set({.pri = 2, .up = 1, .down = 2, .bss = true});
    EXPECT_EQ(queued().size(), 4U);
}

TEST_F(BandwidthRules, AZeroLimitIsWhatANewProfilesBssHas) {
    set({.pri = 0, .up = 0, .down = 0, .bss = true});
    EXPECT_TRUE(queued().empty());
}

// --- set: a new station ---

TEST_F(BandwidthRules, ANewStationsLimitIsHeldAndOnlyRecorded) {
    const limit wanted{.pri = 1, .up = 10, .down = 20};
    set(wanted);
    expect_rule(1, 1, 10, 20, BW_HELD);
    EXPECT_EQ(station(1)->classid, 2U);
    EXPECT_STREQ(station(1)->interface, "ath0");
    const auto all = commands();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].action, 3);
    EXPECT_EQ(all[0].line, "/sbin/tc_wrapper.sh limit profile 3 sta 00:11:22:33:44:01 classid 2 up 10 down 20 bssid "
                           "00:00:00:00:00:00 priority 1");
    limit recorded = wanted;
    recorded.classid = 2;
    EXPECT_EQ(all[0].record, record_bytes(recorded));
}

TEST_F(BandwidthRules, ANewStationsLimitIsAppliedWhenItAsksForIt) {
    apply({.pri = 1, .up = 10, .down = 20});
    expect_rule(1, 1, 10, 20, BW_APPLIED);
    const auto all = commands();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].action, 1);
    EXPECT_EQ(all[0].record,
              record_bytes({.pri = 1, .up = 10, .down = 20, .transition = true, .applied = true, .classid = 2}));
}

TEST_F(BandwidthRules, ATargetStateAloneMovesNothing) {
    set({.applied = true});
    expect_rule(1, 1, 2048, 4096, BW_HELD);
    EXPECT_EQ(commands().at(0).action, 3);
}

TEST_F(BandwidthRules, ANewStationMayHavePriorityZeroAndAnyLimit) {
    set({.pri = 0, .up = -5, .down = 0});
    expect_rule(1, 0, -5, 0, BW_HELD);
}

TEST_F(BandwidthRules, AClearOfAStationWithoutARuleIsSaid) {
    set({.bss = true});
    queued();
    log_capture log;
    set({.station = 0xAB, .pri = 7, .transition = true, .e = VRE_BW_CLR});
    EXPECT_EQ(log.lines(),
              lines({"__bw_set_limit:  Clearing bandwidth limits for STA 00:11:22:33:44:AB  (profile 3 priority 7)",
                     "bw_set_sta_limit: Could not find BW rule to clear for disassociating STA 00:11:22:33:44:AB with "
                     "priority #7",
                     "__bw_set_limit:  Rule applied ++ SUCCESS"}));
    EXPECT_EQ(stations(), 0U);
    EXPECT_EQ(profile(3)->last_classid, 1U);
    EXPECT_TRUE(queued().empty());
}

TEST_F(BandwidthRules, The255thStationGetsNoRule) {
    for (unsigned number = 1; number <= 254; number++)
        set({.station = static_cast<uint8_t>(number)});
    queued();
    log_capture log;
    set({.station = 255});
    EXPECT_EQ(stations(), 254U);
    EXPECT_EQ(log.lines().at(1), "get_class_id_next_unused: Error: class_id is not available.");
    EXPECT_EQ(log.lines().size(), 3U);
    EXPECT_TRUE(queued().empty());
}

TEST_F(BandwidthRules, AFreedPlaceServesThe255thStation) {
    for (unsigned number = 1; number <= 254; number++)
        set({.station = static_cast<uint8_t>(number)});
    clear({.station = 7});
    set({.station = 255});
    ASSERT_NE(station(255), nullptr);
    EXPECT_EQ(station(255)->classid, 8U);
}

TEST_F(BandwidthRules, ARestoredStationWhoseClassIdIsTakenGetsNoRule) {
    replay({.station = 1, .classid = 9});
    replay({.station = 2, .classid = 9});
    EXPECT_EQ(station(2), nullptr);
}

// --- set: a station that goes to held ---

TEST_F(BandwidthRules, HoldOfTheSamePriorityClearsTheRule) {
    apply({.pri = 0});
    queued();
    log_capture log;
    set({.pri = 0, .transition = true});
    EXPECT_EQ(station(1), nullptr);
    EXPECT_EQ(queued(), lines({"1 clear profile 3 sta 00:11:22:33:44:01 classid 2 bssid 00:00:00:00:00:00 priority "
                               "0"}));
    EXPECT_TRUE(contains(log.lines(), "__bw_clr_limit:  Rule removed -- SUCCESS"));
}

TEST_F(BandwidthRules, HoldWithoutAPriorityClearsTheRule) {
    apply({.pri = 5});
    set({.pri = 0, .transition = true});
    EXPECT_EQ(station(1), nullptr);
}

TEST_F(BandwidthRules, HoldOfTheSamePriorityLeavesAnAppliedRuleWithoutLimits) {
    apply({.pri = 5});
    set({.pri = 5, .transition = true});
    expect_rule(1, 0, -1, -1, BW_APPLIED);
}

TEST_F(BandwidthRules, HoldOfAnotherPriorityTakesTheRuleOutOfTrafficControl) {
    apply({.pri = 5, .up = 10, .down = 20});
    queued();
    set({.pri = 2, .up = 1, .down = 1, .transition = true});
    expect_rule(1, 5, 10, 20, BW_HELD);
    const auto all = commands();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].action, 2);
    EXPECT_EQ(all[0].line, "/sbin/tc_wrapper.sh clear profile 3 sta 00:11:22:33:44:01 classid 2 bssid "
                           "00:00:00:00:00:00 priority 5");
    EXPECT_EQ(all[0].record, byte_string(45));
    EXPECT_EQ(all[1].action, 3);
    EXPECT_EQ(all[1].line, "/sbin/tc_wrapper.sh limit profile 3 sta 00:11:22:33:44:01 classid 2 up 10 down 20 bssid "
                           "00:00:00:00:00:00 priority 5");
    EXPECT_EQ(all[1].record, record_bytes({.pri = 2, .up = 1, .down = 1, .transition = true, .classid = 2}));
}

TEST_F(BandwidthRules, HoldOfAHigherPriorityBringsItsLimits) {
    apply({.pri = 5, .up = 10, .down = 20});
    set({.pri = 6, .up = 1, .down = 2, .transition = true});
    expect_rule(1, 6, 1, 2, BW_HELD);
}

TEST_F(BandwidthRules, HoldOfAWeakerPriorityOnAHeldRuleIsRecorded) {
    set({.pri = 5, .up = 10, .down = 20});
    queued();
    log_capture log;
    set({.pri = 2, .up = 1, .down = 1, .transition = true});
    expect_rule(1, 5, 10, 20, BW_HELD);
    EXPECT_EQ(queued(), lines({"3 limit profile 3 sta 00:11:22:33:44:01 classid 2 up 10 down 20 bssid "
                               "00:00:00:00:00:00 priority 5"}));
    EXPECT_EQ(log.lines().size(), 4U);
    EXPECT_EQ(log.lines()[1], "bw_set_sta_limit: Rule applied on interface ath0");
}

TEST_F(BandwidthRules, HoldOnAnotherInterfaceIsIgnored) {
    apply({.pri = 5});
    queued();
    log_capture log;
    set({.pri = 2, .interface = "ath01", .transition = true});
    EXPECT_EQ(log.lines().at(1), "bw_set_sta_limit: Ignore the clear limits for STA 00:11:22:33:44:01, Interface "
                                 "mismatch(ath0 ath01)");
    expect_rule(1, 5, 2048, 4096, BW_APPLIED);
    EXPECT_STREQ(station(1)->interface, "ath0");
    EXPECT_TRUE(queued().empty());
}

TEST_F(BandwidthRules, HoldOfTheSameLimitsIsNotTakenForARepetition) {
    set({.pri = 5});
    set({.pri = 5, .transition = true});
    EXPECT_EQ(station(1), nullptr);
}

// --- set: repetition ---

TEST_F(BandwidthRules, TheSameLimitOnTheSameInterfaceIsIgnored) {
    set({});
    queued();
    log_capture log;
    set({});
    EXPECT_EQ(log.lines().at(1), "bw_set_sta_limit: Same rule already applied. Ignoring this.");
    EXPECT_TRUE(queued().empty());
    EXPECT_EQ(cache(), "");
}

TEST_F(BandwidthRules, TheSameLimitOnAnotherInterfaceIsWrittenToTheCacheAtOnce) {
    apply({});
    queued();
    log_capture log;
    const bw_rule_info req = set({.interface = "ath7"});
    EXPECT_EQ(log.lines().at(1), "bw_set_sta_limit: Same rule already applied for [ath0] interface, update new "
                                 "interface [ath7]");
    EXPECT_STREQ(station(1)->interface, "ath7");
    EXPECT_EQ(req.classid, 2U);
    EXPECT_TRUE(queued().empty());
    const byte_string expected = record_bytes({.interface = "ath7", .classid = 2});
    EXPECT_EQ(cache(), std::string(expected.begin(), expected.end()));
}

TEST_F(BandwidthRules, ASetThatMovesTheStateIsNoRepetition) {
    set({});
    queued();
    apply({});
    expect_rule(1, 1, 2048, 4096, BW_APPLIED);
    EXPECT_EQ(queued(), lines({"1 limit profile 3 sta 00:11:22:33:44:01 classid 2 up 2048 down 4096 bssid "
                               "00:00:00:00:00:00 priority 1"}));
}

TEST_F(BandwidthRules, AnApplyOfAnAppliedRuleIsARepetition) {
    apply({});
    queued();
    apply({});
    EXPECT_TRUE(queued().empty());
}

TEST_F(BandwidthRules, EachPartOfAStationsLimitAloneIsAChange) {
    set({});
    set({.up = 1});
    set({.up = 1, .down = 2});
    set({.pri = 2, .up = 1, .down = 2});
    EXPECT_EQ(queued().size(), 4U);
    expect_rule(1, 2, 1, 2, BW_HELD);
}

TEST_F(BandwidthRules, ARestoredRepetitionWithAnotherClassIdMovesTheClassId) {
    replay({.classid = 9});
    replay({.classid = 12});
    EXPECT_EQ(station(1)->classid, 12U);
}

TEST_F(BandwidthRules, ARestoredRepetitionWithTheSameClassIdIsIgnored) {
    replay({.classid = 9});
    log_capture log;
    replay({.classid = 9});
    EXPECT_EQ(log.lines().at(1), "bw_set_sta_limit: Same rule already applied. Ignoring this.");
}

TEST_F(BandwidthRules, ALiveRepetitionWithAnotherClassIdIsIgnored) {
    set({});
    log_capture log;
    set({.classid = 12});
    EXPECT_EQ(log.lines().at(1), "bw_set_sta_limit: Same rule already applied. Ignoring this.");
    EXPECT_EQ(station(1)->classid, 2U);
}

TEST_F(BandwidthRules, ARestoredRepetitionOnAnotherInterfaceChangesItAndWritesNothing) {
    replay({.classid = 9});
    replay({.interface = "ath7", .classid = 9});
    EXPECT_STREQ(station(1)->interface, "ath7");
    EXPECT_EQ(cache(), "");
}

// --- set: priorities ---

TEST_F(BandwidthRules, AWeakerStationLimitIsRefused) {
    set({.pri = 2});
    queued();
    log_capture log;
    set({.pri = 1, .up = 1, .down = 1});
    EXPECT_EQ(log.lines().at(1), "bw_set_sta_limit: Overriding a high priority rule by a low priority rule prohibited");
    expect_rule(1, 2, 2048, 4096, BW_HELD);
    EXPECT_TRUE(queued().empty());
}

TEST_F(BandwidthRules, AWeakerApplyOfAnAppliedRuleIsRefused) {
    apply({.pri = 2});
    queued();
    apply({.pri = 1});
    expect_rule(1, 2, 2048, 4096, BW_APPLIED);
    EXPECT_TRUE(queued().empty());
}

TEST_F(BandwidthRules, AWeakerApplyOfAHeldRuleAppliesItsStoredLimits) {
    set({.pri = 2, .up = 10, .down = 20});
    queued();
    apply({.pri = 0, .up = -1, .down = -1});
    expect_rule(1, 2, 10, 20, BW_APPLIED);
    const auto all = commands();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].action, 1);
    EXPECT_EQ(all[0].line, "/sbin/tc_wrapper.sh limit profile 3 sta 00:11:22:33:44:01 classid 2 up 10 down 20 bssid "
                           "00:00:00:00:00:00 priority 2");
    EXPECT_EQ(all[0].record,
              record_bytes({.pri = 0, .up = -1, .down = -1, .transition = true, .applied = true, .classid = 2}));
}

TEST_F(BandwidthRules, AStrongerLimitOfAnAppliedStationRuns) {
    apply({.pri = 1});
    queued();
    set({.pri = 2, .up = 1, .down = 2, .interface = "ath1"});
    expect_rule(1, 2, 1, 2, BW_APPLIED);
    EXPECT_STREQ(station(1)->interface, "ath1");
    EXPECT_EQ(queued(), lines({"1 limit profile 3 sta 00:11:22:33:44:01 classid 2 up 1 down 2 bssid "
                               "00:00:00:00:00:00 priority 2"}));
}

TEST_F(BandwidthRules, AnotherLimitOfTheSamePriorityReplacesTheOld) {
    set({.pri = 2});
    set({.pri = 2, .up = 7, .down = 8});
    expect_rule(1, 2, 7, 8, BW_HELD);
}

TEST_F(BandwidthRules, ARestoredChangeMovesTheClassId) {
    replay({.classid = 9});
    replay({.pri = 2, .classid = 12});
    EXPECT_EQ(station(1)->classid, 12U);
    EXPECT_EQ(station(1)->pri, 2);
}

TEST_F(BandwidthRules, ALiveChangeKeepsTheClassId) {
    set({});
    const bw_rule_info req = set({.pri = 2, .classid = 12});
    EXPECT_EQ(station(1)->classid, 2U);
    EXPECT_EQ(req.classid, 2U);
}

TEST_F(BandwidthRules, ARestoredTransitionMovesTheClassIdToo) {
    replay({.classid = 9});
    replay({.transition = true, .applied = true, .classid = 12});
    EXPECT_EQ(station(1)->classid, 12U);
    expect_rule(1, 1, 2048, 4096, BW_APPLIED);
}

TEST_F(BandwidthRules, ARestoredWeakerChangeIsRefusedAndLeavesTheClassId) {
    replay({.pri = 2, .classid = 9});
    replay({.pri = 1, .up = 1, .classid = 12});
    EXPECT_EQ(station(1)->classid, 9U);
    expect_rule(1, 2, 2048, 4096, BW_HELD);
}

TEST_F(BandwidthRules, AMovedClassIdChangesNoMapOfTakenOnes) {
    replay({.classid = 9});
    replay({.pri = 2, .classid = 12});
    EXPECT_EQ(profile(3)->classid_bm[0], 3U | 1U << 9);
    EXPECT_EQ(profile(3)->last_classid, 9U);
}

TEST_F(BandwidthRules, ARestoredHoldOfAnotherPriorityHoldsTheRuleAndLeavesItsClassId) {
    replay({.pri = 2, .transition = true, .applied = true, .classid = 9});
    replay({.pri = 3, .up = 1, .down = 2, .transition = true, .classid = 12});
    EXPECT_EQ(station(1)->classid, 9U);
    expect_rule(1, 3, 1, 2, BW_HELD);
    EXPECT_TRUE(commands().empty());
    EXPECT_EQ(cache(), "");
}

TEST_F(BandwidthRules, ARestoredWeakerHoldKeepsTheStrongerLimits) {
    replay({.pri = 2, .transition = true, .applied = true, .classid = 9});
    replay({.pri = 1, .up = 1, .down = 2, .transition = true, .classid = 12});
    EXPECT_EQ(station(1)->classid, 9U);
    expect_rule(1, 2, 2048, 4096, BW_HELD);
}

TEST_F(BandwidthRules, ARestoredHoldOnAnotherInterfaceIsIgnored) {
    replay({.pri = 2, .transition = true, .applied = true, .classid = 9});
    log_capture log;
    replay({.pri = 3, .up = 1, .interface = "ath7", .transition = true, .classid = 12});
    EXPECT_TRUE(contains(log.lines(), "bw_set_sta_limit: Ignore the clear limits for STA 00:11:22:33:44:01, Interface "
                                      "mismatch(ath0 ath7)"));
    EXPECT_EQ(station(1)->classid, 9U);
    EXPECT_STREQ(station(1)->interface, "ath0");
    expect_rule(1, 2, 2048, 4096, BW_APPLIED);
}

TEST_F(BandwidthRules, ARestoredHoldWithoutPriorityDeletesTheRule) {
    replay({.pri = 2, .transition = true, .applied = true, .classid = 9});
    replay({.pri = 0, .transition = true, .e = VRE_BW_CLR});
    EXPECT_EQ(station(1), nullptr);
    EXPECT_EQ(profile(3)->classid_bm[0], 3U);
    EXPECT_TRUE(commands().empty());
    EXPECT_EQ(cache(), "");
}

TEST_F(BandwidthRules, ARestoredHoldOfTheSamePriorityClearsTheRule) {
    replay({.pri = 2, .transition = true, .applied = true, .classid = 9});
    replay({.pri = 2, .transition = true});
    expect_rule(1, 0, -1, -1, BW_APPLIED);
    EXPECT_EQ(station(1)->classid, 9U);
    EXPECT_TRUE(commands().empty());
    EXPECT_EQ(cache(), "");
}

TEST_F(BandwidthRules, ARestoredRuleRunsAndRecordsNothing) {
    replay({.transition = true, .applied = true, .classid = 9});
    expect_rule(1, 1, 2048, 4096, BW_APPLIED);
    EXPECT_TRUE(commands().empty());
    EXPECT_EQ(cache(), "");
}

TEST_F(BandwidthRules, TheWholeInterfaceFieldIsCopied) {
    set({.interface = "a12345678901234567"});
    EXPECT_EQ(std::memcmp(station(1)->interface, "a1234567890123456", 17), 0);
}

TEST_F(BandwidthRules, AnInterfaceWithoutAnEndIsCutInTheLog) {
    log_capture log;
    set({.interface = "a1234567890123456", .transition = true, .applied = true});
    EXPECT_EQ(log.lines().at(1), "bw_set_sta_limit: Rule applied on interface a1234567890123456");
    set({.pri = 2, .interface = "b1234567890123456", .transition = true});
    EXPECT_TRUE(contains(log.lines(), "bw_set_sta_limit: Ignore the clear limits for STA 00:11:22:33:44:01, Interface "
                                      "mismatch(a1234567890123456 b1234567890123456)"));
    clear({.interface = "b1234567890123456"});
    EXPECT_TRUE(contains(log.lines(), "__bw_clr_limit: Interface Mismatch. Ignore clear rule (a1234567890123456 "
                                      "b1234567890123456)"));
    set({.interface = "b1234567890123456"});
    EXPECT_TRUE(contains(log.lines(), "bw_set_sta_limit: Same rule already applied for [a1234567890123456] interface, "
                                      "update new interface [b1234567890123456]"));
}

// --- staging ---

TEST_F(BandwidthRules, ANewAppliedRuleIsStagedBeforeItHasItsLimits) {
    log_capture log;
    apply({.profile = 3, .station = 0xAB, .pri = 4});
    EXPECT_EQ(log.lines().at(2),
              "bw_stage_for_application: (profile 3) #0 [up -1, down -1] 00:11:22:33:44:AB HELD => [APPLIED]");
}

TEST_F(BandwidthRules, StagingToHeldClearsFirst) {
    apply({.pri = 4, .up = 10, .down = 20});
    queued();
    log_capture log(7);
    bw_stage_for_application(station(1), 26, BW_HELD);
    EXPECT_EQ(log.lines(),
              lines({"bw_stage_for_application: (profile 26) #4 [up 10, down 20] 00:11:22:33:44:01 APPLIED => [HELD]",
                     "tc_action: /sbin/tc_wrapper.sh clear profile 26 sta 00:11:22:33:44:01 classid 2 bssid "
                     "00:00:00:00:00:00 priority 4"}));
    EXPECT_EQ(station(1)->state, BW_HELD);
    EXPECT_EQ(queued().size(), 1U);
}

TEST_F(BandwidthRules, StagingToTheSameStateOnlySpeaks) {
    apply({});
    queued();
    log_capture log;
    bw_stage_for_application(station(1), 3, BW_APPLIED);
    EXPECT_EQ(log.lines(), lines({"bw_stage_for_application: (profile 3) #1 [up 2048, down 4096] 00:11:22:33:44:01 "
                                  "APPLIED => [APPLIED]"}));
    EXPECT_TRUE(queued().empty());
}

TEST_F(BandwidthRules, StagingToAppliedIssuesNothing) {
    set({});
    queued();
    bw_stage_for_application(station(1), 3, BW_APPLIED);
    EXPECT_EQ(station(1)->state, BW_APPLIED);
    EXPECT_TRUE(queued().empty());
}

// --- clear ---

TEST_F(BandwidthRules, ClearWithoutAProfileIsRefused) {
    log_capture log;
    clear({.profile = 0});
    EXPECT_EQ(log.lines(), lines({"__bw_clr_limit: Invalid profile id"}));
}

TEST_F(BandwidthRules, ClearOfAnAbsentProfileIsRefused) {
    log_capture log;
    clear({.profile = 77, .bss = true});
    EXPECT_EQ(log.lines(), lines({"__bw_clr_limit:  Clearing bw limits for BSS (profile 77 priority 1) [up 2048, down "
                                  "4096]",
                                  "__bw_clr_limit: Profile 77 Not found"}));
    EXPECT_EQ(bw_profile_hash_t.entry_count, 0U);
}

TEST_F(BandwidthRules, ClearPrintsLimitsUnsigned) {
    log_capture log;
    clear({.station = 0xAB, .pri = 255, .up = -1, .down = -2});
    EXPECT_EQ(log.lines().at(0), "__bw_clr_limit:  Clearing bw limits for STA  00:11:22:33:44:AB (profile 3 priority "
                                 "255) [up 4294967295, down 4294967294]");
    clear({.pri = 255, .up = -1, .down = -2, .bss = true});
    EXPECT_EQ(log.lines().at(2), "__bw_clr_limit:  Clearing bw limits for BSS (profile 3 priority 255) [up 4294967295, "
                                 "down 4294967294]");
}

TEST_F(BandwidthRules, ClearOfAnAbsentStationIsRefused) {
    set({});
    log_capture log;
    clear({.station = 2});
    EXPECT_EQ(log.lines().back(), "__bw_clr_limit: Sta not found");
    EXPECT_EQ(stations(), 1U);
}

TEST_F(BandwidthRules, ClearOfAnotherPriorityIsRefused) {
    set({.pri = 2});
    queued();
    log_capture log;
    clear({.pri = 1});
    clear({.pri = 3});
    EXPECT_EQ(log.lines().at(1), "__bw_clr_limit: Priority Mismatch");
    EXPECT_EQ(log.lines().at(3), "__bw_clr_limit: Priority Mismatch");
    EXPECT_EQ(log.lines().size(), 4U);
    expect_rule(1, 2, 2048, 4096, BW_HELD);
    EXPECT_TRUE(queued().empty());
}

TEST_F(BandwidthRules, ClearOnAnotherInterfaceIsRefused) {
    set({});
    queued();
    log_capture log;
    clear({.interface = "ath"});
    EXPECT_EQ(log.lines().back(), "__bw_clr_limit: Interface Mismatch. Ignore clear rule (ath0 ath)");
    EXPECT_NE(station(1), nullptr);
    EXPECT_TRUE(queued().empty());
}

TEST_F(BandwidthRules, PriorityIsComparedBeforeTheInterface) {
    set({.pri = 2});
    log_capture log;
    clear({.pri = 1, .interface = "ath1"});
    EXPECT_EQ(log.lines().back(), "__bw_clr_limit: Priority Mismatch");
}

TEST_F(BandwidthRules, ClearOfAHeldRuleIsOnlyRecorded) {
    set({.pri = 2});
    queued();
    log_capture log;
    const bw_rule_info req = clear({.pri = 2, .up = 0, .down = 0});
    EXPECT_EQ(station(1), nullptr);
    EXPECT_EQ(req.classid, 2U);
    EXPECT_EQ(profile(3)->classid_bm[0], 3U);
    EXPECT_EQ(log.lines().back(), "__bw_clr_limit:  Rule removed -- SUCCESS");
    const auto all = commands();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].action, 3);
    EXPECT_EQ(all[0].line, "/sbin/tc_wrapper.sh clear profile 3 sta 00:11:22:33:44:01 classid 2 bssid "
                           "00:00:00:00:00:00 priority 2");
    EXPECT_EQ(all[0].record, record_bytes({.pri = 2, .up = 0, .down = 0, .e = VRE_BW_CLR, .classid = 2}));
}

TEST_F(BandwidthRules, ClearWithoutAPriorityDeletesAnAppliedRule) {
    apply({.pri = 2});
    queued();
    clear({.pri = 0});
    EXPECT_EQ(station(1), nullptr);
    EXPECT_EQ(profile(3)->classid_bm[0], 3U);
    EXPECT_EQ(queued(), lines({"1 clear profile 3 sta 00:11:22:33:44:01 classid 2 bssid 00:00:00:00:00:00 priority "
                               "2"}));
}

TEST_F(BandwidthRules, ClearOfAnAppliedRuleWithoutAPriorityDeletesIt) {
    apply({.pri = 0});
    clear({.pri = 0});
    EXPECT_EQ(station(1), nullptr);
}

TEST_F(BandwidthRules, ClearOfAnAppliedRuleWithItsPriorityLeavesItWithoutLimits) {
    apply({.pri = 2});
    queued();
    log_capture log;
    clear({.pri = 2});
    expect_rule(1, 0, -1, -1, BW_APPLIED);
    EXPECT_EQ(station(1)->classid, 2U);
    EXPECT_EQ(profile(3)->classid_bm[0], 7U);
    EXPECT_EQ(log.lines().back(), "__bw_clr_limit:  Rule removed -- SUCCESS");
    const auto all = commands();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].action, 1);
    EXPECT_EQ(all[0].line, "/sbin/tc_wrapper.sh clear profile 3 sta 00:11:22:33:44:01 classid 2 bssid "
                           "00:00:00:00:00:00 priority 2");
    EXPECT_EQ(all[0].record, record_bytes({.pri = 2, .e = VRE_BW_CLR, .classid = 2}));
    EXPECT_EQ(all[1].action, 2);
    EXPECT_EQ(all[1].line, "/sbin/tc_wrapper.sh limit profile 3 sta 00:11:22:33:44:01 classid 2 up -1 down -1 bssid "
                           "00:00:00:00:00:00 priority 0");
    EXPECT_EQ(all[1].record, byte_string(45));
}

TEST_F(BandwidthRules, ClearOfABssDeletesItsProfileAndItsStations) {
    set({.pri = 2, .bss = true});
    apply({.station = 1});
    set({.station = 2});
    queued();
    log_capture log;
    clear({.pri = 2, .bss = true});
    EXPECT_EQ(profile(3), nullptr);
    EXPECT_EQ(log.lines().back(), "__bw_clr_limit:  Rule removed -- SUCCESS");
    const auto all = commands();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].action, 1);
    EXPECT_EQ(all[0].line, "/sbin/tc_wrapper.sh clear profile 3 bss priority 2");
    EXPECT_EQ(all[0].record, record_bytes({.pri = 2, .bss = true, .e = VRE_BW_CLR}));
}

TEST_F(BandwidthRules, ClearOfABssOfAnotherPriorityIsRefused) {
    set({.pri = 2, .bss = true});
    queued();
    log_capture log;
    clear({.pri = 0, .bss = true});
    EXPECT_EQ(log.lines().back(), "__bw_clr_limit: Priority Mismatch");
    EXPECT_NE(profile(3), nullptr);
    EXPECT_TRUE(queued().empty());
}

TEST_F(BandwidthRules, ARestoredClearDeletesTheRuleAndFreesItsClassId) {
    replay({.classid = 9});
    restoring_cache = 1;
    clear({.pri = 1});
    restoring_cache = 0;
    EXPECT_EQ(station(1), nullptr);
    EXPECT_EQ(profile(3)->classid_bm[0], 3U);
    EXPECT_TRUE(commands().empty());
}

TEST_F(BandwidthRules, TenClearsInARowAreQueuedEachWithItsOwnClassId) {
    for (uint8_t number = 1; number <= 10; number++)
        set({.station = number});
    queued();
    for (uint8_t number = 1; number <= 10; number++)
        clear({.station = number});
    const auto all = commands();
    ASSERT_EQ(all.size(), 10U);
    for (uint8_t number = 1; number <= 10; number++)
        EXPECT_EQ(all[number - 1U].record, record_bytes({.station = number, .e = VRE_BW_CLR, .classid = number + 1U}));
    EXPECT_EQ(stations(), 0U);
    EXPECT_EQ(profile(3)->classid_bm[0], 3U);
}

TEST_F(BandwidthRules, TablesChangeWithTheMutexHeld) {
    set({});
    clear({});
    clear({.pri = 0, .bss = true});
    EXPECT_EQ(table_changes, 4);
    EXPECT_FALSE(changed_without_lock);
}

TEST_F(BandwidthRules, NoRequestLeavesTheMutexHeld) {
    set({.profile = 0});
    set({.bss = true});
    set({.pri = 0, .bss = true});
    clear({.profile = 0});
    clear({.profile = 4});
    clear({.station = 2});
    EXPECT_TRUE(others_may_lock());
}

// --- failures ---

TEST_F(BandwidthRules, AProfileThatCannotBeMadeIsSaid) {
    const std::vector<std::pair<const char *, int>> faults = {{"calloc", 1}, {"calloc", 2}, {"malloc", 1}};
    for (const auto &[function, nth] : faults) {
        log_capture log;
        fail_nth_call(function, nth);
        const bw_rule_info req = set({.bss = true, .classid = 99});
        EXPECT_EQ(faults_fired(function), 1);
        clear_faults();
        EXPECT_EQ(log.lines().back(), "__bw_set_limit: Could not create a bwp entry.");
        EXPECT_EQ(bw_profile_hash_t.entry_count, 0U);
        EXPECT_EQ(req.classid, 99U);
        EXPECT_TRUE(queued().empty());
    }
}

TEST_F(BandwidthRules, ARuleThatCannotBeMadeLeavesItsClassIdTaken) {
    set({.bss = true});
    queued();
    uint32_t taken = 1;
    for (const char *const function : {"calloc", "malloc"}) {
        log_capture log;
        fail_nth_call(function, 1);
        set({});
        EXPECT_EQ(faults_fired(function), 1);
        clear_faults();
        EXPECT_EQ(log.lines().at(1), "bw_set_sta_limit: Could not create a bw rule");
        EXPECT_EQ(stations(), 0U);
        EXPECT_EQ(profile(3)->last_classid, ++taken);
        EXPECT_TRUE(queued().empty());
    }
    EXPECT_EQ(profile(3)->classid_bm[0], 0xFU);
}

TEST_F(BandwidthRules, ADroppedCommandDoesNotUndoTheRule) {
    set({.bss = true});
    queued();
    fail_nth_call("calloc", 2);  // the first is the rule's
    set({});
    EXPECT_EQ(faults_fired("calloc"), 1);
    clear_faults();
    expect_rule(1, 1, 2048, 4096, BW_HELD);
    EXPECT_TRUE(queued().empty());
}

TEST_F(BandwidthRules, AStationThatCannotBeRemovedIsSaid) {
    set({});
    log_capture log;
    deletion_fails = true;
    clear({});
    deletion_fails = false;
    EXPECT_EQ(log.lines().back(), "__bw_clr_limit: Client Not Found");
}

TEST_F(BandwidthRules, AProfileThatCannotBeRemovedIsSaid) {
    set({.bss = true});
    log_capture log;
    deletion_fails = true;
    clear({.bss = true});
    deletion_fails = false;
    EXPECT_EQ(log.lines().back(), "__bw_clr_limit: Profile 3 Not found");
}

// --- levels ---

/// A line of the log, the requests that bring it about and the level it has.
struct spoken {
    int level;
    std::string line;
    std::function<void()> before;
    std::function<void()> action;
};

class BandwidthLevels : public BandwidthRules {
protected:
    static void expect_level(const spoken &one) {
        for (const int level : {one.level - 1, one.level}) {
            hash_table_destroy(&bw_profile_hash_t);
            ASSERT_NE(hash_table_init(&bw_profile_hash_t, 23, &bw_profile_hash_fn, nullptr), nullptr);
            one.before();
            log_capture log(level);
            one.action();
            EXPECT_EQ(contains(log.lines(), one.line), level == one.level) << one.line << " at level " << level;
        }
    }
};

TEST_F(BandwidthLevels, OfWhatASetSays) {
    const auto nothing = [] {};
    expect_level({7, "__bw_set_limit: Invalid profile id", nothing, [] { set({.profile = 0}); }});
    expect_level({6, "__bw_set_limit:  Setting bw limits for bss (profile 3 priority 1) [up 2048, down 4096]", nothing,
                  [] { set({.bss = true}); }});
    expect_level({6, "__bw_set_limit:  Clearing bandwidth limits for STA 00:11:22:33:44:01  (profile 3 priority 1)",
                  nothing, [] { set({}); }});
    expect_level({6,
                  "__bw_set_limit:  Setting bandwidth limits for STA 00:11:22:33:44:01  (profile 3 priority 1) [up "
                  "2048, down 4096]",
                  nothing, [] { apply({}); }});
    expect_level({6, "__bw_set_limit:  Rule applied ++ SUCCESS", nothing, [] { set({}); }});
    expect_level({7, "__bw_set_limit: Could not create a bwp entry.", nothing, [] {
                      fail_nth_call("calloc", 1);
                      set({});
                  }});
}

TEST_F(BandwidthLevels, OfWhatTheRuleOfABssSays) {
    expect_level({3, "bw_set_bss_limit: Overriding a high priority rule by a low priority rule prohibited",
                  [] { set({.pri = 2, .bss = true}); }, [] { set({.bss = true}); }});
}

TEST_F(BandwidthLevels, OfWhatTheRuleOfAStationSays) {
    const auto nothing = [] {};
    const auto applied = [] { apply({.pri = 2}); };
    expect_level({3,
                  "bw_set_sta_limit: Ignore the clear limits for STA 00:11:22:33:44:01, Interface mismatch(ath0 ath1)",
                  applied, [] { set({.pri = 1, .interface = "ath1", .transition = true}); }});
    expect_level({6, "bw_set_sta_limit: Same rule already applied. Ignoring this.", applied, [] { set({.pri = 2}); }});
    expect_level({6, "bw_set_sta_limit: Same rule already applied for [ath0] interface, update new interface [ath1]",
                  applied, [] { set({.pri = 2, .interface = "ath1"}); }});
    expect_level({6, "bw_set_sta_limit: Overriding a high priority rule by a low priority rule prohibited", applied,
                  [] { set({.pri = 1}); }});
    expect_level({7,
                  "bw_set_sta_limit: Could not find BW rule to clear for disassociating STA 00:11:22:33:44:01 with "
                  "priority #1",
                  nothing, [] { set({.e = VRE_BW_CLR}); }});
    expect_level({3, "bw_set_sta_limit: Could not create a bw rule", [] { set({.bss = true}); },
                  [] {
                      fail_nth_call("calloc", 1);
                      set({});
                  }});
    expect_level({6, "bw_set_sta_limit: Rule applied on interface ath0", nothing, [] { set({}); }});
    expect_level({7, "bw_stage_for_application: (profile 3) #0 [up -1, down -1] 00:11:22:33:44:01 HELD => [APPLIED]",
                  nothing, [] { apply({}); }});
}

TEST_F(BandwidthLevels, OfWhatAClearSays) {
    const auto nothing = [] {};
    const auto both = [] {
        set({.pri = 2, .bss = true});
        set({.pri = 2});
    };
    expect_level({3, "__bw_clr_limit: Invalid profile id", nothing, [] { clear({.profile = 0}); }});
    expect_level({6,
                  "__bw_clr_limit:  Clearing bw limits for STA  00:11:22:33:44:01 (profile 3 priority 1) [up 2048, "
                  "down 4096]",
                  nothing, [] { clear({}); }});
    expect_level({6, "__bw_clr_limit:  Clearing bw limits for BSS (profile 3 priority 1) [up 2048, down 4096]", nothing,
                  [] { clear({.bss = true}); }});
    expect_level({3, "__bw_clr_limit: Profile 3 Not found", nothing, [] { clear({}); }});
    expect_level({3, "__bw_clr_limit: Sta not found", both, [] { clear({.station = 2}); }});
    expect_level({3, "__bw_clr_limit: Priority Mismatch", both, [] { clear({.pri = 1}); }});
    expect_level({3, "__bw_clr_limit: Priority Mismatch", both, [] { clear({.pri = 1, .bss = true}); }});
    expect_level({3, "__bw_clr_limit: Interface Mismatch. Ignore clear rule (ath0 ath1)", both,
                  [] { clear({.pri = 2, .interface = "ath1"}); }});
    expect_level({6, "__bw_clr_limit:  Rule removed -- SUCCESS", both, [] { clear({.pri = 2}); }});
    expect_level({6, "__bw_clr_limit:  Rule removed -- SUCCESS", both, [] { clear({.pri = 2, .bss = true}); }});
    const auto undeletable = [](const limit &wanted) {
        deletion_fails = true;
        clear(wanted);
        deletion_fails = false;
    };
    expect_level({3, "__bw_clr_limit: Client Not Found", both, [=] { undeletable({.pri = 2}); }});
    expect_level({3, "__bw_clr_limit: Profile 3 Not found", both, [=] { undeletable({.pri = 2, .bss = true}); }});
}

}  // namespace
