// Begin times as small numbers, so that many can be remembered and compared.
#pragma once

#include "silo_pool/silo_values.h"

#include <cstring>

// Seconds of a calendar whose months all have 31 days, so that later is greater. 0: no time of these years.
inline uint32_t silo_moment(std::string_view text)
{
    constexpr uint16_t FIRST_YEAR = 1990, LAST_YEAR = 2122;
    DVR_TIME time;
    if (!silo_time_from_text(text, &time) || time.year < FIRST_YEAR || time.year > LAST_YEAR || time.month < 1 ||
        time.month > 12 || time.day < 1 || time.day > 31 || time.hour > 23 || time.minute > 59 || time.second > 59)
        return 0;
    uint32_t days = ((time.year - FIRST_YEAR) * 12u + time.month - 1u) * 31u + time.day - 1u;
    return ((days * 24u + time.hour) * 60u + time.minute) * 60u + time.second + 1u;
}

// Reads one after the other in ascending order, where most are of the same minute as the one before.
struct silo_moment_reader {
    char minute[16] = {}; // "2024-03-05 07:08"
    uint32_t base = 0;    // 0: none yet

    uint32_t read(std::string_view text)
    {
        constexpr size_t LENGTH = 19;
        if (base != 0 && text.size() == LENGTH && std::memcmp(text.data(), minute, sizeof minute) == 0) {
            uint32_t tens = static_cast<uint8_t>(text[17]) - uint32_t{'0'},
                     ones = static_cast<uint8_t>(text[18]) - uint32_t{'0'};
            if (text[16] == ':' && tens < 6 && ones < 10)
                return base + tens * 10 + ones;
        }
        return read_anew(text);
    }

private:
    uint32_t read_anew(std::string_view text)
    {
        uint32_t moment = silo_moment(text);
        base = 0;
        if (moment != 0 && text.size() == 19) {
            std::memcpy(minute, text.data(), sizeof minute);
            base = moment - (moment - 1) % 60;
        }
        return moment;
    }
};
