// Addresses as logs may show them.
#include "platform/silo/silo.h"

#include "platform/os/os_guard.h"

#include <algorithm>
#include <string>

static int hex_value(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// Names may be written as %hh too.
static std::string decoded(std::string_view text)
{
    std::string plain;
    for (size_t i = 0; i < text.size(); i++) {
        bool escape = text[i] == '%' && text.size() - i > 2;
        int high = escape ? hex_value(text[i + 1]) : -1, low = escape ? hex_value(text[i + 2]) : -1;
        plain += high >= 0 && low >= 0 ? static_cast<char>(high * 16 + low) : text[i];
        i += high >= 0 && low >= 0 ? 2 : 0;
    }
    return plain;
}

// Hides what stands between the first ':' and the last '@' behind the scheme: a password with characters that should
// have been escaped is hidden whole, at the price of hiding more than it where a parameter holds a '@'.
static void hide_user_password(std::string *text)
{
    size_t scheme = text->find("://");
    size_t start = scheme == text->npos ? 0 : scheme + 3;
    size_t at = text->rfind('@');
    size_t colon = text->find(':', start);
    if (at != text->npos && colon != text->npos && colon < at)
        text->replace(colon + 1, at - colon - 1, "***");
}

static void hide_password_parameters(std::string *text)
{
    for (size_t i = text->find('?'); i != text->npos; i = text->find_first_of("?&", i + 1)) {
        size_t end = std::min(text->find('&', i + 1), text->size());
        size_t equals = text->find('=', i + 1);
        if (equals < end &&
            decoded(std::string_view(*text).substr(i + 1, equals - i - 1)).find("password") != text->npos)
            text->replace(equals + 1, end - equals - 1, "***");
    }
}

int silo_uri_printable(const char *uri, char *out, size_t size)
{
    std::string text = uri == nullptr ? "" : uri;
    if (!text.starts_with("lmdb:")) {
        hide_user_password(&text);
        hide_password_parameters(&text);
    }
    if (out != nullptr && size != 0)
        text_copy({out, size}, text);
    return static_cast<int>(text.size());
}
