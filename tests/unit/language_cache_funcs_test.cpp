// The catalogue of labels: its hash and compare functions, the reading of properties files and the catalogue made of
// them.
#include <cerrno>

#include "fault.h"
#include "language_cache_fixture.h"

namespace {

using pairs = std::vector<std::pair<std::string, std::string>>;

/// What a file holds, and what reading it logged.
struct reading {
    int result = 0;
    pairs found;
    lines logged;
};

reading read_file(const char *path) {
    reading read;
    log_capture log;
    list_t *list = nullptr;
    read.result = lang_parse_name_value_from_file(path, &list);
    for (const list_t *node = list; node != nullptr; node = node->next) {
        const auto *label = static_cast<const label_cache_t *>(node->value);
        read.found.emplace_back(label->name, label->value);
    }
    (void)list_free_with_free_func(&list, free_lang_node);
    read.logged = log.lines();
    return read;
}

reading read_text(const std::string &text) {
    write_file(PROPERTIES, text);
    return read_file(PROPERTIES);
}

std::string parser_line(const std::string &message) {
    return "lang_parse_name_value_from_file: " + message;
}

std::string without_value(const std::string &label) {
    return parser_line("Error while parsing value for label[" + label + "] in file[" + PROPERTIES + "]");
}

std::string without_name(const std::string &line) {
    return parser_line("Error while parsing label name in line[" + line + "] in file[" + PROPERTIES + "]");
}

std::string no_memory_for_name(const std::string &label) {
    return parser_line("Error in allocating memory for label name[" + label + "] in file[" + PROPERTIES + "]");
}

std::string no_memory_for_value(const std::string &label) {
    return parser_line("Error in allocating memory for value of label[" + label + "] in file[" + PROPERTIES + "]");
}

class Hash : public testing::Test {
protected:
    int row(const std::string &name) const {
        return lang_hash_func(name.c_str(), labels.table, nullptr);
    }

    catalogue labels;
};

TEST_F(Hash, IsTheSumOfTheCharactersModuloTheRows) {
    EXPECT_EQ(row("A"), 65);
    EXPECT_EQ(row("AB"), 131);
    EXPECT_EQ(row("ABC"), (65 + 66 + 67) % 137);
    EXPECT_EQ(row("INFOCODE_15"), 780 % 137);
}

TEST_F(Hash, OfAnEmptyNameIsTheFirstRow) {
    EXPECT_EQ(row(""), 0);
}

TEST_F(Hash, TakesBytesAbove127AsNegative) {
    EXPECT_EQ(row("\xFF"), -1);
    EXPECT_EQ(row("\x80\x80"), -(256 % 137));
    EXPECT_EQ(row("A\xFF"), 64);
}

TEST_F(Hash, OfANegativeSumThatTheRowsDivideIsTheFirstRow) {
    EXPECT_EQ(row("\x80\xF7"), 0);
    EXPECT_EQ(row("\x80\x80\xEE"), 0);
}

TEST_F(Hash, OfANameWithUpToFourDigitsMoreIsAnother) {
    for (int more = 0; more <= 9999; more++)
        EXPECT_NE(row("N_1" + std::to_string(more)), row("N_1")) << more;
    EXPECT_EQ(row("N_116999"), row("N_1")) << "five digits, of sum 274, are too many";
}

TEST_F(Hash, DoesNotDependOnTheValue) {
    label_cache_t label{};
    EXPECT_EQ(lang_hash_func("AB", labels.table, &label), 131);
}

TEST_F(Hash, OfATableWithoutRowsIsNoRow) {
    hashTable_t *empty = hash_newTable(0, lang_hash_func, lang_compare_record);
    EXPECT_EQ(lang_hash_func("A", empty, nullptr), -1);
    (void)hash_delTable(&empty, nullptr);
}

bool matches(const char *key, const char *stored) {
    std::string name = stored;
    const label_cache_t label{name.data(), nullptr};
    return lang_compare_record(key, &label) == 0;
}

TEST(Compare, MatchesTheStoredNameAndWhatBeginsWithIt) {
    EXPECT_TRUE(matches("DHCP_1", "DHCP_1"));
    EXPECT_TRUE(matches("DHCP_15", "DHCP_1"));
    EXPECT_TRUE(matches("DHCP_1", ""));
}

TEST(Compare, DoesNotMatchAnotherOrALongerStoredName) {
    EXPECT_FALSE(matches("DHCP_1", "DHCP_2"));
    EXPECT_FALSE(matches("DHCP_1", "DHCP_15"));
    EXPECT_FALSE(matches("dhcp_1", "DHCP_1"));
    EXPECT_FALSE(matches("", "DHCP_1"));
}

TEST(FreeLangNode, TakesNull) {
    free_lang_node(nullptr);
}

TEST(ParseFile, GivesThePairsInTheOrderOfTheFile) {
    const reading read = read_text("B=2\nA=1\nB=3\n");
    EXPECT_EQ(read.result, 0);
    EXPECT_EQ(read.found, (pairs{{"B", "2"}, {"A", "1"}, {"B", "3"}}));
    EXPECT_EQ(read.logged, lines{});
}

TEST(ParseFile, AppendsToTheListItIsGiven) {
    write_file(PROPERTIES, "B=2\n");
    list_t *list = nullptr;
    EXPECT_EQ(lang_parse_name_value_from_file(PROPERTIES, &list), 0);
    EXPECT_EQ(lang_parse_name_value_from_file(PROPERTIES, &list), 0);
    EXPECT_EQ(list_length(list), 2);
    (void)list_free_with_free_func(&list, free_lang_node);
}

struct parsed_text {
    const char *title;
    std::string text;
    pairs found;
    lines logged;
};

const parsed_text PARSED[] = {
    {"empty file", "", {}, {}},
    {"no newline at the end", "A=1", {{"A", "1"}}, {}},
    {"equals signs in the value", "A=b=c\n", {{"A", "b=c"}}, {}},
    {"equals sign at the start of the value", "A==b\n", {{"A", "=b"}}, {}},
    {"blanks stay", " A = b \n", {{" A ", " b "}}, {}},
    {"carriage return stays", "A=b\r\n", {{"A", "b\r"}}, {}},
    {"bytes above 127", "\xC3\x84=\xC3\xB6\n", {{"\xC3\x84", "\xC3\xB6"}}, {}},
    {"line without separator",
     "word\nA=1\n",
     {{"A", "1"}},
     {without_value("word"), "] in file[/tmp/labels.properties]"}},
    {"last line without separator", "A=1\nword", {{"A", "1"}}, {without_value("word")}},
    {"empty line", "\nA=1\n", {{"A", "1"}}, {without_value(""), "] in file[/tmp/labels.properties]"}},
    {"no value", "A=\nB=2\n", {{"B", "2"}}, {without_value("A")}},
    {"no value at the end", "A=", {}, {without_value("A")}},
    {"equals sign first", "=A\nB=2\n", {{"B", "2"}}, {without_value("A"), "] in file[/tmp/labels.properties]"}},
    {"equals signs first, then a pair", "==A=1\n", {{"A", "1"}}, {}},
    {"only an equals sign", "=", {}, {without_name("=")}},
    {"only equals signs", "A=1\n===", {{"A", "1"}}, {without_name("===")}},
    {"equals sign and newline", "=\n", {}, {without_value(""), "] in file[/tmp/labels.properties]"}},
    {"NUL ends the line's text", std::string("A=b\0c\nB=2\n", 10), {{"A", "b"}, {"B", "2"}}, {}},
    {"NUL in the name", std::string("A\0=b\nB=2\n", 9), {{"B", "2"}}, {without_value("A")}},
    {"NUL first", std::string("\0A=b\nB=2\n", 9), {{"B", "2"}}, {without_name("")}},
};

TEST(ParseFile, TakesLinesApartAtTheFirstEqualsSign) {
    for (parsed_text each : PARSED) {
        // The newline that belongs to a name breaks the message's line.
        if (each.logged.size() == 2)
            each.logged[0] = each.logged[0].substr(0, each.logged[0].rfind("] in file["));
        const reading read = read_text(each.text);
        EXPECT_EQ(read.result, 0) << each.title;
        EXPECT_EQ(read.found, each.found) << each.title;
        EXPECT_EQ(read.logged, each.logged) << each.title;
    }
}

TEST(ParseFile, ALineOf5999CharactersIsWhole) {
    const std::string value(5997, 'v');
    EXPECT_EQ(read_text("A=" + value).found, (pairs{{"A", value}}));
    const std::string with_newline(5996, 'v');
    EXPECT_EQ(read_text("A=" + with_newline + "\nB=2\n").found, (pairs{{"A", with_newline}, {"B", "2"}}));
}

TEST(ParseFile, WhatFollows5999CharactersIsALineOfItsOwn) {
    const std::string value(5997, 'v');
    EXPECT_EQ(read_text("A=" + value + "C=3\nB=2\n").found, (pairs{{"A", value}, {"C", "3"}, {"B", "2"}}));
}

TEST(ParseFile, ANewlineAfter5999CharactersIsAnEmptyLine) {
    const std::string value(5997, 'v');
    const reading read = read_text("A=" + value + "\nB=2\n");
    EXPECT_EQ(read.found, (pairs{{"A", value}, {"B", "2"}}));
    EXPECT_EQ(read.logged.size(), 2u);
}

TEST(ParseFile, ALongLineLeavesNothingToAShorterOne) {
    EXPECT_EQ(read_text("LONGNAME=long value\nB\nC=3\n").found, (pairs{{"LONGNAME", "long value"}, {"C", "3"}}));
}

TEST(ParseFile, FailsWhenTheFileCannotBeOpened) {
    const reading read = read_file("/tmp/absent");
    EXPECT_EQ(read.result, -1);
    EXPECT_EQ(read.logged, lines{parser_line("Error opening property file /tmp/absent")});
}

TEST(ParseFile, FailsWithoutMemoryForTheLine) {
    fail_nth_call("calloc", 1, ENOMEM);
    const reading read = read_text("A=1\n");
    EXPECT_EQ(read.result, -1);
    EXPECT_EQ(read.logged, lines{parser_line("Error allocating memory")});
}

/// A call that fails while the second of three lines is read, and what is logged then.
struct shortage {
    const char *function;
    int nth;
    std::string logged;
};

TEST(ParseFile, StopsWhenMemoryRunsShortInALine) {
    const shortage shortages[] = {
        {"calloc", 4, no_memory_for_name("B")},   // the label
        {"strdup", 3, no_memory_for_name("B")},   // its name
        {"strdup", 4, no_memory_for_value("B")},  // its value
        {"calloc", 5, no_memory_for_value("B")},  // its place in the list
    };
    for (const auto &[function, nth, logged] : shortages) {
        fail_nth_call(function, nth, ENOMEM);
        const reading read = read_text("A=1\nB=2\nC=3\n");
        EXPECT_EQ(faults_fired(function), 1) << logged;
        clear_faults();
        EXPECT_EQ(read.result, 0) << logged;
        EXPECT_EQ(read.found, (pairs{{"A", "1"}}));
        EXPECT_EQ(read.logged, lines{logged});
    }
}

TEST(ParseFile, LogsAtLevel3) {
    write_file(PROPERTIES, "A=1");
    const auto read_failing = [](const char *function, int nth) {
        fail_nth_call(function, nth, ENOMEM);
        list_t *list = nullptr;
        (void)lang_parse_name_value_from_file(PROPERTIES, &list);
        (void)list_free_with_free_func(&list, free_lang_node);
        clear_faults();
    };
    expect_logged(3, {parser_line("Error allocating memory")}, [&] { read_failing("calloc", 1); });
    expect_logged(3, {no_memory_for_name("A")}, [&] { read_failing("calloc", 2); });
    expect_logged(3, {no_memory_for_value("A")}, [&] { read_failing("strdup", 2); });
    for (const auto &[text, logged] : pairs{{"word", without_value("word")}, {"=", without_name("=")}}) {
        write_file(PROPERTIES, text);
        expect_logged(3, {logged}, [&] { read_failing("strdup", 3); });
    }
}

TEST(PopCache, HoldsEveryPair) {
    const catalogue labels("INFOCODE_1=KEY\nKEY_2=Second=best\n");
    EXPECT_EQ(labels.size(), 2);
    EXPECT_EQ(labels.value("INFOCODE_1"), "KEY");
    EXPECT_EQ(labels.value("KEY_2"), "Second=best");
}

TEST(PopCache, GivesALaterLineOfTheSameNameItsWay) {
    const catalogue labels("A=1\nB=2\nA=3\n");
    EXPECT_EQ(labels.size(), 2);
    EXPECT_EQ(labels.value("A"), "3");
}

TEST(PopCache, LetsALaterFileOverrideAnEarlierOne) {
    catalogue labels("A=1\nB=2\n");
    EXPECT_EQ(labels.load("B=other\nC=3\n"), 0);
    EXPECT_EQ(labels.size(), 3);
    EXPECT_EQ(labels.value("A"), "1");
    EXPECT_EQ(labels.value("B"), "other");
}

// The bytes "0hz" sum up to twice the number of rows: both names are of one row.
TEST(PopCache, GivesTheValueOfALongerNameToTheStoredOneThatBeginsIt) {
    const catalogue labels("NAME=1\nNAME0hz=2\n");
    EXPECT_EQ(labels.size(), 1);
    EXPECT_EQ(labels.value("NAME"), "2");
    EXPECT_EQ(labels.value("NAME0hz"), "2");
}

TEST(PopCache, KeepsALongerNameThatCameFirst) {
    const catalogue labels("NAME0hz=2\nNAME=1\n");
    EXPECT_EQ(labels.size(), 2);
    EXPECT_EQ(labels.value("NAME"), "1");
}

TEST(PopCache, LogsAndDropsANameWithoutARow) {
    catalogue labels;
    log_capture log;
    EXPECT_EQ(labels.load("\xFF=1\nA=2\n"), 0);
    EXPECT_EQ(log.lines(), lines{"pop_lang_cache_from_file: Error [-1] in adding label <0> in the label cache"});
    EXPECT_EQ(labels.size(), 1);
    EXPECT_EQ(labels.value("\xFF"), "<none>");
}

TEST(PopCache, KeepsALabelOfANegativeSumThatTheRowsDivide) {
    catalogue labels;
    EXPECT_EQ(labels.load("\x80\xF7=1\n\x80\x80\xEE=2\n"), 0);  // -137 and -274: row 0
    EXPECT_EQ(labels.value("\x80\xF7"), "1");
    EXPECT_EQ(labels.value("\x80\x80\xEE"), "2");
}

TEST(PopCache, LogsAndDropsALabelWithoutMemoryForIt) {
    catalogue labels;
    log_capture log;
    fail_nth_call("calloc", 6, ENOMEM);  // those before it read the file
    EXPECT_EQ(labels.load("A=1\nB=2\n"), 0);
    EXPECT_EQ(log.lines(), lines{"pop_lang_cache_from_file: Error [-1] in adding label <0> in the label cache"});
    EXPECT_EQ(labels.value("A"), "<none>");
    EXPECT_EQ(labels.value("B"), "2");
}

TEST(PopCache, LogsALabelThatCannotBeAddedAtLevel3) {
    catalogue labels;
    expect_logged(3, {"pop_lang_cache_from_file: Error [-1] in adding label <0> in the label cache"},
                  [&] { (void)labels.load("\xFF=1\n"); });
}

TEST(PopCache, FailsWhenTheFileCannotBeRead) {
    catalogue labels;
    expect_logged(3,
                  {parser_line("Error opening property file /tmp/absent"),
                   "pop_lang_cache_from_file: Error while reading language file [/tmp/absent]"},
                  [&] { EXPECT_EQ(pop_lang_cache_from_file("/tmp/absent", labels.table), -1); });
    EXPECT_EQ(labels.size(), 0);
}

TEST(PopCache, TakesWhatWasReadBeforeMemoryRanShort) {
    catalogue labels;
    log_capture log;
    fail_nth_call("strdup", 4, ENOMEM);
    EXPECT_EQ(labels.load("A=1\nB=2\nC=3\n"), 0);
    EXPECT_EQ(labels.size(), 1);
    EXPECT_EQ(labels.value("A"), "1");
}

TEST(PopCache, IsSoundWhicheverAllocationFails) {
    for (const char *function : {"calloc", "strdup"}) {
        int nth = 1;
        for (;; nth++) {
            catalogue labels;
            log_capture log;
            fail_nth_call(function, nth, ENOMEM);
            const int result = labels.load("A=1\nB=2\nA=3\n");
            const bool fired = faults_fired(function) != 0;
            clear_faults();
            if (!fired) {
                EXPECT_EQ(labels.size(), 2);
                break;
            }
            EXPECT_FALSE(log.lines().empty());
            EXPECT_EQ(result, std::string(function) == "calloc" && nth == 1 ? -1 : 0);
            for (const char *name : {"A", "B"})
                EXPECT_NE(labels.value(name), "") << function << nth;
        }
        EXPECT_GT(nth, 4) << function;
    }
}

TEST(PopCache, WithoutACatalogueDropsEveryLabel) {
    write_file(PROPERTIES, "A=1\nB=2\n");
    log_capture log;
    EXPECT_EQ(pop_lang_cache_from_file(PROPERTIES, nullptr), 0);
    EXPECT_EQ(log.lines().size(), 2u);
}

TEST(Localize, GivesNothingForAMissingLabelOrCatalogue) {
    const catalogue labels("A=1\n");
    EXPECT_EQ(labels.value("B"), "<none>");
    EXPECT_EQ(lang_localize_cl_debug_label(nullptr, "A"), nullptr);
}

TEST(Localize, FindsTheStoredNameThatBeginsTheKeyInTheSameRowOnly) {
    const catalogue labels("NAME=1\n");
    EXPECT_EQ(labels.value("NAME0hz"), "1");
    EXPECT_EQ(labels.value("NAME1"), "<none>");
}

TEST(Localize, PrefersTheNewerOfTwoThatMatch) {
    const catalogue labels("NAME0hz=2\nNAME=1\n");
    EXPECT_EQ(labels.value("NAME0hz"), "1");
}

TEST(PrintLabelHash, LogsEveryPairAtLevel7) {
    const catalogue labels("B=2\nA=1\n");
    expect_logged(7, {"print_label_hash: A=1", "print_label_hash: B=2"}, [&] { print_label_hash(labels.table); });
}

TEST(PrintLabelHash, LogsEveryPairOfARow) {
    const catalogue labels("AB=1\nBA=2\n");
    EXPECT_EQ(lines_at_level(7, [&] { print_label_hash(labels.table); }),
              (lines{"print_label_hash: BA=2", "print_label_hash: AB=1"}));
}

TEST(PrintLabelHash, TakesACatalogueWithoutContents) {
    catalogue labels;
    (void)hash_del_table_contents(labels.table, nullptr);
    EXPECT_EQ(lines_at_level(7,
                             [&] {
                                 print_label_hash(labels.table);
                                 print_label_hash(nullptr);
                             }),
              lines{});
}

}  // namespace
