#include "platform/os/os_internal.h"

// Set once at start, before other threads use files.
static bool s_names_are_utf8;

int os_fs_charset_set(const char *charset)
{
    bool is_utf8 = os_charset_is(charset, "UTF-8") || os_charset_is(charset, "UTF8");
    if (!is_utf8 && !os_charset_is(charset, "GB18030"))
        return 0;
    s_names_are_utf8 = is_utf8;
    return 1;
}

bool os_path_decode(std::string *text)
{
    return !s_names_are_utf8 || os_path_convert("GB18030", "UTF-8", text);
}

static int path_to_host(const char *path, char *host, size_t host_size)
{
    std::string text;
    if (host == nullptr || !os_path_take_in(path, &text))
        return 0;
    os_path_turn(&text, '\\', '/');
    return os_path_decode(&text) && os_path_copy_out(text, host, host_size);
}

int os_path_to_host(const char *path, char *host, size_t host_size)
{
    return os_guarded(0, [&] { return path_to_host(path, host, host_size); });
}

static int path_from_host(const char *host, char *path, size_t path_size)
{
    std::string text;
    if (path == nullptr || !os_path_take_in(host, &text))
        return 0;
    if (s_names_are_utf8 && !os_path_convert("UTF-8", "GB18030", &text))
        return 0;
    os_path_turn(&text, '/', '\\');
    return os_path_copy_out(text, path, path_size);
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
