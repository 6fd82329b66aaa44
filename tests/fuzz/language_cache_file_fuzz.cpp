// A properties file of any bytes, loaded twice into a catalogue; what the reader makes of it is compared with a plain
// reading of the same bytes.
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "language_cache_funcs.h"
#include "profile_files.h"

namespace {

constexpr size_t LINE_LENGTH = 5999;

using pairs = std::vector<std::pair<std::string, std::string>>;

/// Cuts the first line off, of at most 5999 characters with its newline.
std::string_view take_line(std::string_view *bytes) {
    const size_t newline = bytes->substr(0, LINE_LENGTH).find('\n');
    const size_t length = newline != bytes->npos ? newline + 1 : std::min(bytes->size(), LINE_LENGTH);
    const std::string_view line = bytes->substr(0, length);
    bytes->remove_prefix(length);
    return line.substr(0, line.find('\0'));
}

pairs expected_pairs(std::string_view bytes) {
    pairs expected;
    while (!bytes.empty()) {
        std::string_view line = take_line(&bytes);
        line.remove_prefix(std::min(line.find_first_not_of('='), line.size()));
        const size_t separator = line.find('=');
        if (separator == line.npos)
            continue;
        const std::string_view rest = line.substr(separator + 1);
        const std::string_view value = rest.substr(0, rest.find('\n'));
        if (!value.empty())
            expected.emplace_back(line.substr(0, separator), value);
    }
    return expected;
}

void check_reader() {
    const pairs expected = expected_pairs({reinterpret_cast<const char *>(input_bytes), input_size});
    list_t *list = nullptr;
    require(lang_parse_name_value_from_file(INPUT_PATH, &list) == 0);
    require(list_length(list) == static_cast<int>(expected.size()));
    const list_t *node = list;
    for (const auto &[name, value] : expected) {
        const auto *const label = static_cast<const label_cache_t *>(node->value);
        require(label->name == name && label->value == value);
        node = node->next;
    }
    (void)list_free_with_free_func(&list, free_lang_node);
}

void check_catalogue(hashTable_t *table) {
    int count = 0;
    for (int row = 0; row < table->length; row++) {
        for (const list_t *node = table->rows[row]; node != nullptr; node = node->next) {
            const auto *const label = static_cast<const label_cache_t *>(node->value);
            require(lang_hash_func(label->name, table, nullptr) == row);
            require(lang_localize_cl_debug_label(table, label->name) != nullptr);
            count++;
        }
    }
    require(count == table->num_entries);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    drop_log_lines();
    input_bytes = data;
    input_size = size;
    check_reader();
    hashTable_t *table = hash_newTable(137, lang_hash_func, lang_compare_record);
    require(pop_lang_cache_from_file(INPUT_PATH, table) == 0);
    const int count = table->num_entries;
    require(pop_lang_cache_from_file(INPUT_PATH, table) == 0);
    require(table->num_entries == count);
    check_catalogue(table);
    print_label_hash(table);
    (void)hash_delTable(&table, free_lang_node);
    return 0;
}
