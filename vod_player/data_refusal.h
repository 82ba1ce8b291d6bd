// How a receiver of data tells its producer that it dropped what was delivered.
//
// A data callback has no result, and those of other components know nothing of this. So a receiver that drops data says so
// while it is called, and the producer hears of it when the callback is back, all on the producer's thread. A producer that
// is refused pauses before it reads on: otherwise a recording that nobody takes runs through at the speed of the disk.
#pragma once

#include "win32_vod/vod_player.h"

// Within a data callback: what is being delivered is dropped.
void vod_player_refuse_data();
// Calls `func`, once; false when the data was refused. A callback that delivers on what it is given, as a download's does,
// is refused with it.
bool vod_player_deliver(OnRecvOriginalDataFunc func, handle_orb producer, int type, char *data, int size, handle_orb usr);
