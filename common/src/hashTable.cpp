#include "hashTable.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr int LENGTH_LIMIT = 32004;
constexpr int MAC_LENGTH = 6;

/// @return the address of the key's row head; null when there is no such row
list_t **find_row(const hashTable_t *table, const void *key, const void *value) {
    if (table == nullptr || table->rows == nullptr || key == nullptr)
        return nullptr;
    const int row = table->hash_func(key, table, value);
    return row >= 0 && row < table->length ? &table->rows[row] : nullptr;
}

/// The first node with that key from `node` on.
list_t *find_match(const hashTable_t *table, list_t *node, const void *key) {
    while (node != nullptr && table->compare(key, node->value) != 0)
        node = node->next;
    return node;
}

int insert(hashTable_t *table, list_t **row, void *value) {
    if (list_insert_head(row, value) == nullptr)
        return -1;
    table->num_entries++;
    return 0;
}

}  // namespace

hashTable_t *hash_newTable(int length, int (*hash_func)(const void *key, const hashTable_t *table, const void *value),
                           int (*compare)(const void *key, const void *value)) {
    if (length < 0 || length >= LENGTH_LIMIT || hash_func == nullptr || compare == nullptr)
        return nullptr;
    auto *table = static_cast<hashTable_t *>(std::calloc(1, sizeof(hashTable_t)));
    if (table == nullptr)
        return nullptr;
    // At least one row: a null array means deleted contents, and C libraries differ in what an empty array gives.
    table->rows = static_cast<list_t **>(std::calloc(length > 0 ? static_cast<size_t>(length) : 1, sizeof(list_t *)));
    if (table->rows == nullptr) {
        std::free(table);
        return nullptr;
    }
    table->length = length;
    table->hash_func = hash_func;
    table->compare = compare;
    return table;
}

int hash_add(hashTable_t *table, const void *key, void *value) {
    list_t **row = find_row(table, key, value);
    if (row == nullptr || value == nullptr)
        return -1;
    if (find_match(table, *row, key) != nullptr)
        return HASH_ALREADY_PRESENT;
    return insert(table, row, value);
}

int hash_add_duplicate(hashTable_t *table, const void *key, void *value) {
    list_t **row = find_row(table, key, value);
    if (row == nullptr || value == nullptr)
        return -1;
    return insert(table, row, value);
}

void *hash_find(const hashTable_t *table, const void *key) {
    list_t **row = find_row(table, key, nullptr);
    if (row == nullptr)
        return nullptr;
    list_t *node = find_match(table, *row, key);
    return node != nullptr ? node->value : nullptr;
}

list_t *hash_find_all(const hashTable_t *table, const void *key) {
    list_t **row = find_row(table, key, nullptr);
    if (row == nullptr)
        return nullptr;
    list_t *found = nullptr;
    for (list_t *node = find_match(table, *row, key); node != nullptr; node = find_match(table, node->next, key)) {
        if (list_insert_head(&found, node->value) == nullptr) {
            list_free_without_payload_freeing(&found);
            return nullptr;
        }
    }
    return found;
}

int hash_del(hashTable_t *table, const void *key) {
    list_t **row = find_row(table, key, nullptr);
    if (row == nullptr)
        return -1;
    list_t *node = find_match(table, *row, key);
    if (node == nullptr)
        return HASH_NOT_FOUND;
    table->num_entries--;
    return list_delete_node(row, node);
}

int hash_get_num_entries(const hashTable_t *table, int *count) {
    if (table == nullptr || count == nullptr)
        return -1;
    *count = table->num_entries;
    return 0;
}

int hash_check_space(const hashTable_t *table, int limit) {
    return table != nullptr && table->num_entries < limit ? 0 : -1;
}

void *hash_first_element(const hashTable_t *table) {
    if (table == nullptr || table->rows == nullptr)
        return nullptr;
    for (int row = 0; row < table->length; row++)
        if (table->rows[row] != nullptr)
            return table->rows[row]->value;
    return nullptr;
}

int hash_init_iterator(hashTable_t *table, hash_Iterator_t **iterator) {
    *iterator = static_cast<hash_Iterator_t *>(std::calloc(1, sizeof(hash_Iterator_t)));
    if (*iterator == nullptr)
        return HASH_NO_MEMORY;
    (*iterator)->htable = table;
    return 0;
}

void *hash_next_iterator(hash_Iterator_t *iterator) {
    if (iterator == nullptr || iterator->htable == nullptr)
        return nullptr;
    const hashTable_t *table = iterator->htable;
    if (table->rows == nullptr || table->num_entries <= 0)
        return nullptr;
    list_t *node = iterator->curr_node != nullptr ? iterator->curr_node->next : table->rows[iterator->currRow];
    while (node == nullptr) {
        if (iterator->currRow >= table->length - 1)
            return nullptr;
        node = table->rows[++iterator->currRow];
    }
    iterator->curr_node = node;
    return node->value;
}

int hash_reset_iterator(hash_Iterator_t *iterator) {
    if (iterator == nullptr)
        return -1;
    iterator->curr_node = nullptr;
    iterator->currRow = 0;
    return 0;
}

int hash_delnode_iterator(hash_Iterator_t *iterator) {
    if (iterator == nullptr || iterator->htable == nullptr || iterator->htable->rows == nullptr)
        return HASH_NOT_FOUND;
    list_t *before = nullptr;
    list_t **link = &iterator->htable->rows[iterator->currRow];
    while (*link != nullptr && *link != iterator->curr_node) {
        before = *link;
        link = &before->next;
    }
    if (*link == nullptr)
        return HASH_NOT_FOUND;
    iterator->curr_node = before;
    iterator->htable->num_entries--;
    return list_delete_node(link, *link);
}

int hash_del_iterator(hash_Iterator_t **iterator) {
    if (iterator == nullptr)
        return -1;
    std::free(*iterator);
    *iterator = nullptr;
    return 0;
}

int hash_del_table_contents(hashTable_t *table, void (*free_value)(void *value)) {
    if (table == nullptr)
        return -1;
    for (int row = 0; table->rows != nullptr && row < table->length; row++)
        (void)list_free_with_free_func(&table->rows[row], free_value);
    std::free(table->rows);
    table->rows = nullptr;
    return 0;
}

int hash_delTable(hashTable_t **table, void (*free_value)(void *value)) {
    if (table == nullptr || hash_del_table_contents(*table, free_value) != 0)
        return -1;
    std::free(*table);
    *table = nullptr;
    return 0;
}

int hw_mac_hash_func(const void *mac, const hashTable_t *table, const void *) {
    if (table->length <= 0)
        return -1;
    const auto *bytes = static_cast<const unsigned char *>(mac);
    int sum = 0;
    for (int i = 0; i < MAC_LENGTH; i++)
        sum += bytes[i];
    return sum % table->length;
}

int hw_mac_compare_func(const void *mac, const void *value) {
    return std::memcmp(value, mac, MAC_LENGTH) == 0 ? 0 : 1;
}
