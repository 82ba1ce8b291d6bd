// Connections: the descriptors, and the handles that are opened on them.
#include "platform/silo/silo.h"

#include "platform/silo/silo_internal.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

static constexpr size_t URI_BYTES_MAX = 1023;
static constexpr size_t NAME_BYTES_MAX = 60;

static constexpr const silo_driver *s_drivers[] = {
    &silo_lmdb_driver,
#if defined(SILO_WITH_POSTGRESQL)
    &silo_pg_driver,
#endif
};

static std::mutex s_descriptors_mutex;
// Guarded by s_descriptors_mutex. The connection, until a handle is opened on the descriptor and owns it.
static auto &s_descriptors = *new std::map<int, silo_t *>;
// Guarded by s_descriptors_mutex. Numbers are not used again soon, so that a stale one is noticed.
static int s_last_descriptor;

static const silo_driver *driver_of(std::string_view uri)
{
    for (const silo_driver *driver : s_drivers)
        if (driver->takes(uri))
            return driver;
    return LOGGED(nullptr, LOG_SYSTEM, "silo_connect_fd: no driver of this build takes the address; \"lmdb:<folder>\" names "
                                       "a store on this machine");
}

static int descriptor_add(silo_t *db)
{
    std::lock_guard held(s_descriptors_mutex);
    do
        s_last_descriptor = s_last_descriptor == INT_MAX ? 1 : s_last_descriptor + 1;
    while (s_descriptors.contains(s_last_descriptor));
    s_descriptors.emplace(s_last_descriptor, db);
    return s_last_descriptor;
}

struct connection_closer {
    void operator()(silo_t *db) const { db->driver->disconnect(db); }
};
using connection_ptr = std::unique_ptr<silo_t, connection_closer>;

static int connect_checked(std::string_view uri)
{
    const silo_driver *driver = driver_of(uri);
    if (driver == nullptr)
        return -1;
    connection_ptr db(driver->connect(uri));
    if (db == nullptr)
        return -1;
    int fd = descriptor_add(db.get());
    static_cast<void>(db.release()); // the table's now
    return fd;
}

// Empty, logged, when it has no length that an address may have.
static std::string_view uri_text(const char *uri)
{
    size_t length = uri == nullptr ? 0 : strnlen(uri, URI_BYTES_MAX + 1);
    if (length == 0 || length > URI_BYTES_MAX)
        return LOGGED(std::string_view(), LOG_SYSTEM, "silo_connect_fd: an address has 1 to %zu bytes", URI_BYTES_MAX);
    return {uri, length};
}

int silo_uri_check(const char *uri)
{
    std::string_view text = uri_text(uri);
    bool is_failed = false;
    return !text.empty() && silo_guarded(0, &is_failed, [&] {
        const silo_driver *driver = driver_of(text);
        return driver != nullptr && driver->check(text) ? 1 : 0;
    });
}

int silo_connect_fd(const char *uri)
{
    std::string_view text = uri_text(uri);
    if (text.empty())
        return -1;
    if (os_fault_point("silo_connect_fd"))
        return LOGGED(-1, LOG_SYSTEM, "silo_connect_fd: injected failure");
    bool is_failed = false;
    return silo_guarded(-1, &is_failed, [&] { return connect_checked(text); });
}

void silo_close_fd(int fd)
{
    silo_t *unopened = nullptr;
    {
        std::lock_guard held(s_descriptors_mutex);
        auto found = s_descriptors.find(fd);
        if (found == s_descriptors.end())
            return;
        unopened = found->second;
        s_descriptors.erase(found);
    }
    connection_ptr ended(unopened);
}

static silo_t *descriptor_open(int fd)
{
    std::lock_guard held(s_descriptors_mutex);
    auto found = s_descriptors.find(fd);
    return found == s_descriptors.end() ? nullptr : std::exchange(found->second, nullptr);
}

silo_t *silo_open_proxy_fd(int read_fd, int write_fd)
{
    if (read_fd != write_fd)
        return LOGGED(nullptr, LOG_SYSTEM, "silo_open_proxy_fd: two descriptors, %d and %d", read_fd, write_fd);
    if (os_fault_point("silo_open_proxy_fd"))
        return LOGGED(nullptr, LOG_SYSTEM, "silo_open_proxy_fd: injected failure");
    silo_t *db = descriptor_open(read_fd);
    if (db == nullptr)
        return LOGGED(nullptr, LOG_SYSTEM, "silo_open_proxy_fd: %d is no descriptor of a store, or opened already", read_fd);
    return db;
}

static bool is_name(std::string_view name)
{
    auto is_allowed = [](char letter) {
        return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') || (letter >= '0' && letter <= '9') ||
               letter == '_';
    };
    return !name.empty() && name.size() <= NAME_BYTES_MAX && std::ranges::all_of(name, is_allowed);
}

int silo_proxy_select_db(silo_t *db, const char *name)
{
    std::string_view text(name == nullptr ? "" : name, name == nullptr ? 0 : strnlen(name, NAME_BYTES_MAX + 1));
    if (db == nullptr || !is_name(text))
        return LOGGED(-1, LOG_SYSTEM, "silo_proxy_select_db: no handle, or no name of 1 to %zu letters, digits or '_'",
                      NAME_BYTES_MAX);
    if (db->has_transaction || db->is_failed)
        return LOGGED(-1, LOG_SYSTEM, "silo_proxy_select_db: the handle has %s",
                      db->is_failed ? "failed" : "a transaction");
    if (os_fault_point("silo_proxy_select_db"))
        return LOGGED(-1, LOG_SYSTEM, "silo_proxy_select_db: injected failure");
    db->is_selected = silo_guarded(false, &db->is_failed, [&] { return db->driver->select_db(db, text); });
    return db->is_selected ? 0 : -1;
}

int silo_proxy_error(silo_t *db)
{
    return db == nullptr || db->is_failed ? 1 : 0;
}

void silo_destroy(silo_t *db)
{
    connection_ptr ended(db);
}

uint64_t silo_round_trips(silo_t *db)
{
    return db == nullptr ? 0 : db->round_trips;
}
