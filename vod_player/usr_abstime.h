// Whether a player inserts absolute time for the `usr` that it was opened with.
//
// Only the owner of a `usr` can tell what is behind it: the service core passes its link records, other components pass
// cookies of their own. So the core hands in a function that answers, and a player never looks into a `usr` itself.
#pragma once

#include "win32_vod/vod_types.h"

// NULL takes the function away again. The function may be called from any thread.
void vod_player_set_usr_abstime_func(int (*func)(handle_orb usr));
// What the function answers for `usr`; 0 for `usr` 0 and without a function.
int vod_player_usr_abstime(handle_orb usr);
