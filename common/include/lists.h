/// Singly linked lists of untyped values, held by the address of their head pointer; an empty list is a null head.
///
/// A list owns its nodes. It owns its values only where an operation says that it frees them: a value that was inserted
/// stays a valid pointer of the caller's, who decides at the end which of the three list_free functions fits. Values
/// are compared by the caller's functions only. No lock: whoever shares a list serialises access. The functions passed
/// in are never null unless it says so.
#pragma once

constexpr int LIST_ALREADY_PRESENT = 10;
constexpr int LIST_NOT_FOUND = 11;
constexpr int LIST_FOUND = 12;

constexpr int LIST_ASCENDING = 1;
constexpr int LIST_DESCENDING = 2;

struct list_t {
    void (*cleanup_value)(void *value);  // reserved for owners; null after every insertion, never called here
    void *value;
    list_t *next;
};

/// Compares a node's value with a key.
///
/// @return 0 when equal; for sorted insertion negative when the value sorts before the key, positive when after it
using list_compare_t = int (*)(const void *value, const void *key);

/// Releases one value.
using list_free_t = void (*)(void *value);

/// @return a new unlinked node, to be freed with free(); null when memory is short
[[nodiscard]] list_t *list_new_node(void *value);

/// Inserts a value as the first.
///
/// @return the new node, the list's; null (the value stays out) when memory is short or `head` is null
[[nodiscard]] list_t *list_insert_head(list_t **head, void *value);

/// Inserts a value as the last.
///
/// @return the new node, the list's; null (the value stays out) when memory is short or `head` is null
[[nodiscard]] list_t *list_insert_tail(list_t **head, void *value);

/// @return the number of nodes from `first` on; 0 for null
int list_length(const list_t *first);

/// Removes a node and frees it. Its value is not freed.
///
/// @return 0; -1 when an argument is null or the node is not in the list
int list_delete_node(list_t **head, list_t *node);

/// Removes the last node, freeing the node and its value with free().
///
/// @return 0; -1 when the list is empty or `head` is null
int list_delete_tail_node(list_t **head);

/// Removes the first node whose value is this very pointer, and frees the node. The value is not freed.
///
/// @return 0; -1 when there is none or `head` is null
int list_delete_val(list_t **head, const void *value);

/// Removes the first node that equals `key`, freeing the node and its value with free().
///
/// @param key  handed to `compare` as it is, so it may be null if `compare` allows that
/// @return 0; -1 when there is none or `head` is null
int list_delete_value(list_t **head, list_compare_t compare, const void *key);

/// Removes every node that equals `key`. The key must not lie inside a value that is released on the way.
///
/// @param free_value  releases each removed value; null leaves the values to the caller
/// @return 0, also when nothing was equal; -1 when `head` or `key` is null
int list_delete_multiple_values(list_t **head, list_compare_t compare, const void *key, list_free_t free_value);

/// Empties a list: frees every node, and every value with free(). Only for values that are single heap blocks.
void list_free(list_t **head);

/// Empties a list: frees the nodes only. For values that live elsewhere or are numbers kept as pointers.
void list_free_without_payload_freeing(list_t **head);

/// Empties a list: frees every node, and every value that is not null with `free_value`.
///
/// @param free_value  null frees the nodes only
/// @return `head`
list_t **list_free_with_free_func(list_t **head, list_free_t free_value);

/// Inserts a value before the first node that does not sort before it; so a value goes before its equals.
///
/// @param order    1 ascending, 2 descending by `compare`
/// @param compare  called with a node's value and the new value
/// @return 0, deliberately also when memory is short, when the value stays out; -1 (the value stays the caller's) when
///         an argument is null or the order is neither
[[nodiscard]] int list_insert_sorted_order(int order, list_t **head, list_compare_t compare, void *value);

/// Appends a value unless an equal one is there.
///
/// @param compare  called with a node's value and the new value
/// @param update   called with the value in the list and the new one when they are equal; may be null. It may change
///                 both: whatever it does not take over from the new value remains the caller's.
/// @return 0 appended, deliberately also when memory is short, when the value stays out; 10 an equal value is there and
///         the new one stays the caller's; -1 when an argument is null (the value stays the caller's)
[[nodiscard]] int list_insert_without_duplication(list_t **head, list_compare_t compare, void *value,
                                                  void (*update)(void *stored, void *value));

/// Tells whether a list holds a value equal to `key`.
///
/// @return 12 found; 11 not found, as in an empty list; -1 when an argument is null
[[nodiscard]] int list_search_element(list_t **head, list_compare_t compare, const void *key);

/// Finds the first node that equals `key`. An empty list is an error that is logged: test for it first.
///
/// @return the node, still the list's; null when there is none or an argument is null
list_t *list_get_element(list_t *first, list_compare_t compare, const void *key);

/// @return the last node, still the list's; null (logged as an error) when the list is empty or `head` is null
list_t *list_get_tail_node(list_t **head);

/// Reverses a list in place.
///
/// @return the new first node; null when the list is empty or `head` is null
list_t *list_reverse(list_t **head);

/// Sorts the values of a list; the nodes stay where they are and change values, together with `cleanup_value`. Equal
/// values may change places. The list stays as it is when memory is short.
///
/// @param compare  receives two nodes (`const list_t *`), not their values; the nodes are copies
void list_qsort(list_t *first, int (*compare)(const void *node, const void *other_node));
