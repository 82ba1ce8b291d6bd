#include "fuzz/core_session.h"

#include "platform/os/os.h"
#include "tests/vod/fake_facade.h"
#include "vod/link_table.h"
#include "vod/playback_session.h"
#include "vod/vod_event.h"

#include <cstdlib>
#include <cstring>
#include <utility>
#include <string>
#include <vector>

void core_prepare()
{
    static bool prepared = false;
    if (std::exchange(prepared, true))
        return;
    if (!vodlinks_lock_init())
        std::abort();
    vodlinks_clear();
    playback_set_sleep_interval(0);
    // Every line is formatted, none is written.
    os_log_set_level(LOG_TRACE);
    os_log_set_sink([](void *, int, const char *, int, const char *) {}, nullptr);
}

void core_read(MsLink &mslink, const uint8_t *bytes, size_t size)
{
    // Memory of exactly its size, so that a sanitizer sees every step past its end.
    std::unique_ptr<uint8_t[]> exact(new uint8_t[size]);
    std::memcpy(exact.get(), bytes, size);
    MpPackage package = {};
    if (mp_parse_package(exact.get(), size, &package))
        on_vod_module_event(&mslink, MS_CLIENT_EV_READ, &package);
}

void core_disconnect(MsLink &mslink)
{
    on_vod_module_event(&mslink, MS_CLIENT_EV_DISCONNECT, nullptr);
    mslink.udata = nullptr;
}

struct builder {
    std::vector<uint8_t> bytes = std::vector<uint8_t>(MP_MAX_PACKAGE_LEN);
    MpPackage package = {};
    explicit builder(uint8_t code)
    {
        mp_build_package(bytes.data(), MP_MAX_PACKAGE_LEN, code, 131, 200, 1, &package);
    }
    void attr(uint8_t type, std::string_view value)
    {
        mp_add_attr_value(&package, type, value.data(), static_cast<uint32_t>(value.size()));
    }
    void ids()
    {
        for (int i = 0; i < 4; i++)
            attr(MP_ATTR_DEVICE_ID, std::string(MP_MAX_DEVID_LEN, 'd'));
    }
    void send(MsLink &mslink)
    {
        mp_commit_package(&package);
        core_read(mslink, bytes.data(), package.head->total_len);
    }
};

static const std::string SESSION(4, '\x01');

void core_open(MsLink &mslink, uint16_t kind)
{
    builder request(MP_CODE_REQUEST_RES);
    request.ids();
    request.attr(MP_ATTR_SESSION_ID, SESSION);
    std::string info(44, '\0');
    info[0] = static_cast<char>(kind & 255);
    info[1] = static_cast<char>(kind >> 8);
    request.attr(MP_ATTR_RES_INFO, info + "a.rec" + '\0');
    request.send(mslink);
    if (auto link = static_cast<VodLink *>(mslink.udata.load()); link != nullptr && kind == 0x8001) {
        std::string head(88, 'H');
        on_recv_hardplay(77, VIDEO_DATA_TYPE_FILEHEAD, head.data(), 88, vodlink_cookie(link));
    }
    builder get(MP_CODE_GET_RES);
    get.attr(MP_ATTR_SESSION_ID, SESSION);
    get.send(mslink);
}

void core_command(MsLink &mslink, std::string_view text, bool terminated)
{
    builder command(MP_CODE_SEND_CMD_CHS);
    command.ids();
    command.attr(MP_ATTR_ERROR, SESSION);
    command.attr(MP_ATTR_CMD_INFO, std::string(16, '\0'));
    command.attr(MP_ATTR_SESSION_ID, SESSION);
    command.attr(MP_ATTR_DATA, std::string(text.substr(0, 60'000)) + (terminated ? std::string(1, '\0') : ""));
    command.send(mslink);
}

void core_require_empty()
{
    for (const VodLink &link : s_vodlinks)
        if (link.index != -1)
            std::abort();
    s_facade.calls.clear();
    vodlinks_clear();
}
