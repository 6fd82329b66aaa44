/// Chained hash tables of values, of a fixed number of rows each: the label catalogue and the client tables.
///
/// A table stores values only; the key is whatever the owner's two functions read from a value. The table owns its
/// nodes and never a value: values stay the caller's, who frees them after removal or lends a free function to a
/// destroy operation. No lock: whoever shares a table serialises access.
#pragma once

#include "lists.h"

struct _hashtable {
    list_t **rows;    // `length` row heads; null once the contents were deleted, every operation then fails
    int length;       // rows, fixed at creation
    int num_entries;  // values stored

    /// Row of a key; a result outside 0 to length - 1 makes the operation fail. It may use the key and the table's
    /// length only: `value` is the value being added, null in a search.
    int (*hash_func)(const void *key, const _hashtable *table, const void *value);

    /// @return 0 when the stored value has that key
    int (*compare)(const void *key, const void *value);
};
using hashTable_t = _hashtable;

/// A walk over all values of a table.
struct _hash_iterator {
    list_t *curr_node;  // the node last returned; null before the first one of a row
    int currRow;
    hashTable_t *htable;
};
using hash_Iterator_t = _hash_iterator;

/// Results of hash_add, hash_del, hash_delnode_iterator and hash_init_iterator beside 0 and -1.
constexpr int HASH_ALREADY_PRESENT = 1;
constexpr int HASH_NOT_FOUND = 2;
constexpr int HASH_NO_MEMORY = 3;

/// Makes an empty table.
///
/// @param length  rows, 0 to 32003; with 0 rows every insertion fails
/// @return a new table, to be freed with hash_delTable; null when the length is out of range, a function is null or
///         memory is short
[[nodiscard]] hashTable_t *hash_newTable(int length,
                                         int (*hash_func)(const void *key, const hashTable_t *table, const void *value),
                                         int (*compare)(const void *key, const void *value));

/// Adds a value unless its key is there; it becomes the first of its row. The value stays the caller's and must outlive
/// its stay in the table; the key is not kept.
///
/// @return 0 added; 1 a value with that key is there and nothing was added; -1 bad row, null argument or no memory
[[nodiscard]] int hash_add(hashTable_t *table, const void *key, void *value);

/// Adds a value even when its key is there; searches then find the newest first. Ownership as with hash_add.
///
/// @return 0 added; -1 bad row, null argument or no memory
[[nodiscard]] int hash_add_duplicate(hashTable_t *table, const void *key, void *value);

/// @return the newest value with that key, still in the table; null when there is none, an argument is null or the row
///         is bad
void *hash_find(const hashTable_t *table, const void *key);

/// Collects all values with a key, oldest first.
///
/// @return a new list of the values, which stay in the table, to be freed with list_free_without_payload_freeing; null
///         when there is none, an argument is null, the row is bad or memory is short
[[nodiscard]] list_t *hash_find_all(const hashTable_t *table, const void *key);

/// Removes the newest value with that key. The value is not freed: keep a pointer to it from hash_find.
///
/// @return 0 removed; 2 not found; -1 null argument or bad row
int hash_del(hashTable_t *table, const void *key);

/// @return 0 with the number of values in `count`; -1 when an argument is null
int hash_get_num_entries(const hashTable_t *table, int *count);

/// @return 0 while the table holds fewer than `limit` values, else (and for a null table) -1
int hash_check_space(const hashTable_t *table, int limit);

/// @return the newest value of the first row that has any, still in the table; null when there is none
void *hash_first_element(const hashTable_t *table);

/// Makes an iterator that stands before the first value. It must not be used once the table is freed.
///
/// @param table     may be null: the walk is then empty
/// @param iterator  address that receives the new iterator, to be freed with hash_del_iterator; null on failure
/// @return 0; 3 when memory is short
[[nodiscard]] int hash_init_iterator(hashTable_t *table, hash_Iterator_t **iterator);

/// Moves on. Values may be added meanwhile; the only removal an iterator survives is hash_delnode_iterator.
///
/// @return the next value, still in the table; null at the end, where the iterator stays
void *hash_next_iterator(hash_Iterator_t *iterator);

/// Puts an iterator back before the first value.
///
/// @return 0; -1 for a null iterator
int hash_reset_iterator(hash_Iterator_t *iterator);

/// Removes the value last returned, without freeing it; hash_next_iterator goes on with the one that followed it. Call
/// it once per value returned: a second call in a row removes the value before.
///
/// @return 0 removed; 2 when no value was returned yet. Once the walk has ended a value of the last row is still
///         removed, one of an earlier row is not found: 2
int hash_delnode_iterator(hash_Iterator_t *iterator);

/// Frees an iterator and clears the caller's pointer.
///
/// @return 0; -1 for a null address
int hash_del_iterator(hash_Iterator_t **iterator);

/// Removes all values and the rows: only hash_delTable may follow. `num_entries` is deliberately left as it was.
///
/// @param free_value  called for every value; null leaves the values to the caller
/// @return 0; -1 for a null table
int hash_del_table_contents(hashTable_t *table, void (*free_value)(void *value));

/// Frees a table and clears the caller's pointer.
///
/// @param free_value  called for every value; null leaves the values to the caller
/// @return 0; -1 when the address or the table is null
int hash_delTable(hashTable_t **table, void (*free_value)(void *value));

/// Row of a 6-byte MAC address: the sum of its bytes modulo the table's length.
///
/// @return the row; -1 when the table has no rows
int hw_mac_hash_func(const void *mac, const hashTable_t *table, const void *value);

/// @return 0 when the stored value begins with the 6-byte MAC address, else 1
int hw_mac_compare_func(const void *mac, const void *value);
