#include "language_cache_funcs.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "debug_log.h"

namespace {

constexpr char READER[] = "lang_parse_name_value_from_file";
constexpr size_t LINE_SIZE = 6000;

void log_no_memory_for_name(const char *name, const char *path) {
    WL_LOG_AS(READER, 3, "Error in allocating memory for label name[%s] in file[%s]", name, path);
}

void log_no_memory_for_value(const char *name, const char *path) {
    WL_LOG_AS(READER, 3, "Error in allocating memory for value of label[%s] in file[%s]", name, path);
}

label_cache_t *new_label(const char *name, const char *path) {
    auto *label = static_cast<label_cache_t *>(std::calloc(1, sizeof(label_cache_t)));
    if (label != nullptr)
        label->name = strdup(name);
    if (label == nullptr || label->name == nullptr) {
        log_no_memory_for_name(name, path);
        std::free(label);
        return nullptr;
    }
    return label;
}

/// Gives a label its value and appends it to the list; frees it when that fails.
int keep_label(label_cache_t *label, const char *value, const char *path, list_t **list) {
    label->value = strdup(value);
    if (label->value != nullptr && list_insert_tail(list, label) != nullptr)
        return 0;
    log_no_memory_for_value(label->name, path);
    free_lang_node(label);
    return -1;
}

/// Takes a line apart. A line without a name or a value is skipped.
///
/// @return 0, or -1 when memory is short
int parse_line(char *line, const char *path, list_t **list) {
    char *rest = nullptr;
    const char *name = strtok_r(line, "=", &rest);
    if (name == nullptr) {
        WL_LOG_AS(READER, 3, "Error while parsing label name in line[%s] in file[%s]", line, path);
        return 0;
    }
    label_cache_t *label = new_label(name, path);
    if (label == nullptr)
        return -1;
    const char *value = strtok_r(nullptr, "\n", &rest);
    if (value == nullptr) {
        WL_LOG_AS(READER, 3, "Error while parsing value for label[%s] in file[%s]", name, path);
        free_lang_node(label);
        return 0;
    }
    return keep_label(label, value, path, list);
}

/// Moves a label into the catalogue. The catalogue compares by prefix here too: a stored name that begins the new one,
/// in its row, gets the value.
void take_label(hashTable_t *cache, label_cache_t *label) {
    auto *stored = static_cast<label_cache_t *>(hash_find(cache, label->name));
    if (stored != nullptr) {
        std::free(stored->value);
        stored->value = label->value;
        label->value = nullptr;
        free_lang_node(label);
        return;
    }
    const int result = hash_add(cache, label->name, label);
    if (result != 0) {
        // The message has a number where the label's text belongs: the number says nothing.
        WL_LOG_AS("pop_lang_cache_from_file", 3, "Error [%d] in adding label <%d> in the label cache", result, 0);
        free_lang_node(label);
    }
}

}  // namespace

int lang_hash_func(const void *name, const hashTable_t *table, const void *) {
    if (table->length <= 0)
        return -1;
    int sum = 0;
    for (const auto *at = static_cast<const signed char *>(name); *at != '\0'; at++)
        sum += *at;
    return sum % table->length;  // deliberately signed: a name with a negative remainder has no row
}

int lang_compare_record(const void *name, const void *stored) {
    const char *prefix = static_cast<const label_cache_t *>(stored)->name;
    return std::strncmp(static_cast<const char *>(name), prefix, std::strlen(prefix));
}

void free_lang_node(void *label) {
    auto *node = static_cast<label_cache_t *>(label);
    if (node == nullptr)
        return;
    std::free(node->name);
    std::free(node->value);
    std::free(node);
}

int lang_parse_name_value_from_file(const char *path, list_t **list) {
    FILE *file = std::fopen(path, "re");
    if (file == nullptr) {
        WL_LOG(3, "Error opening property file %s", path);
        return -1;
    }
    auto *line = static_cast<char *>(std::calloc(1, LINE_SIZE));
    if (line == nullptr) {
        WL_LOG(3, "Error allocating memory");
        std::fclose(file);
        return -1;
    }
    while (std::fgets(line, LINE_SIZE, file) != nullptr && parse_line(line, path, list) == 0)
        std::memset(line, 0, LINE_SIZE);
    std::free(line);
    std::fclose(file);
    return 0;
}

int pop_lang_cache_from_file(const char *path, hashTable_t *cache) {
    list_t *labels = nullptr;
    if (lang_parse_name_value_from_file(path, &labels) != 0) {
        WL_LOG(3, "Error while reading language file [%s]", path);
        return -1;
    }
    for (const list_t *node = labels; node != nullptr; node = node->next)
        take_label(cache, static_cast<label_cache_t *>(node->value));
    list_free_without_payload_freeing(&labels);
    return 0;
}

const char *lang_localize_cl_debug_label(const hashTable_t *table, const char *key) {
    const auto *label = static_cast<const label_cache_t *>(hash_find(table, key));
    return label != nullptr ? label->value : nullptr;
}

void print_label_hash(const hashTable_t *table) {
    if (table == nullptr || table->rows == nullptr)
        return;
    for (int row = 0; row < table->length; row++) {
        for (const list_t *node = table->rows[row]; node != nullptr; node = node->next) {
            const auto *label = static_cast<const label_cache_t *>(node->value);
            WL_LOG(7, "%s=%s", label->name, label->value);
        }
    }
}
