#include "comm_func/comm_codec.h"

#include <array>
#include <cstddef>

static constexpr uint32_t POLYNOMIAL = 0xEDB88320;

static constexpr std::array<uint32_t, 256> make_crc32_tab()
{
    std::array<uint32_t, 256> table = {};
    for (uint32_t index = 0; index < table.size(); index++) {
        uint32_t entry = index;
        for (int bit = 0; bit < 8; bit++)
            entry = entry & 1 ? entry >> 1 ^ POLYNOMIAL : entry >> 1;
        table[index] = entry;
    }
    return table;
}
static constexpr std::array<uint32_t, 256> s_crc32_tab = make_crc32_tab();
static_assert(s_crc32_tab[1] == 0x77073096 && s_crc32_tab[255] == 0x2D02EF8D);

uint32_t get_crc32_value(const void *buf, uint32_t len)
{
    auto bytes = static_cast<const uint8_t *>(buf);
    uint32_t crc = 0xFFFFFFFF;
    for (uint32_t i = 0; bytes != nullptr && i < len; i++)
        crc = s_crc32_tab[(bytes[i] ^ crc) & 0xFF] ^ crc >> 8;
    return ~crc;
}
