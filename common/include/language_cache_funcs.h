/// The catalogue of readable labels: two properties files in one hash table, and the line of a client event made from
/// them. The first file names each info code (INFOCODE_<info code>=<word>), the second gives the sentence of each
/// subinfo code (<word>_<subinfo code>=<sentence>), in which $-tokens stand for what the event carries. Loaded on the
/// main thread; afterwards only read, so any thread may make lines.
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

/// What the line of an event is made from. Texts that lack their NUL end with their field.
struct cl_debug_record_params {
    MACADDR cl_mac;
    MACADDR bssid;
    short ssid_len;
    char ssid[33];
    char *subinfo_value;  // subinfo_value_len bytes; null without a value
    int subinfo_value_len;
    int info_code;
    int subinfo_code;
};

/// Row of a label: the sum of its name's characters, taken as signed bytes, modulo the table's size. It may be
/// negative, which is no row.
int lang_hash_func(const void *name, const hashTable_t *table, const void *value);

/// @return 0 when the stored label's name begins `name`: deliberately not only when it is the whole of it
int lang_compare_record(const void *name, const void *stored);

/// Frees one label; null is allowed.
void free_lang_node(void *label);

/// Reads a properties file: lines of at most 5999 characters (a longer one counts as several), each a name, "=" and a
/// value that ends with the line. A line without name or value is logged and skipped.
///
/// @param list  receives label_cache_t records in the order of the file, each freed by the caller with free_lang_node;
///              when memory runs short in a line, those before it
/// @return 0, or -1 when the file cannot be opened or there is no memory to read it
[[nodiscard]] int lang_parse_name_value_from_file(const char *path, list_t **list);

/// Loads a properties file into the catalogue, which owns the labels; a label that is there gets the new value.
///
/// @return 0, also when a label could not be added, which is logged; -1 when the file cannot be read
int pop_lang_cache_from_file(const char *path, hashTable_t *cache);

/// @return the value of a label, owned by the catalogue; null when there is none
[[nodiscard]] const char *lang_localize_cl_debug_label(const hashTable_t *table, const char *key);

/// Logs every label at level 7.
void print_label_hash(const hashTable_t *table);

/// Makes the line of an event; that of a RADIUS packet needs no label.
///
/// @param cache         null without a catalogue: there is no line then
/// @param expanded_log  receives the line, freed by the caller with free(); null when there is none
/// @param verbose       not 0: with the attributes of a RADIUS packet
/// @return 0, also when memory is too short for the line of a RADIUS packet; -1 when the catalogue lacks a label or
///         memory is short
[[nodiscard]] int fill_cl_debug_log_params(const hashTable_t *cache, const cl_debug_record_params *params,
                                           char **expanded_log, int verbose);

/// Makes the line of a RADIUS packet: its name and, each in a line of its own, its attributes.
///
/// @param output_mesg  receives the line, freed by the caller with free(); untouched when memory is short
/// @param rad_attr     not 0: with the attributes
void parse_radius_attr(const cl_debug_record_params *evt_info, char **output_mesg, int rad_attr);

/// Names a RADIUS packet by its subinfo code, 800 plus the packet's code.
///
/// @param name  receives the name, at most 20 characters and a NUL
void radius_type(int subinfo_code, char *name);

/// @return the text of a role rule's match type; it is constant
[[nodiscard]] const char *get_rule_match_type(int match_type);
