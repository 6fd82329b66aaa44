#include "lists.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "debug_log.h"
#include "fault.h"
#include "log_capture.h"

namespace {

using lines = std::vector<std::string>;
using ints = std::vector<int>;

int number(const void *value) {
    return *static_cast<const int *>(value);
}

int *new_number(int n) {
    auto *value = static_cast<int *>(std::malloc(sizeof(int)));
    *value = n;
    return value;
}

int compare_numbers(const void *value, const void *key) {
    return number(value) - number(key);
}

int compare_nodes(const void *node, const void *other) {
    return compare_numbers(static_cast<const list_t *>(node)->value, static_cast<const list_t *>(other)->value);
}

/// A list of heap numbers that frees what is left in it.
struct number_list {
    list_t *head = nullptr;

    number_list() = default;
    explicit number_list(const ints &numbers) {
        for (const int n : numbers)
            EXPECT_NE(list_insert_tail(&head, new_number(n)), nullptr);
    }
    ~number_list() {
        list_free(&head);
    }
    number_list(const number_list &) = delete;
    number_list &operator=(const number_list &) = delete;
};

ints numbers_of(const list_t *node) {
    ints found;
    for (; node != nullptr; node = node->next)
        found.push_back(number(node->value));
    return found;
}

int insert_sorted(int order, number_list &list, int n) {
    return list_insert_sorted_order(order, &list.head, compare_numbers, new_number(n));
}

/// Memory is short while this lives; the test fails when nobody asked for any.
struct no_memory {
    no_memory() {
        fail_every_call("malloc", ENOMEM);
        fail_every_call("calloc", ENOMEM);
    }
    ~no_memory() {
        EXPECT_GT(faults_fired("malloc") + faults_fired("calloc"), 0);
        clear_faults();
    }
};

/// Expects that `action`, which must be repeatable, logs `line` at `level` and nothing below.
void expect_logged(int level, const std::string &line, const std::function<void()> &action) {
    log_capture log;
    debug = level - 1;
    action();
    EXPECT_EQ(log.lines(), lines());
    debug = level;
    action();
    EXPECT_EQ(log.lines(), lines{line});
}

std::string null_pointers_line(const char *function, const void *list, list_compare_t compare, const void *key) {
    char line[160];
    std::snprintf(line, sizeof line, "%s: Null pointers passed %p %p %p", function, list,
                  reinterpret_cast<void *>(compare), key);
    return line;
}

int released_count;
int updates;
int *updated;
int *update_source;

void count_and_free(void *value) {
    released_count++;
    std::free(value);
}

void count_update(void *stored, void *value) {
    updates++;
    updated = static_cast<int *>(stored);
    update_source = static_cast<int *>(value);
}

void some_cleanup(void *) {}

TEST(ListNewNode, HoldsTheValueAndNothingElse) {
    int value = 5;
    list_t *node = list_new_node(&value);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->value, &value);
    EXPECT_EQ(node->cleanup_value, nullptr);
    EXPECT_EQ(node->next, nullptr);
    std::free(node);
}

TEST(ListNewNode, ReturnsNullWithoutMemory) {
    const no_memory fault;
    EXPECT_EQ(list_new_node(nullptr), nullptr);
}

TEST(ListInsertHead, MakesTheNewNodeTheHead) {
    number_list list({2, 3});
    list_t *node = list_insert_head(&list.head, new_number(1));
    EXPECT_EQ(list.head, node);
    EXPECT_EQ(node->cleanup_value, nullptr);
    EXPECT_EQ(numbers_of(list.head), (ints{1, 2, 3}));
}

TEST(ListInsertHead, LeavesTheListAloneWithoutMemory) {
    number_list list({1});
    int value = 2;
    const no_memory fault;
    EXPECT_EQ(list_insert_head(&list.head, &value), nullptr);
    EXPECT_EQ(numbers_of(list.head), ints{1});
}

TEST(ListInsertHead, ReturnsNullForANullHeadAddress) {
    int value = 1;
    EXPECT_EQ(list_insert_head(nullptr, &value), nullptr);
}

TEST(ListInsertTail, GivesAnEmptyListItsHead) {
    number_list list;
    list_t *node = list_insert_tail(&list.head, new_number(1));
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(list.head, node);
}

TEST(ListInsertTail, AppendsAtTheEnd) {
    number_list list({1, 2});
    list_t *node = list_insert_tail(&list.head, new_number(3));
    EXPECT_EQ(list.head->next->next, node);
    EXPECT_EQ(node->cleanup_value, nullptr);
    EXPECT_EQ(numbers_of(list.head), (ints{1, 2, 3}));
}

TEST(ListInsertTail, LeavesTheListAloneWithoutMemory) {
    number_list list({1});
    int value = 2;
    const no_memory fault;
    EXPECT_EQ(list_insert_tail(&list.head, &value), nullptr);
    EXPECT_EQ(numbers_of(list.head), ints{1});
}

TEST(ListInsertTail, ReturnsNullForANullHeadAddress) {
    int value = 1;
    EXPECT_EQ(list_insert_tail(nullptr, &value), nullptr);
}

TEST(ListLength, CountsTheNodesFromTheGivenOneOn) {
    const number_list list({1, 2, 3});
    EXPECT_EQ(list_length(list.head), 3);
    EXPECT_EQ(list_length(list.head->next), 2);
}

TEST(ListLength, OfNullIs0) {
    EXPECT_EQ(list_length(nullptr), 0);
}

TEST(ListDeleteNode, UnlinksTheNodeButNotItsValue) {
    number_list list({1, 2, 3});
    void *value = list.head->next->value;
    EXPECT_EQ(list_delete_node(&list.head, list.head->next), 0);
    EXPECT_EQ(numbers_of(list.head), (ints{1, 3}));
    EXPECT_EQ(number(value), 2);
    std::free(value);
}

TEST(ListDeleteNode, OfTheHeadMakesItsSuccessorTheHead) {
    number_list list({1, 2});
    void *value = list.head->value;
    EXPECT_EQ(list_delete_node(&list.head, list.head), 0);
    EXPECT_EQ(numbers_of(list.head), ints{2});
    std::free(value);
}

TEST(ListDeleteNode, RefusesANodeOfNoList) {
    number_list list({1, 2});
    list_t stranger = {nullptr, list.head->value, nullptr};
    expect_logged(3, "list_delete_node: Delete Error", [&] { EXPECT_EQ(list_delete_node(&list.head, &stranger), -1); });
    EXPECT_EQ(numbers_of(list.head), (ints{1, 2}));
}

TEST(ListDeleteNode, RefusesANullNode) {
    number_list list({1});
    expect_logged(3, "list_delete_node: Delete Error", [&] { EXPECT_EQ(list_delete_node(&list.head, nullptr), -1); });
}

TEST(ListDeleteNode, RefusesANullHeadAddress) {
    list_t node = {};
    expect_logged(3, "list_delete_node: Delete Error", [&] { EXPECT_EQ(list_delete_node(nullptr, &node), -1); });
}

TEST(ListDeleteTailNode, FreesTheLastNodeAndItsValue) {
    number_list list({1, 2, 3});
    EXPECT_EQ(list_delete_tail_node(&list.head), 0);
    EXPECT_EQ(numbers_of(list.head), (ints{1, 2}));
}

TEST(ListDeleteTailNode, OfAOneNodeListLeavesANullHead) {
    number_list list({1});
    EXPECT_EQ(list_delete_tail_node(&list.head), 0);
    EXPECT_EQ(list.head, nullptr);
}

TEST(ListDeleteTailNode, RefusesAnEmptyList) {
    list_t *head = nullptr;
    expect_logged(3, "list_delete_tail_node: lists.c: Tail node delete error: List was empty",
                  [&] { EXPECT_EQ(list_delete_tail_node(&head), -1); });
}

TEST(ListDeleteTailNode, RefusesANullHeadAddress) {
    EXPECT_EQ(list_delete_tail_node(nullptr), -1);
}

TEST(ListDeleteVal, UnlinksTheFirstNodeWithThatVeryPointer) {
    int one = 1;
    int same = 1;
    list_t *head = nullptr;
    ASSERT_NE(list_insert_tail(&head, &one), nullptr);
    ASSERT_NE(list_insert_tail(&head, &same), nullptr);
    list_t *last = list_insert_tail(&head, &same);
    EXPECT_EQ(list_delete_val(&head, &same), 0);
    EXPECT_EQ(head->value, &one);
    EXPECT_EQ(head->next, last);
    list_free_without_payload_freeing(&head);
}

TEST(ListDeleteVal, RefusesAPointerThatIsNotThere) {
    number_list list({1});
    const int equal = 1;
    expect_logged(3, "list_delete_val: Value not found", [&] { EXPECT_EQ(list_delete_val(&list.head, &equal), -1); });
    EXPECT_EQ(numbers_of(list.head), ints{1});
}

TEST(ListDeleteVal, RefusesANullHeadAddress) {
    const int value = 1;
    EXPECT_EQ(list_delete_val(nullptr, &value), -1);
}

TEST(ListDeleteValue, FreesTheFirstEqualValueAndItsNode) {
    number_list list({1, 2, 3, 2});
    const int key = 2;
    EXPECT_EQ(list_delete_value(&list.head, compare_numbers, &key), 0);
    EXPECT_EQ(numbers_of(list.head), (ints{1, 3, 2}));
}

TEST(ListDeleteValue, OfTheOnlyValueLeavesANullHead) {
    number_list list({2});
    const int key = 2;
    EXPECT_EQ(list_delete_value(&list.head, compare_numbers, &key), 0);
    EXPECT_EQ(list.head, nullptr);
}

TEST(ListDeleteValue, TellsAMissOnlyAtDebugLevel) {
    number_list list({1});
    const int key = 2;
    expect_logged(7, "list_delete_value: Value not found",
                  [&] { EXPECT_EQ(list_delete_value(&list.head, compare_numbers, &key), -1); });
}

TEST(ListDeleteValue, RefusesANullHeadAddress) {
    const int key = 2;
    expect_logged(3, "list_delete_value: Null head pointer passed",
                  [&] { EXPECT_EQ(list_delete_value(nullptr, compare_numbers, &key), -1); });
}

TEST(ListDeleteMultipleValues, ReleasesEveryEqualValue) {
    number_list list({2, 2, 1, 2, 3, 2});
    const int key = 2;
    released_count = 0;
    EXPECT_EQ(list_delete_multiple_values(&list.head, compare_numbers, &key, count_and_free), 0);
    EXPECT_EQ(numbers_of(list.head), (ints{1, 3}));
    EXPECT_EQ(released_count, 4);
}

TEST(ListDeleteMultipleValues, CanEmptyTheList) {
    number_list list({2, 2});
    const int key = 2;
    EXPECT_EQ(list_delete_multiple_values(&list.head, compare_numbers, &key, std::free), 0);
    EXPECT_EQ(list.head, nullptr);
}

TEST(ListDeleteMultipleValues, WithoutAFreeFunctionFreesTheNodesOnly) {
    int values[] = {2, 2};
    list_t *head = nullptr;
    for (int &value : values)
        ASSERT_NE(list_insert_tail(&head, &value), nullptr);
    EXPECT_EQ(list_delete_multiple_values(&head, compare_numbers, &values[0], nullptr), 0);
    EXPECT_EQ(head, nullptr);
}

TEST(ListDeleteMultipleValues, IsContentWithNothingToRemove) {
    number_list list({1});
    const int key = 2;
    expect_logged(7, "list_delete_multiple_values: Reached end of list",
                  [&] { EXPECT_EQ(list_delete_multiple_values(&list.head, compare_numbers, &key, std::free), 0); });
    EXPECT_EQ(numbers_of(list.head), ints{1});
}

TEST(ListDeleteMultipleValues, ReachesTheEndAlsoWhenTheLastValueIsRemoved) {
    number_list list({1, 2});
    const int key = 2;
    log_capture log;
    EXPECT_EQ(list_delete_multiple_values(&list.head, compare_numbers, &key, std::free), 0);
    EXPECT_EQ(log.lines(), lines{"list_delete_multiple_values: Reached end of list"});
}

TEST(ListDeleteMultipleValues, RefusesANullHeadAddress) {
    const int key = 2;
    expect_logged(3, "list_delete_multiple_values: Null head pointer passed",
                  [&] { EXPECT_EQ(list_delete_multiple_values(nullptr, compare_numbers, &key, std::free), -1); });
}

TEST(ListDeleteMultipleValues, RefusesANullKey) {
    number_list list({1});
    expect_logged(3, "list_delete_multiple_values: Null head pointer passed",
                  [&] { EXPECT_EQ(list_delete_multiple_values(&list.head, compare_numbers, nullptr, std::free), -1); });
}

TEST(ListFree, FreesNodesAndValuesAndToleratesNullValues) {
    number_list list({1, 2});
    ASSERT_NE(list_insert_tail(&list.head, nullptr), nullptr);
    list_free(&list.head);
    EXPECT_EQ(list.head, nullptr);
}

TEST(ListFree, DoesNothingForANullHeadAddress) {
    list_free(nullptr);
}

TEST(ListFreeWithoutPayloadFreeing, FreesNodesOnly) {
    int value = 7;
    list_t *head = nullptr;
    ASSERT_NE(list_insert_tail(&head, &value), nullptr);
    ASSERT_NE(list_insert_tail(&head, &value), nullptr);
    list_free_without_payload_freeing(&head);
    EXPECT_EQ(head, nullptr);
    EXPECT_EQ(value, 7);
}

TEST(ListFreeWithoutPayloadFreeing, DoesNothingForANullHeadAddress) {
    list_free_without_payload_freeing(nullptr);
}

TEST(ListFreeWithFreeFunc, ReleasesEveryValueThatIsNotNull) {
    number_list list({1, 2});
    ASSERT_NE(list_insert_head(&list.head, nullptr), nullptr);
    released_count = 0;
    EXPECT_EQ(list_free_with_free_func(&list.head, count_and_free), &list.head);
    EXPECT_EQ(released_count, 2);
    EXPECT_EQ(list.head, nullptr);
}

TEST(ListFreeWithFreeFunc, ReturnsANullHeadAddressAsItIs) {
    EXPECT_EQ(list_free_with_free_func(nullptr, count_and_free), nullptr);
}

TEST(ListInsertSortedOrder, Order1IsAscending) {
    number_list list;
    for (const int n : {3, 1, 2})
        EXPECT_EQ(insert_sorted(1, list, n), 0);
    EXPECT_EQ(numbers_of(list.head), (ints{1, 2, 3}));
}

TEST(ListInsertSortedOrder, Order2IsDescending) {
    number_list list;
    for (const int n : {3, 1, 2})
        EXPECT_EQ(insert_sorted(2, list, n), 0);
    EXPECT_EQ(numbers_of(list.head), (ints{3, 2, 1}));
}

TEST(ListInsertSortedOrder, PutsAValueBeforeItsEquals) {
    for (const int order : {1, 2}) {
        number_list list({5, 5});
        const list_t *first = list.head;
        EXPECT_EQ(insert_sorted(order, list, 5), 0);
        EXPECT_EQ(list.head->next, first) << "order " << order;
    }
}

TEST(ListInsertSortedOrder, StopsAtTheFirstNodeThatSortsAfterwardsInAnUnsortedList) {
    number_list list({1, 9, 2});
    EXPECT_EQ(insert_sorted(1, list, 3), 0);
    EXPECT_EQ(numbers_of(list.head), (ints{1, 3, 9, 2}));
}

TEST(ListInsertSortedOrder, ClearsCleanupValue) {
    number_list list;
    EXPECT_EQ(insert_sorted(1, list, 3), 0);
    EXPECT_EQ(list.head->cleanup_value, nullptr);
}

TEST(ListInsertSortedOrder, RefusesAnyOtherOrder) {
    number_list list({1});
    int value = 2;
    for (const int order : {0, 3, -1})
        expect_logged(3, "list_insert_sorted_order: Invalid sort order[" + std::to_string(order) + "] ",
                      [&] { EXPECT_EQ(list_insert_sorted_order(order, &list.head, compare_numbers, &value), -1); });
    EXPECT_EQ(numbers_of(list.head), ints{1});
}

TEST(ListInsertSortedOrder, RefusesNullPointers) {
    number_list list({1});
    int value = 2;
    const std::string line = "list_insert_sorted_order: Null pointers passed";
    expect_logged(3, line, [&] { EXPECT_EQ(list_insert_sorted_order(1, nullptr, compare_numbers, &value), -1); });
    expect_logged(3, line, [&] { EXPECT_EQ(list_insert_sorted_order(1, &list.head, nullptr, &value), -1); });
    expect_logged(3, line, [&] { EXPECT_EQ(list_insert_sorted_order(1, &list.head, compare_numbers, nullptr), -1); });
    EXPECT_EQ(numbers_of(list.head), ints{1});
}

TEST(ListInsertSortedOrder, Returns0WithoutMemoryAndInsertsNothing) {
    number_list list({1});
    int value = 2;
    const no_memory fault;
    EXPECT_EQ(list_insert_sorted_order(1, &list.head, compare_numbers, &value), 0);
    EXPECT_EQ(numbers_of(list.head), ints{1});
}

TEST(ListInsertWithoutDuplication, GivesAnEmptyListItsHead) {
    number_list list;
    EXPECT_EQ(list_insert_without_duplication(&list.head, compare_numbers, new_number(1), count_update), 0);
    EXPECT_EQ(numbers_of(list.head), ints{1});
}

TEST(ListInsertWithoutDuplication, AppendsANewValueWithoutUpdating) {
    number_list list({3, 1});
    updates = 0;
    EXPECT_EQ(list_insert_without_duplication(&list.head, compare_numbers, new_number(2), count_update), 0);
    EXPECT_EQ(numbers_of(list.head), (ints{3, 1, 2}));
    EXPECT_EQ(updates, 0);
}

TEST(ListInsertWithoutDuplication, UpdatesTheFirstEqualValueOnceAndReturns10) {
    number_list list({1, 2, 2});
    int value = 2;
    updates = 0;
    EXPECT_EQ(list_insert_without_duplication(&list.head, compare_numbers, &value, count_update), 10);
    EXPECT_EQ(updates, 1);
    EXPECT_EQ(updated, list.head->next->value);
    EXPECT_EQ(update_source, &value);
    EXPECT_EQ(list_length(list.head), 3);
}

TEST(ListInsertWithoutDuplication, NeedsNoUpdateFunction) {
    number_list list({1});
    int value = 1;
    EXPECT_EQ(list_insert_without_duplication(&list.head, compare_numbers, &value, nullptr), 10);
    EXPECT_EQ(list_length(list.head), 1);
}

TEST(ListInsertWithoutDuplication, Returns0WithoutMemoryAndInsertsNothing) {
    number_list list({1});
    int value = 2;
    const no_memory fault;
    EXPECT_EQ(list_insert_without_duplication(&list.head, compare_numbers, &value, nullptr), 0);
    EXPECT_EQ(numbers_of(list.head), ints{1});
}

TEST(ListInsertWithoutDuplication, RefusesNullPointers) {
    number_list list({1});
    int value = 2;
    list_t **head = &list.head;
    const auto insert = [&](list_t **at, list_compare_t compare, void *what) {
        expect_logged(3, null_pointers_line("list_insert_without_duplication", at, compare, what),
                      [&] { EXPECT_EQ(list_insert_without_duplication(at, compare, what, nullptr), -1); });
    };
    insert(nullptr, compare_numbers, &value);
    insert(head, nullptr, &value);
    insert(head, compare_numbers, nullptr);
    EXPECT_EQ(numbers_of(list.head), ints{1});
}

TEST(ListSearchElement, Finds12AndMisses11) {
    number_list list({1, 2});
    const int there = 2;
    const int missing = 3;
    EXPECT_EQ(list_search_element(&list.head, compare_numbers, &there), 12);
    EXPECT_EQ(list_search_element(&list.head, compare_numbers, &missing), 11);
}

TEST(ListSearchElement, MissesInAnEmptyListWithoutLogging) {
    list_t *head = nullptr;
    const int key = 1;
    log_capture log;
    EXPECT_EQ(list_search_element(&head, compare_numbers, &key), 11);
    EXPECT_EQ(log.lines(), lines());
}

TEST(ListSearchElement, RefusesNullPointers) {
    number_list list({1});
    const int key = 1;
    const auto search = [](list_t **head, list_compare_t compare, const void *what) {
        expect_logged(3, null_pointers_line("list_search_element", head, compare, what),
                      [&] { EXPECT_EQ(list_search_element(head, compare, what), -1); });
    };
    search(nullptr, compare_numbers, &key);
    search(&list.head, nullptr, &key);
    search(&list.head, compare_numbers, nullptr);
}

TEST(ListGetElement, ReturnsTheFirstEqualNode) {
    const number_list list({1, 2, 2});
    const int key = 2;
    EXPECT_EQ(list_get_element(list.head, compare_numbers, &key), list.head->next);
}

TEST(ListGetElement, ReturnsNullForAMissWithoutLogging) {
    const number_list list({1});
    const int key = 2;
    log_capture log;
    EXPECT_EQ(list_get_element(list.head, compare_numbers, &key), nullptr);
    EXPECT_EQ(log.lines(), lines());
}

TEST(ListGetElement, RefusesNullPointersAndSoAnEmptyList) {
    const number_list list({1});
    const int key = 1;
    const auto get = [](list_t *first, list_compare_t compare, const void *what) {
        expect_logged(3, null_pointers_line("list_get_element", first, compare, what),
                      [&] { EXPECT_EQ(list_get_element(first, compare, what), nullptr); });
    };
    get(nullptr, compare_numbers, &key);
    get(list.head, nullptr, &key);
    get(list.head, compare_numbers, nullptr);
}

TEST(ListGetTailNode, ReturnsTheLastNode) {
    number_list list({1, 2, 3});
    EXPECT_EQ(list_get_tail_node(&list.head), list.head->next->next);
}

TEST(ListGetTailNode, RefusesAnEmptyList) {
    list_t *head = nullptr;
    expect_logged(3, "list_get_tail_node: lists.c: Tail node get error: List was empty",
                  [&] { EXPECT_EQ(list_get_tail_node(&head), nullptr); });
}

TEST(ListGetTailNode, RefusesANullHeadAddress) {
    EXPECT_EQ(list_get_tail_node(nullptr), nullptr);
}

TEST(ListReverse, TurnsTheNodesAround) {
    number_list list({1, 2, 3});
    list_t *first = list.head;
    EXPECT_EQ(list_reverse(&list.head), list.head);
    EXPECT_EQ(numbers_of(list.head), (ints{3, 2, 1}));
    EXPECT_EQ(list.head->next->next, first);
}

TEST(ListReverse, OfAnEmptyListIsNull) {
    list_t *head = nullptr;
    EXPECT_EQ(list_reverse(&head), nullptr);
    EXPECT_EQ(list_reverse(nullptr), nullptr);
}

TEST(ListQsort, KeepsTheNodesAndMovesTheValues) {
    const number_list list({3, 1, 2});
    list_t *const nodes[] = {list.head, list.head->next, list.head->next->next};
    list_qsort(list.head, compare_nodes);
    EXPECT_EQ(numbers_of(list.head), (ints{1, 2, 3}));
    EXPECT_EQ(list.head, nodes[0]);
    EXPECT_EQ(nodes[0]->next, nodes[1]);
    EXPECT_EQ(nodes[1]->next, nodes[2]);
    EXPECT_EQ(nodes[2]->next, nullptr);
}

TEST(ListQsort, MovesCleanupValueWithItsValue) {
    const number_list list({2, 1});
    list.head->cleanup_value = some_cleanup;
    list_qsort(list.head, compare_nodes);
    EXPECT_EQ(list.head->cleanup_value, nullptr);
    EXPECT_EQ(list.head->next->cleanup_value, some_cleanup);
}

TEST(ListQsort, LeavesAnEmptyListAlone) {
    log_capture log;
    list_qsort(nullptr, compare_nodes);
    EXPECT_EQ(log.lines(), lines());
}

TEST(ListQsort, LeavesTheListAsItIsWithoutMemory) {
    const number_list list({2, 1});
    const no_memory fault;
    expect_logged(3, "list_qsort: list_qsort: malloc failed !", [&] { list_qsort(list.head, compare_nodes); });
    EXPECT_EQ(numbers_of(list.head), (ints{2, 1}));
}

/// The same random operations on a list and on a vector of the same pointers.
class ListAgainstVector : public testing::Test {
protected:
    using pointers = std::vector<int *>;

    int below(unsigned limit) {
        return static_cast<int>(random_() % limit);
    }

    pointers::iterator equal_to(int n) {
        return std::find_if(oracle_.begin(), oracle_.end(), [n](const int *value) { return *value == n; });
    }

    void insert() {
        int *value = new_number(below(40));
        switch (below(3)) {
        case 0:
            EXPECT_EQ(list_insert_head(&list_.head, value), list_.head);
            oracle_.insert(oracle_.begin(), value);
            break;
        case 1:
            EXPECT_NE(list_insert_tail(&list_.head, value), nullptr);
            oracle_.push_back(value);
            break;
        default:
            const bool known = equal_to(*value) != oracle_.end();
            EXPECT_EQ(list_insert_without_duplication(&list_.head, compare_numbers, value, nullptr), known ? 10 : 0);
            if (known)
                std::free(value);
            else
                oracle_.push_back(value);
        }
    }

    void insert_sorted_value() {
        int *value = new_number(below(40));
        const bool ascending = below(2) == 0;
        EXPECT_EQ(list_insert_sorted_order(ascending ? 1 : 2, &list_.head, compare_numbers, value), 0);
        const auto stop = std::find_if(oracle_.begin(), oracle_.end(),
                                       [&](const int *n) { return ascending ? *n >= *value : *n <= *value; });
        oracle_.insert(stop, value);
    }

    void remove_equal() {
        const int key = below(40);
        const auto found = equal_to(key);
        EXPECT_EQ(list_delete_value(&list_.head, compare_numbers, &key), found != oracle_.end() ? 0 : -1);
        if (found != oracle_.end())
            oracle_.erase(found);
    }

    void remove_all_equal() {
        const int key = below(40);
        std::erase_if(oracle_, [key](const int *value) { return *value == key; });
        EXPECT_EQ(list_delete_multiple_values(&list_.head, compare_numbers, &key, std::free), 0);
    }

    void remove_one() {
        if (oracle_.empty())
            return;
        const auto victim = oracle_.begin() + below(static_cast<unsigned>(oracle_.size()));
        int *value = *victim;
        EXPECT_EQ(list_delete_val(&list_.head, value), 0);
        oracle_.erase(victim);
        std::free(value);
    }

    void rearrange() {
        if (below(2) == 0) {
            EXPECT_EQ(list_reverse(&list_.head), list_.head);
            std::reverse(oracle_.begin(), oracle_.end());
            return;
        }
        list_qsort(list_.head, compare_nodes);
        oracle_ = held();  // the order of equal values is open
        EXPECT_TRUE(std::is_sorted(oracle_.begin(), oracle_.end(), [](int *a, int *b) { return *a < *b; }));
    }

    pointers held() const {
        pointers values;
        for (const list_t *node = list_.head; node != nullptr; node = node->next)
            values.push_back(static_cast<int *>(node->value));
        return values;
    }

    std::mt19937 random_{20240229};
    number_list list_;
    pointers oracle_;
};

TEST_F(ListAgainstVector, HoldsTheSameValuesAfterEveryOperation) {
    debug = 2;
    for (int step = 0; step < 4000; step++) {
        switch (below(8)) {
        case 0:
            remove_equal();
            break;
        case 1:
            remove_one();
            break;
        case 2:
            if (below(20) == 0)
                rearrange();
            break;
        case 3:
            remove_all_equal();
            break;
        case 4:
            insert_sorted_value();
            break;
        default:
            insert();
        }
        ASSERT_EQ(held(), oracle_) << "step " << step;
        const int key = below(40);
        const bool there = equal_to(key) != oracle_.end();
        ASSERT_EQ(list_search_element(&list_.head, compare_numbers, &key), there ? 12 : 11);
    }
    EXPECT_EQ(list_length(list_.head), static_cast<int>(oracle_.size()));
}

}  // namespace
