#include "hashTable.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "fault.h"

namespace {

struct record {
    int key;
    int serial;
};

using records = std::vector<const record *>;

const void *hashed_value;

/// Row of an integer key; a negative key gives a negative row, as the labels' function does.
int hash_key(const void *key, const hashTable_t *table, const void *value) {
    hashed_value = value;
    return table->length > 0 ? *static_cast<const int *>(key) % table->length : 0;
}

int compare_key(const void *key, const void *value) {
    return *static_cast<const int *>(key) == static_cast<const record *>(value)->key ? 0 : 1;
}

int row_of_the_length(const void *, const hashTable_t *table, const void *) {
    return table->length;
}

int freed;

void count_and_free(void *value) {
    freed++;
    std::free(value);
}

/// A table of records that live in the test.
struct key_table {
    hashTable_t *table;

    explicit key_table(int length) : table(hash_newTable(length, hash_key, compare_key)) {
        EXPECT_NE(table, nullptr);
    }
    ~key_table() {
        hash_delTable(&table, nullptr);
    }
    key_table(const key_table &) = delete;
    key_table &operator=(const key_table &) = delete;

    int add(record &value) {
        return hash_add(table, &value.key, &value);
    }
    void *find(int key) const {
        return hash_find(table, &key);
    }
    int del(int key) {
        return hash_del(table, &key);
    }
    records find_all(int key) const {
        list_t *list = hash_find_all(table, &key);
        records found;
        for (const list_t *node = list; node != nullptr; node = node->next)
            found.push_back(static_cast<const record *>(node->value));
        list_free_without_payload_freeing(&list);
        return found;
    }
};

/// An iterator that is freed at the end.
struct walk {
    hash_Iterator_t *iterator = nullptr;

    explicit walk(hashTable_t *table) {
        EXPECT_EQ(hash_init_iterator(table, &iterator), 0);
    }
    ~walk() {
        hash_del_iterator(&iterator);
    }
    walk(const walk &) = delete;
    walk &operator=(const walk &) = delete;

    const record *next() {
        return static_cast<const record *>(hash_next_iterator(iterator));
    }
    records rest() {
        records found;
        while (const record *value = next())
            found.push_back(value);
        return found;
    }
};

TEST(HashNewTable, StartsWithEmptyRows) {
    const key_table keys(3);
    EXPECT_EQ(keys.table->length, 3);
    EXPECT_EQ(keys.table->num_entries, 0);
    EXPECT_EQ(keys.table->hash_func, hash_key);
    EXPECT_EQ(keys.table->compare, compare_key);
    for (int row = 0; row < 3; row++)
        EXPECT_EQ(keys.table->rows[row], nullptr);
}

TEST(HashNewTable, TakesLengthsFrom0To32003) {
    const key_table shortest(0);
    const key_table longest(32003);
    EXPECT_EQ(shortest.table->length, 0);
    EXPECT_EQ(longest.table->length, 32003);
    EXPECT_EQ(hash_newTable(-1, hash_key, compare_key), nullptr);
    EXPECT_EQ(hash_newTable(32004, hash_key, compare_key), nullptr);
}

TEST(HashNewTable, NeedsBothFunctions) {
    EXPECT_EQ(hash_newTable(3, nullptr, compare_key), nullptr);
    EXPECT_EQ(hash_newTable(3, hash_key, nullptr), nullptr);
}

TEST(HashNewTable, ReturnsNullWhicheverAllocationFails) {
    int nth = 1;
    for (;; nth++) {
        fail_nth_call("calloc", nth, ENOMEM);
        hashTable_t *table = hash_newTable(3, hash_key, compare_key);
        if (faults_fired("calloc") == 0) {
            EXPECT_EQ(hash_delTable(&table, nullptr), 0);
            break;
        }
        EXPECT_EQ(table, nullptr);
    }
    clear_faults();
    EXPECT_EQ(nth, 3);
}

TEST(HashAdd, StoresTheValueInItsRow) {
    key_table keys(3);
    record value = {4, 0};
    EXPECT_EQ(keys.add(value), 0);
    EXPECT_EQ(keys.table->num_entries, 1);
    ASSERT_NE(keys.table->rows[1], nullptr);
    EXPECT_EQ(keys.table->rows[1]->value, &value);
    EXPECT_EQ(hashed_value, &value);
}

TEST(HashAdd, OfAKeyThatIsThereReturns1AndAddsNothing) {
    key_table keys(3);
    record first = {4, 1};
    record second = {4, 2};
    EXPECT_EQ(keys.add(first), 0);
    EXPECT_EQ(keys.add(second), 1);
    EXPECT_EQ(keys.table->num_entries, 1);
    EXPECT_EQ(keys.find(4), &first);
}

TEST(HashAdd, PutsTheNewestFirstInItsRow) {
    key_table keys(3);
    record first = {1, 0};
    record second = {4, 0};
    EXPECT_EQ(keys.add(first), 0);
    EXPECT_EQ(keys.add(second), 0);
    EXPECT_EQ(keys.table->rows[1]->value, &second);
    EXPECT_EQ(keys.table->rows[1]->next->value, &first);
}

TEST(HashAdd, RefusesARowBelow0OrNotBelowTheLength) {
    key_table keys(3);
    record negative = {-1, 0};
    record high = {0, 0};
    EXPECT_EQ(keys.add(negative), -1);
    keys.table->hash_func = row_of_the_length;
    EXPECT_EQ(keys.add(high), -1);
    EXPECT_EQ(hash_add_duplicate(keys.table, &high.key, &high), -1);
    EXPECT_EQ(keys.table->num_entries, 0);
}

TEST(HashAdd, FailsInATableOfLength0) {
    key_table keys(0);
    record value = {0, 0};
    EXPECT_EQ(keys.add(value), -1);
    EXPECT_EQ(hash_add_duplicate(keys.table, &value.key, &value), -1);
    EXPECT_EQ(keys.table->num_entries, 0);
}

TEST(HashAdd, RefusesNullArguments) {
    const key_table keys(3);
    record value = {1, 0};
    EXPECT_EQ(hash_add(nullptr, &value.key, &value), -1);
    EXPECT_EQ(hash_add(keys.table, nullptr, &value), -1);
    EXPECT_EQ(hash_add(keys.table, &value.key, nullptr), -1);
    EXPECT_EQ(keys.table->num_entries, 0);
}

TEST(HashAdd, ChangesNothingWithoutMemory) {
    key_table keys(3);
    record value = {1, 0};
    fail_nth_call("calloc", 1, ENOMEM);
    EXPECT_EQ(keys.add(value), -1);
    EXPECT_EQ(faults_fired("calloc"), 1);
    clear_faults();
    EXPECT_EQ(keys.table->num_entries, 0);
    EXPECT_EQ(keys.find(1), nullptr);
}

TEST(HashAddDuplicate, AddsAKeyThatIsThereAndTheNewestIsFound) {
    key_table keys(3);
    record first = {4, 1};
    record second = {4, 2};
    EXPECT_EQ(hash_add_duplicate(keys.table, &first.key, &first), 0);
    EXPECT_EQ(hash_add_duplicate(keys.table, &second.key, &second), 0);
    EXPECT_EQ(keys.table->num_entries, 2);
    EXPECT_EQ(keys.find(4), &second);
}

TEST(HashAddDuplicate, RefusesNullArguments) {
    const key_table keys(3);
    record value = {1, 0};
    EXPECT_EQ(hash_add_duplicate(nullptr, &value.key, &value), -1);
    EXPECT_EQ(hash_add_duplicate(keys.table, nullptr, &value), -1);
    EXPECT_EQ(hash_add_duplicate(keys.table, &value.key, nullptr), -1);
    EXPECT_EQ(keys.table->num_entries, 0);
}

TEST(HashAddDuplicate, ChangesNothingWithoutMemory) {
    const key_table keys(3);
    record value = {1, 0};
    fail_nth_call("calloc", 1, ENOMEM);
    EXPECT_EQ(hash_add_duplicate(keys.table, &value.key, &value), -1);
    EXPECT_EQ(faults_fired("calloc"), 1);
    clear_faults();
    EXPECT_EQ(keys.table->num_entries, 0);
}

TEST(HashFind, TellsKeysOfOneRowApart) {
    key_table keys(3);
    record first = {1, 0};
    record second = {4, 0};
    EXPECT_EQ(keys.add(first), 0);
    EXPECT_EQ(keys.add(second), 0);
    EXPECT_EQ(keys.find(1), &first);
    EXPECT_EQ(keys.find(4), &second);
    EXPECT_EQ(keys.find(7), nullptr);
    EXPECT_EQ(hashed_value, nullptr);
}

TEST(HashFind, OfABadRowOrNullArgumentIsNull) {
    const key_table keys(3);
    const int key = 1;
    EXPECT_EQ(keys.find(-1), nullptr);
    EXPECT_EQ(hash_find(nullptr, &key), nullptr);
    EXPECT_EQ(hash_find(keys.table, nullptr), nullptr);
}

TEST(HashFindAll, ListsTheMatchesOldestFirst) {
    key_table keys(3);
    record values[] = {{1, 0}, {4, 1}, {1, 2}, {1, 3}};
    for (record &value : values)
        EXPECT_EQ(hash_add_duplicate(keys.table, &value.key, &value), 0);
    EXPECT_EQ(keys.find_all(1), (records{&values[0], &values[2], &values[3]}));
    EXPECT_EQ(keys.table->num_entries, 4);
}

TEST(HashFindAll, OfAMissABadRowOrNullArgumentIsNull) {
    const key_table keys(3);
    const int key = 1;
    const int bad = -1;
    EXPECT_EQ(hash_find_all(keys.table, &key), nullptr);
    EXPECT_EQ(hash_find_all(keys.table, &bad), nullptr);
    EXPECT_EQ(hash_find_all(nullptr, &key), nullptr);
    EXPECT_EQ(hash_find_all(keys.table, nullptr), nullptr);
}

TEST(HashFindAll, ReturnsNoHalfListWithoutMemory) {
    key_table keys(3);
    record values[] = {{1, 0}, {1, 1}};
    for (record &value : values)
        EXPECT_EQ(hash_add_duplicate(keys.table, &value.key, &value), 0);
    for (const int nth : {1, 2}) {
        fail_nth_call("calloc", nth, ENOMEM);
        EXPECT_EQ(hash_find_all(keys.table, &values[0].key), nullptr);
        EXPECT_EQ(faults_fired("calloc"), 1);
    }
    clear_faults();
}

TEST(HashDel, RemovesTheNewestMatchAndLeavesItsValueAlone) {
    key_table keys(3);
    record values[] = {{1, 0}, {1, 1}};
    for (record &value : values)
        EXPECT_EQ(hash_add_duplicate(keys.table, &value.key, &value), 0);
    EXPECT_EQ(keys.del(1), 0);
    EXPECT_EQ(keys.table->num_entries, 1);
    EXPECT_EQ(keys.find(1), &values[0]);
}

TEST(HashDel, OfAMissReturns2) {
    key_table keys(3);
    record value = {1, 0};
    EXPECT_EQ(keys.add(value), 0);
    EXPECT_EQ(keys.del(4), 2);
    EXPECT_EQ(keys.del(2), 2);
    EXPECT_EQ(keys.table->num_entries, 1);
}

TEST(HashDel, RefusesABadRowAndNullArguments) {
    key_table keys(3);
    const int key = 1;
    EXPECT_EQ(keys.del(-1), -1);
    EXPECT_EQ(hash_del(nullptr, &key), -1);
    EXPECT_EQ(hash_del(keys.table, nullptr), -1);
}

TEST(HashGetNumEntries, GivesTheCount) {
    key_table keys(3);
    record value = {1, 0};
    EXPECT_EQ(keys.add(value), 0);
    int count = -5;
    EXPECT_EQ(hash_get_num_entries(keys.table, &count), 0);
    EXPECT_EQ(count, 1);
}

TEST(HashGetNumEntries, RefusesNullArguments) {
    const key_table keys(3);
    int count = -5;
    EXPECT_EQ(hash_get_num_entries(nullptr, &count), -1);
    EXPECT_EQ(hash_get_num_entries(keys.table, nullptr), -1);
    EXPECT_EQ(count, -5);
}

TEST(HashCheckSpace, Is0OnlyBelowTheLimit) {
    key_table keys(3);
    record value = {1, 0};
    EXPECT_EQ(hash_check_space(keys.table, 1), 0);
    EXPECT_EQ(keys.add(value), 0);
    EXPECT_EQ(hash_check_space(keys.table, 1), -1);
    EXPECT_EQ(hash_check_space(keys.table, 2), 0);
    EXPECT_EQ(hash_check_space(nullptr, 2), -1);
}

TEST(HashFirstElement, IsTheNewestOfTheFirstFilledRow) {
    key_table keys(3);
    record values[] = {{2, 0}, {1, 0}, {4, 0}};
    EXPECT_EQ(hash_first_element(keys.table), nullptr);
    for (record &value : values)
        EXPECT_EQ(keys.add(value), 0);
    EXPECT_EQ(hash_first_element(keys.table), &values[2]);
    EXPECT_EQ(hash_first_element(nullptr), nullptr);
}

TEST(HashInitIterator, StandsBeforeTheFirstValue) {
    const key_table keys(3);
    const walk all(keys.table);
    EXPECT_EQ(all.iterator->curr_node, nullptr);
    EXPECT_EQ(all.iterator->currRow, 0);
    EXPECT_EQ(all.iterator->htable, keys.table);
}

TEST(HashInitIterator, Returns3WithoutMemory) {
    const key_table keys(3);
    hash_Iterator_t *iterator = nullptr;
    fail_nth_call("calloc", 1, ENOMEM);
    EXPECT_EQ(hash_init_iterator(keys.table, &iterator), 3);
    EXPECT_EQ(faults_fired("calloc"), 1);
    clear_faults();
    EXPECT_EQ(iterator, nullptr);
}

TEST(HashNextIterator, VisitsRowsInOrderNewestFirstAndStaysAtTheEnd) {
    key_table keys(5);
    record values[] = {{3, 0}, {1, 0}, {6, 0}};
    for (record &value : values)
        EXPECT_EQ(keys.add(value), 0);
    walk all(keys.table);
    EXPECT_EQ(all.rest(), (records{&values[2], &values[1], &values[0]}));
    EXPECT_EQ(all.next(), nullptr);
    EXPECT_EQ(all.iterator->currRow, 4);
}

TEST(HashNextIterator, FindsNothingWhereThereIsNothing) {
    const key_table keys(3);
    walk empty(keys.table);
    walk nowhere(nullptr);
    EXPECT_EQ(empty.next(), nullptr);
    EXPECT_EQ(empty.iterator->currRow, 0);
    EXPECT_EQ(nowhere.next(), nullptr);
    EXPECT_EQ(hash_next_iterator(nullptr), nullptr);
}

TEST(HashResetIterator, StartsTheWalkAgain) {
    key_table keys(3);
    record values[] = {{0, 0}, {2, 0}};
    for (record &value : values)
        EXPECT_EQ(keys.add(value), 0);
    walk all(keys.table);
    const records first = all.rest();
    EXPECT_EQ(hash_reset_iterator(all.iterator), 0);
    EXPECT_EQ(all.rest(), first);
    EXPECT_EQ(hash_reset_iterator(nullptr), -1);
}

TEST(HashDelnodeIterator, OfEveryValueVisitsEachOnceAndLeavesAnEmptyTable) {
    key_table keys(3);
    std::vector<record> values;
    for (int key = 0; key < 10; key++)
        values.push_back({key, 0});
    for (record &value : values)
        EXPECT_EQ(keys.add(value), 0);
    std::multiset<int> visited;
    walk all(keys.table);
    while (const record *value = all.next()) {
        visited.insert(value->key);
        EXPECT_EQ(hash_delnode_iterator(all.iterator), 0);
    }
    EXPECT_EQ(visited, (std::multiset<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(keys.table->num_entries, 0);
    EXPECT_EQ(hash_first_element(keys.table), nullptr);
}

TEST(HashDelnodeIterator, OfTheHeadOfARowGoesOnWithTheNodeThatFollowedIt) {
    key_table keys(3);
    record values[] = {{7, 0}, {4, 0}, {1, 0}};
    for (record &value : values)
        EXPECT_EQ(keys.add(value), 0);
    walk all(keys.table);
    EXPECT_EQ(all.next(), &values[2]);
    EXPECT_EQ(hash_delnode_iterator(all.iterator), 0);
    EXPECT_EQ(all.iterator->curr_node, nullptr);
    EXPECT_EQ(all.rest(), (records{&values[1], &values[0]}));
}

TEST(HashDelnodeIterator, OfAMiddleNodeStepsBackToItsPredecessor) {
    key_table keys(3);
    record values[] = {{7, 0}, {4, 0}, {1, 0}};
    for (record &value : values)
        EXPECT_EQ(keys.add(value), 0);
    walk all(keys.table);
    (void)all.next();
    EXPECT_EQ(all.next(), &values[1]);
    EXPECT_EQ(hash_delnode_iterator(all.iterator), 0);
    EXPECT_EQ(all.iterator->curr_node->value, &values[2]);
    EXPECT_EQ(all.rest(), records{&values[0]});
}

TEST(HashDelnodeIterator, TwiceInARowRemovesThePredecessorToo) {
    key_table keys(3);
    record values[] = {{7, 0}, {4, 0}, {1, 0}};
    for (record &value : values)
        EXPECT_EQ(keys.add(value), 0);
    walk all(keys.table);
    (void)all.next();
    (void)all.next();
    EXPECT_EQ(hash_delnode_iterator(all.iterator), 0);
    EXPECT_EQ(hash_delnode_iterator(all.iterator), 0);
    EXPECT_EQ(keys.find(1), nullptr);
    EXPECT_EQ(keys.find(4), nullptr);
    EXPECT_EQ(keys.find(7), &values[0]);
    EXPECT_EQ(keys.table->num_entries, 1);
}

TEST(HashDelnodeIterator, AtTheEndFindsAValueOfTheLastRowOnly) {
    record value = {0, 0};
    for (const int row : {1, 2}) {
        key_table keys(3);
        value.key = row;
        EXPECT_EQ(keys.add(value), 0);
        walk all(keys.table);
        EXPECT_EQ(all.next(), &value);
        EXPECT_EQ(all.next(), nullptr);
        EXPECT_EQ(hash_delnode_iterator(all.iterator), row == 2 ? 0 : 2);
        EXPECT_EQ(keys.table->num_entries, row == 2 ? 0 : 1);
    }
}

TEST(HashDelnodeIterator, BeforeTheFirstValueReturns2) {
    key_table keys(3);
    record value = {0, 0};
    EXPECT_EQ(keys.add(value), 0);
    const walk all(keys.table);
    const walk nowhere(nullptr);
    EXPECT_EQ(hash_delnode_iterator(all.iterator), 2);
    EXPECT_EQ(hash_delnode_iterator(nowhere.iterator), 2);
    EXPECT_EQ(hash_delnode_iterator(nullptr), 2);
    EXPECT_EQ(keys.table->num_entries, 1);
}

TEST(HashDelIterator, ClearsTheCallersPointer) {
    const key_table keys(3);
    hash_Iterator_t *iterator = nullptr;
    ASSERT_EQ(hash_init_iterator(keys.table, &iterator), 0);
    EXPECT_EQ(hash_del_iterator(&iterator), 0);
    EXPECT_EQ(iterator, nullptr);
    EXPECT_EQ(hash_del_iterator(&iterator), 0);
    EXPECT_EQ(hash_del_iterator(nullptr), -1);
}

TEST(HashDelTableContents, FreesEveryValueAndLeavesTheCountAsItWas) {
    key_table keys(3);
    for (int key = 0; key < 5; key++) {
        auto *value = static_cast<record *>(std::calloc(1, sizeof(record)));
        value->key = key;
        EXPECT_EQ(keys.add(*value), 0);
    }
    freed = 0;
    EXPECT_EQ(hash_del_table_contents(keys.table, count_and_free), 0);
    EXPECT_EQ(freed, 5);
    EXPECT_EQ(keys.table->rows, nullptr);
    EXPECT_EQ(keys.table->num_entries, 5);
}

TEST(HashDelTableContents, LeavesATableThatEveryOperationRefuses) {
    key_table keys(3);
    record value = {1, 0};
    EXPECT_EQ(keys.add(value), 0);
    walk all(keys.table);
    EXPECT_EQ(all.next(), &value);
    EXPECT_EQ(hash_del_table_contents(keys.table, nullptr), 0);
    EXPECT_EQ(keys.add(value), -1);
    EXPECT_EQ(hash_add_duplicate(keys.table, &value.key, &value), -1);
    EXPECT_EQ(keys.find(1), nullptr);
    EXPECT_EQ(hash_find_all(keys.table, &value.key), nullptr);
    EXPECT_EQ(keys.del(1), -1);
    EXPECT_EQ(hash_first_element(keys.table), nullptr);
    EXPECT_EQ(all.next(), nullptr);
    EXPECT_EQ(hash_delnode_iterator(all.iterator), 2);
    EXPECT_EQ(hash_del_table_contents(keys.table, nullptr), 0);
    EXPECT_EQ(hash_del_table_contents(nullptr, nullptr), -1);
}

TEST(HashDelTable, FreesEveryValueAndClearsTheCallersPointer) {
    hashTable_t *table = hash_newTable(3, hash_key, compare_key);
    auto *value = static_cast<record *>(std::calloc(1, sizeof(record)));
    EXPECT_EQ(hash_add(table, &value->key, value), 0);
    freed = 0;
    EXPECT_EQ(hash_delTable(&table, count_and_free), 0);
    EXPECT_EQ(freed, 1);
    EXPECT_EQ(table, nullptr);
}

TEST(HashDelTable, WithoutAFreeFunctionLeavesTheValues) {
    hashTable_t *table = hash_newTable(3, hash_key, compare_key);
    record value = {1, 9};
    EXPECT_EQ(hash_add(table, &value.key, &value), 0);
    EXPECT_EQ(hash_delTable(&table, nullptr), 0);
    EXPECT_EQ(value.serial, 9);
}

TEST(HashDelTable, RefusesNullArguments) {
    hashTable_t *table = nullptr;
    EXPECT_EQ(hash_delTable(&table, nullptr), -1);
    EXPECT_EQ(hash_delTable(nullptr, nullptr), -1);
}

TEST(HwMacHashFunc, IsTheSumOfTheBytesModuloTheLength) {
    hashTable_t table = {};
    table.length = 53;
    const uint8_t mac[] = {0xff, 0xff, 0xff, 0xff, 0xff, 0x80, 0x01};
    EXPECT_EQ(hw_mac_hash_func(mac, &table, nullptr), (5 * 0xff + 0x80) % 53);
}

TEST(HwMacHashFunc, NeverDividesByALengthOf0) {
    const hashTable_t table = {};
    const uint8_t mac[6] = {};
    EXPECT_EQ(hw_mac_hash_func(mac, &table, nullptr), -1);
}

TEST(HwMacCompareFunc, ComparesTheFirstSixBytes) {
    const uint8_t stored[] = {1, 2, 3, 4, 5, 6, 7};
    const uint8_t equal[] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(hw_mac_compare_func(equal, stored), 0);
    for (size_t i = 0; i < 6; i++) {
        uint8_t other[] = {1, 2, 3, 4, 5, 6};
        other[i] ^= 0x80;
        EXPECT_EQ(hw_mac_compare_func(other, stored), 1) << "byte " << i;
    }
}

TEST(HashTable, AddingTheSameMacTwiceKeepsOneEntry) {
    hashTable_t *table = hash_newTable(53, hw_mac_hash_func, hw_mac_compare_func);
    uint8_t first[] = {1, 2, 3, 4, 5, 6, 'a'};
    uint8_t second[] = {1, 2, 3, 4, 5, 6, 'b'};
    EXPECT_EQ(hash_add(table, first, first), 0);
    EXPECT_EQ(hash_add(table, second, second), 1);
    EXPECT_EQ(table->num_entries, 1);
    hash_delTable(&table, nullptr);
}

TEST(HashTable, TellsMacsWithTheSameSumApart) {
    hashTable_t *table = hash_newTable(53, hw_mac_hash_func, hw_mac_compare_func);
    uint8_t first[] = {1, 2, 3, 4, 5, 6};
    uint8_t second[] = {6, 5, 4, 3, 2, 1};
    EXPECT_EQ(hash_add(table, first, first), 0);
    EXPECT_EQ(hash_add(table, second, second), 0);
    EXPECT_EQ(hash_find(table, first), first);
    EXPECT_EQ(hash_find(table, second), second);
    hash_delTable(&table, nullptr);
}

/// The same random operations on a table and on a map from keys to their records, newest first.
class HashTableAgainstMap : public testing::Test {
protected:
    static constexpr int KEYS = 60;

    int below(unsigned limit) {
        return static_cast<int>(random_() % limit);
    }

    void add() {
        auto *value = static_cast<record *>(std::malloc(sizeof(record)));
        *value = {below(KEYS), serial_++};
        const bool duplicates = below(4) == 0;
        const bool refused = !duplicates && oracle_.contains(value->key);
        const int result = duplicates ? hash_add_duplicate(keys_.table, &value->key, value) : keys_.add(*value);
        ASSERT_EQ(result, refused ? 1 : 0);
        if (refused)
            std::free(value);
        else
            oracle_[value->key].push_front(value);
    }

    void remove() {
        const int key = below(KEYS);
        const auto found = oracle_.find(key);
        ASSERT_EQ(keys_.del(key), found != oracle_.end() ? 0 : 2);
        if (found != oracle_.end())
            forget(found->second.front());
    }

    /// Deletes about every third value during a walk that must visit each exactly once.
    void remove_while_walking() {
        std::multiset<int> visited;
        walk all(keys_.table);
        while (const record *value = all.next()) {
            visited.insert(value->serial);
            if (below(3) != 0)
                continue;
            ASSERT_EQ(hash_delnode_iterator(all.iterator), 0);
            removed_.push_back(value);
        }
        ASSERT_EQ(visited, serials());
        for (const record *value : removed_)
            forget(value);
        removed_.clear();
    }

    void forget(const record *value) {
        auto &same_key = oracle_[value->key];
        std::erase(same_key, value);
        if (same_key.empty())
            oracle_.erase(value->key);
        std::free(const_cast<record *>(value));
    }

    std::multiset<int> serials() const {
        std::multiset<int> all;
        for (const auto &[key, values] : oracle_)
            for (const record *value : values)
                all.insert(value->serial);
        return all;
    }

    void check() const {
        for (int key = 0; key < KEYS; key++) {
            const auto found = oracle_.find(key);
            ASSERT_EQ(keys_.find(key), found != oracle_.end() ? found->second.front() : nullptr);
            const auto newest_first = found != oracle_.end() ? found->second : std::deque<const record *>();
            ASSERT_EQ(keys_.find_all(key), records(newest_first.rbegin(), newest_first.rend()));
        }
        ASSERT_EQ(keys_.table->num_entries, static_cast<int>(serials().size()));
    }

    void TearDown() override {
        hash_del_table_contents(keys_.table, std::free);
    }

    std::mt19937 random_{1729};
    key_table keys_{7};
    std::map<int, std::deque<const record *>> oracle_;
    records removed_;
    int serial_ = 0;
};

TEST_F(HashTableAgainstMap, HoldsTheSameValuesAfterEveryOperation) {
    for (int step = 0; step < 1500; step++) {
        const int dice = below(40);
        if (dice == 0)
            remove_while_walking();
        else if (dice < 24)
            add();
        else
            remove();
        check();
        if (HasFatalFailure())
            return;
    }
}

}  // namespace
