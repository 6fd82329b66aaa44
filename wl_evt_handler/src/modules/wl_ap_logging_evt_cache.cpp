// The file that remembers what was reported, so that a restart does not report it again too soon.
#include <cerrno>
#include <cstring>

#include "debug_log.h"
#include "wl_ap_logging_evt_internal.h"

namespace {

/// @return false at the end of the file, or when it cannot be read
bool read_record(FILE *file, file_ap_logging_evt_node *record) {
    if (std::fread(record, sizeof *record, 1, file) != 1)
        return false;
    record->buf[sizeof record->buf - 1] = '\0';
    return true;
}

/// @return false when memory is short
bool load(const file_ap_logging_evt_node &record) {
    const uint32_t id = record.evt_id;
    const auto printed_id = static_cast<int>(id);
    WL_LOG_AS("init_ap_logging_cache", 7, "Reading line with evt_id %d and buf %s", printed_id, record.buf);
    ap_logging_evt_data *data = find_evt_data(id);
    if (data == nullptr) {
        WL_LOG_AS("init_ap_logging_cache", 3,
                  "No Event Throttling configuration found.. Adding %d with default settings", printed_id);
        data = add_default_evt_data(id);
    }
    if (data == nullptr) {
        WL_LOG_AS("init_ap_logging_cache", 3, "Could not create a Evt hash entry.");
        return false;
    }
    if (add_evt_node(data, record.time, record.buf) == nullptr)
        return true;
    WL_LOG_AS("init_ap_logging_cache", 7, "Allocation complete for %s", record.buf);
    WL_LOG_AS("init_ap_logging_cache", 7, " CACHE INIT. Inserting node into list with id %d", printed_id);
    return true;
}

/// The record of a text as it is written.
file_ap_logging_evt_node record_of(uint32_t evt_id, const ap_logging_evt_node &node) {
    file_ap_logging_evt_node record{};
    record.evt_id = evt_id;
    record.time = node.time;
    std::memcpy(record.buf, node.buf, strnlen(node.buf, sizeof record.buf - 1));
    return record;
}

}  // namespace

int init_ap_logging_cache(const char *path) {
    FILE *const file = std::fopen(path, "rbe");
    if (file == nullptr) {
        WL_LOG(3, "Cannot open %s", path);
        return -1;
    }
    WL_LOG(7, "Reading up Cache information from %s", path);
    file_ap_logging_evt_node record;
    bool loaded = true;
    while (loaded && read_record(file, &record))
        loaded = load(record);
    if (std::feof(file) != 0)
        WL_LOG(3, "File read complete");
    std::fclose(file);
    return loaded ? 0 : 1;
}

int perform_file_edit(const char *path, uint32_t evt_id, const ap_logging_evt_node *node, file_ap_logging_evt_node *rec,
                      int mode) {
    if (node == nullptr) {
        WL_LOG(3, "Evt_node null");
        return 1;
    }
    FILE *const file = std::fopen(path, "a+be");
    if (file == nullptr) {
        WL_LOG(3, "Cannot open file %s to dump cache", path);
        return 1;
    }
    if (mode == CACHE_APPEND) {
        *rec = record_of(evt_id, *node);
        WL_LOG(7, "Writing to file cache : id %d, buf %s, time %ld", static_cast<int>(evt_id), rec->buf,
               static_cast<long>(static_cast<int32_t>(node->time)));
        (void)std::fwrite(rec, sizeof *rec, 1, file);
    } else {
        edit_log_timestamp(file, evt_id, node);
    }
    std::fclose(file);
    return 0;
}

void edit_log_timestamp(FILE *file, uint32_t evt_id, const ap_logging_evt_node *node) {
    const auto printed_id = static_cast<int>(evt_id);
    WL_LOG(3, "Starting to go through file to edit cache file  %d", printed_id);
    file_ap_logging_evt_node record;
    std::rewind(file);  // C libraries differ in where a stream for appending begins to read
    do {
        if (!read_record(file, &record))
            return;
    } while (record.evt_id != evt_id || std::strncmp(record.buf, node->buf, sizeof record.buf) != 0);
    const long after = std::ftell(file);
    if (after < 0) {
        const int error = errno;
        WL_LOG(3, "File Offset ftell call failed with errno %d. Skipping write ", error);
        return;
    }
    WL_LOG(3, "FOund old entry for evt_id  %d", printed_id);
    record.time = node->time;
    std::fseek(file, after - static_cast<long>(sizeof record), SEEK_SET);
    (void)std::fwrite(&record, sizeof record, 1, file);
}
