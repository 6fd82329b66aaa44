// The allocator of class ids.
#include "wl_bw_fixture.h"

namespace {

constexpr uint32_t NONE = 256;

class BandwidthClassId : public BandwidthFixture {
protected:
    bw_profile *const profile_ = create_bwp(3);
    const bw_rule_info request_ = request({});

    ~BandwidthClassId() override {
        bw_profile_hash_fn.free_value(profile_, nullptr);
    }

    uint32_t next() {
        return get_class_id(profile_, &request_);
    }

    /// The id that a record asks for, during a replay.
    uint32_t restored(uint32_t classid) {
        const bw_rule_info req = request({.classid = classid});
        restoring_cache = 1;
        const uint32_t result = get_class_id(profile_, &req);
        restoring_cache = 0;
        return result;
    }

    void take_all() {
        for (uint32_t id = 2; id < NONE; id++)
            ASSERT_EQ(next(), id);
    }
};

TEST_F(BandwidthClassId, ANewProfileHasTakenNoneAndTheBsss) {
    EXPECT_EQ(profile_->classid_bm[0], 3U);
    EXPECT_EQ(profile_->classid_bm[1] | profile_->classid_bm[2] | profile_->classid_bm[3], 0U);
    EXPECT_EQ(profile_->last_classid, 1U);
}

TEST_F(BandwidthClassId, ComeInOrderFromTwoTo255) {
    take_all();
    for (const uint64_t word : profile_->classid_bm)
        EXPECT_EQ(word, UINT64_MAX);
    EXPECT_EQ(profile_->last_classid, 255U);
}

TEST_F(BandwidthClassId, IdNIsBitNModulo64OfWordNDividedBy64) {
    restored(63);
    restored(64);
    restored(130);
    EXPECT_EQ(profile_->classid_bm[0], 3U | uint64_t{1} << 63);
    EXPECT_EQ(profile_->classid_bm[1], 1U);
    EXPECT_EQ(profile_->classid_bm[2], 4U);
    EXPECT_EQ(profile_->classid_bm[3], 0U);
}

TEST_F(BandwidthClassId, AreExhaustedAfter254AndSayIt) {
    take_all();
    log_capture log;
    EXPECT_EQ(next(), NONE);
    EXPECT_EQ(log.lines(), lines({"get_class_id_next_unused: Error: class_id is not available."}));
    EXPECT_EQ(profile_->last_classid, 255U);
}

TEST_F(BandwidthClassId, ExhaustionIsAnError) {
    take_all();
    log_capture log(2);
    EXPECT_EQ(next(), NONE);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(BandwidthClassId, AFreedOneRestsUntilTheSearchWraps) {
    EXPECT_EQ(next(), 2U);
    EXPECT_EQ(next(), 3U);
    release_class_id(profile_, 2);
    for (uint32_t id = 4; id < NONE; id++)
        ASSERT_EQ(next(), id);
    EXPECT_EQ(next(), 2U);
    EXPECT_EQ(next(), NONE);
}

TEST_F(BandwidthClassId, TheOneHandedOutLastCanComeBackAtOnceWhenNoOtherIsFree) {
    take_all();
    release_class_id(profile_, 255);
    EXPECT_EQ(next(), 255U);
}

TEST_F(BandwidthClassId, EachGoesRoundOnceFreed) {
    take_all();
    for (uint32_t id = 2; id < NONE; id++)
        release_class_id(profile_, id);
    EXPECT_EQ(profile_->classid_bm[0], 3U);
    take_all();
}

TEST_F(BandwidthClassId, AReplayTakesTheOneOfTheRecord) {
    EXPECT_EQ(restored(77), 77U);
    EXPECT_EQ(profile_->last_classid, 77U);
    EXPECT_EQ(next(), 78U);
}

TEST_F(BandwidthClassId, AReplayKeepsTheHighestAsTheLast) {
    restored(77);
    restored(5);
    EXPECT_EQ(profile_->last_classid, 77U);
}

TEST_F(BandwidthClassId, AReplayRefusesOneThatIsTaken) {
    restored(77);
    log_capture log(2);
    EXPECT_EQ(restored(77), NONE);
    EXPECT_EQ(restored(0), NONE);
    EXPECT_EQ(restored(1), NONE);
    const std::string line = "get_class_id_rule: Error: Looking for classid already used.";
    EXPECT_EQ(log.lines(), lines({line, line, line}));
}

TEST_F(BandwidthClassId, ADamagedRecordsCountsModulo256) {
    EXPECT_EQ(restored(0x102), 0x102U);
    EXPECT_EQ(profile_->classid_bm[0], 7U);
    EXPECT_EQ(restored(2), NONE);
    release_class_id(profile_, 0x102);
    EXPECT_EQ(profile_->classid_bm[0], 3U);
}

TEST_F(BandwidthClassId, TheSearchEndsAlsoBehindADamagedRecords) {
    restored(0xFFFFFFFE);
    for (uint32_t i = 0; i < 253; i++)
        ASSERT_NE(next(), NONE);
    profile_->last_classid = 0x12345678;
    EXPECT_EQ(next(), NONE);
}

TEST_F(BandwidthClassId, TheSearchBehindTheGreatestNumberBeginsAtTheStart) {
    profile_->last_classid = UINT32_MAX;
    EXPECT_EQ(next(), 2U);
}

}  // namespace
