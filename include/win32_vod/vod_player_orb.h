/* The recording file player's entry points, as the player registry calls them. */
#ifndef WIN32_VOD_VOD_PLAYER_ORB_H
#define WIN32_VOD_VOD_PLAYER_ORB_H

#include "win32_vod/vod_player.h"

#ifdef __cplusplus
extern "C" {
#endif

/* 1 when started now; 0 when it was started before or cannot start. */
VOD_API int player_init(void);
/* Ends the table of players: none is created any more, those left can still be destroyed. 0 when not started. */
VOD_API int player_uninit(void);
/* A new player, NULL when all 200 are taken; freed through its operation table. May be called from any thread. */
VOD_API VODPlayer *create_player(void);
/* 88. */
VOD_API int get_file_head_size(void);

#ifdef __cplusplus
}
#endif

#endif
