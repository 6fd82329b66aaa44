// The wildcard search of role rules: what matches, what it traces, and the search against another way to do it.
#include "wl_client_role_internal.h"

#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "debug_log.h"
#include "fault.h"
#include "log_capture.h"

namespace {

using lines = std::vector<std::string>;

bool matches(const std::string &text, const std::string &pattern) {
    const int result = is_matchstr_found_in_str(text.c_str(), pattern.c_str());
    EXPECT_TRUE(result == 0 || result == 1) << result;
    return result == 1;
}

lines trace(const char *text, const char *pattern, int level = 3) {
    log_capture log(level);
    (void)is_matchstr_found_in_str(text, pattern);
    return log.lines();
}

class RoleMatch : public testing::Test {
protected:
    void SetUp() override {
        debug = 0;
    }

    void TearDown() override {
        clear_faults();
    }
};

const std::string SEARCH = "is_matchstr_found_in_str: ";
const std::string NEXT = "get_next_substring: Get next substring from String";

TEST_F(RoleMatch, WithoutAStarThePatternIsSearchedAsItIs) {
    EXPECT_TRUE(matches("abc", "abc"));
    EXPECT_TRUE(matches("abc", "a"));
    EXPECT_TRUE(matches("abc", "b"));
    EXPECT_TRUE(matches("abc", "bc"));
    EXPECT_FALSE(matches("abc", "ac"));
    EXPECT_FALSE(matches("abc", "abcd"));
}

TEST_F(RoleMatch, LettersOfAnotherCaseDoNotMatch) {
    EXPECT_FALSE(matches("Staff", "staff"));
    EXPECT_FALSE(matches("Staff", "s*f"));
}

TEST_F(RoleMatch, ASearchWithoutAStarTracesNothing) {
    EXPECT_EQ(trace("abc", "b", 7), lines{});
    EXPECT_EQ(trace("abc", "x", 7), lines{});
}

TEST_F(RoleMatch, AStarStandsForAnythingAndForNothing) {
    EXPECT_TRUE(matches("abc", "a*c"));
    EXPECT_TRUE(matches("ac", "a*c"));
    EXPECT_TRUE(matches("ac", "a**c"));
}

TEST_F(RoleMatch, NeitherEndIsAnchored) {
    EXPECT_TRUE(matches("xxabyc", "a*c"));
    EXPECT_TRUE(matches("xxabycyy", "a*c"));
}

TEST_F(RoleMatch, StarsAtTheEndsChangeNothing) {
    EXPECT_TRUE(matches("xxabyc", "*a*c*"));
    EXPECT_TRUE(matches("a", "*a*"));
    EXPECT_FALSE(matches("b", "*a*"));
}

TEST_F(RoleMatch, ThePiecesMustComeInTheirOrder) {
    EXPECT_FALSE(matches("cxa", "a*c"));
    EXPECT_TRUE(matches("cxaxc", "a*c"));
}

TEST_F(RoleMatch, PiecesDoNotShareCharacters) {
    EXPECT_FALSE(matches("aba", "ab*ba"));
    EXPECT_TRUE(matches("abba", "ab*ba"));
    EXPECT_FALSE(matches("a", "a*a"));
    EXPECT_TRUE(matches("aa", "a*a"));
}

TEST_F(RoleMatch, TheNextPieceIsSearchedBehindTheFirstPlaceOfTheOneBefore) {
    EXPECT_TRUE(matches("abab", "ab*ab"));
    EXPECT_FALSE(matches("ab", "ab*ab"));
}

TEST_F(RoleMatch, ABackslashBeforeAStarMatchesAStar) {
    EXPECT_TRUE(matches("xa*cx", "a\\*c"));
    EXPECT_FALSE(matches("xabcx", "a\\*c"));
    EXPECT_FALSE(matches("a\\*c", "a\\*c"));
    EXPECT_TRUE(matches("*", "\\*"));
    EXPECT_FALSE(matches("a", "\\*"));
    EXPECT_TRUE(matches("a*xb", "a\\**b"));
}

TEST_F(RoleMatch, OtherBackslashesMatchThemselves) {
    EXPECT_TRUE(matches("a\\b", "a\\b"));
    EXPECT_TRUE(matches("a\\bxc", "a\\b*c"));
    EXPECT_FALSE(matches("abxc", "a\\b*c"));
}

TEST_F(RoleMatch, OfTwoBackslashesBeforeAStarTheFirstMatchesItself) {
    EXPECT_TRUE(matches("x\\*y", "\\\\*"));
    EXPECT_FALSE(matches("x*y", "\\\\*"));
    EXPECT_FALSE(matches("x\\y", "\\\\*"));
}

TEST_F(RoleMatch, ABackslashAtTheEndMatchesItself) {
    EXPECT_TRUE(matches("axb\\", "a*b\\"));
    EXPECT_FALSE(matches("axb", "a*b\\"));
    EXPECT_TRUE(matches("\\", "\\"));
    EXPECT_TRUE(matches("a\\", "*\\"));
}

TEST_F(RoleMatch, StarsAloneMatchAnythingAndSaySo) {
    for (const std::string pattern : {"*", "**", "*****"}) {
        EXPECT_TRUE(matches("anything", pattern));
        EXPECT_EQ(trace("x", pattern.c_str()),
                  lines{SEARCH + "All chars in matchstring are delimiter[*], return Matched"});
        EXPECT_EQ(trace("x", pattern.c_str(), 2), lines{});
    }
}

TEST_F(RoleMatch, NothingMatchesAnEmptyPatternAndAnEmptyTextMatchesNothing) {
    const char *const cases[][2] = {{"abc", ""},      {"", "abc"},      {"", "*"},         {"", ""},
                                    {nullptr, "abc"}, {"abc", nullptr}, {nullptr, nullptr}};
    for (const auto &[text, pattern] : cases) {
        EXPECT_EQ(is_matchstr_found_in_str(text, pattern), 0);
        EXPECT_EQ(trace(text, pattern), lines{SEARCH + "Either String or match_text is empty"});
        EXPECT_EQ(trace(text, pattern, 2), lines{});
    }
}

TEST_F(RoleMatch, TracesEveryPieceThatItFinds) {
    EXPECT_EQ(trace("xxabyc", "a*c"),
              lines({NEXT + "[a*c] start indx[0]", SEARCH + "Check Substring[a] in String[xxabyc]",
                     SEARCH + "Substring [a] found in Str [xxabyc] at location 2", NEXT + "[a*c] start indx[2]",
                     SEARCH + "Check Substring[c] in String[byc]",
                     SEARCH + "Substring [c] found in Str [byc] at location 2"}));
}

TEST_F(RoleMatch, TracesThePieceThatItDoesNotFindAndEnds) {
    EXPECT_EQ(trace("cxax", "a*c*x"),
              lines({NEXT + "[a*c*x] start indx[0]", SEARCH + "Check Substring[a] in String[cxax]",
                     SEARCH + "Substring [a] found in Str [cxax] at location 2", NEXT + "[a*c*x] start indx[2]",
                     SEARCH + "Check Substring[c] in String[x]", SEARCH + "Substring [c] NOT found in Str [x]"}));
}

TEST_F(RoleMatch, TracesThePieceThatIsLongerThanTheRestAndEnds) {
    EXPECT_EQ(trace("ab", "a*bcd*x"),
              lines({NEXT + "[a*bcd*x] start indx[0]", SEARCH + "Check Substring[a] in String[ab]",
                     SEARCH + "Substring [a] found in Str [ab] at location 0", NEXT + "[a*bcd*x] start indx[2]",
                     SEARCH + "Substring[bcd] is greater than the String[b]"}));
}

TEST_F(RoleMatch, EmptyPiecesAreReadAndNotSearched) {
    EXPECT_EQ(trace("a", "*a*"), lines({NEXT + "[*a*] start indx[0]", NEXT + "[*a*] start indx[1]",
                                        SEARCH + "Check Substring[a] in String[a]",
                                        SEARCH + "Substring [a] found in Str [a] at location 0"}));
}

TEST_F(RoleMatch, NoTraceIsBelowLevelThree) {
    for (const char *const pattern : {"a*c", "a*x", "a*ccccccc"})
        EXPECT_EQ(trace("xxabyc", pattern, 2), lines{});
}

TEST_F(RoleMatch, WithoutMemoryEverythingMatches) {
    fail_nth_call("malloc", 1);
    EXPECT_EQ(is_matchstr_found_in_str("cxa", "a*c"), 1);
    EXPECT_EQ(faults_fired("malloc"), 1);
}

TEST_F(RoleMatch, WithoutMemoryTheSizeThatWasWantedIsAnError) {
    for (const int level : {3, 2}) {
        fail_nth_call("malloc", 1);
        log_capture log(level);
        (void)is_matchstr_found_in_str("cxa", "a*c");
        EXPECT_EQ(log.lines(),
                  level == 3 ? lines{SEARCH + "Memory allocation failure for match string of size - 4"} : lines{});
    }
}

struct piece {
    std::string text;
    int index;
    bool operator==(const piece &) const = default;
};

/// The pieces of a pattern, each read into a block of just the size that its rest needs.
std::vector<piece> pieces(const std::string &pattern) {
    std::vector<piece> all;
    for (int index = 0; pattern[static_cast<size_t>(index)] != '\0';) {
        const auto out = std::make_unique<char[]>(pattern.size() - static_cast<size_t>(index) + 1);
        get_next_substring(pattern.c_str(), &index, out.get());
        all.push_back({out.get(), index});
    }
    return all;
}

TEST_F(RoleMatch, APieceEndsAtAStarAndTheIndexIsBehindIt) {
    EXPECT_EQ(pieces("ab*c"), (std::vector<piece>{{"ab", 3}, {"c", 4}}));
    EXPECT_EQ(pieces("*ab*"), (std::vector<piece>{{"", 1}, {"ab", 4}}));
    EXPECT_EQ(pieces("a**b"), (std::vector<piece>{{"a", 2}, {"", 3}, {"b", 4}}));
}

TEST_F(RoleMatch, AnEscapedStarIsPartOfAPiece) {
    EXPECT_EQ(pieces("a\\*b*c"), (std::vector<piece>{{"a*b", 5}, {"c", 6}}));
    EXPECT_EQ(pieces("\\*"), (std::vector<piece>{{"*", 2}}));
    EXPECT_EQ(pieces("\\\\**"), (std::vector<piece>{{"\\*", 4}}));
}

TEST_F(RoleMatch, ABackslashAtTheEndIsPartOfAPiece) {
    EXPECT_EQ(pieces("a*b\\"), (std::vector<piece>{{"a", 2}, {"b\\", 4}}));
}

TEST_F(RoleMatch, AtTheEndOfThePatternThePieceIsEmpty) {
    char out[4] = "xyz";
    int index = 2;
    get_next_substring("ab", &index, out);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(index, 2);
}

TEST_F(RoleMatch, EveryPieceIsTracedAsAnError) {
    for (const int level : {3, 2}) {
        log_capture log(level);
        char out[8];
        int index = 2;
        get_next_substring("a*b\\*c", &index, out);
        EXPECT_EQ(log.lines(), level == 3 ? lines{NEXT + "[a*b\\*c] start indx[2]"} : lines{});
    }
}

/// Whether a text matches, found by following all ways through the pattern at once, one character after the other.
bool matches_by_states(const std::string &text, const std::string &pattern) {
    if (text.empty() || pattern.empty())
        return false;
    struct token {
        bool any;
        char character;
    };
    std::vector<token> tokens = {{true, 0}};
    for (size_t i = 0; i < pattern.size(); i++) {
        if (pattern[i] == '*')
            tokens.push_back({true, 0});
        else if (pattern.substr(i, 2) == "\\*")
            tokens.push_back({false, pattern[++i]});
        else
            tokens.push_back({false, pattern[i]});
    }
    tokens.push_back({true, 0});
    std::vector<bool> at(tokens.size() + 1);
    at[0] = true;
    const auto skip_any = [&] {
        for (size_t i = 0; i < tokens.size(); i++)
            if (at[i] && tokens[i].any)
                at[i + 1] = true;
    };
    skip_any();
    for (const char character : text) {
        std::vector<bool> next(at.size());
        for (size_t i = 0; i < tokens.size(); i++) {
            if (at[i] && tokens[i].any)
                next[i] = true;
            else if (at[i] && tokens[i].character == character)
                next[i + 1] = true;
        }
        at = next;
        skip_any();
    }
    return at.back();
}

std::string random_text(std::mt19937 &random, const std::string &letters, size_t longest) {
    std::string text(random() % (longest + 1), ' ');
    for (char &letter : text)
        letter = letters[random() % letters.size()];
    return text;
}

TEST_F(RoleMatch, AgreesWithAnotherWayToSearchOnRandomTextsAndPatterns) {
    std::mt19937 random(20240607);
    int found = 0;
    int missed = 0;
    for (int i = 0; i < 10000; i++) {
        const std::string text = random_text(random, "ab*\\", 14);
        const std::string pattern = random_text(random, "aab***\\", 9);
        const bool expected = matches_by_states(text, pattern);
        ASSERT_EQ(matches(text, pattern), expected) << "text " << text << " pattern " << pattern;
        (expected ? found : missed)++;
    }
    EXPECT_GT(found, 1500);
    EXPECT_GT(missed, 1500);
}

TEST_F(RoleMatch, AgreesWithAnotherWayToSearchOnRandomBytes) {
    std::mt19937 random(7);
    for (int i = 0; i < 1000; i++) {
        std::string text(random() % 200, ' ');
        for (char &letter : text)
            letter = static_cast<char>(1 + random() % 255);
        // A pattern cut out of the text, some of it replaced by stars.
        const size_t from = text.empty() ? 0 : random() % text.size();
        std::string pattern = text.substr(from, random() % 40);
        for (char &letter : pattern)
            if (random() % 4 == 0)
                letter = '*';
        ASSERT_EQ(matches(text, pattern), matches_by_states(text, pattern))
            << "text " << text << " pattern " << pattern;
    }
}

}  // namespace
