// The playback session: a link that streams one recording, or a time span of a channel, to a client. The request opens
// a player whose thread drives the session through on_recv_hardplay; the client steers it with XML commands.
#pragma once

#include "vod/link_table.h"
#include "vod/vod_interface.h"

#include <libxml/tree.h>

// Playback modes of a request.
constexpr uint16_t PLAY_MODE_PLAIN = 0;
constexpr uint16_t PLAY_MODE_RULES_NEW = 65534;
constexpr uint16_t PLAY_MODE_RULES = 65535;
// Asks for the most recent `start_second` seconds.
constexpr uint16_t START_YEAR_MOST_RECENT = 65535;
// Packages that a client may hold unacknowledged are one more than this.
constexpr uint32_t CLIENT_WINDOW_MAX = 999;

// Pacing of all data loops: milliseconds for each active session. Set by start-up.
void playback_set_sleep_interval(uint32_t ms);
uint32_t playback_sleep_interval();
// What one package waits for now: the interval for each active session, capped to what a sleep can take.
uint32_t pacing_ms(const vodlinks_guard &held);

// Bytes handed to clients so far, by playback and download links.
uint64_t get_down_flow_func();
void down_flow_add(int size);

// Request kind 0x8001.
void vod_deal_event_req_res_hardplay(MsLink *mslink, MpPackage *package);
// The players' data callback; `usr` is the link's cookie.
void on_recv_hardplay(handle_orb playerfd, int datatype, char *data, int size, handle_orb usr);
// "playback_control" and "stop_playback".
void vod_deal_event_play_command(VodLink *link, MpPackage *package, xmlNode *command);
void vod_deal_event_play_cmd_playback_control(VodLink *link, MpPackage *package, xmlNode *command);
void vod_deal_event_play_cmd_stop_playback(VodLink *link, MpPackage *package, xmlNode *command);

// Device identifier (60 bytes of room) and channel out of a name in the form id_cc_..._n; 1 when it has that form.
int vod_get_dev_id_from_file_name(const char *file_name, char *dev_id, unsigned short *chno);

// Analysis rules of a request. `rules_info` has room for ANALYSE_DATA_MAX bytes.
constexpr size_t ANALYSE_DATA_MAX = 65536;
int vod_deal_event_get_analyse_data(const MpPackage *package, int *rules_type, void *rules_info, int *rules_size);

// Whether the analysis engine runs. Starting it on demand happens at most once at a time.
void analysis_set_started(bool started);
bool analysis_start_if_needed();
