#include "tests/vod/fake_ms.h"

#include "platform/os/os.h"

#include <cstdio>
#include <cstring>

fake_ms_state s_fake_ms;
static std::mutex s_waits_mutex;

MpPackage sent_package::parsed() const
{
    MpPackage package = {};
    if (!mp_parse_package(const_cast<uint8_t *>(bytes.data()), bytes.size(), &package))
        throw std::runtime_error("the service sent a package that does not parse");
    return package;
}

std::string sent_package::attr(uint32_t index) const
{
    MpPackage package = parsed();
    uint32_t length = 0;
    const uint8_t *value = mp_attr_value(&package, index, 0, &length);
    return value == nullptr ? std::string() : std::string(reinterpret_cast<const char *>(value), length);
}

uint8_t sent_package::attr_type(uint32_t index) const
{
    return parsed().attr[index]->type;
}

uint8_t sent_package::attr_reserved(uint32_t index) const
{
    return parsed().attr[index]->reserved;
}

size_t MsLink::sent_count()
{
    std::lock_guard held(mutex);
    return sent.size();
}

sent_package MsLink::last()
{
    std::lock_guard held(mutex);
    return sent.empty() ? sent_package{} : sent.back();
}

int ms_startup(void)
{
    return s_fake_ms.startup_result;
}

int ms_bind_client_event(uint16_t module, ms_event_func handler)
{
    s_fake_ms.bound_module = module;
    s_fake_ms.bound_handler = handler;
    return s_fake_ms.bind_result;
}

int ms_send_package(MsLink *link, const MpPackage *package)
{
    if (link->on_send)
        link->on_send();
    if (os_fault_point("ms_send_package")) {
        os_set_errno(ORB_ERROR_TCP_SEND_ERR);
        return 0;
    }
    std::lock_guard held(link->mutex);
    if (!link->failures.empty()) {
        uint32_t error = link->failures.front();
        link->failures.pop_front();
        if (error != 0) {
            os_set_errno(error);
            return 0;
        }
    }
    auto bytes = reinterpret_cast<const uint8_t *>(package->head);
    link->sent.push_back({std::vector<uint8_t>(bytes, bytes + package->head->total_len)});
    return 1;
}

void ms_wait_sendable(MsLink *, uint32_t ms)
{
    std::lock_guard held(s_waits_mutex);
    s_fake_ms.waits.push_back(ms);
}

void ms_timeout(MsLink *link)
{
    link->timed_out = true;
}

int ms_get_local_devid(char *buffer)
{
    std::strcpy(buffer, "LOCAL-DEVICE");
    if (os_fault_point("ms_get_local_devid"))
        return 0;
    return s_fake_ms.devid_result;
}

int mslink_set_udata(MsLink *link, void *udata)
{
    link->udata = udata;
    return 1;
}

void *mslink_get_udata(MsLink *link)
{
    return link->udata;
}

int mslink_destroy(MsLink *link)
{
    link->destroyed = true;
    link->udata = nullptr;
    return s_fake_ms.destroy_result;
}

int mslink_peer_name(MsLink *link, char *buffer, size_t size)
{
    return link != nullptr && !link->peer_name.empty() &&
           std::snprintf(buffer, size, "%s", link->peer_name.c_str()) < static_cast<int>(size);
}

int mslink_hold_while_unsent(MsLink *link, int hold)
{
    link->unsent_holds = hold;
    return 1;
}

int mslink_send_queue(MsLink *link, size_t *unsent, size_t *room)
{
    if (link == nullptr)
        return 0;
    *unsent = link->unsent;
    *room = link->room;
    return 1;
}

int mslink_hold_reading(MsLink *link, int hold)
{
    link->holds += hold != 0 ? 1 : -1;
    return 1;
}
