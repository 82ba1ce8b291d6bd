// Values of the index, as searches read them.
#include "platform/silo/silo.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    auto text = reinterpret_cast<const char *>(data);
    uint64_t wide = 0;
    int64_t big = 0;
    uint32_t number = 0;
    uint16_t part[6] = {};
    char rest[33];
    if (xfmt_sscanf(text, size, "%lu", &wide) > 1 || xfmt_sscanf(text, size, "%lld %u", &big, &number) > 2 ||
        xfmt_sscanf(text, size, "%S", rest, sizeof rest) != 1)
        std::abort();
    if (xfmt_sscanf(text, size, "%hu-%hu-%hu %hu:%hu:%hu", &part[0], &part[1], &part[2], &part[3], &part[4], &part[5]) != 6)
        return 0;
    // What was read is written as a time, and read back as the same.
    char time[64];
    uint16_t again[6] = {};
    int length = xfmt_sprintf(time, sizeof time, "%hu-%02hu-%02hu %02hu:%02hu:%02hu", part[0], part[1], part[2], part[3],
                              part[4], part[5]);
    if (length < 0 || xfmt_sscanf(time, static_cast<size_t>(length), "%hu-%hu-%hu %hu:%hu:%hu", &again[0], &again[1],
                                  &again[2], &again[3], &again[4], &again[5]) != 6)
        std::abort();
    for (int i = 0; i < 6; i++)
        if (part[i] != again[i])
            std::abort();
    return 0;
}
