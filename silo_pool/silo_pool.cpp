#include "silo_pool/silo_pool.h"

#include "platform/os/os_guard.h"

#include <atomic>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string_view>

static constexpr int64_t IDLE_MS_MAX = 9999;
static constexpr size_t IDLE_CONNECTIONS_MAX = 3;
static constexpr size_t URI_SIZE = 1024;

// Written under s_silo_pool_once until the pool is made, then only read.
static char s_silo_pool_uri[URI_SIZE];
static const char *s_silo_pool_db_name = "db";

struct connection_pool {
    LMutex lock;
    // Guarded by the lock. Elements are silo_connection pointers. NULL where the pool could not be made.
    DList *free_connections; // oldest at the head
    DList *used_connections;
};
static connection_pool s_conn_pool;

// Guards `s_silo_pool_is_made`, and the making itself.
static std::mutex s_silo_pool_once;
static bool s_silo_pool_is_made;
static std::atomic<uint32_t> s_silo_pool_life = 1;

struct pool_guard : os_lock_guard {
    explicit pool_guard(os_place place = os_place::current()) : os_lock_guard(&s_conn_pool.lock, place) {}
};

// An address as logs may show it: nobody's password.
struct printable_uri {
    explicit printable_uri(const char *uri) { silo_uri_printable(uri, text, sizeof text); }
    char text[URI_SIZE + 64] = "";
};

// ---- Life of the pool -----------------------------------------------------------------------------------------------

static bool lists_create()
{
    s_conn_pool.free_connections = adt_dlist_create(sizeof(silo_connection *));
    s_conn_pool.used_connections = adt_dlist_create(sizeof(silo_connection *));
    return s_conn_pool.free_connections != nullptr && s_conn_pool.used_connections != nullptr;
}

static void lists_destroy()
{
    adt_dlist_destroy(s_conn_pool.free_connections);
    adt_dlist_destroy(s_conn_pool.used_connections);
    s_conn_pool.free_connections = s_conn_pool.used_connections = nullptr;
}

static const char *uri_wanted()
{
    if (s_silo_pool_uri[0] != '\0')
        return s_silo_pool_uri;
    const char *named = os_environment_get("ZETA_DB_SOCK");
    return named != nullptr ? named : "127.0.0.1:12777";
}

static void uri_choose()
{
    if (const char *uri = uri_wanted(); uri != s_silo_pool_uri)
        text_copy(s_silo_pool_uri, uri);
}

bool silo_pool_is_server()
{
    std::lock_guard once(s_silo_pool_once);
    return !std::string_view(uri_wanted()).starts_with("lmdb:");
}

static void silo_pool_init()
{
    uri_choose();
    printable_uri uri(s_silo_pool_uri);
    LOG(LOG_REFUSE, "db uri: %s", uri.text);
    if (!os_mutex_init(&s_conn_pool.lock, 0)) {
        LOG(LOG_SYSTEM, "os_mutex_init failed!");
        return;
    }
    os_mutex_set_rank(&s_conn_pool.lock, SILO_POOL_LOCK_RANK, "store pool");
    if (!lists_create()) {
        LOG(LOG_SYSTEM, "adt_dlist_create failed!");
        lists_destroy();
        os_mutex_destroy(&s_conn_pool.lock);
        return;
    }
    LOG(LOG_REFUSE, "silo connection pool init successful, uri: %s, db: %s", uri.text, s_silo_pool_db_name);
}

void silo_pool_set_db_uri(const char *uri)
{
    std::lock_guard once(s_silo_pool_once);
    // All connections of a pool lead to one store.
    if (uri != nullptr && !s_silo_pool_is_made)
        text_copy(s_silo_pool_uri, uri);
}

// False when the pool could not be made, which is tried once only.
static bool silo_pool_ready()
{
    std::lock_guard once(s_silo_pool_once);
    if (!s_silo_pool_is_made)
        silo_pool_init();
    s_silo_pool_is_made = true;
    return s_conn_pool.free_connections != nullptr;
}

// ---- Connections ----------------------------------------------------------------------------------------------------

static void free_connection(silo_connection *conn)
{
    if (conn->db != nullptr)
        silo_destroy(conn->db);
    if (conn->fd != -1)
        silo_close_fd(conn->fd);
    std::free(conn);
}

struct connection_freer {
    void operator()(silo_connection *conn) const { free_connection(conn); }
};
using connection_ptr = std::unique_ptr<silo_connection, connection_freer>;

static silo_connection *create_silo_connection(const char *uri, const char *db)
{
    connection_ptr conn(new_or_exit<silo_connection>("malloc for new connection failed!"));
    conn->fd = silo_connect_fd(uri);
    if (conn->fd == -1)
        return LOGGED(nullptr, LOG_SYSTEM, "silo_connect_fd failed, uri:%s", printable_uri(uri).text);
    conn->db = silo_open_proxy_fd(conn->fd, conn->fd);
    if (conn->db == nullptr)
        return LOGGED(nullptr, LOG_SYSTEM, "silo_open_proxy_fd failed, fd:%d", conn->fd);
    if (silo_proxy_select_db(conn->db, db) < 0)
        return LOGGED(nullptr, LOG_SYSTEM, "silo_proxy_select_db failed, db: %s", db);
    return conn.release();
}

static silo_connection *connection_at(DListNode *node)
{
    return *static_cast<silo_connection **>(adt_dlist_data(node));
}

static silo_connection *take_oldest_idle(const pool_guard &)
{
    DListNode *head = adt_dlist_head(s_conn_pool.free_connections);
    if (head == nullptr)
        return nullptr;
    silo_connection *conn = connection_at(head);
    adt_dlist_erase(s_conn_pool.free_connections, head);
    return conn;
}

static int64_t now_ms()
{
    return static_cast<int64_t>(os_tick());
}

static silo_connection *take_fresh_idle(const pool_guard &held)
{
    while (silo_connection *conn = take_oldest_idle(held)) {
        if (conn->stamp + IDLE_MS_MAX >= now_ms())
            return conn;
        free_connection(conn);
    }
    return nullptr;
}

silo_connection *silo_pool_get_connection()
{
    if (!silo_pool_ready())
        return nullptr;
    pool_guard held;
    silo_connection *conn = take_fresh_idle(held);
    if (conn == nullptr)
        conn = create_silo_connection(s_silo_pool_uri, s_silo_pool_db_name);
    // Without memory for its entry it is in use all the same: giving back takes connections that are not found.
    if (conn != nullptr)
        adt_dlist_push_back(s_conn_pool.used_connections, &conn);
    return conn;
}

static void forget_used(const pool_guard &, const silo_connection *conn)
{
    for (auto node = adt_dlist_head(s_conn_pool.used_connections); node != nullptr; node = adt_dlist_next(node))
        if (connection_at(node) == conn) {
            adt_dlist_erase(s_conn_pool.used_connections, node);
            return;
        }
}

// False when it cannot be kept.
static bool keep_idle(const pool_guard &held, silo_connection *conn)
{
    if (adt_dlist_push_back(s_conn_pool.free_connections, &conn) == nullptr)
        return false;
    conn->stamp = now_ms();
    if (adt_dlist_size(s_conn_pool.free_connections) > IDLE_CONNECTIONS_MAX)
        free_connection(take_oldest_idle(held));
    return true;
}

void silo_pool_release_connection(silo_connection *conn)
{
    if (conn == nullptr || !silo_pool_ready())
        return;
    bool kept = false;
    {
        pool_guard held;
        forget_used(held, conn);
        if (silo_proxy_error(conn->db) == 0)
            kept = keep_idle(held, conn);
    }
    if (!kept)
        free_connection(conn);
}

// ---- End ------------------------------------------------------------------------------------------------------------

void silo_pool_close()
{
    std::lock_guard once(s_silo_pool_once);
    s_silo_pool_life++;
    s_silo_pool_is_made = false;
    s_silo_pool_uri[0] = '\0';
    if (s_conn_pool.free_connections == nullptr)
        return;
    {
        pool_guard held;
        while (silo_connection *conn = take_oldest_idle(held))
            free_connection(conn);
    }
    lists_destroy();
    os_mutex_destroy(&s_conn_pool.lock);
}

uint32_t silo_pool_life()
{
    return s_silo_pool_life;
}
