#include "vod/vod_flow_controller.h"

#include "platform/json/json.h"
#include "platform/os/os_guard.h"

#include <atomic>

static constexpr char DEFAULT_FACE[] = "bond0";
static constexpr int64_t DEFAULT_PAYLOAD_MB = 70;
static constexpr int PAYLOAD_NOT_GIVEN = -1;

// Set by the host's thread at start-up.
static std::atomic<uint64_t (*)()> s_get_flow_func;
static char s_flow_ctl_face[260] = "bond0";
static std::atomic<int64_t> s_flow_ctl_payload = DEFAULT_PAYLOAD_MB << 20;

void vod_flow_set_get_flow_func(uint64_t (*get_flow)())
{
    s_get_flow_func = get_flow;
}

int vod_flow_ctl_start()
{
    json_ref config(json_object_from_file_ex("etc\\conf\\vod_config.json"));
    const char *face = json_object_get_field_string(config.get(), "flow_ctl_face");
    text_copy(s_flow_ctl_face, face == nullptr ? DEFAULT_FACE : face);
    int payload = json_object_get_field_int(config.get(), "flow_ctl_payload", PAYLOAD_NOT_GIVEN);
    s_flow_ctl_payload = (payload == PAYLOAD_NOT_GIVEN ? DEFAULT_PAYLOAD_MB : int64_t{payload}) * (int64_t{1} << 20);
    return 1;
}

int vod_flow_ctl_stop()
{
    return 1;
}

const char *vod_flow_ctl_face()
{
    return s_flow_ctl_face;
}

int64_t vod_flow_ctl_payload()
{
    return s_flow_ctl_payload;
}
