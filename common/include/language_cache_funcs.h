/// The catalogue of readable labels: two properties files in one hash table, and the line of a client event made from
/// them. Loaded on the main thread; afterwards only read, so any thread may make lines.
#pragma once

#include <cstdint>

#include "hashTable.h"
#include "lists.h"

/// A label; key of the catalogue is `name`.
struct label_cache_t {
    char *name;   // heap
    char *value;  // heap
};

using MACADDR = char[20];  // "00:1A:2B:3C:4D:5E", or empty

/// What the line of an event is made from.
struct cl_debug_record_params {
    MACADDR cl_mac;
    MACADDR bssid;
    short ssid_len;
    char ssid[33];
    char *subinfo_value;  // subinfo_value_len bytes and a NUL; null without a value
    int subinfo_value_len;
    int info_code;
    int subinfo_code;
};

/// Row of a label: the sum of its name's characters, taken as signed bytes, modulo the table's size.
int lang_hash_func(const void *name, const hashTable_t *table, const void *value);

/// @return 0 when the stored label's name begins `name`
int lang_compare_record(const void *name, const void *stored);

/// Frees one label.
void free_lang_node(void *label);

/// Reads a properties file.
///
/// @param list  receives label_cache_t records, in the order of the file
/// @return 0, or -1 when the file cannot be read
[[nodiscard]] int lang_parse_name_value_from_file(const char *path, list_t **list);

/// Loads a properties file into the catalogue; a label that is there gets the new value.
///
/// @return 0, or -1 when the file cannot be read
int pop_lang_cache_from_file(const char *path, hashTable_t *cache);

/// @return the value of a label, owned by the catalogue; null when there is none
[[nodiscard]] const char *lang_localize_cl_debug_label(const hashTable_t *table, const char *key);

/// Logs every label at level 7.
void print_label_hash(const hashTable_t *table);

/// Makes the line of an event.
///
/// @param expanded_log  receives the line, freed by the caller with free(); null when there is none
/// @param verbose       1: with the attributes of a RADIUS packet
/// @return 0, or -1 when the catalogue lacks a label or memory is short
[[nodiscard]] int fill_cl_debug_log_params(const hashTable_t *cache, const cl_debug_record_params *params,
                                           char **expanded_log, int verbose);

/// Makes the line of a RADIUS packet.
///
/// @param output_mesg  receives the line, freed by the caller with free(); untouched when memory is short
/// @param rad_attr     1: with the attributes
void parse_radius_attr(const cl_debug_record_params *evt_info, char **output_mesg, int rad_attr);

/// Names a RADIUS packet by its subinfo code, 800 plus the packet's code.
///
/// @param name  receives the name, at most 20 characters and a NUL
void radius_type(int subinfo_code, char *name);

/// @return the text of a role rule's match type
[[nodiscard]] const char *get_rule_match_type(int match_type);
