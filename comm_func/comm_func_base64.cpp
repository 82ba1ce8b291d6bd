#include "comm_func/comm_codec.h"

#include "platform/os/os_guard.h"

#include <array>
#include <climits>

static constexpr char s_base64char[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
static constexpr char s_base64charex[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
static constexpr char PAD = '=';

// ---- Encoding -------------------------------------------------------------------------------------------------------

static char *encode_groups(std::span<const uint8_t> bytes, const char *alphabet, char *out)
{
    while (!bytes.empty()) {
        uint32_t second = bytes.size() > 1 ? bytes[1] : 0, third = bytes.size() > 2 ? bytes[2] : 0;
        uint32_t group = static_cast<uint32_t>(bytes[0]) << 16 | second << 8 | third;
        *out++ = alphabet[group >> 18];
        *out++ = alphabet[group >> 12 & 63];
        *out++ = bytes.size() > 1 ? alphabet[group >> 6 & 63] : PAD;
        *out++ = bytes.size() > 2 ? alphabet[group & 63] : PAD;
        bytes = bytes.subspan(bytes.size() < 3 ? bytes.size() : 3);
    }
    *out = '\0';
    return out;
}

// The terminating zero is part of what is encoded.
static char *encode_text(const char *srcdata, const char *alphabet, char *base64)
{
    if (base64 == nullptr || srcdata == nullptr)
        return LOGGED(nullptr, LOG_REFUSE, "base64 == NULL || srcdata == NULL");
    size_t len = std::strlen(srcdata) + 1;
    if (len > INT_MAX)
        return LOGGED(nullptr, LOG_REFUSE, "len <= 0");
    encode_groups({reinterpret_cast<const uint8_t *>(srcdata), len}, alphabet, base64);
    return base64;
}

char *base64_encode(const char *srcdata, char *base64)
{
    return encode_text(srcdata, s_base64char, base64);
}

char *base64_encode_ex(const char *srcdata, char *base64)
{
    return encode_text(srcdata, s_base64charex, base64);
}

char *bin_base64_encode(const void *bindata, int binlength, char *base64)
{
    if (bindata == nullptr || base64 == nullptr)
        return nullptr;
    size_t len = binlength > 0 ? static_cast<size_t>(binlength) : 0;
    encode_groups({static_cast<const uint8_t *>(bindata), len}, s_base64char, base64);
    return base64;
}

char *base64_encode_len(const void *src, int src_len, char *dst_buf, int dst_buf_len)
{
    static constexpr int SRC_LEN_MAX = 0x3FFFFFFE;
    if (src == nullptr || dst_buf == nullptr)
        return LOGGED(nullptr, LOG_REFUSE, "src == NULL || dst_buf == NULL");
    if (src_len < 0 || src_len > SRC_LEN_MAX || dst_buf_len <= static_cast<int64_t>(src_len) * 4 / 3 + 11)
        return nullptr;
    encode_groups({static_cast<const uint8_t *>(src), static_cast<size_t>(src_len)}, s_base64charex, dst_buf);
    return dst_buf;
}

// ---- Decoding -------------------------------------------------------------------------------------------------------

using decode_table = std::array<uint8_t, 256>;

// Characters outside the alphabet, the pad included, count as 255.
static constexpr decode_table make_decode_table(const char *alphabet)
{
    decode_table table;
    table.fill(255);
    for (uint8_t value = 0; value < 64; value++)
        table[static_cast<uint8_t>(alphabet[value])] = value;
    return table;
}
static constexpr decode_table s_values = make_decode_table(s_base64char);
static constexpr decode_table s_values_ex = make_decode_table(s_base64charex);

// A zero inside a group ends the text there, as a pad does.
static bool ends_group(char character)
{
    return character == PAD || character == '\0';
}

static int decode_groups(const char *base64, const decode_table &values, void *outdata)
{
    auto out = static_cast<uint8_t *>(outdata);
    int written = 0;
    auto value_of = [&](int index) { return static_cast<uint32_t>(values[static_cast<uint8_t>(base64[index])]); };
    for (; base64[0] != '\0' && base64[1] != '\0'; base64 += 4) {
        out[written++] = static_cast<uint8_t>(value_of(0) * 4 + (value_of(1) / 16 & 3));
        if (ends_group(base64[2]))
            break;
        out[written++] = static_cast<uint8_t>(value_of(1) * 16 + (value_of(2) / 4 & 15));
        if (ends_group(base64[3]))
            break;
        out[written++] = static_cast<uint8_t>(value_of(2) * 64 + (value_of(3) & 63));
    }
    return written;
}

int base64_decode(const char *base64, void *outdata)
{
    if (base64 == nullptr || outdata == nullptr)
        return LOGGED(-1, LOG_REFUSE, "base64 == NULL || outdata == NULL");
    return decode_groups(base64, s_values, outdata);
}

int base64_decode_ex(const char *base64, void *outdata)
{
    if (base64 == nullptr || outdata == nullptr)
        return LOGGED(-1, LOG_REFUSE, "base64 == NULL || outdata == NULL");
    return decode_groups(base64, s_values_ex, outdata);
}

int base64_decode_bin(const char *base64, void *bindata)
{
    if (base64 == nullptr || bindata == nullptr)
        return LOGGED(0, LOG_REFUSE, "base64 == NULL || bindata == NULL");
    return decode_groups(base64, s_values, bindata);
}
