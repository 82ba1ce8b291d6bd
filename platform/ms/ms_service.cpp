// The service's own side: start, end and bindings, and the calls on a connection that both sides share.
#include "platform/ms/ms.h"

#include "platform/ms/ms_link.h"
#include "platform/ms/ms_listener.h"
#include "platform/ms/ms_runtime.h"
#include "platform/ms/ms_settings.h"
#include "platform/ms/ms_table.h"
#include "platform/os/os_guard.h"

#include <exception>

// Held through start and end, so that one waits for the other.
static std::mutex s_service_mutex;
// Guarded by s_service_mutex.
static std::shared_ptr<ms_listener> *s_listener;
static std::atomic<bool> s_is_running;
static std::atomic<uint16_t> s_port;

static std::mutex s_device_id_mutex;
// Guarded by s_device_id_mutex; made by start-up, or when it is first asked for without one.
static std::string *s_device_id;

// Never destroyed: its threads may outlive the end of main. Handlers can be bound before start-up.
static ms_runtime *service_runtime()
{
    static auto runtime = new ms_runtime;
    return runtime;
}

static bool service_listen(const ms_settings &settings)
{
    auto listener = std::make_shared<ms_listener>(service_runtime());
    if (std::string why = listener->open(settings.listen, settings.port); !why.empty())
        return LOGGED(false, LOG_SYSTEM, "cannot listen on %s port %u: %s", settings.listen.c_str(), settings.port,
                      why.c_str());
    if (!service_runtime()->start(settings))
        return LOGGED(false, LOG_SYSTEM, "no thread for the message service");
    s_listener = new std::shared_ptr<ms_listener>(listener);
    s_port = listener->port();
    listener->start();
    return true;
}

static void device_id_set(const ms_settings &settings)
{
    std::lock_guard held(s_device_id_mutex);
    delete s_device_id;
    s_device_id = nullptr;
    s_device_id = new std::string(ms_settings_device_id(settings));
}

static std::string device_id()
{
    std::lock_guard held(s_device_id_mutex);
    if (s_device_id == nullptr)
        s_device_id = new std::string(ms_settings_device_id(ms_settings_read()));
    return *s_device_id;
}

int ms_startup(void)
{
    if (s_is_running)
        return 1;
    std::lock_guard held(s_service_mutex);
    if (s_is_running)
        return 1;
    try {
        ms_settings settings = ms_settings_read();
        device_id_set(settings);
        s_is_running = service_listen(settings);
    } catch (const std::exception &failure) {
        return LOGGED(0, LOG_SYSTEM, "message service: %s", failure.what());
    }
    return s_is_running;
}

int ms_cleanup(void)
{
    if (ms_on_runtime_thread())
        return LOGGED(0, LOG_REFUSE, "ms_cleanup: called by a handler");
    std::lock_guard held(s_service_mutex);
    if (s_is_running) {
        (*s_listener)->close();
        service_runtime()->stop();
        delete s_listener;
        s_listener = nullptr;
        s_port = 0;
        s_is_running = false;
    }
    for (auto &handler : service_runtime()->handlers)
        handler = nullptr;
    return 1;
}

int ms_bind_client_event(uint16_t module, ms_event_func handler)
{
    if (module > UINT8_MAX)
        return LOGGED(0, LOG_REFUSE, "ms_bind_client_event: no module %u", module);
    service_runtime()->handlers[module] = handler;
    return 1;
}

uint16_t ms_listen_port(void)
{
    return s_port;
}

int ms_get_local_devid(char *buffer)
{
    if (buffer == nullptr)
        return 0;
    try {
        std::string id = device_id();
        std::memcpy(buffer, id.c_str(), id.size() + 1);
    } catch (const std::exception &) {
        return 0;
    }
    return 1;
}

void ms_get_statistics(struct ms_statistics *statistics)
{
    if (statistics == nullptr)
        return;
    const ms_counters &counters = service_runtime()->counters;
    *statistics = {.connections = service_runtime()->connection_count(),
                   .accepted_total = counters.accepted,
                   .refused_total = counters.refused,
                   .packages_in_total = counters.packages_in,
                   .packages_out_total = counters.packages_out,
                   .framing_errors_total = counters.framing_errors,
                   .bytes_queued = counters.bytes_queued};
}

// ---- Calls on a connection

// The bytes of a package whose length is the one of its attributes; empty otherwise.
static std::span<const uint8_t> committed_bytes(const MpPackage *package)
{
    if (package == nullptr || package->head == nullptr || package->size > MP_MAX_ATTR_NUM)
        return {};
    auto begin = reinterpret_cast<const uint8_t *>(package->head);
    size_t len = sizeof(MpPackHead);
    if (package->size > 0) {
        const MpAttrHead *last = package->attr[package->size - 1];
        len = static_cast<size_t>(reinterpret_cast<const uint8_t *>(last) - begin) + last->len;
    }
    if (len != package->head->total_len || len > package->capacity)
        return {};
    return {begin, len};
}

int ms_send_package(MsLink *link, const MpPackage *package)
{
    std::span<const uint8_t> bytes = committed_bytes(package);
    if (bytes.empty()) {
        os_set_errno(0);
        return LOGGED(0, LOG_SYSTEM, "ms_send_package: the package is not committed");
    }
    auto connection = ms_table_find(link);
    uint32_t error = connection == nullptr ? static_cast<uint32_t>(ORB_ERROR_TCP_SEND_ERR) : connection->send(bytes);
    if (error != 0)
        os_set_errno(error);
    return error == 0;
}

void ms_wait_sendable(MsLink *link, uint32_t ms)
{
    if (auto connection = ms_table_find(link))
        connection->wait_sendable(ms);
}

void ms_timeout(MsLink *link)
{
    if (auto connection = ms_table_find(link))
        connection->close();
}

// Leaves the code of a call on a connection that is gone.
static int gone()
{
    os_set_errno(ORB_ERROR_TCP_SEND_ERR);
    return 0;
}

int mslink_set_udata(MsLink *link, void *udata)
{
    auto connection = ms_table_find(link);
    return connection != nullptr && connection->set_udata(udata) ? 1 : gone();
}

void *mslink_get_udata(MsLink *link)
{
    auto connection = ms_table_find(link);
    if (connection == nullptr)
        gone();
    return connection == nullptr ? nullptr : connection->udata();
}

int mslink_destroy(MsLink *link)
{
    auto connection = ms_table_find(link);
    return connection != nullptr && connection->destroy() ? 1 : gone();
}

int mslink_hold_reading(MsLink *link, int hold)
{
    auto connection = ms_table_find(link);
    return connection != nullptr && connection->hold_reading(hold != 0) ? 1 : gone();
}

int mslink_hold_while_unsent(MsLink *link, int hold)
{
    auto connection = ms_table_find(link);
    return connection != nullptr && connection->hold_while_unsent(hold != 0) ? 1 : gone();
}

int mslink_send_queue(MsLink *link, size_t *unsent, size_t *room)
{
    auto connection = ms_table_find(link);
    return connection != nullptr && connection->send_queue(unsent, room) ? 1 : gone();
}

int mslink_peer_name(MsLink *link, char *buffer, size_t size)
{
    auto connection = ms_table_find(link);
    if (connection == nullptr)
        return gone();
    if (buffer == nullptr || connection->peer_name().size() >= size)
        return 0;
    text_copy(std::span(buffer, size), connection->peer_name());
    return 1;
}
