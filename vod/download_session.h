// The download session: a link that copies a recording to a client.
#pragma once

#include "vod/link_table.h"

#include <libxml/tree.h>

// Downloads admitted at once. Set by start-up.
void download_set_max_num(uint32_t max_num);
uint32_t download_max_num();

// Request kind 0x8002. Downloads cannot be opened in this build, so every admitted request is rejected as an open
// failure.
void vod_deal_event_req_res_download(MsLink *mslink, MpPackage *package);
// "download_control".
void vod_deal_event_download_command(VodLink *link, MpPackage *package, xmlNode *command);
