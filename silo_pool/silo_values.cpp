#include "silo_pool/silo_values.h"

#include "platform/os/os_guard.h"
#include "platform/silo/silo.h"

#include <charconv>
#include <limits>

static char *add_digits(char *to, char *end, uint16_t value, int width)
{
    char digits[5];
    auto last = std::to_chars(digits, digits + sizeof digits, value).ptr;
    for (auto count = last - digits; count < width && to < end; count++)
        *to++ = '0';
    for (char *digit = digits; digit < last && to < end; digit++)
        *to++ = *digit;
    return to;
}

size_t silo_time_to_text(const DVR_TIME &time, char (&text)[SILO_TIME_SIZE])
{
    const uint16_t fields[] = {time.year, time.month, time.day, time.hour, time.minute, time.second};
    static constexpr char SEPARATORS[] = {'\0', '-', '-', ' ', ':', ':'};
    char *to = text, *end = text + sizeof text - 1;
    for (int i = 0; i < 6; i++) {
        if (i > 0 && to < end)
            *to++ = SEPARATORS[i];
        to = add_digits(to, end, fields[i], i == 0 ? 1 : 2);
    }
    *to = '\0';
    return static_cast<size_t>(to - text);
}

static bool two_digits(const char *text, uint16_t *value)
{
    if (text[0] < '0' || text[0] > '9' || text[1] < '0' || text[1] > '9')
        return false;
    *value = static_cast<uint16_t>((text[0] - '0') * 10 + (text[1] - '0'));
    return true;
}

// The form that all records have: 19 bytes with everything at its place.
static bool read_plain_time(std::string_view text, DVR_TIME *time)
{
    if (text.size() != 19 || text[4] != '-' || text[7] != '-' || text[10] != ' ' || text[13] != ':' || text[16] != ':')
        return false;
    uint16_t century, rest;
    DVR_TIME read;
    const char *at = text.data();
    if (!two_digits(at, &century) || !two_digits(at + 2, &rest) || !two_digits(at + 5, &read.month) ||
        !two_digits(at + 8, &read.day) || !two_digits(at + 11, &read.hour) || !two_digits(at + 14, &read.minute) ||
        !two_digits(at + 17, &read.second))
        return false;
    read.year = static_cast<uint16_t>(century * 100 + rest);
    *time = read;
    return true;
}

int silo_time_from_text(std::string_view text, DVR_TIME *time)
{
    if (read_plain_time(text, time))
        return 1;
    DVR_TIME read = {};
    if (xfmt_sscanf(text.data(), text.size(), "%hu-%hu-%hu %hu:%hu:%hu", &read.year, &read.month, &read.day, &read.hour,
                    &read.minute, &read.second) != 6)
        return 0;
    *time = read;
    return 1;
}

// Nothing but digits, few enough to fit 64 bits whatever they are.
static bool read_plain_number(std::string_view text, uint64_t *number)
{
    if (text.empty() || text.size() > 19)
        return false;
    uint64_t value = 0;
    for (char digit : text) {
        if (digit < '0' || digit > '9')
            return false;
        value = value * 10 + static_cast<uint64_t>(digit - '0');
    }
    *number = value;
    return true;
}

int silo_number_from_text(std::string_view text, uint64_t *number)
{
    uint64_t value = 0;
    if (!read_plain_number(text, &value) && xfmt_sscanf(text.data(), text.size(), "%lu", &value) != 1)
        return 0;
    *number = value;
    return 1;
}

int silo_number_from_text(std::string_view text, uint32_t *number)
{
    uint64_t plain = 0;
    if (read_plain_number(text, &plain)) {
        if (plain > std::numeric_limits<uint32_t>::max())
            return 0;
        *number = static_cast<uint32_t>(plain);
        return 1;
    }
    uint32_t value = 0;
    if (xfmt_sscanf(text.data(), text.size(), "%u", &value) != 1)
        return 0;
    *number = value;
    return 1;
}

silo_number_text::silo_number_text(uint64_t number)
    : len(static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, number).ptr - digits))
{}
