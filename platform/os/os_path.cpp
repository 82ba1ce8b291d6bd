#include "platform/os/os_internal.h"

#include <algorithm>
#include <cstring>

// Set once at start, before other threads use files.
static bool s_names_are_utf8;

int os_fs_charset_set(const char *charset)
{
    std::string_view name = charset == nullptr ? "" : charset;
    auto is = [&](std::string_view other) {
        return name.size() == other.size() && std::equal(name.begin(), name.end(), other.begin(), [](char a, char b) {
                   return (a >= 'a' && a <= 'z' ? a - 'a' + 'A' : a) == b;
               });
    };
    bool is_utf8 = is("UTF-8") || is("UTF8");
    if (!is_utf8 && !is("GB18030"))
        return 0;
    s_names_are_utf8 = is_utf8;
    return 1;
}

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
static void turn_gb18030_separators(std::string *text, char from, char to)
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

static bool convert(const char *from, const char *to, std::string *text)
{
    char converted[OS_PATH_BYTES_MAX];
    int length = os_code_convert(from, to, converted, sizeof converted, text->data(), text->size());
    if (length <= 0)
        return text->empty();
    text->assign(converted, static_cast<size_t>(length));
    return true;
}

static int copy_out(const std::string &text, char *out, size_t out_size)
{
    if (text.size() >= out_size)
        return 0;
    std::memcpy(out, text.c_str(), text.size() + 1);
    return 1;
}

static bool take_in(const char *path, std::string *text)
{
    if (path == nullptr || strnlen(path, OS_PATH_BYTES_MAX) >= OS_PATH_BYTES_MAX)
        return false;
    *text = path;
    return true;
}

static int path_to_host(const char *path, char *host, size_t host_size)
{
    std::string text;
    if (host == nullptr || !take_in(path, &text))
        return 0;
    turn_gb18030_separators(&text, '\\', '/');
    if (s_names_are_utf8 && !convert("GB18030", "UTF-8", &text))
        return 0;
    return copy_out(text, host, host_size);
}

int os_path_to_host(const char *path, char *host, size_t host_size)
{
    return os_guarded(0, [&] { return path_to_host(path, host, host_size); });
}

static int path_from_host(const char *host, char *path, size_t path_size)
{
    std::string text;
    if (path == nullptr || !take_in(host, &text))
        return 0;
    if (s_names_are_utf8 && !convert("UTF-8", "GB18030", &text))
        return 0;
    turn_gb18030_separators(&text, '/', '\\');
    return copy_out(text, path, path_size);
}

int os_path_from_host(const char *host, char *path, size_t path_size)
{
    return os_guarded(0, [&] { return path_from_host(host, path, path_size); });
}

os_path_parts os_path_split(const std::string &host)
{
    size_t separator = host.find_last_of('/');
    if (separator == std::string::npos)
        return {".", host};
    return {separator == 0 ? "/" : host.substr(0, separator), host.substr(separator + 1)};
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
