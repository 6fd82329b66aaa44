// The command lines, character by character, and the purge of those that wait.
#include "wl_bw_fixture.h"

namespace {

class BandwidthCommand : public BandwidthFixture {
protected:
    bw_rule rule_{};

    BandwidthCommand() {
        const byte_string mac = {0x00, 0x11, 0x22, 0x33, 0xAB, 0xCD};
        std::copy(mac.begin(), mac.end(), rule_.mac);
        rule_.pri = 1;
        rule_.classid = 0x1F;
        rule_.up = 2048;
        rule_.down = 4096;
        std::strcpy(rule_.interface, "ath3");
    }

    std::string line_of(vre_iw_cmd_t e, uint8_t bss_rule, uint32_t profile_id = 3) {
        EXPECT_EQ(tc_action(e, &rule_, profile_id, bss_rule, nullptr, BW_RUN), 0);
        const std::vector<command> all = commands();
        EXPECT_EQ(all.size(), 1U);
        return all.empty() ? "" : all[0].line;
    }
};

TEST_F(BandwidthCommand, OfABssLimit) {
    EXPECT_EQ(line_of(VRE_BW_SET, 1), "/sbin/tc_wrapper.sh limit profile 3 bss up 2048 down 4096 priority 1");
}

TEST_F(BandwidthCommand, OfABssClear) {
    EXPECT_EQ(line_of(VRE_BW_CLR, 1), "/sbin/tc_wrapper.sh clear profile 3 bss priority 1");
}

TEST_F(BandwidthCommand, OfAStationLimit) {
    add_vap("ath3", {0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0xFF});
    EXPECT_EQ(line_of(VRE_BW_SET, 0), "/sbin/tc_wrapper.sh limit profile 3 sta 00:11:22:33:ab:cd classid 1f up 2048 "
                                      "down 4096 bssid 0a:0b:0c:0d:0e:ff priority 1");
}

TEST_F(BandwidthCommand, OfAStationClear) {
    add_vap("ath3", {0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F});
    rule_.pri = 0;
    EXPECT_EQ(
        line_of(VRE_BW_CLR, 0),
        "/sbin/tc_wrapper.sh clear profile 3 sta 00:11:22:33:ab:cd classid 1f bssid 0a:0b:0c:0d:0e:0f priority 0");
}

TEST_F(BandwidthCommand, PrintsNegativeLimitsAndLargeNumbers) {
    rule_.up = -1;
    rule_.down = INT32_MIN;
    rule_.pri = 255;
    rule_.classid = 0xFFFFFFFF;
    EXPECT_EQ(
        line_of(VRE_BW_SET, 0, 0xFFFFFFFF),
        "/sbin/tc_wrapper.sh limit profile -1 sta 00:11:22:33:ab:cd classid ffffffff up -1 down -2147483648 bssid "
        "00:00:00:00:00:00 priority 255");
}

TEST_F(BandwidthCommand, EveryEventButTheSetClears) {
    EXPECT_EQ(line_of(VRE_BW_GET_STATUS, 1), "/sbin/tc_wrapper.sh clear profile 3 bss priority 1");
}

TEST_F(BandwidthCommand, BssidIsZeroWithoutAVapOfTheSameName) {
    add_vap("ath30", {1, 2, 3, 4, 5, 6});
    add_vap("ath", {1, 2, 3, 4, 5, 6});
    EXPECT_NE(line_of(VRE_BW_CLR, 0).find(" bssid 00:00:00:00:00:00 "), std::string::npos);
}

TEST_F(BandwidthCommand, BssidIsTheFirstVapsOfThatName) {
    add_vap("ath3", {1, 2, 3, 4, 5, 6});
    add_vap("ath3", {7, 7, 7, 7, 7, 7});
    EXPECT_NE(line_of(VRE_BW_CLR, 0).find(" bssid 01:02:03:04:05:06 "), std::string::npos);
}

TEST_F(BandwidthCommand, BssidIsNotThatOfARecordBehindTheTable) {
    add_vap("ath3", {1, 2, 3, 4, 5, 6});
    vap_count = 0;
    EXPECT_NE(line_of(VRE_BW_CLR, 0).find(" bssid 00:00:00:00:00:00 "), std::string::npos);
}

TEST_F(BandwidthCommand, FindsAVapWhoseNameFillsItsField) {
    add_vap("a123456789012345", {1, 2, 3, 4, 5, 6});
    std::memcpy(rule_.interface, "a123456789012345", 17);
    EXPECT_NE(line_of(VRE_BW_CLR, 0).find(" bssid 01:02:03:04:05:06 "), std::string::npos);
    rule_.interface[16] = '6';
    EXPECT_NE(line_of(VRE_BW_CLR, 0).find(" bssid 00:00:00:00:00:00 "), std::string::npos);
}

TEST_F(BandwidthCommand, IsLoggedAtLevelSeven) {
    {
        log_capture log(6);
        (void)line_of(VRE_BW_CLR, 1);
        EXPECT_TRUE(log.lines().empty());
    }
    log_capture log;
    (void)line_of(VRE_BW_CLR, 1);
    EXPECT_EQ(log.lines(), lines({"tc_action: /sbin/tc_wrapper.sh clear profile 3 bss priority 1"}));
}

TEST_F(BandwidthCommand, IsQueuedWithItsActionAndItsRequest) {
    const limit wanted{.pri = 9, .up = 1, .down = 2, .transition = true, .applied = true, .classid = 7};
    const bw_rule_info req = request(wanted);
    EXPECT_EQ(tc_action(VRE_BW_SET, &rule_, 3, 0, &req, BW_RECORD), 0);
    const std::vector<command> all = commands();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].action, 3);
    EXPECT_EQ(all[0].record, record_bytes(wanted));
}

TEST_F(BandwidthCommand, WithoutARequestHasAnEmptyRecord) {
    EXPECT_EQ(tc_action(VRE_BW_SET, &rule_, 3, 0, nullptr, BW_RUN), 0);
    const std::vector<command> all = commands();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].record, byte_string(45));
}

TEST_F(BandwidthCommand, IsNeitherQueuedNorLoggedDuringAReplay) {
    log_capture log;
    restoring_cache = 1;
    EXPECT_EQ(tc_action(VRE_BW_SET, &rule_, 3, 0, nullptr, BW_RUN), 1);
    restoring_cache = 0;
    EXPECT_TRUE(commands().empty());
    EXPECT_TRUE(log.lines().empty());
}

// --- purge ---

class BandwidthPurge : public BandwidthFixture {
protected:
    /// Queues a command named by its number.
    static void enqueue(const limit &wanted, uint8_t action = BW_RECORD_AND_RUN) {
        const bw_rule_info req = request(wanted);
        bw_enqueue(("/sbin/tc_wrapper.sh " + std::to_string(bw_queue.num_entries)).c_str(), &req, action);
    }

    static void purge(uint8_t number = 1, uint32_t profile_id = 3, const char *interface = "ath0") {
        clear_bw_rules_for_sta(mac_of(number).data(), profile_id, interface);
    }
};

TEST_F(BandwidthPurge, RemovesEverySetCommandOfTheStationAndNoOther) {
    enqueue({});
    enqueue({.e = VRE_BW_CLR});
    enqueue({}, BW_RUN);
    enqueue({}, BW_RECORD);
    enqueue({.bss = true});
    enqueue({.station = 2});
    enqueue({.profile = 4});
    enqueue({.interface = "ath1"});
    enqueue({.interface = "ath00"});
    enqueue({.interface = "ath"});
    enqueue({});
    bw_enqueue("/sbin/tc_wrapper.sh none", nullptr, BW_RUN);
    purge();
    EXPECT_EQ(queued(), lines({"1 1", "3 3", "1 4", "1 5", "1 6", "1 7", "1 8", "1 9", "2 none"}));
}

TEST_F(BandwidthPurge, ABssCommandIsLeftThoughItsRecordNamesTheStation) {
    bw_rule_info req = request({});
    req.bss_rule = 1;
    bw_enqueue("/sbin/tc_wrapper.sh bss", &req, BW_RECORD_AND_RUN);
    purge();
    EXPECT_EQ(queued(), lines({"1 bss"}));
}

TEST_F(BandwidthPurge, LogsEachAtLevelSeven) {
    enqueue({.station = 0xAB});
    enqueue({.station = 0xAB});
    enqueue({.station = 0xAB});
    {
        log_capture log;
        purge(0xAB);
        const std::string line = "clear_bw_rules_for_sta: Set rule found for 00:11:22:33:44:AB, deleting it";
        EXPECT_EQ(log.lines(), lines({line, line, line}));
    }
    enqueue({});
    log_capture log(6);
    purge();
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(queued().empty());
}

TEST_F(BandwidthPurge, OfAnEmptyQueueIsSilent) {
    log_capture log;
    purge();
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(BandwidthPurge, FindsTheFirstFromTheHead) {
    enqueue({.station = 2});
    enqueue({});
    enqueue({});
    EXPECT_EQ(find_node_for_sta(&bw_queue, mac_of(1).data(), 3, "ath0", VRE_BW_SET), bw_queue.head->next);
    EXPECT_EQ(find_node_for_sta(&bw_queue, mac_of(1).data(), 3, "ath0", VRE_BW_CLR), nullptr);
}

TEST_F(BandwidthPurge, RefusesMissingArguments) {
    enqueue({});
    const byte_string mac = mac_of(1);
    log_capture log(3);
    EXPECT_EQ(find_node_for_sta(nullptr, mac.data(), 3, "ath0", VRE_BW_SET), nullptr);
    EXPECT_EQ(find_node_for_sta(&bw_queue, nullptr, 3, "ath0", VRE_BW_SET), nullptr);
    EXPECT_EQ(find_node_for_sta(&bw_queue, mac.data(), 0, "ath0", VRE_BW_SET), nullptr);
    EXPECT_EQ(find_node_for_sta(&bw_queue, mac.data(), 3, nullptr, VRE_BW_SET), nullptr);
    const std::string line = "find_node_for_sta: Invalid arguments";
    EXPECT_EQ(log.lines(), lines({line, line, line, line}));
}

TEST_F(BandwidthPurge, MissingArgumentsAreAnError) {
    log_capture log(2);
    EXPECT_EQ(find_node_for_sta(nullptr, nullptr, 0, nullptr, VRE_BW_SET), nullptr);
    EXPECT_TRUE(log.lines().empty());
}

}  // namespace
