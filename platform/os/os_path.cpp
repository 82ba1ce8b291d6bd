#include "platform/os/os_internal.h"

#include <algorithm>
#include <cstring>

static bool is_between(unsigned char byte, unsigned char low, unsigned char high)
{
    return byte >= low && byte <= high;
}

// Bytes of the GB18030 character at the start of `text`; 1 also for a byte that begins no character.
static size_t character_bytes(std::string_view text)
{
    auto at = [&](size_t i) { return static_cast<unsigned char>(i < text.size() ? text[i] : '\0'); };
    if (!is_between(at(0), 0x81, 0xFE))
        return 1;
    if (is_between(at(1), 0x30, 0x39))
        return is_between(at(2), 0x81, 0xFE) && is_between(at(3), 0x30, 0x39) ? 4 : 1;
    return at(1) >= 0x40 && at(1) != 0x7F && at(1) != 0xFF ? 2 : 1;
}

// The second byte of a character may be 0x5C and is no separator then.
void os_path_turn(std::string *text, char from, char to)
{
    for (size_t i = 0; i < text->size(); i += character_bytes(std::string_view(*text).substr(i)))
        if ((*text)[i] == from)
            (*text)[i] = to;
}

bool os_path_is_part(std::string_view path)
{
    for (size_t i = 0; i < path.size(); i += character_bytes(path.substr(i)))
        if (path[i] == '\\')
            return false;
    return true;
}

int os_path_copy_out(const std::string &text, char *out, size_t out_size)
{
    if (text.size() >= out_size)
        return 0;
    std::memcpy(out, text.c_str(), text.size() + 1);
    return 1;
}

bool os_path_take_in(const char *path, std::string *text)
{
    if (path == nullptr || strnlen(path, OS_PATH_BYTES_MAX) >= OS_PATH_BYTES_MAX)
        return false;
    *text = path;
    return true;
}

int os_code_convert(const char *from, const char *to, char *out, size_t out_size, const char *in, size_t in_len)
{
    bool is_injected = os_fault_point("os_code_convert") != 0;
    if (out != nullptr && out_size != 0 && is_injected)
        out[0] = '\0';
    return is_injected ? -1 : os_code_run(from, to, out, out_size, in, in_len);
}

bool os_path_convert(const char *from, const char *to, std::string *text)
{
    char converted[OS_PATH_BYTES_MAX];
    int length = os_code_run(from, to, converted, sizeof converted, text->data(), text->size());
    if (length <= 0)
        return text->empty();
    text->assign(converted, static_cast<size_t>(length));
    return true;
}

bool os_charset_is(const char *charset, std::string_view other)
{
    auto upper = [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; };
    return charset != nullptr && std::ranges::equal(std::string_view(charset), other, {}, upper, upper);
}

bool os_path_resolve(const char *path, std::string *host)
{
    char text[OS_PATH_BYTES_MAX];
    if (path == nullptr || *path == '\0')
        return os_file_fail("no name");
    if (!os_path_to_host(path, text, sizeof text))
        return os_file_fail("the name is too long or has no form on this host");
    *host = text;
    return true;
}

bool os_path_begin(const char *name, const char *path, std::string *host)
{
    return os_fault_point(name) ? os_file_fail("injected failure") : os_path_resolve(path, host);
}
