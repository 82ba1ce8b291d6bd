// Takes a record's values from an iterator over its keys: one walk in place of ten questions.
#pragma once

#include "silo_pool/silo_record.h"

#include <cstddef>

// More digits than a number has; the rest of a foreign value is not worth a look.
constexpr size_t NUMBER_TEXT_MAX = 63;

// Makes a record empty without touching all of its five kilobytes: texts end where they begin.
void silo_record_clear(silo_record *record);

// Values come in the order of their keys; `place` remembers how far the walk is, 0 at the start of a record.
void silo_record_take(silo_record *record, size_t *place, std::string_view field, std::string_view value);

// Reads all of "f.<id>." with an iterator of the caller's. The record was cleared. False when there is nothing.
bool silo_record_read_fields(silo_iterator_t *iter, uint64_t id, silo_record *record);
