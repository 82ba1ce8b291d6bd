#include "vod/record_size.h"

#include <algorithm>
#include <numeric>
#include <span>

static size_t characters_of(char byte)
{
    if (static_cast<unsigned char>(byte) >= 0x80)
        return RECORD_REPLY_CHARACTER;
    return byte == '&' || byte == '<' || byte == '>' || byte == '\r' ? 5 : 1; // "&amp;", "&#13;"
}

static size_t text_size(std::span<const char> field)
{
    return std::accumulate(field.begin(), std::ranges::find(field, '\0'), size_t{0},
                           [](size_t size, char byte) { return size + characters_of(byte); });
}

size_t record_reply_size(const RecordFileInfo &record)
{
    return RECORD_REPLY_FIXED + text_size(record.filename) + text_size(record.devid) + text_size(record.md5) +
           text_size(record.card_num);
}
