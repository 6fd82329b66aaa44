/// The catalogue of readable labels: functions of the hash table that holds it, and its loader. Main thread only.
#pragma once

#include "hashTable.h"

/// Row of a label: the sum of its name's characters, taken as signed bytes, modulo the table's size.
int lang_hash_func(const void *name, const hashTable_t *table, const void *value);

/// @return 0 when the stored label's name begins `name`
int lang_compare_record(const void *name, const void *stored);

/// Frees one label.
void free_lang_node(void *label);

/// Loads a properties file into the catalogue.
///
/// @return 0, or -1 when the file cannot be read
int pop_lang_cache_from_file(const char *path, hashTable_t *cache);
