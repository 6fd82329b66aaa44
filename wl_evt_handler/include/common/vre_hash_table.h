/// Hash tables of keys and values with the owner's functions for hashing, ordering and releasing: SSID profiles,
/// clients, bandwidth rules and throttled log events live in such tables. The number of buckets is fixed.
///
/// A table owns its keys and values from a successful addition on and releases them with `free_key` and `free_value`. A
/// table that is null or all zero holds nothing and takes nothing. No lock: whoever shares a table serialises access.
///
/// A record may be its own key (`free_key` is then null). Never replace such a record by adding its key again: the
/// stored key would be released with the old record. Delete first, then add.
#pragma once

#include <cstddef>

/// The behaviour of a table. Each function also receives the table's `funcs_userdata`.
struct hash_table_funcs_t {
    unsigned long (*hash_function)(const void *key, void *userdata);

    /// @return negative, 0 or positive when the stored key sorts before, equals or sorts after the key
    int (*compare_keys)(const void *stored_key, const void *key, void *userdata);

    void (*free_key)(void *key, void *userdata);      // null: keys are not released
    void (*free_value)(void *value, void *userdata);  // null: values are not released
};

/// For keys of fixed length that are single heap blocks, as their values are: `userdata` is the length in bytes, as in
/// reinterpret_cast<void *>(uintptr_t{6}).
extern const hash_table_funcs_t hash_table_default_funcs;

struct hash_table_entry_t {
    void *key;
    void *value;
    hash_table_entry_t *next;
};

struct hash_table_t {
    hash_table_entry_t **entries;  // `table_size` chains, each in ascending order of keys
    size_t entry_count;
    size_t table_size;
    hash_table_funcs_t funcs;
    void *funcs_userdata;
};

struct hash_table_iter_t {
    const hash_table_t *hash_table;
    size_t entries_remaining;
    hash_table_entry_t *entry;  // the entry last reached: read its key and value
    size_t next_pos;            // bucket to scan next
};

/// Makes an empty table.
///
/// @param table       record to fill, whose former contents are forgotten; null allocates one
/// @param table_size  buckets, at least 1
/// @param funcs       copied; hash_function and compare_keys are needed
/// @return the table; null (and `table` unchanged) when an argument is bad or memory is short. An allocated record is
///         freed with free() after hash_table_destroy.
[[nodiscard]] hash_table_t *hash_table_init(hash_table_t *table, size_t table_size, const hash_table_funcs_t *funcs,
                                            void *userdata);

/// Adds a value, or replaces the value of a key that is there by another value.
///
/// @return 0 added: key and value are the table's; 1 replaced: the value is the table's, the old one was released, and
///         the key stays the caller's; -1 nothing was done and both stay the caller's: no memory, or a table without
///         buckets
[[nodiscard]] int hash_table_add(hash_table_t *table, void *key, void *value);

/// @return the value, still the table's; null when the key is not there
void *hash_table_lookup(const hash_table_t *table, const void *key);

/// Removes an entry, releasing its key and value.
///
/// @param key  may lie in the entry itself
/// @return 0; -1 when the key is not there
int hash_table_delete(hash_table_t *table, const void *key);

/// Removes every entry for which `predicate` is non-zero, releasing its key and value. The way to delete during a walk.
void hash_table_foreach_remove(hash_table_t *table, int (*predicate)(const void *key, void *value, void *user),
                               void *user);

/// Releases all entries and the buckets, leaving a table that holds nothing. The record is not freed.
///
/// @return 0
int hash_table_destroy(hash_table_t *table);

/// Starts a walk over all entries, bucket by bucket. The table must not change during the walk.
void hash_table_iter_init(const hash_table_t *table, hash_table_iter_t *iterator);

/// @return 1 when `iterator->entry` is the next entry; 0 at the end, when it is null
[[nodiscard]] int hash_table_iter_next(hash_table_iter_t *iterator);

/// djb2 hash of a key in 32 bits, the same on every machine.
///
/// @param length  bytes of key, as a number kept in a pointer
unsigned long hash_table_func_hash(const void *key, void *length);

/// @return memcmp of the two keys
int hash_table_func_compare(const void *stored_key, const void *key, void *length);

/// Frees a key or value with free().
void hash_table_func_free(void *pointer, void *length);

/// Bucket of a hash.
///
/// @param table_size  at least 1
size_t ht_hash_pos(unsigned long hash, size_t table_size);
