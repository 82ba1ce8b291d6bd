#include "platform/silo/pg_connect.h"

#include "platform/os/os_guard.h"
#include "platform/silo/pg_resolve.h"
#include "platform/silo/pg_socket.h"

#include <algorithm>
#include <map>
#include <mutex>

// ---- Which server took writes last ---------------------------------------------------------------------------------

static std::mutex s_writers_mutex;
// Guarded by s_writers_mutex. By the names of an address's hosts; forgotten when there are more than a process ever
// uses.
static auto &s_writers = *new std::map<std::string, size_t>; // never freed: threads may outlive the end of main
static constexpr size_t WRITERS_MAX = 64;

static std::string writers_key(const pg_address &address)
{
    std::string key;
    for (const pg_host &host : address.hosts)
        key += host.host + ' ' + host.hostaddr + ' ' + host.port + '\n';
    return key;
}

static size_t last_writer(const pg_address &address)
{
    std::lock_guard held(s_writers_mutex);
    auto found = s_writers.find(writers_key(address));
    return found == s_writers.end() ? 0 : found->second;
}

static void remember_writer(const pg_address &address, size_t host)
{
    std::lock_guard held(s_writers_mutex);
    if (s_writers.size() >= WRITERS_MAX)
        s_writers.clear();
    s_writers[writers_key(address)] = host;
}

// ---- One server ----------------------------------------------------------------------------------------------------

struct pg_parameters {
    std::vector<std::string> names, values;
    void set(const std::string &name, const std::string &value)
    {
        names.push_back(name);
        values.push_back(value);
    }
};

// What the address says wins, but for what the store rests on. A dead server shows within half a minute.
static pg_parameters parameters(const pg_address &address, const pg_host &host)
{
    static const std::pair<const char *, const char *> DEFAULTS[] = {
        {"keepalives_idle", "10"},     {"keepalives_interval", "5"},          {"keepalives_count", "3"},
        {"tcp_user_timeout", "15000"}, {"fallback_application_name", "silo"},
    };
    pg_parameters result;
    for (const auto &[name, value] : DEFAULTS)
        result.set(name, value);
    for (const auto &[name, value] : address.params)
        result.set(name, value);
    for (const auto &[name, value] : {std::pair("host", host.host), {"hostaddr", host.hostaddr}, {"port", host.port}})
        if (!value.empty())
            result.set(name, value);
    result.set("client_encoding", "UTF8");
    result.set("target_session_attrs", "read-write");
    return result;
}

// libpq by itself would write what the server says while it lets somebody in to standard error.
static void greeting(void *, const PGresult *result)
{
    const char *text = PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY);
    LOG(LOG_REFUSE, "store: the server says: %s", pg_first_line(text).c_str());
}

static pg_connection start(const pg_address &address, const pg_host &host)
{
    pg_parameters all = parameters(address, host);
    std::vector<const char *> names, values;
    for (size_t i = 0; i < all.names.size(); i++) {
        names.push_back(all.names[i].c_str());
        values.push_back(all.values[i].c_str());
    }
    names.push_back(nullptr);
    values.push_back(nullptr);
    pg_connection conn(PQconnectStartParams(names.data(), values.data(), 0));
    if (conn != nullptr)
        PQsetNoticeReceiver(conn.get(), greeting, nullptr);
    return conn;
}

static std::string server_name(const pg_host &host)
{
    std::string name = !host.host.empty() ? host.host : !host.hostaddr.empty() ? host.hostaddr : "the default server";
    return host.port.empty() ? name : name + ":" + host.port;
}

static std::string complaint(const pg_connection &conn, const pg_host &host)
{
    std::string message = pg_first_line(conn == nullptr ? "out of memory" : PQerrorMessage(conn.get()));
    bool names_server = message.starts_with("connection to server");
    return names_server ? message : server_name(host) + ": " + (message.empty() ? "no connection" : message);
}

// libpq's own limit counts whole seconds and at least two.
static bool finish(PGconn *conn, uint32_t limit_ms, bool *is_late)
{
    uint64_t begun = os_tick();
    for (PostgresPollingStatusType next = PGRES_POLLING_WRITING; next != PGRES_POLLING_OK; next = PQconnectPoll(conn)) {
        if (next == PGRES_POLLING_FAILED)
            return false;
        uint32_t passed = static_cast<uint32_t>(std::min<uint64_t>(os_tick() - begun, limit_ms));
        bool writes = next == PGRES_POLLING_WRITING;
        pg_ready ready = pg_socket_wait(PQsocket(conn), !writes, writes, limit_ms - passed);
        if (ready == PG_TIME_UP)
            return *is_late = true, false;
    }
    return true;
}

static pg_connection connect_to(const pg_address &address, const pg_host &host, uint32_t limit_ms, std::string *reason)
{
    pg_connection conn = start(address, host);
    bool is_late = false;
    if (os_fault_point("pg_connect"))
        *reason += server_name(host) + ": no connection";
    else if (conn != nullptr && PQstatus(conn.get()) != CONNECTION_BAD && finish(conn.get(), limit_ms, &is_late))
        return conn;
    else if (is_late)
        *reason += server_name(host) + ": no answer for " + std::to_string(limit_ms) + " ms";
    else
        *reason += complaint(conn, host);
    return nullptr;
}

// ---- All servers ---------------------------------------------------------------------------------------------------

// Time that those who come later have their share of, however long the earlier ones are silent.
struct pg_time {
    explicit pg_time(uint64_t limit) : limit_ms(limit), begun(os_tick()) {}
    uint32_t share(size_t waiting) const
    {
        uint64_t passed = std::min<uint64_t>(os_tick() - begun, limit_ms);
        return static_cast<uint32_t>((limit_ms - passed) / waiting);
    }
    uint64_t limit_ms, begun;
};

// One for each address that the name stands for.
static std::vector<pg_host> addresses_of(const pg_host &host, const pg_time &time, std::string *reason)
{
    if (!host.hostaddr.empty() || !pg_is_name(host.host))
        return {host};
    std::vector<std::string> addresses;
    if (!pg_resolve(host.host, time.share(1), pg_host_addresses, &addresses))
        *reason += host.host + ": the name cannot be resolved";
    std::vector<pg_host> found;
    for (const std::string &one : addresses)
        found.push_back({host.host, one, host.port});
    return found;
}

static pg_connection connect_to_host(const pg_address &address, const pg_host &host, uint32_t limit_ms,
                                     std::string *reason)
{
    pg_time time(limit_ms);
    std::vector<pg_host> addresses = addresses_of(host, time, reason);
    for (size_t i = 0; i < addresses.size(); i++) {
        *reason += i == 0 ? "" : ", ";
        if (pg_connection conn = connect_to(address, addresses[i], time.share(addresses.size() - i), reason))
            return conn;
    }
    return nullptr;
}

pg_connection pg_connect(const pg_address &address, std::string *reason)
{
    pg_time time(address.connect_ms);
    size_t count = address.hosts.size(), first = last_writer(address) % count;
    for (size_t i = 0; i < count; i++) {
        size_t index = (first + i) % count;
        *reason += i == 0 ? "" : ", ";
        if (pg_connection conn = connect_to_host(address, address.hosts[index], time.share(count - i), reason)) {
            remember_writer(address, index);
            return conn;
        }
    }
    return nullptr;
}
