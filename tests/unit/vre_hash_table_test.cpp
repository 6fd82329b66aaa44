#include "vre_hash_table.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "fault.h"

namespace {

using mac = std::array<uint8_t, 6>;
using ints = std::vector<int>;

void *const MAC_LENGTH = reinterpret_cast<void *>(uintptr_t{6});

struct releases {
    ints keys;
    ints values;
};

unsigned long hash_number(const void *key, void *) {
    return *static_cast<const unsigned *>(key);
}

int compare_numbers(const void *stored_key, const void *key, void *) {
    return *static_cast<const int *>(stored_key) - *static_cast<const int *>(key);
}

void release_key(void *key, void *userdata) {
    static_cast<releases *>(userdata)->keys.push_back(*static_cast<int *>(key));
    std::free(key);
}

void release_value(void *value, void *userdata) {
    static_cast<releases *>(userdata)->values.push_back(*static_cast<int *>(value));
    std::free(value);
}

constexpr hash_table_funcs_t NUMBER_FUNCS = {hash_number, compare_numbers, release_key, release_value};

int *new_number(int n) {
    auto *number = static_cast<int *>(std::malloc(sizeof(int)));
    *number = n;
    return number;
}

/// A table of heap numbers that notes what it releases.
struct number_table {
    releases released;
    hash_table_t table = {};

    explicit number_table(size_t size) {
        EXPECT_EQ(hash_table_init(&table, size, &NUMBER_FUNCS, &released), &table);
    }
    ~number_table() {
        hash_table_destroy(&table);
    }
    number_table(const number_table &) = delete;
    number_table &operator=(const number_table &) = delete;

    void add(const ints &numbers) {
        for (const int n : numbers)
            EXPECT_EQ(hash_table_add(&table, new_number(n), new_number(n * 10)), 0);
    }
    int lookup(int key) const {
        const void *value = hash_table_lookup(&table, &key);
        return value != nullptr ? *static_cast<const int *>(value) : -1;
    }
    int remove(int key) {
        return hash_table_delete(&table, &key);
    }
};

ints chain_of(const hash_table_t &table, size_t bucket) {
    ints keys;
    for (const hash_table_entry_t *entry = table.entries[bucket]; entry != nullptr; entry = entry->next)
        keys.push_back(*static_cast<const int *>(entry->key));
    return keys;
}

ints walk(const hash_table_t &table) {
    ints keys;
    hash_table_iter_t iterator;
    hash_table_iter_init(&table, &iterator);
    while (hash_table_iter_next(&iterator) != 0)
        keys.push_back(*static_cast<const int *>(iterator.entry->key));
    return keys;
}

int is_even(const void *key, void *value, void *user) {
    EXPECT_EQ(*static_cast<const int *>(value), *static_cast<const int *>(key) * 10);
    static_cast<ints *>(user)->push_back(*static_cast<const int *>(key));
    return *static_cast<const int *>(key) % 2 == 0 ? 7 : 0;
}

void *new_copy(const void *bytes, size_t size) {
    return std::memcpy(std::malloc(size), bytes, size);
}

TEST(HashTableInit, FillsTheRecordOfTheCaller) {
    hash_table_t table;
    std::memset(&table, 0xaa, sizeof table);
    int userdata = 0;
    EXPECT_EQ(hash_table_init(&table, 3, &NUMBER_FUNCS, &userdata), &table);
    EXPECT_EQ(table.entry_count, 0U);
    EXPECT_EQ(table.table_size, 3U);
    EXPECT_EQ(table.funcs.hash_function, hash_number);
    EXPECT_EQ(table.funcs.compare_keys, compare_numbers);
    EXPECT_EQ(table.funcs.free_key, release_key);
    EXPECT_EQ(table.funcs.free_value, release_value);
    EXPECT_EQ(table.funcs_userdata, &userdata);
    for (size_t bucket = 0; bucket < 3; bucket++)
        EXPECT_EQ(table.entries[bucket], nullptr);
    EXPECT_EQ(hash_table_destroy(&table), 0);
}

TEST(HashTableInit, AllocatesARecordForNull) {
    hash_table_t *table = hash_table_init(nullptr, 3, &NUMBER_FUNCS, nullptr);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->table_size, 3U);
    EXPECT_EQ(hash_table_destroy(table), 0);
    std::free(table);
}

TEST(HashTableInit, RefusesTableSize0) {
    EXPECT_EQ(hash_table_init(nullptr, 0, &NUMBER_FUNCS, nullptr), nullptr);
}

TEST(HashTableInit, NeedsTheFunctionTableAndItsFirstTwoFunctions) {
    const hash_table_funcs_t without_hash = {nullptr, compare_numbers, nullptr, nullptr};
    const hash_table_funcs_t without_compare = {hash_number, nullptr, nullptr, nullptr};
    EXPECT_EQ(hash_table_init(nullptr, 3, nullptr, nullptr), nullptr);
    EXPECT_EQ(hash_table_init(nullptr, 3, &without_hash, nullptr), nullptr);
    EXPECT_EQ(hash_table_init(nullptr, 3, &without_compare, nullptr), nullptr);
}

TEST(HashTableInit, ReturnsNullAndLeaksNothingWhicheverAllocationFails) {
    for (const char *function : {"malloc", "calloc"}) {
        fail_nth_call(function, 1, ENOMEM);
        EXPECT_EQ(hash_table_init(nullptr, 3, &NUMBER_FUNCS, nullptr), nullptr);
        EXPECT_EQ(faults_fired(function), 1);
        clear_faults();
    }
}

TEST(HashTableInit, LeavesTheRecordOfTheCallerUnchangedWithoutMemory) {
    hash_table_t table = {};
    fail_nth_call("calloc", 1, ENOMEM);
    EXPECT_EQ(hash_table_init(&table, 3, &NUMBER_FUNCS, nullptr), nullptr);
    EXPECT_EQ(faults_fired("calloc"), 1);
    clear_faults();
    EXPECT_EQ(table.table_size, 0U);
    EXPECT_EQ(table.entries, nullptr);
}

TEST(HashTableAdd, KeepsEveryChainInAscendingOrder) {
    ints numbers = {0, 3, 6, 9};
    do {
        number_table numbered(3);
        numbered.add(numbers);
        EXPECT_EQ(chain_of(numbered.table, 0), (ints{0, 3, 6, 9}));
    } while (std::next_permutation(numbers.begin(), numbers.end()));
}

TEST(HashTableAdd, CountsTheEntries) {
    number_table numbered(3);
    numbered.add({1, 2, 3});
    EXPECT_EQ(numbered.table.entry_count, 3U);
}

TEST(HashTableAdd, OfAKeyThatIsThereReplacesItsValueAndKeepsTheStoredKey) {
    number_table numbered(3);
    int *stored = new_number(4);
    EXPECT_EQ(hash_table_add(&numbered.table, stored, new_number(1)), 0);
    int key = 4;
    EXPECT_EQ(hash_table_add(&numbered.table, &key, new_number(2)), 1);
    EXPECT_EQ(numbered.table.entries[1]->key, stored);
    EXPECT_EQ(numbered.lookup(4), 2);
    EXPECT_EQ(numbered.released.values, ints{1});
    EXPECT_EQ(numbered.released.keys, ints());
    EXPECT_EQ(numbered.table.entry_count, 1U);
}

TEST(HashTableAdd, WithoutFreeValueReplacesWithoutReleasing) {
    const hash_table_funcs_t funcs = {hash_number, compare_numbers, nullptr, nullptr};
    hash_table_t table = {};
    ASSERT_EQ(hash_table_init(&table, 3, &funcs, nullptr), &table);
    int key = 1;
    int first = 10;
    int second = 20;
    EXPECT_EQ(hash_table_add(&table, &key, &first), 0);
    EXPECT_EQ(hash_table_add(&table, &key, &second), 1);
    EXPECT_EQ(hash_table_lookup(&table, &key), &second);
    hash_table_destroy(&table);
}

TEST(HashTableAdd, ChangesNothingWithoutMemory) {
    number_table numbered(3);
    numbered.add({1});
    int key = 4;
    int value = 40;
    fail_every_call("malloc", ENOMEM);
    fail_every_call("calloc", ENOMEM);
    EXPECT_EQ(hash_table_add(&numbered.table, &key, &value), -1);
    EXPECT_EQ(faults_fired("malloc") + faults_fired("calloc"), 1);
    clear_faults();
    EXPECT_EQ(chain_of(numbered.table, 1), ints{1});
    EXPECT_EQ(numbered.table.entry_count, 1U);
}

TEST(HashTableLookup, FindsHeadMiddleAndEndOfAChainAndNothingElse) {
    number_table numbered(3);
    numbered.add({3, 6, 9});
    for (const int key : {3, 6, 9})
        EXPECT_EQ(numbered.lookup(key), key * 10);
    for (const int key : {0, 12, 1})
        EXPECT_EQ(numbered.lookup(key), -1);
}

int comparisons;

int count_comparisons(const void *stored_key, const void *key, void *userdata) {
    comparisons++;
    return compare_numbers(stored_key, key, userdata);
}

TEST(HashTableLookup, StopsAtTheFirstGreaterKey) {
    number_table numbered(3);
    numbered.add({0, 6, 9, 12});
    numbered.table.funcs.compare_keys = count_comparisons;
    comparisons = 0;
    EXPECT_EQ(numbered.lookup(3), -1);
    EXPECT_EQ(comparisons, 2);
    EXPECT_EQ(numbered.remove(3), -1);
    EXPECT_EQ(comparisons, 4);
}

TEST(HashTableDelete, ReleasesKeyAndValue) {
    number_table numbered(3);
    numbered.add({3, 6, 9});
    EXPECT_EQ(numbered.remove(6), 0);
    EXPECT_EQ(chain_of(numbered.table, 0), (ints{3, 9}));
    EXPECT_EQ(numbered.released.keys, ints{6});
    EXPECT_EQ(numbered.released.values, ints{60});
    EXPECT_EQ(numbered.table.entry_count, 2U);
}

TEST(HashTableDelete, TakesOutHeadAndEndOfAChain) {
    number_table numbered(3);
    numbered.add({3, 6, 9});
    EXPECT_EQ(numbered.remove(3), 0);
    EXPECT_EQ(numbered.remove(9), 0);
    EXPECT_EQ(chain_of(numbered.table, 0), ints{6});
}

TEST(HashTableDelete, OfAMissChangesNothing) {
    number_table numbered(3);
    numbered.add({3});
    for (const int key : {0, 6, 1})
        EXPECT_EQ(numbered.remove(key), -1);
    EXPECT_EQ(numbered.table.entry_count, 1U);
    EXPECT_EQ(numbered.released.keys, ints());
}

TEST(HashTableDelete, TakesAKeyThatLiesInTheRecordItself) {
    const hash_table_funcs_t funcs = {hash_number, compare_numbers, nullptr, hash_table_func_free};
    hash_table_t table = {};
    ASSERT_EQ(hash_table_init(&table, 3, &funcs, nullptr), &table);
    int *record = new_number(5);
    EXPECT_EQ(hash_table_add(&table, record, record), 0);
    EXPECT_EQ(hash_table_delete(&table, record), 0);
    EXPECT_EQ(table.entry_count, 0U);
    hash_table_destroy(&table);
}

TEST(HashTableForeachRemove, RemovesWhatThePredicateNamesInBucketOrder) {
    number_table numbered(3);
    numbered.add({1, 2, 3, 4, 5, 6, 7});
    ints asked;
    hash_table_foreach_remove(&numbered.table, is_even, &asked);
    EXPECT_EQ(asked, (ints{3, 6, 1, 4, 7, 2, 5}));
    EXPECT_EQ(numbered.released.keys, (ints{6, 4, 2}));
    EXPECT_EQ(numbered.released.values, (ints{60, 40, 20}));
    EXPECT_EQ(walk(numbered.table), (ints{3, 1, 7, 5}));
    EXPECT_EQ(numbered.table.entry_count, 4U);
}

TEST(HashTableForeachRemove, RemovesNeighboursInOneChain) {
    number_table numbered(1);
    numbered.add({2, 4, 5, 6});
    ints asked;
    hash_table_foreach_remove(&numbered.table, is_even, &asked);
    EXPECT_EQ(asked, (ints{2, 4, 5, 6}));
    EXPECT_EQ(walk(numbered.table), ints{5});
}

TEST(HashTableDestroy, ReleasesEveryEntryAndTheBuckets) {
    number_table numbered(3);
    numbered.add({1, 2, 3, 4});
    EXPECT_EQ(hash_table_destroy(&numbered.table), 0);
    EXPECT_EQ(numbered.released.keys, (ints{3, 1, 4, 2}));
    EXPECT_EQ(numbered.released.values, (ints{30, 10, 40, 20}));
    EXPECT_EQ(numbered.table.entries, nullptr);
    EXPECT_EQ(numbered.table.entry_count, 0U);
    EXPECT_EQ(numbered.table.table_size, 0U);
}

TEST(HashTableDestroy, IsHarmlessTheSecondTime) {
    number_table numbered(3);
    numbered.add({1});
    EXPECT_EQ(hash_table_destroy(&numbered.table), 0);
    EXPECT_EQ(hash_table_destroy(&numbered.table), 0);
    EXPECT_EQ(numbered.released.keys, ints{1});
}

TEST(HashTableDestroy, WithoutFreeFunctionsReleasesNothing) {
    const hash_table_funcs_t funcs = {hash_number, compare_numbers, nullptr, nullptr};
    hash_table_t table = {};
    ASSERT_EQ(hash_table_init(&table, 3, &funcs, nullptr), &table);
    int key = 1;
    int value = 10;
    EXPECT_EQ(hash_table_add(&table, &key, &value), 0);
    EXPECT_EQ(hash_table_destroy(&table), 0);
    EXPECT_EQ(value, 10);
}

/// A table that was never initialised, and none at all.
class HashTableWithoutBuckets : public testing::TestWithParam<bool> {
protected:
    hash_table_t zero_ = {};
    hash_table_t *table_ = GetParam() ? &zero_ : nullptr;
    int key_ = 1;
};

TEST_P(HashTableWithoutBuckets, HoldsNothingAndTakesNothing) {
    int value = 10;
    EXPECT_EQ(hash_table_add(table_, &key_, &value), -1);
    EXPECT_EQ(hash_table_lookup(table_, &key_), nullptr);
    EXPECT_EQ(hash_table_delete(table_, &key_), -1);
    ints asked;
    hash_table_foreach_remove(table_, is_even, &asked);
    EXPECT_EQ(asked, ints());
    EXPECT_EQ(hash_table_destroy(table_), 0);
}

TEST_P(HashTableWithoutBuckets, EndsAWalkAtOnce) {
    hash_table_iter_t iterator;
    hash_table_iter_init(table_, &iterator);
    EXPECT_EQ(hash_table_iter_next(&iterator), 0);
    EXPECT_EQ(iterator.entry, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Tables, HashTableWithoutBuckets, testing::Bool(),
                         [](const auto &tested) { return std::string(tested.param ? "AllZero" : "Null"); });

TEST(HashTableIterInit, StandsBeforeTheFirstEntry) {
    number_table numbered(3);
    numbered.add({1, 2});
    hash_table_iter_t iterator;
    std::memset(&iterator, 0xaa, sizeof iterator);
    hash_table_iter_init(&numbered.table, &iterator);
    EXPECT_EQ(iterator.hash_table, &numbered.table);
    EXPECT_EQ(iterator.entries_remaining, 2U);
    EXPECT_EQ(iterator.entry, nullptr);
    EXPECT_EQ(iterator.next_pos, 0U);
}

TEST(HashTableIterNext, VisitsBucketsInOrderAndEachChainFromItsHead) {
    number_table numbered(4);
    numbered.add({9, 1, 7, 3, 5});
    EXPECT_EQ(walk(numbered.table), (ints{1, 5, 9, 3, 7}));
}

TEST(HashTableIterNext, ReturnsZeroAgainAndAgainAtTheEnd) {
    number_table numbered(3);
    numbered.add({1});
    hash_table_iter_t iterator;
    hash_table_iter_init(&numbered.table, &iterator);
    EXPECT_EQ(hash_table_iter_next(&iterator), 1);
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(hash_table_iter_next(&iterator), 0);
        EXPECT_EQ(iterator.entry, nullptr);
    }
}

TEST(HashTableIterNext, NotesTheBucketToScanNext) {
    number_table numbered(5);
    numbered.add({1, 3});
    hash_table_iter_t iterator;
    hash_table_iter_init(&numbered.table, &iterator);
    EXPECT_EQ(hash_table_iter_next(&iterator), 1);
    EXPECT_EQ(iterator.entries_remaining, 1U);
    EXPECT_EQ(iterator.next_pos, 2U);
    EXPECT_EQ(hash_table_iter_next(&iterator), 1);
    EXPECT_EQ(iterator.entries_remaining, 0U);
    EXPECT_EQ(iterator.next_pos, 5U);
}

TEST(HashTableIterNext, EndsWhenFewerEntriesAreLeftThanItExpects) {
    number_table numbered(5);
    numbered.add({1, 3});
    hash_table_iter_t iterator;
    hash_table_iter_init(&numbered.table, &iterator);
    EXPECT_EQ(hash_table_iter_next(&iterator), 1);
    EXPECT_EQ(numbered.remove(3), 0);
    EXPECT_EQ(hash_table_iter_next(&iterator), 0);
    EXPECT_EQ(iterator.entry, nullptr);
    EXPECT_EQ(iterator.entries_remaining, 0U);
}

TEST(HashTableFuncHash, IsDjb2) {
    EXPECT_EQ(hash_table_func_hash("", nullptr), 5381UL);
    EXPECT_EQ(hash_table_func_hash("a", reinterpret_cast<void *>(uintptr_t{1})), 177670UL);
    EXPECT_EQ(hash_table_func_hash("abc", reinterpret_cast<void *>(uintptr_t{3})), 193485963UL);
}

TEST(HashTableFuncHash, WrapsAt32BitsAndTakesBytesUnsigned) {
    const mac key = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    EXPECT_EQ(hash_table_func_hash(key.data(), MAC_LENGTH), 1833507039UL);
}

TEST(HashTableFuncCompare, OrdersByTheGivenLength) {
    void *const two = reinterpret_cast<void *>(uintptr_t{2});
    EXPECT_EQ(hash_table_func_compare("abc", "abd", two), 0);
    EXPECT_LT(hash_table_func_compare("ab", "ac", two), 0);
    EXPECT_GT(hash_table_func_compare("\xff"
                                      "b",
                                      "ab", two),
              0);
}

TEST(HashTableFuncFree, TakesNull) {
    hash_table_func_free(nullptr, nullptr);
}

TEST(HtHashPos, IsTheRemainder) {
    EXPECT_EQ(ht_hash_pos(100, 43), 14U);
    EXPECT_EQ(ht_hash_pos(0xffffffffUL, 43), 0xffffffffUL % 43);
}

TEST(HashTableDefaultFuncs, AreTheFourFunctionsForBinaryKeys) {
    EXPECT_EQ(hash_table_default_funcs.hash_function, hash_table_func_hash);
    EXPECT_EQ(hash_table_default_funcs.compare_keys, hash_table_func_compare);
    EXPECT_EQ(hash_table_default_funcs.free_key, hash_table_func_free);
    EXPECT_EQ(hash_table_default_funcs.free_value, hash_table_func_free);
}

TEST(HashTableDefaultFuncs, AddingTheSameMacTwiceKeepsOneEntry) {
    hash_table_t table = {};
    ASSERT_EQ(hash_table_init(&table, 43, &hash_table_default_funcs, MAC_LENGTH), &table);
    mac key = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(hash_table_add(&table, new_copy(key.data(), 6), new_copy("first", 6)), 0);
    EXPECT_EQ(hash_table_add(&table, key.data(), new_copy("second", 7)), 1);
    EXPECT_STREQ(static_cast<char *>(hash_table_lookup(&table, key.data())), "second");
    EXPECT_EQ(table.entry_count, 1U);
    hash_table_destroy(&table);
}

/// The same random operations on a table with the default functions and on a map.
class VreHashTableAgainstMap : public testing::Test {
protected:
    using pairs = std::map<mac, int>;

    void SetUp() override {
        ASSERT_EQ(hash_table_init(&table_, 7, &hash_table_default_funcs, MAC_LENGTH), &table_);
    }
    void TearDown() override {
        hash_table_destroy(&table_);
    }

    int below(unsigned limit) {
        return static_cast<int>(random_() % limit);
    }
    mac random_key() {
        return {0x02, 0, static_cast<uint8_t>(below(5)), 0, 0xff, static_cast<uint8_t>(below(40))};
    }

    void add() {
        const mac key = random_key();
        void *stored = new_copy(key.data(), 6);
        const int value = below(1000);
        const bool known = oracle_.contains(key);
        ASSERT_EQ(hash_table_add(&table_, stored, new_number(value)), known ? 1 : 0);
        oracle_[key] = value;
        if (known)
            std::free(stored);
    }

    void remove() {
        // Any key, or one that is there.
        mac key = random_key();
        if (!oracle_.empty() && below(2) == 0)
            key = std::next(oracle_.begin(), below(static_cast<unsigned>(oracle_.size())))->first;
        ASSERT_EQ(hash_table_delete(&table_, key.data()), oracle_.erase(key) == 1 ? 0 : -1);
    }

    void remove_some() {
        int divisor = 2 + below(5);
        const auto divides = [](const void *, void *value, void *user) {
            return *static_cast<int *>(value) % *static_cast<int *>(user) == 0 ? 1 : 0;
        };
        hash_table_foreach_remove(&table_, divides, &divisor);
        std::erase_if(oracle_, [divisor](const auto &pair) { return pair.second % divisor == 0; });
    }

    /// A walk sees every pair once, and the keys of a bucket in ascending order.
    void check() const {
        pairs seen;
        mac before = {};
        size_t bucket_before = 0;
        hash_table_iter_t iterator;
        hash_table_iter_init(&table_, &iterator);
        while (hash_table_iter_next(&iterator) != 0) {
            mac key;
            std::memcpy(key.data(), iterator.entry->key, key.size());
            const size_t bucket = ht_hash_pos(hash_table_func_hash(key.data(), MAC_LENGTH), table_.table_size);
            ASSERT_GE(bucket, bucket_before);
            ASSERT_TRUE(bucket > bucket_before || before < key);
            ASSERT_TRUE(seen.emplace(key, *static_cast<int *>(iterator.entry->value)).second);
            before = key;
            bucket_before = bucket;
        }
        ASSERT_EQ(seen, oracle_);
        ASSERT_EQ(table_.entry_count, oracle_.size());
    }

    void check_lookup() {
        const mac key = random_key();
        const auto found = oracle_.find(key);
        const auto *value = static_cast<const int *>(hash_table_lookup(&table_, key.data()));
        ASSERT_EQ(value != nullptr, found != oracle_.end());
        if (value != nullptr) {
            ASSERT_EQ(*value, found->second);
        }
    }

    std::mt19937 random_{6174};
    hash_table_t table_ = {};
    pairs oracle_;
};

TEST_F(VreHashTableAgainstMap, HoldsTheSamePairsAfterEveryOperation) {
    for (int step = 0; step < 1500; step++) {
        const int dice = below(100);
        if (dice == 0)
            remove_some();
        else if (dice < 60)
            add();
        else
            remove();
        check();
        check_lookup();
        if (HasFatalFailure())
            return;
    }
}

}  // namespace
