// The values of the record index: numbers and times as text.
#pragma once

#include "win32_vod/vod_types.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

constexpr size_t SILO_TIME_SIZE = 32;

// "2024-03-05 07:08:09", the year not padded, cut to 31 characters and terminated. The length.
size_t silo_time_to_text(const DVR_TIME &time, char (&text)[SILO_TIME_SIZE]);
// 1 when the text starts with all six fields; `time` is untouched otherwise.
int silo_time_from_text(std::string_view text, DVR_TIME *time);

// Decimal numbers as the store's formatter reads them: leading blanks and anything behind the digits are allowed, the
// number must fit. 1, or 0 with `number` untouched.
int silo_number_from_text(std::string_view text, uint64_t *number);
int silo_number_from_text(std::string_view text, uint32_t *number);

// The digits of a number; not terminated.
struct silo_number_text {
    explicit silo_number_text(uint64_t number);
    std::string_view view() const { return {digits, len}; }
    char digits[20];
    size_t len;
};
