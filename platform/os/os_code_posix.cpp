#include "platform/os/os_internal.h"

#include <array>
#include <climits>
#include <cstring>
#include <iconv.h>
#include <strings.h>
#include <utility>

static constexpr size_t CHARSET_BYTES = 32;

// One open conversion. Names that iconv takes options in ("//IGNORE") are refused: they would lose characters.
class converter {
public:
    converter() = default;
    ~converter() { close(); }
    converter(const converter &) = delete;
    converter &operator=(const converter &) = delete;

    bool is_for(const char *from, const char *to) const
    {
        return is_open() && strcasecmp(from_, from) == 0 && strcasecmp(to_, to) == 0;
    }

    bool open(const char *from, const char *to)
    {
        close();
        handle_ = iconv_open(to, from);
        if (!is_open())
            return false;
        std::strncpy(from_, from, CHARSET_BYTES - 1);
        std::strncpy(to_, to, CHARSET_BYTES - 1);
        return true;
    }

    // Bytes written, -1 when the text is no text of the first set or does not fit.
    int run(char *out, size_t out_size, const char *in, size_t in_len)
    {
        char *from = const_cast<char *>(in), *to = out;
        iconv(handle_, nullptr, nullptr, nullptr, nullptr);
        bool is_done = iconv(handle_, &from, &in_len, &to, &out_size) != static_cast<size_t>(-1) && in_len == 0 &&
                       iconv(handle_, nullptr, nullptr, &to, &out_size) != static_cast<size_t>(-1);
        return is_done && to - out <= INT_MAX ? static_cast<int>(to - out) : -1;
    }

private:
    bool is_open() const { return handle_ != iconv_t(-1); }

    void close()
    {
        if (is_open())
            iconv_close(handle_);
        handle_ = iconv_t(-1);
    }

    iconv_t handle_ = iconv_t(-1);
    char from_[CHARSET_BYTES] = {}, to_[CHARSET_BYTES] = {};
};

// Opening costs far more than converting, and a descriptor serves one thread at a time.
static converter *converter_for(const char *from, const char *to)
{
    static thread_local std::array<converter, 4> t_converters;
    static thread_local size_t t_oldest;
    for (converter &one : t_converters)
        if (one.is_for(from, to))
            return &one;
    converter &replaced = t_converters[t_oldest];
    t_oldest = (t_oldest + 1) % t_converters.size();
    return replaced.open(from, to) ? &replaced : nullptr;
}

static bool is_charset(const char *name)
{
    return name != nullptr && *name != '\0' && strnlen(name, CHARSET_BYTES) < CHARSET_BYTES &&
           std::strchr(name, '/') == nullptr;
}

int os_code_run(const char *from, const char *to, char *out, size_t out_size, const char *in, size_t in_len)
{
    if (out == nullptr || out_size == 0)
        return -1;
    out[0] = '\0';
    if (!is_charset(from) || !is_charset(to) || (in == nullptr && in_len != 0))
        return -1;
    if (in_len == 0)
        return 0;
    converter *used = converter_for(from, to);
    int length = used == nullptr ? -1 : used->run(out, out_size - 1, in, in_len);
    out[length > 0 ? length : 0] = '\0';
    return length;
}
