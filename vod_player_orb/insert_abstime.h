// Whether the media library shall insert absolute time into key frames: only when the client asked for it and the
// recording carries none yet.
#pragma once

#include "platform/avfiltersdk/avfiltersdk.h"
#include "win32_vod/vod_types.h"

struct VODOrbPlayer;

// 1 when absolute time is found in the first frames. Opens the recording for itself; clears the request's iUsrFlag.
int check_iframe_abstime_exist(AVOrbFileFilter *filter_info);
// The iUsrFlag for a new library handle of this player.
int get_insert_abstime(AVOrbFileFilter *filter_info, VODOrbPlayer *orb_player);
// The same before the player has its user.
int insert_abstime_for(AVOrbFileFilter *filter_info, handle_orb usr);
