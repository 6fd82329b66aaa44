// The English catalogue of the simulated access point: every event it is meant for has its own sentence.
#include <fstream>
#include <map>
#include <numeric>
#include <set>

#include "language_cache_fixture.h"

namespace {

const std::string INFO_FILE = CATALOGUE "/cl_debug_info_code_en.properties";
const std::string SUBINFO_FILE = CATALOGUE "/cl_debug_subinfo_code_en.properties";

using texts = std::map<std::string, std::string>;

/// The file's pairs, read without the product; a name occurs once.
texts pairs_of(const std::string &path) {
    texts found;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const size_t separator = line.find('=');
        EXPECT_NE(separator, line.npos) << line;
        EXPECT_TRUE(found.emplace(line.substr(0, separator), line.substr(separator + 1)).second) << line;
    }
    EXPECT_FALSE(found.empty()) << path;
    return found;
}

class ShippedCatalogue : public testing::Test {
protected:
    ShippedCatalogue() {
        EXPECT_EQ(pop_lang_cache_from_file(INFO_FILE.c_str(), labels.table), 0);
        EXPECT_EQ(pop_lang_cache_from_file(SUBINFO_FILE.c_str(), labels.table), 0);
    }

    log_capture log;
    catalogue labels;
};

std::vector<int> from_to(int first, int last) {
    std::vector<int> numbers(static_cast<size_t>(last - first + 1));
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

/// Info codes of the same subinfo codes.
struct info_subs {
    int first;
    int last;
    std::vector<int> subs;
};

/// The events that the daemon's modules know.
const info_subs KNOWN[] = {
    {1, 1, from_to(0, 22)},
    {1, 1, {39, 40, 41, 42, 43, 45, 46, 47}},
    {2, 2, {0}},
    {3, 3, from_to(0, 38)},
    {3, 3, from_to(53, 55)},
    {4, 4, {0}},
    {5, 5, from_to(0, 38)},
    {5, 5, from_to(53, 55)},
    {8, 8, {0, 1, 2, 3, 4, 6}},
    {9, 9, {0}},
    {10, 13, from_to(0, 13)},
    {14, 14, from_to(1, 8)},
    {15, 15, {2, 5, 7, 8, 10, 11, 12, 17, 39, 501, 502}},
    {16, 19, {0}},
    {20, 20, {2, 4, 6, 7, 8, 9, 25, 26, 27}},
    {21, 21, {0, 1, 3, 4}},
    {22, 22, {0, 1, 2}},
    {23, 23, {0}},
    {25, 26, from_to(0, 3)},
    {27, 27, {0, 39}},
    {67, 85, {0}},
    {100, 100, from_to(1, 4)},
    {101, 101, {1, 2}},
    {104, 104, {0, 39, 42, 43, 44, 46, 47}},
};

TEST_F(ShippedCatalogue, HasASentenceOfItsOwnForEveryKnownEvent) {
    const texts words = pairs_of(INFO_FILE);
    const texts sentences = pairs_of(SUBINFO_FILE);
    for (const auto &[first, last, subs] : KNOWN) {
        for (const int info_code : from_to(first, last)) {
            const std::string info_name = "INFOCODE_" + std::to_string(info_code);
            ASSERT_TRUE(words.count(info_name)) << info_name;
            EXPECT_EQ(labels.value(info_name), words.at(info_name));
            for (const int sub : subs) {
                const std::string name = words.at(info_name) + "_" + std::to_string(sub);
                ASSERT_TRUE(sentences.count(name)) << name;
                EXPECT_EQ(labels.value(name), sentences.at(name)) << name;
            }
        }
    }
}

TEST_F(ShippedCatalogue, LoadsWithoutAComplaintAndLosesNothing) {
    const texts words = pairs_of(INFO_FILE);
    const texts sentences = pairs_of(SUBINFO_FILE);
    EXPECT_EQ(log.lines(), lines{});
    EXPECT_EQ(labels.size(), static_cast<int>(words.size() + sentences.size()));
    for (const texts *file : {&words, &sentences})
        for (const auto &[name, value] : *file)
            EXPECT_EQ(labels.value(name), value) << name;
}

TEST_F(ShippedCatalogue, HasNoWordOfTwoInfoCodesAndNoSentenceWithoutOne) {
    std::set<std::string> words;
    for (const auto &[name, word] : pairs_of(INFO_FILE))
        EXPECT_TRUE(words.insert(word).second) << word;
    for (const auto &[name, sentence] : pairs_of(SUBINFO_FILE))
        EXPECT_TRUE(words.count(name.substr(0, name.rfind('_')))) << name;
}

TEST_F(ShippedCatalogue, ShowsNothingOfAValueThatHoldsKeysOrPasswords) {
    for (const int info_code : {100, 101}) {
        for (const int sub : from_to(1, 4)) {
            const logged_event event(info_code, sub, "secret");
            char *line = nullptr;
            (void)fill_cl_debug_log_params(labels.table, &event.params, &line, 1);
            EXPECT_EQ(taken(line).find("secret"), std::string::npos);
        }
    }
}

/// A sentence's dollars all begin a token.
TEST_F(ShippedCatalogue, UsesNoUnknownToken) {
    for (const auto &[name, sentence] : pairs_of(SUBINFO_FILE)) {
        const size_t separator = name.rfind('_');
        for (const auto &[info_name, word] : pairs_of(INFO_FILE)) {
            if (word != name.substr(0, separator))
                continue;
            const logged_event event(std::stoi(info_name.substr(9)), std::stoi(name.substr(separator + 1)));
            char *line = nullptr;
            EXPECT_EQ(fill_cl_debug_log_params(labels.table, &event.params, &line, 1), 0) << name;
            const std::string text = taken(line);
            EXPECT_EQ(text.find('$'), std::string::npos) << text;
            EXPECT_FALSE(text.empty()) << name;
        }
    }
}

std::string line_of(const catalogue &labels, const logged_event &event) {
    char *line = nullptr;
    EXPECT_EQ(fill_cl_debug_log_params(labels.table, &event.params, &line, 1), 0);
    return taken(line);
}

TEST_F(ShippedCatalogue, TellsASupportEngineerWhatHappened) {
    const std::string frame("\0\x24\xC4", 3);
    EXPECT_EQ(line_of(labels, {2, 0, frame}), "Authentication requested on channel 36, signal -60 dBm");
    EXPECT_EQ(line_of(labels, {5, 17}), "Association refused: the access point is full (status 17)");
    EXPECT_EQ(line_of(labels, {14, 5, "10.0.0.1"}), "DHCP: the address is confirmed by the server 10.0.0.1");
    EXPECT_EQ(line_of(labels, {21, 1, std::string("\0\0\0\x0C", 4)}), "DNS: the server has answered");
    EXPECT_EQ(line_of(labels, {25, 2, std::string("\x0A\0\0\x05\x0A\0\0\x63", 8)}),
              "Address 10.0.0.5 was given by 10.0.0.99, which is not the network's DHCP server");
}

TEST_F(ShippedCatalogue, NamesNoServerThatTheEventDoesNotName) {
    EXPECT_EQ(line_of(labels, {14, 2}), "DHCP: an address is offered by the server ");
    EXPECT_EQ(line_of(labels, {14, 5}), "DHCP: the address is confirmed by the server ");
    EXPECT_EQ(line_of(labels, {14, 6}), "DHCP: the address is refused by the server ");
    EXPECT_EQ(line_of(labels, {21, 3}), "DNS: no answer from the server ");
    EXPECT_EQ(line_of(labels, {21, 4}),
              "DNS: the client's VLAN was not seen on the wire, and no answer came from the server ");
}

TEST_F(ShippedCatalogue, TellsReasonsAndStatusesAsTheDaemonNumbersThem) {
    EXPECT_EQ(line_of(labels, {5, 23}), "Association refused: the data rates do not fit (status 23)");
    const std::string left = "Client deauthenticated itself: ";
    EXPECT_EQ(line_of(labels, {11, 10}), left + "the security element (RSN) is required (reason 10)");
    EXPECT_EQ(line_of(labels, {11, 11}), left + "the security element (RSN) is inconsistent (reason 11)");
    EXPECT_EQ(line_of(labels, {11, 12}), left + "invalid information element (reason 12)");
    EXPECT_EQ(line_of(labels, {11, 13}), left + "integrity check failed (reason 13)");
}

}  // namespace
