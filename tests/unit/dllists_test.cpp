#include "dllists.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <deque>
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

int compare_numbers(const void *value, const void *new_value) {
    return number(value) - number(new_value);
}

/// A queue of heap numbers that frees what is left in it.
struct number_queue {
    dllist_ctrl_t ctrl = {};

    explicit number_queue(const ints &numbers = {}) {
        for (const int n : numbers)
            EXPECT_NE(dllist_insert_tail_new(&ctrl, new_number(n)), nullptr);
    }
    ~number_queue() {
        dllist_free(&ctrl);
    }
    number_queue(const number_queue &) = delete;
    number_queue &operator=(const number_queue &) = delete;
};

/// The numbers from head to tail, after a check that links and count agree.
ints numbers_of(const dllist_ctrl_t &ctrl) {
    ints found;
    const dllist_t *before = nullptr;
    for (const dllist_t *node = ctrl.head; node != nullptr; node = node->next) {
        EXPECT_EQ(node->prev, before);
        found.push_back(number(node->value));
        before = node;
    }
    EXPECT_EQ(ctrl.tail, before);
    EXPECT_EQ(ctrl.num_entries, static_cast<int>(found.size()));
    return found;
}

dllist_t *insert_sorted(int order, number_queue &queue, int n) {
    return dllist_insert_sorted_order(order, &queue.ctrl, compare_numbers, new_number(n));
}

void release(dllist_t *node) {
    std::free(node->value);
    std::free(node);
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

/// The lines of a refused sorted insertion at a debug level.
lines refusal(int level, int order, dllist_ctrl_t *ctrl, int (*compare)(const void *, const void *), void *value) {
    log_capture log;
    debug = level;
    EXPECT_EQ(dllist_insert_sorted_order(order, ctrl, compare, value), nullptr);
    return log.lines();
}

TEST(DllistInit, ClearsHeadTailAndCount) {
    dllist_t node = {};
    dllist_ctrl_t ctrl = {&node, &node, 1};
    dllist_init(&ctrl);
    EXPECT_EQ(ctrl.head, nullptr);
    EXPECT_EQ(ctrl.tail, nullptr);
    EXPECT_EQ(ctrl.num_entries, 0);
}

TEST(DllistNewNode, IsUnlinked) {
    int value = 1;
    dllist_t *node = dllist_new_node(&value);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->value, &value);
    EXPECT_EQ(node->next, nullptr);
    EXPECT_EQ(node->prev, nullptr);
    std::free(node);
}

TEST(DllistNewNode, ReturnsNullWithoutMemory) {
    const no_memory fault;
    EXPECT_EQ(dllist_new_node(nullptr), nullptr);
}

TEST(DllistInsertTail, LinksTheNodeAsTheLastAndReturnsIt) {
    number_queue queue({1, 2});
    dllist_t *node = dllist_new_node(new_number(3));
    EXPECT_EQ(dllist_insert_tail(&queue.ctrl, node), node);
    EXPECT_EQ(queue.ctrl.tail, node);
    EXPECT_EQ(numbers_of(queue.ctrl), (ints{1, 2, 3}));
}

TEST(DllistInsertTail, OfANullNodeChangesNothing) {
    number_queue queue({1});
    EXPECT_EQ(dllist_insert_tail(&queue.ctrl, nullptr), nullptr);
    EXPECT_EQ(numbers_of(queue.ctrl), ints{1});
}

TEST(DllistInsertTail, OverwritesTheLinksANodeCarries) {
    number_queue queue({1});
    dllist_t *node = dllist_new_node(new_number(2));
    dllist_t elsewhere = {};
    node->next = &elsewhere;
    node->prev = &elsewhere;
    dllist_insert_tail(&queue.ctrl, node);
    EXPECT_EQ(numbers_of(queue.ctrl), (ints{1, 2}));
}

TEST(DllistInsertTailNew, ReturnsTheNewTail) {
    number_queue queue;
    dllist_t *node = dllist_insert_tail_new(&queue.ctrl, new_number(1));
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(queue.ctrl.head, node);
    EXPECT_EQ(queue.ctrl.tail, node);
    EXPECT_EQ(numbers_of(queue.ctrl), ints{1});
}

TEST(DllistInsertTailNew, LeavesTheQueueAloneWithoutMemory) {
    number_queue queue({1});
    int value = 2;
    const no_memory fault;
    EXPECT_EQ(dllist_insert_tail_new(&queue.ctrl, &value), nullptr);
    EXPECT_EQ(numbers_of(queue.ctrl), ints{1});
}

TEST(DllistInsertTailRecycle, PutsADelinkedHeadAtTheTail) {
    number_queue queue({1, 2, 3});
    dllist_t *node = dllist_delink_head(&queue.ctrl);
    EXPECT_EQ(dllist_insert_tail_recycle(&queue.ctrl, node), node);
    EXPECT_EQ(numbers_of(queue.ctrl), (ints{2, 3, 1}));
}

TEST(DllistInsertTailRecycle, PutsADelinkedMiddleNodeAtTheTail) {
    number_queue queue({1, 2, 3});
    dllist_t *node = queue.ctrl.head->next;
    dllist_delink_node(&queue.ctrl, node);
    dllist_insert_tail_recycle(&queue.ctrl, node);
    EXPECT_EQ(numbers_of(queue.ctrl), (ints{1, 3, 2}));
}

TEST(DllistInsertTailRecycle, RefillsAQueueThatBecameEmpty) {
    number_queue queue({1});
    dllist_insert_tail_recycle(&queue.ctrl, dllist_delink_head(&queue.ctrl));
    EXPECT_EQ(numbers_of(queue.ctrl), ints{1});
}

TEST(DllistDelinkHead, TakesTheValuesInTheOrderTheyCame) {
    number_queue queue({1, 2, 3});
    for (const int expected : {1, 2, 3}) {
        dllist_t *node = dllist_delink_head(&queue.ctrl);
        ASSERT_NE(node, nullptr);
        EXPECT_EQ(number(node->value), expected);
        release(node);
        (void)numbers_of(queue.ctrl);
    }
    EXPECT_EQ(queue.ctrl.head, nullptr);
    EXPECT_EQ(queue.ctrl.tail, nullptr);
    EXPECT_EQ(queue.ctrl.num_entries, 0);
}

TEST(DllistDelinkHead, OfAnEmptyQueueIsNull) {
    dllist_ctrl_t ctrl = {};
    EXPECT_EQ(dllist_delink_head(&ctrl), nullptr);
    EXPECT_EQ(ctrl.num_entries, 0);
}

TEST(DllistDelinkNode, TakesOutTheHead) {
    number_queue queue({1, 2, 3});
    dllist_t *node = queue.ctrl.head;
    dllist_delink_node(&queue.ctrl, node);
    EXPECT_EQ(numbers_of(queue.ctrl), (ints{2, 3}));
    release(node);
}

TEST(DllistDelinkNode, TakesOutTheTail) {
    number_queue queue({1, 2, 3});
    dllist_t *node = queue.ctrl.tail;
    dllist_delink_node(&queue.ctrl, node);
    EXPECT_EQ(numbers_of(queue.ctrl), (ints{1, 2}));
    release(node);
}

TEST(DllistDelinkNode, JoinsTheNeighboursOfAMiddleNode) {
    number_queue queue({1, 2, 3});
    dllist_t *node = queue.ctrl.head->next;
    dllist_delink_node(&queue.ctrl, node);
    EXPECT_EQ(numbers_of(queue.ctrl), (ints{1, 3}));
    EXPECT_EQ(number(node->value), 2);
    release(node);
}

TEST(DllistDelinkNode, OfTheOnlyNodeLeavesAnEmptyQueue) {
    number_queue queue({1});
    dllist_t *node = queue.ctrl.head;
    dllist_delink_node(&queue.ctrl, node);
    EXPECT_EQ(queue.ctrl.head, nullptr);
    EXPECT_EQ(queue.ctrl.tail, nullptr);
    EXPECT_EQ(queue.ctrl.num_entries, 0);
    release(node);
}

TEST(DllistDelinkNode, ClearsTheLinksOfTheNode) {
    number_queue queue({1, 2, 3});
    dllist_t *middle = queue.ctrl.head->next;
    dllist_delink_node(&queue.ctrl, middle);
    dllist_t *head = dllist_delink_head(&queue.ctrl);
    for (dllist_t *node : {middle, head}) {
        EXPECT_EQ(node->next, nullptr);
        EXPECT_EQ(node->prev, nullptr);
        release(node);
    }
}

TEST(DllistDelinkNode, DoesNothingToAnEmptyQueue) {
    dllist_ctrl_t ctrl = {};
    dllist_t stranger = {};
    dllist_delink_node(&ctrl, &stranger);
    EXPECT_EQ(ctrl.head, nullptr);
    EXPECT_EQ(ctrl.tail, nullptr);
    EXPECT_EQ(ctrl.num_entries, 0);
}

TEST(DllistDelinkNode, IgnoresANullNode) {
    number_queue queue({1});
    dllist_delink_node(&queue.ctrl, nullptr);
    EXPECT_EQ(numbers_of(queue.ctrl), ints{1});
}

TEST(DllistFree, EmptiesTheQueueAndToleratesNullValues) {
    number_queue queue({1, 2});
    ASSERT_NE(dllist_insert_tail_new(&queue.ctrl, nullptr), nullptr);
    dllist_free(&queue.ctrl);
    EXPECT_EQ(queue.ctrl.head, nullptr);
    EXPECT_EQ(queue.ctrl.tail, nullptr);
    EXPECT_EQ(queue.ctrl.num_entries, 0);
}

TEST(DllistInsertSortedOrder, Order1IsAscending) {
    number_queue queue;
    for (const int n : {3, 1, 2, 4})
        EXPECT_EQ(number(insert_sorted(1, queue, n)->value), n);
    EXPECT_EQ(numbers_of(queue.ctrl), (ints{1, 2, 3, 4}));
}

TEST(DllistInsertSortedOrder, Order2IsDescending) {
    number_queue queue;
    for (const int n : {3, 1, 2, 4})
        EXPECT_EQ(number(insert_sorted(2, queue, n)->value), n);
    EXPECT_EQ(numbers_of(queue.ctrl), (ints{4, 3, 2, 1}));
}

TEST(DllistInsertSortedOrder, PutsAValueBeforeItsEquals) {
    for (const int order : {1, 2}) {
        number_queue queue({5, 5});
        const dllist_t *node = insert_sorted(order, queue, 5);
        EXPECT_EQ(queue.ctrl.head, node) << "order " << order;
        EXPECT_EQ(numbers_of(queue.ctrl), (ints{5, 5, 5}));
    }
}

TEST(DllistInsertSortedOrder, RefusesAnyOtherOrder) {
    number_queue queue({1});
    int value = 2;
    for (const int order : {0, 3, -1}) {
        const std::string line = "dllist_insert_sorted_order: Invalid sort order[" + std::to_string(order) + "] ";
        EXPECT_EQ(refusal(3, order, &queue.ctrl, compare_numbers, &value), lines{line});
        EXPECT_EQ(refusal(2, order, &queue.ctrl, compare_numbers, &value), lines());
    }
    EXPECT_EQ(numbers_of(queue.ctrl), ints{1});
}

TEST(DllistInsertSortedOrder, RefusesNullPointers) {
    number_queue queue({1});
    int value = 2;
    const lines expected = {"dllist_insert_sorted_order: Null pointers passed"};
    EXPECT_EQ(refusal(3, 1, nullptr, compare_numbers, &value), expected);
    EXPECT_EQ(refusal(3, 1, &queue.ctrl, nullptr, &value), expected);
    EXPECT_EQ(refusal(3, 1, &queue.ctrl, compare_numbers, nullptr), expected);
    EXPECT_EQ(refusal(2, 1, &queue.ctrl, compare_numbers, nullptr), lines());
    EXPECT_EQ(numbers_of(queue.ctrl), ints{1});
}

TEST(DllistInsertSortedOrder, LeavesAFilledListAloneWithoutMemory) {
    number_queue queue({1});
    int value = 2;
    const no_memory fault;
    EXPECT_EQ(dllist_insert_sorted_order(1, &queue.ctrl, compare_numbers, &value), nullptr);
    EXPECT_EQ(numbers_of(queue.ctrl), ints{1});
}

TEST(DllistInsertSortedOrder, LeavesAnEmptyListAloneWithoutMemory) {
    number_queue queue;
    int value = 2;
    const no_memory fault;
    EXPECT_EQ(dllist_insert_sorted_order(1, &queue.ctrl, compare_numbers, &value), nullptr);
    EXPECT_EQ(numbers_of(queue.ctrl), ints());
}

TEST(DllistNumEntries, CountsTheLinkedNodes) {
    const number_queue queue({1, 2});
    EXPECT_EQ(dllist_num_entries(&queue.ctrl), 2);
}

TEST(DllistNumEntries, OfNullIs0) {
    EXPECT_EQ(dllist_num_entries(nullptr), 0);
}

/// The same random operations on a queue and on a deque of its nodes.
class DllistAgainstDeque : public testing::Test {
protected:
    int below(unsigned limit) {
        return static_cast<int>(random_() % limit);
    }

    void insert() {
        int *value = new_number(below(30));
        const int order = below(3);
        if (order == 0) {
            oracle_.push_back(dllist_insert_tail_new(&queue_.ctrl, value));
            return;
        }
        const auto stop = std::find_if(oracle_.begin(), oracle_.end(), [&](const dllist_t *node) {
            return order == 1 ? number(node->value) >= *value : number(node->value) <= *value;
        });
        oracle_.insert(stop, dllist_insert_sorted_order(order, &queue_.ctrl, compare_numbers, value));
    }

    /// Takes out the head or any node, and frees it or queues it again.
    void remove() {
        if (oracle_.empty())
            return;
        const auto victim = oracle_.begin() + (below(2) == 0 ? 0 : below(static_cast<unsigned>(oracle_.size())));
        dllist_t *node = *victim;
        if (victim == oracle_.begin() && below(2) == 0)
            EXPECT_EQ(dllist_delink_head(&queue_.ctrl), node);
        else
            dllist_delink_node(&queue_.ctrl, node);
        oracle_.erase(victim);
        if (below(2) == 0)
            release(node);
        else
            oracle_.push_back(dllist_insert_tail_recycle(&queue_.ctrl, node));
    }

    void check() const {
        std::deque<dllist_t *> forward;
        for (dllist_t *node = queue_.ctrl.head; node != nullptr; node = node->next)
            forward.push_back(node);
        std::deque<dllist_t *> backward;
        for (dllist_t *node = queue_.ctrl.tail; node != nullptr; node = node->prev)
            backward.push_front(node);
        ASSERT_EQ(forward, oracle_);
        ASSERT_EQ(backward, oracle_);
        ASSERT_EQ(dllist_num_entries(&queue_.ctrl), static_cast<int>(oracle_.size()));
    }

    std::mt19937 random_{8128};
    number_queue queue_;
    std::deque<dllist_t *> oracle_;
};

TEST_F(DllistAgainstDeque, HoldsTheSameNodesAfterEveryOperation) {
    for (int step = 0; step < 4000; step++) {
        // Phases of growing and shrinking, so that the queue becomes empty again and again.
        if (below(10) < (step % 400 < 200 ? 6 : 2))
            insert();
        else
            remove();
        check();
        if (HasFatalFailure())
            return;
    }
}

}  // namespace
