#include "platform/silo/pg_address.h"

#include "platform/silo/silo.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <string_view>

#include <libpq-fe.h>

static const std::string_view SCHEMES[] = {"postgresql://", "postgres://"};
// Searches of all clients wait for one call into the store, so the usual ones are below a second; whoever asks for more
// knows why.
static constexpr uint32_t LIMIT_MS_MIN = 50, LIMIT_MS_MAX = 60'000;

static size_t scheme_length(std::string_view uri)
{
    for (std::string_view scheme : SCHEMES)
        if (uri.starts_with(scheme))
            return scheme.size();
    return 0;
}

static std::vector<std::string> split(std::string_view text, char separator)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t end; (end = text.find(separator, start)) != text.npos; start = end + 1)
        parts.emplace_back(text.substr(start, end - start));
    parts.emplace_back(text.substr(start));
    return parts;
}

// "host:port" and nothing else; the host may be an IPv6 address in brackets.
static bool is_host_and_port(const std::string &text)
{
    size_t colon = text.rfind(':');
    if (colon == 0 || colon == text.npos || colon + 1 == text.size() || text.size() - colon > 6)
        return false;
    bool digits = std::all_of(text.begin() + static_cast<ptrdiff_t>(colon) + 1, text.end(),
                              [](char c) { return c >= '0' && c <= '9'; });
    std::string host = text.substr(0, colon);
    bool brackets = host.front() == '[' && host.back() == ']';
    return digits && (brackets || host.find_first_of(":\\") == host.npos);
}

static bool is_bare(std::string_view uri)
{
    std::vector<std::string> hosts = split(uri.substr(0, uri.find_first_of("/?")), ',');
    return std::ranges::all_of(hosts, is_host_and_port);
}

bool pg_address_is_ours(const std::string &uri)
{
    return scheme_length(uri) != 0 || is_bare(uri);
}

// ---- Parameters of our own -----------------------------------------------------------------------------------------

static bool read_limit(std::string_view text, uint32_t *ms)
{
    uint32_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < LIMIT_MS_MIN || value > LIMIT_MS_MAX)
        return false;
    *ms = value;
    return true;
}

// Where the parameters start; user and password, which stand before a '@', may hold a '?'.
static size_t query_start(const std::string &uri)
{
    size_t start = scheme_length(uri);
    size_t stop = uri.find_first_of("@/", start);
    if (stop != uri.npos && uri[stop] == '@')
        start = stop;
    return uri.find('?', start);
}

// Takes the parameters that libpq does not know out of the address.
static bool take_own_parameters(std::string *uri, pg_address *address, std::string *reason)
{
    size_t query = query_start(*uri);
    if (query == uri->npos)
        return true;
    std::string kept;
    for (const std::string &one : split(std::string_view(*uri).substr(query + 1), '&')) {
        size_t equals = std::min(one.find('='), one.size());
        std::string_view name = std::string_view(one).substr(0, equals);
        uint32_t *limit = name == "connect_ms"     ? &address->connect_ms
                          : name == "statement_ms" ? &address->statement_ms
                                                   : nullptr;
        if (limit == nullptr)
            kept += (kept.empty() ? "?" : "&") + one;
        else if (!read_limit(std::string_view(one).substr(std::min(equals + 1, one.size())), limit)) {
            *reason = std::string(name) + " must be " + std::to_string(LIMIT_MS_MIN) + " to " +
                      std::to_string(LIMIT_MS_MAX) + " milliseconds";
            return false;
        }
    }
    uri->replace(query, uri->npos, kept == "?" ? "" : kept);
    return true;
}

// ---- What libpq makes of the rest ----------------------------------------------------------------------------------

using conninfo_ptr = std::unique_ptr<PQconninfoOption, decltype(&PQconninfoFree)>;

// libpq's words quote the address, which must not be where it holds a password.
static std::string parse_failure(const std::string &uri, const char *message)
{
    std::string shown(uri.size() + 16, '\0');
    shown.resize(static_cast<size_t>(silo_uri_printable(uri.c_str(), shown.data(), shown.size())));
    if (shown != uri || message == nullptr)
        return "it is not understood; special characters in user, password and values must be written as %hh";
    std::string reason = message;
    return reason.substr(0, reason.find('\n'));
}

// As many as there are hosts; one stands for all.
static bool spread(const std::string &list, size_t count, std::vector<std::string> *values)
{
    *values = split(list, ',');
    if (values->size() == 1)
        values->resize(count, values->front());
    return values->size() == count;
}

static bool fill_hosts(const std::string &hosts, const std::string &hostaddrs, const std::string &ports,
                       pg_address *address, std::string *reason)
{
    size_t count = split(hostaddrs.empty() ? hosts : hostaddrs, ',').size();
    std::vector<std::string> host, hostaddr, port;
    if (!spread(hosts, count, &host) || !spread(hostaddrs, count, &hostaddr) || !spread(ports, count, &port)) {
        *reason = "it names another number of ports or host addresses than of hosts";
        return false;
    }
    for (size_t i = 0; i < count; i++)
        address->hosts.push_back({host[i], hostaddr[i], port[i]});
    return true;
}

bool pg_address_parse(const std::string &uri, pg_address *address, std::string *reason)
{
    *address = {};
    std::string rest = scheme_length(uri) != 0 ? uri : std::string(SCHEMES[0]) + uri;
    if (!take_own_parameters(&rest, address, reason))
        return false;
    char *message = nullptr;
    conninfo_ptr options(PQconninfoParse(rest.c_str(), &message), PQconninfoFree);
    std::unique_ptr<char, decltype(&PQfreemem)> message_owner(message, PQfreemem);
    if (options == nullptr) {
        *reason = parse_failure(rest, message);
        return false;
    }
    std::string hosts, hostaddrs, ports;
    for (const PQconninfoOption *option = options.get(); option->keyword != nullptr; option++) {
        if (option->val == nullptr)
            continue;
        std::string name = option->keyword;
        if (name == "host")
            hosts = option->val;
        else if (name == "hostaddr")
            hostaddrs = option->val;
        else if (name == "port")
            ports = option->val;
        else
            address->params.emplace_back(name, option->val);
    }
    return fill_hosts(hosts, hostaddrs, ports, address, reason);
}
