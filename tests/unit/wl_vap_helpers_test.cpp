#include "wl_vap_helpers.h"

#include <cstdlib>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "fault.h"
#include "log_capture.h"
#include "wl_log.h"

namespace {

using lines = std::vector<std::string>;
using pairs = std::vector<std::pair<std::string, std::string>>;

lines lines_at_level(int level, const std::function<void()> &action) {
    log_capture log;
    debug = level;
    action();
    return log.lines();
}

/// A list of VAPs or of extra VLANs with its count, emptied at the end.
struct counted_list {
    list_t *head = nullptr;
    uint16_t count = 0;

    ~counted_list() {
        list_free(&head);
    }

    void add_vap(std::string name) {
        create_and_add_vap(&head, name.data(), &count);
    }

    void add_vlans(std::string text) {
        add_ssid_extra_vlan_list(&head, text.data(), &count);
    }

    std::vector<std::string> vaps() const {
        std::vector<std::string> names;
        for (const list_t *node = head; node != nullptr; node = node->next)
            names.emplace_back(static_cast<const vapinfo *>(node->value)->name);
        return names;
    }

    std::vector<int> vlans() const {
        std::vector<int> ids;
        for (const list_t *node = head; node != nullptr; node = node->next)
            ids.push_back(*static_cast<const int32_t *>(node->value));
        return ids;
    }
};

/// Everything that parse_config finds in a file of these bytes.
pairs parsed(const std::string &text) {
    FILE *const file = std::tmpfile();
    std::fwrite(text.data(), 1, text.size(), file);
    std::rewind(file);
    pairs found;
    char *key;
    char *value;
    while (char *const result = parse_config(file, &key, &value)) {
        EXPECT_EQ(result, key);
        found.emplace_back(key, value);
    }
    std::fclose(file);
    return found;
}

struct aton_result {
    std::vector<uint8_t> bytes;  // the whole output, which was filled with 0xEE
    bool succeeded;
    std::string output;
};

aton_result aton(const std::string &text, int text_len, int out_len) {
    aton_result result{std::vector<uint8_t>(8, 0xEE), false, ""};
    testing::internal::CaptureStdout();
    const uint8_t *const returned = macaddr_aton_r(result.bytes.data(), out_len, text.data(), text_len);
    std::fflush(stdout);
    result.output = testing::internal::GetCapturedStdout();
    result.succeeded = returned == result.bytes.data();
    EXPECT_TRUE(result.succeeded || returned == nullptr);
    return result;
}

std::vector<uint8_t> six_bytes(const std::string &text) {
    std::vector<uint8_t> bytes = aton(text, static_cast<int>(text.size()), 6).bytes;
    bytes.resize(6);
    return bytes;
}

TEST(MacaddrNtoa, WritesUpperCasePairsAndTheNul) {
    const uint8_t mac[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0xff};
    char out[19];
    std::memset(out, '#', sizeof out);
    EXPECT_EQ(macaddr_ntoa_r(mac, out), out);
    EXPECT_STREQ(out, "00:1A:2B:3C:4D:FF");
    EXPECT_EQ(out[18], '#');
}

TEST(MacaddrAton, ReadsSixPairs) {
    const aton_result result = aton("00:1A:2B:3C:4D:5E", 17, 6);
    EXPECT_TRUE(result.succeeded);
    EXPECT_EQ(result.bytes, (std::vector<uint8_t>{0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e, 0xee, 0xee}));
    EXPECT_EQ(result.output, "");
}

TEST(MacaddrAton, AcceptsAnySeparator) {
    EXPECT_EQ(six_bytes("FF-EE.DD CCxBB:AA"), (std::vector<uint8_t>{0xff, 0xee, 0xdd, 0xcc, 0xbb, 0xaa}));
}

TEST(MacaddrAton, LowerCaseDigitsGiveWrongBytes) {
    EXPECT_EQ(six_bytes("ab:1a:a1:0f:00:00"), (std::vector<uint8_t>{0xcb, 0x3a, 0xa1, 0x2f, 0, 0}));
}

TEST(MacaddrAton, ClearsTheWholeOutput) {
    const aton_result result = aton("00:00:00:00:00:01", 17, 8);
    EXPECT_EQ(result.bytes, (std::vector<uint8_t>{0, 0, 0, 0, 0, 1, 0, 0}));
}

TEST(MacaddrAton, RefusesAnOutputOfFiveBytesAndWritesNothing) {
    const aton_result result = aton("00:1A:2B:3C:4D:5E", 17, 5);
    EXPECT_FALSE(result.succeeded);
    EXPECT_EQ(result.output, "Insufficient mac_addr_len [5]");
    EXPECT_EQ(result.bytes, std::vector<uint8_t>(8, 0xEE));
}

TEST(MacaddrAton, RefusesATextThatEndsBeforeTheLastDigit) {
    const aton_result result = aton("00:1A:2B:3C:4D:5E", 16, 6);
    EXPECT_FALSE(result.succeeded);
    EXPECT_EQ(result.output, "str_mac_addr_len[16] is too short");
    EXPECT_EQ(result.bytes, (std::vector<uint8_t>{0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0, 0xee, 0xee}));
}

TEST(MacaddrAton, RefusesAnEmptyText) {
    const aton_result result = aton("", 0, 6);
    EXPECT_FALSE(result.succeeded);
    EXPECT_EQ(result.output, "str_mac_addr_len[0] is too short");
}

TEST(ParseConfig, ReadsAKeyAndAValueBetweenBlanks) {
    EXPECT_EQ(parsed("  VLAN_ID = 100\r\n"), (pairs{{"VLAN_ID", "100"}}));
}

TEST(ParseConfig, KeepsTheTrailingBlanksOfAValue) {
    EXPECT_EQ(parsed("key=value  \r\n"), (pairs{{"key", "value  "}}));
}

TEST(ParseConfig, KeepsBlanksAndCarriageReturnsInsideAValue) {
    EXPECT_EQ(parsed("key=a b\rc\n"), (pairs{{"key", "a b\rc"}}));
}

TEST(ParseConfig, RemovesEveryLineEndOfAValue) {
    EXPECT_EQ(parsed("key=value\r\r\n"), (pairs{{"key", "value"}}));
}

TEST(ParseConfig, TakesALineWithoutNewlineAtTheEndOfTheFile) {
    EXPECT_EQ(parsed("key=value"), (pairs{{"key", "value"}}));
}

TEST(ParseConfig, SkipsCommentsAlsoAfterBlanks) {
    EXPECT_EQ(parsed("#a=1\n \t#b=2\nc=3\n"), (pairs{{"c", "3"}}));
}

TEST(ParseConfig, SkipsEmptyAndBlankLines) {
    EXPECT_EQ(parsed("\n   \n\r\n\t\nc=3\n"), (pairs{{"c", "3"}}));
}

TEST(ParseConfig, SkipsALineThatDoesNotBeginWithAKeyCharacter) {
    EXPECT_EQ(parsed("=1\n.a=1\n\xe9=1\nc=3\n"), (pairs{{"c", "3"}}));
}

TEST(ParseConfig, SkipsALineWithoutValue) {
    EXPECT_EQ(parsed("a\na=\na = = \nc=3\na"), (pairs{{"c", "3"}}));
}

TEST(ParseConfig, TakesLettersDigitsDashUnderscoreAndColonAsAKey) {
    EXPECT_EQ(parsed("-aZ_0:9=x\n"), (pairs{{"-aZ_0:9", "x"}}));
}

TEST(ParseConfig, EndsAKeyAtAnyOtherCharacter) {
    EXPECT_EQ(parsed("key;value\nother.=value\n"), (pairs{{"key", "value"}, {"other", "value"}}));
}

TEST(ParseConfig, SkipsEveryBlankAndEqualsSignBeforeTheValue) {
    EXPECT_EQ(parsed("key == \t= a=b\n"), (pairs{{"key", "a=b"}}));
}

TEST(ParseConfig, ReadsALongLineInPieces) {
    const std::string first = "key=" + std::string(1019, 'a');
    EXPECT_EQ(parsed(first + "more=b\n"), (pairs{{"key", std::string(1019, 'a')}, {"more", "b"}}));
}

TEST(ParseConfig, TakesALineThatJustFits) {
    EXPECT_EQ(parsed("key=" + std::string(1018, 'a') + "\nc=3\n"),
              (pairs{{"key", std::string(1018, 'a')}, {"c", "3"}}));
}

TEST(ParseConfig, ReadsALineUpToItsNul) {
    EXPECT_EQ(parsed(std::string("a=1\0b=2\nc=3\n", 12)), (pairs{{"a", "1"}, {"c", "3"}}));
}

TEST(ParseConfig, GivesTheKeyWithoutPlacesForKeyAndValue) {
    FILE *const file = std::tmpfile();
    std::fputs("key=value\n", file);
    std::rewind(file);
    EXPECT_STREQ(parse_config(file, nullptr, nullptr), "key");
    EXPECT_EQ(parse_config(file, nullptr, nullptr), nullptr);
    std::fclose(file);
}

TEST(ParseConfig, LeavesKeyAndValueAloneAtTheEnd) {
    FILE *const file = std::tmpfile();
    char untouched[] = "untouched";
    char *key = untouched;
    char *value = untouched;
    EXPECT_EQ(parse_config(file, &key, &value), nullptr);
    EXPECT_EQ(key, untouched);
    EXPECT_EQ(value, untouched);
    std::fclose(file);
}

TEST(Vapinfo, HoldsTheNameAndThenTheBssid) {
    EXPECT_EQ(sizeof(vapinfo), 22U);
    EXPECT_EQ(offsetof(vapinfo, bssid), 16U);
}

TEST(CreateAndAddVap, CutsTheNameInPlaceAtItsFirstDot) {
    counted_list list;
    char name[] = "ath0.100.7";
    create_and_add_vap(&list.head, name, &list.count);
    EXPECT_EQ(list.vaps(), lines{"ath0"});
    EXPECT_STREQ(name, "ath0");
    EXPECT_EQ(list.count, 1);
}

TEST(CreateAndAddVap, KeepsFifteenCharacters) {
    counted_list list;
    list.add_vap("0123456789abcdef");
    list.add_vap("0123456789abcde");
    EXPECT_EQ(list.vaps(), (lines{"0123456789abcde", "0123456789abcde"}));
}

TEST(CreateAndAddVap, ClearsTheRestOfTheRecord) {
    counted_list list;
    list.add_vap("ath1");
    const char expected[22] = "ath1";
    EXPECT_EQ(std::memcmp(list.head->value, expected, sizeof expected), 0);
}

TEST(CreateAndAddVap, PutsTheLatestFirst) {
    counted_list list;
    list.add_vap("ath0");
    list.add_vap("ath1");
    EXPECT_EQ(list.vaps(), (lines{"ath1", "ath0"}));
    EXPECT_EQ(list.count, 2);
}

TEST(CreateAndAddVap, SkipsTheVapWhenAnyAllocationFails) {
    int nth = 1;
    for (;; nth++) {
        counted_list list;
        fail_nth_call("calloc", nth);
        list.add_vap("ath0");
        if (faults_fired("calloc") == 0)
            break;
        EXPECT_EQ(list.count, 0);
        EXPECT_EQ(list.head, nullptr);
    }
    EXPECT_EQ(nth, 3);
}

TEST(CreateAndAddExtraVlan, LogsTheIdAtLevelSix) {
    counted_list list;
    const auto add = [&list] { create_and_add_extra_vlan(&list.head, 10, &list.count); };
    EXPECT_EQ(lines_at_level(5, add), lines{});
    EXPECT_EQ(lines_at_level(6, add), (lines{"create_and_add_extra_vlan: vlan_id : 10", ""}));
}

TEST(CreateAndAddExtraVlan, LogsAFailedAllocationAndSkipsTheVlan) {
    counted_list list;
    const auto add = [&list] {
        fail_nth_call("malloc", 1);
        create_and_add_extra_vlan(&list.head, 10, &list.count);
        EXPECT_EQ(faults_fired("malloc"), 1);
    };
    EXPECT_EQ(lines_at_level(2, add), lines{});
    EXPECT_EQ(lines_at_level(3, add), lines{"create_and_add_extra_vlan: Cannot allocate memory for vlan data"});
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(list.head, nullptr);
}

TEST(CreateAndAddExtraVlan, DoesNotCountAVlanWhoseNodeFindsNoMemory) {
    for (const char *const first : {"", "5"}) {
        counted_list list;
        if (*first != '\0')
            list.add_vlans(first);
        const uint16_t before = list.count;
        fail_nth_call("calloc", 1);
        create_and_add_extra_vlan(&list.head, 10, &list.count);
        EXPECT_EQ(faults_fired("calloc"), 1);
        EXPECT_EQ(list.count, before);
        EXPECT_EQ(list.vlans().size(), before);
        clear_faults();
    }
}

TEST(AddSsidExtraVlanList, AddsEachVlanOnceInOrder) {
    counted_list list;
    list.add_vlans("10,20,10");
    EXPECT_EQ(list.vlans(), (std::vector<int>{10, 20}));
    EXPECT_EQ(list.count, 2);
}

TEST(AddSsidExtraVlanList, AddsToWhatIsThere) {
    counted_list list;
    list.add_vlans("10");
    list.add_vlans("20,10,30");
    EXPECT_EQ(list.vlans(), (std::vector<int>{10, 20, 30}));
    EXPECT_EQ(list.count, 3);
}

TEST(AddSsidExtraVlanList, TakesAnEmptyTextAsVlanZero) {
    counted_list list;
    list.add_vlans("");
    EXPECT_EQ(list.vlans(), std::vector<int>{0});
    EXPECT_EQ(list.count, 1);
}

TEST(AddSsidExtraVlanList, TakesAnEmptyPieceAnywhereAsVlanZero) {
    counted_list trailing;
    trailing.add_vlans("10,");
    EXPECT_EQ(trailing.vlans(), (std::vector<int>{10, 0}));
    counted_list leading;
    leading.add_vlans(",5");
    EXPECT_EQ(leading.vlans(), (std::vector<int>{0, 5}));
    counted_list inside;
    inside.add_vlans("10,,20");
    EXPECT_EQ(inside.vlans(), (std::vector<int>{10, 0, 20}));
}

TEST(AddSsidExtraVlanList, ReadsEachPieceAsADecimalNumber) {
    counted_list list;
    list.add_vlans(" 7 ,x,-3,012,99999999999");
    EXPECT_EQ(list.vlans(), (std::vector<int>{7, 0, -3, 12, 2147483647}));
}

TEST(AddSsidExtraVlanList, ComparesSixteenBits) {
    counted_list list;
    list.add_vlans("10,65546,-65526,65535,-1");
    EXPECT_EQ(list.vlans(), (std::vector<int>{10, 65535}));
    EXPECT_EQ(list.count, 2);
}

TEST(LtCompareExtraVlan, GivesTheSignedDifferenceOfSixteenBits) {
    const auto compare = [](int32_t a, int32_t b) { return lt_compare_extra_vlan(&a, &b); };
    EXPECT_EQ(compare(20, 10), 10);
    EXPECT_EQ(compare(10, 20), -10);
    EXPECT_EQ(compare(65536 + 10, 10), 0);
    EXPECT_EQ(compare(40000, 0), 40000 - 65536);
    EXPECT_EQ(compare(INT32_MIN, INT32_MAX), 1);
}

}  // namespace
