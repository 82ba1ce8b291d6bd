#include "vod_player/data_refusal.h"

// Of the callback that runs on this thread, or was the last to.
static thread_local bool s_is_refused;

void vod_player_refuse_data()
{
    s_is_refused = true;
}

bool vod_player_deliver(OnRecvOriginalDataFunc func, handle_orb producer, int type, char *data, int size, handle_orb usr)
{
    s_is_refused = false;
    func(producer, type, data, size, usr);
    return !s_is_refused;
}
