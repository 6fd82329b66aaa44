#include "vre_hash_table.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

const hash_table_funcs_t hash_table_default_funcs = {hash_table_func_hash, hash_table_func_compare,
                                                     hash_table_func_free, hash_table_func_free};

namespace {

using entry_t = hash_table_entry_t;

/// Where a key is, or would be inserted, in its chain.
struct place_t {
    entry_t **link;  // a chain head or an entry's `next`; null when the table has no buckets
    bool found;      // `link` leads to the key's entry
};

place_t find_place(const hash_table_t *table, const void *key) {
    if (table == nullptr || table->table_size == 0)
        return {nullptr, false};
    const unsigned long hash = table->funcs.hash_function(key, table->funcs_userdata);
    entry_t **link = &table->entries[ht_hash_pos(hash, table->table_size)];
    for (; *link != nullptr; link = &(*link)->next) {
        const int order = table->funcs.compare_keys((*link)->key, key, table->funcs_userdata);
        if (order >= 0)
            return {link, order == 0};
    }
    return {link, false};
}

void release_value(const hash_table_t *table, void *value) {
    if (table->funcs.free_value != nullptr)
        table->funcs.free_value(value, table->funcs_userdata);
}

/// Unlinks the entry that `link` leads to, releases its key and value and frees it.
void remove_at(hash_table_t *table, entry_t **link) {
    entry_t *entry = *link;
    *link = entry->next;
    table->entry_count--;
    if (table->funcs.free_key != nullptr)
        table->funcs.free_key(entry->key, table->funcs_userdata);
    release_value(table, entry->value);
    std::free(entry);
}

int remove_all(const void *, void *, void *) {
    return 1;
}

uintptr_t length_of(const void *userdata) {
    return reinterpret_cast<uintptr_t>(userdata);
}

}  // namespace

hash_table_t *hash_table_init(hash_table_t *table, size_t table_size, const hash_table_funcs_t *funcs, void *userdata) {
    if (table_size == 0 || funcs == nullptr || funcs->hash_function == nullptr || funcs->compare_keys == nullptr)
        return nullptr;
    auto **entries = static_cast<entry_t **>(std::calloc(table_size, sizeof(entry_t *)));
    if (entries == nullptr)
        return nullptr;
    if (table == nullptr)
        table = static_cast<hash_table_t *>(std::malloc(sizeof(hash_table_t)));
    if (table == nullptr) {
        std::free(entries);
        return nullptr;
    }
    *table = {entries, 0, table_size, *funcs, userdata};
    return table;
}

int hash_table_add(hash_table_t *table, void *key, void *value) {
    const place_t place = find_place(table, key);
    if (place.link == nullptr)
        return -1;
    if (place.found) {
        release_value(table, (*place.link)->value);
        (*place.link)->value = value;
        return 1;
    }
    auto *entry = static_cast<entry_t *>(std::malloc(sizeof(entry_t)));
    if (entry == nullptr)
        return -1;
    *entry = {key, value, *place.link};
    *place.link = entry;
    table->entry_count++;
    return 0;
}

void *hash_table_lookup(const hash_table_t *table, const void *key) {
    const place_t place = find_place(table, key);
    return place.found ? (*place.link)->value : nullptr;
}

int hash_table_delete(hash_table_t *table, const void *key) {
    const place_t place = find_place(table, key);
    if (!place.found)
        return -1;
    remove_at(table, place.link);
    return 0;
}

void hash_table_foreach_remove(hash_table_t *table, int (*predicate)(const void *key, void *value, void *user),
                               void *user) {
    if (table == nullptr)
        return;
    for (size_t pos = 0; pos < table->table_size; pos++) {
        entry_t **link = &table->entries[pos];
        while (*link != nullptr) {
            if (predicate((*link)->key, (*link)->value, user) != 0)
                remove_at(table, link);
            else
                link = &(*link)->next;
        }
    }
}

int hash_table_destroy(hash_table_t *table) {
    hash_table_foreach_remove(table, remove_all, nullptr);
    if (table == nullptr)
        return 0;
    std::free(table->entries);
    table->entries = nullptr;
    table->table_size = 0;
    return 0;
}

void hash_table_iter_init(const hash_table_t *table, hash_table_iter_t *iterator) {
    *iterator = {table, table != nullptr ? table->entry_count : 0, nullptr, 0};
}

int hash_table_iter_next(hash_table_iter_t *iterator) {
    if (iterator->entries_remaining == 0) {
        iterator->entry = nullptr;
        return 0;
    }
    if (iterator->entry != nullptr && iterator->entry->next != nullptr) {
        iterator->entry = iterator->entry->next;
        iterator->entries_remaining--;
        return 1;
    }
    const hash_table_t *table = iterator->hash_table;
    size_t pos = iterator->next_pos;
    while (pos < table->table_size && table->entries[pos] == nullptr)
        pos++;
    if (pos >= table->table_size) {
        iterator->entry = nullptr;
        iterator->entries_remaining = 0;
        return 0;
    }
    iterator->entry = table->entries[pos];
    iterator->entries_remaining--;
    iterator->next_pos = iterator->entries_remaining > 0 ? pos + 1 : table->table_size;
    return 1;
}

unsigned long hash_table_func_hash(const void *key, void *length) {
    const auto *bytes = static_cast<const unsigned char *>(key);
    uint32_t hash = 5381;
    for (uintptr_t i = 0; i < length_of(length); i++)
        hash = hash * 33 + bytes[i];
    return hash;
}

int hash_table_func_compare(const void *stored_key, const void *key, void *length) {
    return std::memcmp(stored_key, key, length_of(length));
}

void hash_table_func_free(void *pointer, void *) {
    std::free(pointer);
}

size_t ht_hash_pos(unsigned long hash, size_t table_size) {
    return hash % table_size;
}
