#include "tools/vodctl/values.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iterator>
#include <string_view>

template <class T> static bool number_parse(std::string_view text, T *value)
{
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *value);
    return error == std::errc() && end == text.data() + text.size();
}

static bool host_port_parse(std::string_view host, std::string_view port, vodclient_server *server)
{
    uint16_t number = 0;
    if (host.empty() || !number_parse(port, &number) || number == 0)
        return false;
    server->host = host;
    server->port = number;
    return true;
}

static bool bracketed_parse(std::string_view text, vodclient_server *server)
{
    size_t end = text.find(']');
    if (end == std::string_view::npos || end == 1)
        return false;
    std::string_view host = text.substr(1, end - 1), rest = text.substr(end + 1);
    if (!rest.empty())
        return rest.front() == ':' && host_port_parse(host, rest.substr(1), server);
    server->host = host;
    return true;
}

bool server_parse(const std::string &text, vodclient_server *server)
{
    if (text.empty() || text.find('\0') != std::string::npos)
        return false;
    if (text.front() == '[')
        return bracketed_parse(text, server);
    if (std::ranges::count(text, ':') == 1) {
        size_t colon = text.find(':');
        return host_port_parse(std::string_view(text).substr(0, colon), std::string_view(text).substr(colon + 1),
                               server);
    }
    server->host = text;
    return true;
}

// "7", "7.5", "07.125"
static bool seconds_ms_parse(std::string_view text, int64_t *ms)
{
    static constexpr uint32_t SECONDS_MAX = 10'000'000;
    size_t point = text.find('.');
    std::string_view whole = text.substr(0, point);
    uint32_t seconds = 0, decimals = 0;
    if (!number_parse(whole, &seconds) || seconds > SECONDS_MAX)
        return false;
    if (point != std::string_view::npos) {
        std::string digits(text.substr(point + 1));
        if (digits.empty() || digits.size() > 3)
            return false;
        digits.resize(3, '0');
        if (!number_parse(std::string_view(digits), &decimals))
            return false;
    }
    *ms = int64_t{seconds} * 1000 + decimals;
    return true;
}

bool time_ms_parse(const std::string &text, int64_t *ms)
{
    static constexpr int64_t MINUTE_MS = 60 * 1000;
    size_t last = text.rfind(':');
    int64_t total = 0;
    if (!seconds_ms_parse(std::string_view(text).substr(last == std::string::npos ? 0 : last + 1), &total))
        return false;
    if (last != std::string::npos) {
        std::string_view front = std::string_view(text).substr(0, last);
        size_t colon = front.find(':');
        uint32_t hours = 0, minutes = 0;
        if (colon != std::string_view::npos && (!number_parse(front.substr(0, colon), &hours) || hours > 999))
            return false;
        if (!number_parse(colon == std::string_view::npos ? front : front.substr(colon + 1), &minutes))
            return false;
        if (total >= MINUTE_MS || minutes > (colon == std::string_view::npos ? 59'999u : 59u))
            return false;
        total += (int64_t{hours} * 60 + minutes) * MINUTE_MS;
    }
    *ms = total;
    return true;
}

namespace {
struct named_format {
    const char *name;
    play_format format;
};
} // namespace

static constexpr named_format s_formats[] = {
    {"rec", play_format::rec}, {"annexb", play_format::annexb}, {"mp4", play_format::mp4}};

static constexpr named_format s_extensions[] = {{"mp4", play_format::mp4},     {"m4v", play_format::mp4},
                                                {"h264", play_format::annexb}, {"264", play_format::annexb},
                                                {"h265", play_format::annexb}, {"265", play_format::annexb},
                                                {"hevc", play_format::annexb}, {"annexb", play_format::annexb}};

bool format_parse(const std::string &text, play_format *format)
{
    auto found = std::ranges::find(s_formats, text, &named_format::name);
    if (found == std::end(s_formats))
        return false;
    *format = found->format;
    return true;
}

play_format format_of_name(const std::string &name)
{
    size_t point = name.find_last_of("./\\");
    if (point == std::string::npos || name[point] != '.')
        return play_format::rec;
    std::string extension = name.substr(point + 1);
    std::ranges::transform(extension, extension.begin(),
                           [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    auto found = std::ranges::find(s_extensions, extension, &named_format::name);
    return found == std::end(s_extensions) ? play_format::rec : found->format;
}
