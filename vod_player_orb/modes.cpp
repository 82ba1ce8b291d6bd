// Time ranges, slices and analysis: this player refuses them.
#include "vod_player_orb/vod_player_orb.h"

int vod_orbplayer_open_file_by_time(VODPlayer *player, const char *, int, int, const VOD_TIME *, const VOD_TIME *,
                                    OnRecvOriginalDataFunc, handle_orb)
{
    orb_player_of(player);
    return 0;
}

int vod_orbplayer_set_slice_iframetimes(VODPlayer *player, int)
{
    orb_player_of(player);
    return 0;
}

int vod_orbplayer_set_analyze_info(VODPlayer *player, QueryRule *, int)
{
    orb_player_of(player);
    return 0;
}

int vod_orbplayer_set_analyze_info_ex(VODPlayer *player, int, void *, int)
{
    orb_player_of(player);
    return 0;
}
