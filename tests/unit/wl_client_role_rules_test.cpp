// Role derivation rules: what a file makes of them, and which role they give to a name.
#include "wl_client_role_internal.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "files.h"
#include "wl_cl_info_fixture.h"
#include "wl_evt_payloads.h"

namespace {

using ids = std::vector<uint32_t>;

const std::string DIRECTORY = "/tmp/profile7";
const std::string CONF = DIRECTORY + "/role_derivation.conf";

/// A rule as its members say.
struct rule {
    uint32_t id = 0;
    int method = 0, type = 0;
    uint32_t vendor = 0, attribute = 0;
    int match = 0;
    std::string text = "(none)";
    ids roles = {};
    bool operator==(const rule &) const = default;
};

std::ostream &operator<<(std::ostream &out, const rule &of) {
    out << "rule " << of.id << " method " << of.method << " type " << of.type << " vendor " << of.vendor
        << " attribute " << of.attribute << " match " << of.match << " text " << of.text << " roles";
    for (const uint32_t role : of.roles)
        out << " " << role;
    return out;
}

ids ids_of(const list_t *list) {
    ids all;
    for (; list != nullptr; list = list->next)
        all.push_back(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(list->value)));
    return all;
}

rule as_rule(const role_derivation_rule &of) {
    return {of.rule_id,
            of.rdp_method,
            of.rdp_method_type,
            of.vendor_id,
            of.attribute_id,
            of.match_type,
            of.match_text != nullptr ? of.match_text : "(none)",
            ids_of(of.role_ids)};
}

std::vector<rule> rules_of(const ssid_profile_info *profile) {
    std::vector<rule> all;
    for (const list_t *node = profile->role_derivation_rules; node != nullptr; node = node->next)
        all.push_back(as_rule(*static_cast<const role_derivation_rule *>(node->value)));
    return all;
}

class RoleRules : public ClientCache {
protected:
    void SetUp() override {
        ClientCache::SetUp();
        std::filesystem::remove_all(DIRECTORY);
        std::filesystem::create_directory(DIRECTORY);
        profile = add_profile(7);
    }

    /// The rules of a profile that has just read a file.
    std::vector<rule> read(const std::string &text) {
        write_file(CONF, text);
        EXPECT_EQ(save_role_derivation_rules(profile), 0);
        return rules_of(profile);
    }

    lines trace(const std::string &text, int level) {
        log_capture log(level);
        read(text);
        return log.lines();
    }

    void forget_rules() {
        list_free_with_free_func(&profile->role_derivation_rules, free_role_derivation_rule);
    }

    ssid_profile_info *profile = nullptr;
};

const std::string FULL = "RDP_RULE_START=1\nRDP_METHOD=1\nRDP_METHOD_TYPE=4\nVENDOR_ID=9\nATTRIBUTE_ID=26\n"
                         "MATCH_TYPE=2\nMATCH_TEXT=st*ff\nROLE_IDS=100,200\nRDP_RULE_END=1\n";
const rule FULL_RULE = {1, 1, 4, 9, 26, 2, "st*ff", {100, 200}};

TEST_F(RoleRules, EveryKeyFillsItsMember) {
    EXPECT_EQ(read(FULL), std::vector<rule>{FULL_RULE});
}

TEST_F(RoleRules, KeysAreReadWhateverTheirCase) {
    EXPECT_EQ(read("rdp_rule_start=1\nRdp_Method=1\nrdp_method_type=4\nvendor_id=9\nAttribute_ID=26\nmatch_type=2\n"
                   "match_text=st*ff\nrole_ids=100,200\nrdp_rule_end=1\n"),
              std::vector<rule>{FULL_RULE});
}

TEST_F(RoleRules, KeysMustMatchWhole) {
    EXPECT_EQ(read("RDP_METHOD_TYPE=4\nRDP_METHODS=1\nXRDP_METHOD=1\nVENDOR=9\nVENDOR_ID2=9\nMATCH=2\nROLE_ID=1\n"
                   "RDP_RULE_ENDS=1\nRDP_RULE_END=3\n"),
              (std::vector<rule>{{.id = 3, .type = 4}}));
}

TEST_F(RoleRules, MethodAndMethodTypeAreApart) {
    EXPECT_EQ(read("RDP_METHOD=2\nRDP_RULE_END=1\nRDP_METHOD_TYPE=3\nRDP_RULE_END=2\n"),
              (std::vector<rule>{{.id = 1, .method = 2}, {.id = 2, .type = 3}}));
}

TEST_F(RoleRules, ARuleNeedsNoStart) {
    EXPECT_EQ(read("MATCH_TYPE=3\nMATCH_TEXT=a\nRDP_RULE_END=5\n"),
              (std::vector<rule>{{.id = 5, .match = 3, .text = "a"}}));
}

TEST_F(RoleRules, TheEndGivesTheId) {
    EXPECT_EQ(read("RDP_RULE_START=1\nRDP_RULE_END=2\n"), (std::vector<rule>{{.id = 2}}));
}

TEST_F(RoleRules, AnEndWithoutValueEndsNothing) {
    EXPECT_EQ(read("MATCH_TYPE=1\nRDP_RULE_END\nRDP_RULE_END=\nRDP_METHOD=1\nRDP_RULE_END=2\n"),
              (std::vector<rule>{{.id = 2, .method = 1, .match = 1}}));
}

TEST_F(RoleRules, AStartForgetsWhatIsPending) {
    EXPECT_EQ(read("RDP_METHOD=1\nRDP_METHOD_TYPE=1\nVENDOR_ID=1\nATTRIBUTE_ID=1\nMATCH_TYPE=1\nMATCH_TEXT=a\n"
                   "ROLE_IDS=1\nRDP_RULE_START=2\nRDP_RULE_END=2\n"),
              (std::vector<rule>{{.id = 2}}));
}

TEST_F(RoleRules, AStartWithoutValueForgetsNothing) {
    EXPECT_EQ(read("RDP_METHOD=1\nRDP_RULE_START\nRDP_RULE_END=2\n"), (std::vector<rule>{{.id = 2, .method = 1}}));
}

TEST_F(RoleRules, AnEndForgetsWhatTheRuleHad) {
    EXPECT_EQ(read("RDP_METHOD=1\nRDP_METHOD_TYPE=1\nVENDOR_ID=1\nATTRIBUTE_ID=1\nMATCH_TYPE=1\nMATCH_TEXT=a\n"
                   "ROLE_IDS=1\nRDP_RULE_END=1\nRDP_RULE_END=2\n"),
              (std::vector<rule>{{1, 1, 1, 1, 1, 1, "a", {1}}, {.id = 2}}));
}

TEST_F(RoleRules, WhatHasNoEndIsDropped) {
    EXPECT_EQ(read("RDP_RULE_START=1\nMATCH_TEXT=a\nMATCH_TEXT=b\nROLE_IDS=1,2\n"), std::vector<rule>{});
}

TEST_F(RoleRules, TheLastOfARepeatedKeyCountsButRolesAddUp) {
    EXPECT_EQ(
        read("RDP_METHOD=1\nRDP_METHOD=2\nMATCH_TEXT=a\nMATCH_TEXT=b\nROLE_IDS=1,2\nROLE_IDS=3\nRDP_RULE_END=1\n"),
        (std::vector<rule>{{.id = 1, .method = 2, .text = "b", .roles = {1, 2, 3}}}));
}

TEST_F(RoleRules, RulesKeepTheOrderOfTheFile) {
    EXPECT_EQ(read("RDP_RULE_END=3\nRDP_RULE_END=1\nRDP_RULE_END=2\n"),
              (std::vector<rule>{{.id = 3}, {.id = 1}, {.id = 2}}));
}

TEST_F(RoleRules, RulesAreAddedToThoseThatAreThere) {
    read("RDP_RULE_END=3\n");
    EXPECT_EQ(read("RDP_RULE_END=1\n"), (std::vector<rule>{{.id = 3}, {.id = 1}}));
}

TEST_F(RoleRules, RoleIdsAreReadInTheBaseThatTheyShow) {
    EXPECT_EQ(read("ROLE_IDS=0x10,7\nRDP_RULE_END=1\n")[0].roles, (ids{16, 7}));
    EXPECT_EQ(read("ROLE_IDS=010,0X1f,10,0\nRDP_RULE_END=1\n")[1].roles, (ids{8, 31, 10, 0}));
}

TEST_F(RoleRules, ARoleIdIsReadAsFarAsItGoes) {
    EXPECT_EQ(read("ROLE_IDS=12x, 13,x,08\nRDP_RULE_END=1\n")[0].roles, (ids{12, 13, 0, 0}));
}

TEST_F(RoleRules, EmptyPlacesAmongRoleIdsAreNoIds) {
    EXPECT_EQ(read("ROLE_IDS=,1,,2,\nRDP_RULE_END=1\n")[0].roles, (ids{1, 2}));
    EXPECT_EQ(read("ROLE_IDS=,,\nRDP_RULE_END=1\n")[1].roles, ids{});
}

TEST_F(RoleRules, RoleIdsStayAtTheEndsOfASignedWord) {
    EXPECT_EQ(read("ROLE_IDS=2147483647,2147483648,4294967295,0xFFFFFFFF,99999999999999999999\n"
                   "ROLE_IDS=-1,-2147483648,-0x80000001,-99999999999999999999\nRDP_RULE_END=1\n")[0]
                  .roles,
              (ids{2147483647, 2147483647, 2147483647, 2147483647, 2147483647, 4294967295, 0x80000000, 0x80000000,
                   0x80000000}));
}

TEST_F(RoleRules, OtherNumbersAreDecimal) {
    EXPECT_EQ(read("VENDOR_ID=010\nATTRIBUTE_ID=0x10\nMATCH_TYPE=03\nRDP_METHOD=02x\nRDP_METHOD_TYPE=x\n"
                   "RDP_RULE_END=012\n"),
              (std::vector<rule>{{.id = 12, .method = 2, .vendor = 10, .match = 3}}));
}

TEST_F(RoleRules, OtherNumbersStayAtTheEndsOfASignedWord) {
    EXPECT_EQ(read("VENDOR_ID=4294967295\nATTRIBUTE_ID=2147483647\nRDP_RULE_END=99999999999\n"),
              (std::vector<rule>{{.id = 2147483647, .vendor = 2147483647, .attribute = 2147483647}}));
}

TEST_F(RoleRules, OfAMethodAndAMatchTypeTheLowByteCounts) {
    EXPECT_EQ(read("RDP_METHOD=257\nRDP_METHOD_TYPE=258\nMATCH_TYPE=259\nRDP_RULE_END=1\n"),
              (std::vector<rule>{{.id = 1, .method = 1, .type = 2, .match = 3}}));
}

TEST_F(RoleRules, TheReadersOddLinesAreLetPass) {
    EXPECT_EQ(read("# RDP_METHOD=3\n\n   \n\t RDP_METHOD = 1\r\nMATCH_TEXT  ==  a = b # c \r\n=x\n!\nRDP_RULE_END 1"),
              (std::vector<rule>{{.id = 1, .method = 1, .text = "a = b # c "}}));
}

TEST_F(RoleRules, ALongMatchTextIsKeptWhole) {
    const std::string text(1000, 'x');
    EXPECT_EQ(read("MATCH_TEXT=" + text + "\nRDP_RULE_END=1\n"), (std::vector<rule>{{.id = 1, .text = text}}));
}

TEST_F(RoleRules, AnEmptyFileHasNoRules) {
    EXPECT_EQ(read(""), std::vector<rule>{});
}

TEST_F(RoleRules, EveryLineIsToldWithTheRulesThatAreComplete) {
    const std::string READING = "save_role_derivation_rules: Reading rule ";
    EXPECT_EQ(trace("rdp_rule_start=4\nROLE_IDS=1,2\nNO_KEY=x\n# no\nnothing\nRDP_RULE_END=4\nRDP_RULE_START=5\n"
                    "RDP_RULE_END=5\nMATCH_TEXT=a b\n",
                    6),
              lines({READING + "[rdp_rule_start] [4] total_rules[0]", READING + "[ROLE_IDS] [1,2] total_rules[0]",
                     READING + "[NO_KEY] [x] total_rules[0]", READING + "[RDP_RULE_END] [4] total_rules[0]",
                     READING + "[RDP_RULE_START] [5] total_rules[1]", READING + "[RDP_RULE_END] [5] total_rules[1]",
                     READING + "[MATCH_TEXT] [a b] total_rules[2]"}));
}

TEST_F(RoleRules, ReadingIsInformation) {
    EXPECT_EQ(trace(FULL, 5), lines{});
}

TEST_F(RoleRules, TheCountBeginsAnewWithEveryFile) {
    read(FULL);
    EXPECT_EQ(trace("RDP_RULE_END=4\n", 6),
              lines{"save_role_derivation_rules: Reading rule [RDP_RULE_END] [4] total_rules[0]"});
}

TEST_F(RoleRules, AMissingFileIsAnError) {
    for (const int level : {3, 2}) {
        log_capture log(level);
        EXPECT_EQ(save_role_derivation_rules(profile), -1);
        EXPECT_EQ(log.lines(), level == 3 ? lines{"save_role_derivation_rules: Cannot open " + CONF +
                                                  " for reading (No such file or directory)"}
                                          : lines{});
    }
    EXPECT_EQ(rules_of(profile), std::vector<rule>{});
}

TEST_F(RoleRules, TheFileIsThatOfTheUnsignedProfileId) {
    log_capture log(3);
    EXPECT_EQ(save_role_derivation_rules(add_profile(4294967294)), -1);
    EXPECT_EQ(log.lines(), lines{"save_role_derivation_rules: Cannot open /tmp/profile4294967294/role_derivation.conf "
                                 "for reading (No such file or directory)"});
}

TEST_F(RoleRules, AStoredRuleSharesNothingWithItsOriginal) {
    char text[] = "abc";
    role_derivation_rule original{};
    original.rule_id = 3;
    original.match_text = text;
    ASSERT_NE(list_insert_tail(&original.role_ids, reinterpret_cast<void *>(uintptr_t{5})), nullptr);
    const role_derivation_rule *const stored = add_role_derivation_rule(profile, &original);
    ASSERT_NE(stored, nullptr);
    EXPECT_EQ(stored, profile->role_derivation_rules->value);
    EXPECT_NE(stored->match_text, text);
    EXPECT_NE(stored->role_ids, original.role_ids);
    EXPECT_EQ(as_rule(*stored), (rule{.id = 3, .text = "abc", .roles = {5}}));
    EXPECT_EQ(as_rule(original), as_rule(*stored));
    list_free_without_payload_freeing(&original.role_ids);
}

TEST_F(RoleRules, WithoutMemoryARuleIsNotStoredWhichIsAnError) {
    char text[] = "abc";
    role_derivation_rule original{};
    original.match_text = text;
    for (const uintptr_t id : {5, 6})
        ASSERT_NE(list_insert_tail(&original.role_ids, reinterpret_cast<void *>(id)), nullptr);
    int failed = 0;
    for (const char *const function : {"malloc", "calloc", "strdup"}) {
        for (int nth = 1;; nth++) {
            clear_faults();
            fail_nth_call(function, nth);
            log_capture log(nth % 2 == 1 ? 3 : 2);
            const role_derivation_rule *const stored = add_role_derivation_rule(profile, &original);
            if (faults_fired(function) == 0)
                break;
            failed++;
            EXPECT_EQ(stored, nullptr);
            EXPECT_EQ(profile->role_derivation_rules, nullptr);
            EXPECT_EQ(log.lines(), nth % 2 == 1
                                       ? lines{"add_role_derivation_rule: Malloc error for role_derivation_rule"}
                                       : lines{});
        }
        forget_rules();
    }
    EXPECT_EQ(failed, 5);  // the rule, its text, its two roles, its place in the list
    list_free_without_payload_freeing(&original.role_ids);
}

TEST_F(RoleRules, AFileIsReadToItsEndWhateverMemoryIsMissing) {
    int failed = 0;
    for (const char *const function : {"malloc", "calloc", "strdup"}) {
        for (int nth = 1;; nth++) {
            clear_faults();
            forget_rules();
            write_file(CONF, FULL + "MATCH_TEXT=pending\nROLE_IDS=1\n");
            fail_nth_call(function, nth);
            EXPECT_EQ(save_role_derivation_rules(profile), 0);
            if (faults_fired(function) == 0)
                break;
            failed++;
            // The rule is missing or, where the text or the roles were not there to be copied, lacks these.
            for (rule each : rules_of(profile)) {
                EXPECT_TRUE(each.text == FULL_RULE.text || each.text == "(none)");
                EXPECT_TRUE(each.roles == FULL_RULE.roles || each.roles.size() == 1 || each == FULL_RULE);
                each.text = FULL_RULE.text;
                each.roles = FULL_RULE.roles;
                EXPECT_EQ(each, FULL_RULE);
            }
        }
    }
    EXPECT_EQ(failed, 10);
}

/// Rules and the search of a role among them.
class RoleSearch : public RoleRules {
protected:
    void SetUp() override {
        RoleRules::SetUp();
        staff = add_profile(100, "staff", true);
        guest = add_profile(200, "guest", true);
        by.rdp_method = RDP_METHOD_RADIUS;
        by.vendor_id = 9;
        by.attr_id = 26;
    }

    ssid_profile_info *search(const char *name) {
        return get_role_id_by_role_name(name, profile, &by, &dbg);
    }

    lines trace(const char *name, int level) {
        log_capture log(level);
        search(name);
        return log.lines();
    }

    ssid_profile_info *staff = nullptr;
    ssid_profile_info *guest = nullptr;
    role_info by{};
    role_debug_info dbg{};
};

/// A rule for RADIUS attribute 26 of vendor 9.
std::string radius_rule(const std::string &rest) {
    return "RDP_METHOD=1\nVENDOR_ID=9\nATTRIBUTE_ID=26\n" + rest + "\nRDP_RULE_END=1\n";
}

const std::string EXACT = "MATCH_TYPE=1\nROLE_IDS=100,200";
const std::string CONTAINS = "MATCH_TYPE=2\nMATCH_TEXT=s*f\nROLE_IDS=100,200";
const std::string EQUALS = "MATCH_TYPE=3\nMATCH_TEXT=boss\nROLE_IDS=200,100";

TEST_F(RoleSearch, AnExactRuleFindsTheRoleOfThatName) {
    read(radius_rule(EXACT));
    EXPECT_EQ(search("staff"), staff);
    EXPECT_EQ(search("guest"), guest);
    EXPECT_EQ(dbg.match_type, 1);
}

TEST_F(RoleSearch, AnExactRuleWantsTheWholeNameInItsCase) {
    read(radius_rule(EXACT));
    for (const char *const name : {"Staff", "staf", "staffx", "sta*"})
        EXPECT_EQ(search(name), nullptr) << name;
    EXPECT_EQ(dbg.match_type, 0);
}

TEST_F(RoleSearch, ARuleWhoseMethodIsOneInItsLowByteIsForRadius) {
    read("RDP_METHOD=257\nVENDOR_ID=9\nATTRIBUTE_ID=26\n" + EXACT + "\nRDP_RULE_END=1\n");
    EXPECT_EQ(search("staff"), staff);
}

TEST_F(RoleSearch, AnExactRuleIgnoresTheMatchText) {
    read(radius_rule(EXACT + "\nMATCH_TEXT=boss"));
    EXPECT_EQ(search("boss"), nullptr);
    EXPECT_EQ(search("staff"), staff);
}

TEST_F(RoleSearch, AMissingRoleEndsAnExactSearchWithNone) {
    read(radius_rule("MATCH_TYPE=1\nROLE_IDS=300,100") + radius_rule(EXACT));
    EXPECT_EQ(search("staff"), nullptr);
    EXPECT_EQ(dbg.match_type, 0);
    EXPECT_EQ(trace("staff", 3),
              lines{"get_role_id_by_role_name: Role profile structure not found for profile id[300]"});
    EXPECT_EQ(trace("staff", 2), lines{});
}

TEST_F(RoleSearch, ARoleThatIsFoundBeforeAMissingOneIsTheResult) {
    read(radius_rule("MATCH_TYPE=1\nROLE_IDS=100,300"));
    EXPECT_EQ(search("staff"), staff);
    EXPECT_EQ(search("guest"), nullptr);
}

TEST_F(RoleSearch, AContainsRuleFindsItsFirstRole) {
    read(radius_rule(CONTAINS));
    EXPECT_EQ(search("xsoffy"), staff);
    EXPECT_EQ(dbg.match_type, 2);
}

TEST_F(RoleSearch, AContainsRuleThatDoesNotMatchLeavesTheNext) {
    read(radius_rule(CONTAINS) + radius_rule("MATCH_TYPE=2\nMATCH_TEXT=a\nROLE_IDS=200"));
    EXPECT_EQ(search("fa"), guest);
    EXPECT_EQ(search("fb"), nullptr);
}

TEST_F(RoleSearch, AnEqualsRuleFindsItsFirstRole) {
    read(radius_rule(EQUALS));
    EXPECT_EQ(search("boss"), guest);
    EXPECT_EQ(dbg.match_type, 3);
}

TEST_F(RoleSearch, AnEqualsRuleWantsTheWholeTextInItsCase) {
    read(radius_rule(EQUALS));
    for (const char *const name : {"Boss", "bos", "bosss"})
        EXPECT_EQ(search(name), nullptr) << name;
    EXPECT_EQ(dbg.match_type, 0);
}

TEST_F(RoleSearch, AnEqualsRuleKnowsNoStars) {
    read(radius_rule("MATCH_TYPE=3\nMATCH_TEXT=b*s\nROLE_IDS=200"));
    EXPECT_EQ(search("boss"), nullptr);
    EXPECT_EQ(search("b*s"), guest);
}

TEST_F(RoleSearch, AMissingRoleEndsTheOtherSearchesWithNone) {
    for (const std::string match : {"MATCH_TYPE=2\nMATCH_TEXT=boss", "MATCH_TYPE=3\nMATCH_TEXT=boss"}) {
        forget_rules();
        read(radius_rule(match + "\nROLE_IDS=300,100") + radius_rule(EQUALS));
        EXPECT_EQ(search("boss"), nullptr);
        EXPECT_EQ(dbg.match_type, 0);
        EXPECT_EQ(trace("boss", 3),
                  lines{"get_role_id_by_role_name: SSID profile structure not found for profile id[300]"});
        EXPECT_EQ(trace("boss", 2), lines{});
    }
}

TEST_F(RoleSearch, ARuleWithoutRolesDoesNotEndTheSearch) {
    for (const std::string match : {"MATCH_TYPE=1", "MATCH_TYPE=2\nMATCH_TEXT=boss", "MATCH_TYPE=3\nMATCH_TEXT=boss"}) {
        forget_rules();
        read(radius_rule(match) + radius_rule(EQUALS));
        EXPECT_EQ(search("boss"), guest);
        EXPECT_EQ(dbg.match_type, 3);
    }
}

TEST_F(RoleSearch, ARuleWithoutTextMatchesNothing) {
    read(radius_rule("MATCH_TYPE=2\nROLE_IDS=100") + radius_rule("MATCH_TYPE=3\nROLE_IDS=100") + radius_rule(EQUALS));
    EXPECT_EQ(search("boss"), guest);
}

TEST_F(RoleSearch, OtherMatchTypesMatchNothing) {
    read(radius_rule("MATCH_TYPE=0\nMATCH_TEXT=boss\nROLE_IDS=100") +
         radius_rule("MATCH_TYPE=4\nMATCH_TEXT=boss\nROLE_IDS=100") + radius_rule(EQUALS));
    EXPECT_EQ(search("boss"), guest);
}

TEST_F(RoleSearch, TheFirstRuleThatMatchesCounts) {
    read(radius_rule(CONTAINS) + radius_rule("MATCH_TYPE=2\nMATCH_TEXT=f\nROLE_IDS=200"));
    EXPECT_EQ(search("sf"), staff);
}

TEST_F(RoleSearch, RulesOfAnotherMethodAreSkipped) {
    read("RDP_METHOD=2\n" + EQUALS + "\nRDP_RULE_END=1\nRDP_METHOD=3\n" + EQUALS + "\nRDP_RULE_END=2\n");
    EXPECT_EQ(search("boss"), nullptr);
    by.rdp_method = RDP_METHOD_GOOGLE_OU;
    EXPECT_EQ(search("boss"), guest);
}

TEST_F(RoleSearch, ARadiusRuleWantsItsVendorAndAttribute) {
    read(radius_rule(EQUALS));
    by.vendor_id = 10;
    EXPECT_EQ(search("boss"), nullptr);
    by.vendor_id = 9;
    by.attr_id = 27;
    EXPECT_EQ(search("boss"), nullptr);
    by.attr_id = 26;
    EXPECT_EQ(search("boss"), guest);
}

TEST_F(RoleSearch, ARadiusRuleOfAnotherAttributeLeavesTheNext) {
    read("RDP_METHOD=1\nVENDOR_ID=9\nATTRIBUTE_ID=1\n" + CONTAINS + "\nMATCH_TEXT=boss\nRDP_RULE_END=1\n" +
         radius_rule(EQUALS));
    EXPECT_EQ(search("boss"), guest);
}

TEST_F(RoleSearch, AnOrganisationalUnitHasNoVendor) {
    read("RDP_METHOD=2\nVENDOR_ID=1\nATTRIBUTE_ID=2\n" + EQUALS + "\nRDP_RULE_END=1\n");
    by.rdp_method = RDP_METHOD_GOOGLE_OU;
    EXPECT_EQ(search("boss"), guest);
}

TEST_F(RoleSearch, WithoutANameThereIsNoRoleWhichIsAnError) {
    read(radius_rule(EXACT));
    for (const char *const name : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_EQ(search(name), nullptr);
        EXPECT_EQ(trace(name, 3), lines{"get_role_id_by_role_name: No role for client, map to SSID"});
        EXPECT_EQ(trace(name, 2), lines{});
    }
}

TEST_F(RoleSearch, WithoutAProfileThereIsNoRoleAndNoLine) {
    log_capture log(7);
    EXPECT_EQ(get_role_id_by_role_name("staff", nullptr, &by, &dbg), nullptr);
    EXPECT_EQ(log.lines(), lines{});
}

TEST_F(RoleSearch, WithoutRulesThereIsNoRoleAndNoLine) {
    EXPECT_EQ(trace("staff", 7), lines{});
}

TEST_F(RoleSearch, TracesWhatItLooksAt) {
    read("RDP_METHOD=2\nRDP_RULE_END=1\n" + radius_rule("MATCH_TYPE=3\nMATCH_TEXT=x\nROLE_IDS=100") +
         radius_rule("MATCH_TYPE=2\nMATCH_TEXT=x\nROLE_IDS=100") + radius_rule(EXACT));
    const std::string ME = "get_role_id_by_role_name: ";
    const lines all = trace("guest", 7);
    for (const std::string line :
         {"rdp_method [Google OU] ", "rdp_method [Radius] ", "role_info-> vendor_id[9] attribute_id[26]",
          "rdp-> vendor_id[9] attribute_id[26]", "Match type is Equals", "Match type is Contains",
          "Match type is Exact", "Role Ids : 100", "Role Ids : 200"})
        EXPECT_TRUE(holds(all, ME + line)) << line;
    EXPECT_EQ(trace("guest", 6), lines{});
}

TEST_F(RoleSearch, TracesNumbersWithoutASign) {
    read("RDP_METHOD=1\nVENDOR_ID=-1\nATTRIBUTE_ID=-2\nMATCH_TYPE=3\nMATCH_TEXT=x\nROLE_IDS=-2\n"
         "RDP_RULE_END=1\n");
    by.vendor_id = 0xFFFFFFFF;
    by.attr_id = 0xFFFFFFFE;
    const std::string ME = "get_role_id_by_role_name: ";
    const lines all = trace("x", 7);
    for (const std::string line : {"role_info-> vendor_id[4294967295] attribute_id[4294967294]",
                                   "rdp-> vendor_id[4294967295] attribute_id[4294967294]", "Role Ids : 4294967294",
                                   "SSID profile structure not found for profile id[-2]"})
        EXPECT_TRUE(holds(all, ME + line)) << line;
}

TEST_F(RoleSearch, ARoleIsFoundByItsId) {
    log_capture log(7);
    EXPECT_EQ(get_ssid_profile_by_role_id(100), staff);
    EXPECT_EQ(log.lines(), lines{"get_ssid_profile_by_role_id: Get Role profile for Role Id : 100"});
}

TEST_F(RoleSearch, AnIdWithoutAProfileIsAnError) {
    for (const int level : {6, 3, 2}) {
        log_capture log(level);
        EXPECT_EQ(get_ssid_profile_by_role_id(300), nullptr);
        EXPECT_EQ(log.lines(),
                  level == 2
                      ? lines{}
                      : lines{"get_ssid_profile_by_role_id: Role profile structure not found for profile id[300]"});
    }
}

TEST_F(RoleSearch, AnIdIsTracedWithoutASign) {
    log_capture log(7);
    (void)!get_ssid_profile_by_role_id(0xFFFFFFFE);
    EXPECT_EQ(log.lines(), lines({"get_ssid_profile_by_role_id: Get Role profile for Role Id : 4294967294",
                                  "get_ssid_profile_by_role_id: Role profile structure not found for profile id[-2]"}));
}

}  // namespace
