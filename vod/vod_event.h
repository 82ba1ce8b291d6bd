// Dispatch of everything that clients send: connections' events, the handshake of each kind of link, and the envelope
// of XML commands. All of it runs on the message service's threads, the events of one connection one after the other.
#pragma once

#include "vod/link_table.h"

#include <libxml/tree.h>

// The handler that start-up binds for this service's module.
void on_vod_module_event(MsLink *mslink, int event, MpPackage *package);

void vod_deal_event_disconnect(VodLink *link);
void vod_deal_event_req_res(MsLink *mslink, MpPackage *package);
void vod_deal_event_get_res(VodLink *link, MpPackage *package);
void vod_deal_event_stop_res(VodLink *link, MpPackage *package);
void vod_deal_event_send_cmd_chs(VodLink *link, MpPackage *package);

// Request kinds that need no player.
void deal_event_req_res_login(MsLink *mslink, MpPackage *package);
void deal_rec_event_req_res_login(MsLink *mslink, MpPackage *package);
void deal_event_req_res_state(MsLink *mslink, MpPackage *package);

// Commands of command-login links: "get_vod_link_num".
void deal_event_login_command(VodLink *link, MpPackage *package, xmlNode *command);
