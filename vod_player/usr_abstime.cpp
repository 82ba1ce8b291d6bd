#include "vod_player/usr_abstime.h"

#include <atomic>

// Set by the service core's start while players of other components may already run.
static std::atomic<int (*)(handle_orb usr)> s_usr_abstime_func = nullptr;

void vod_player_set_usr_abstime_func(int (*func)(handle_orb usr))
{
    s_usr_abstime_func = func;
}

int vod_player_usr_abstime(handle_orb usr)
{
    auto func = s_usr_abstime_func.load();
    return usr != 0 && func != nullptr ? func(usr) : 0;
}
