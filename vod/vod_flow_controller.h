// The download flow controller: holds downloads to what the link can still carry.
#pragma once

#include <cstdint>

// Total of bytes that sessions have sent so far; asked by the controller.
void vod_flow_set_get_flow_func(uint64_t (*get_flow)());
// Reads `flow_ctl_face` and `flow_ctl_payload`. 1 on success.
int vod_flow_ctl_start();
int vod_flow_ctl_stop();

const char *vod_flow_ctl_face();
int64_t vod_flow_ctl_payload(); // bytes a second
