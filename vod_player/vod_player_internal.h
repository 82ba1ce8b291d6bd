// The player registry as its own files and the tests see it.
#pragma once

#include "win32_vod/vod_player.h"

#include <atomic>

using vodplayer_init_func = int (*)();
using vodplayer_uninit_func = int (*)();
using create_vodplayer_func = VODPlayer *(*)();
using get_file_head_size_func = int (*)();

// Registered when func_create is set, which is therefore stored last.
struct VODPlayerInterface {
    std::atomic<void *> lib;
    std::atomic<vodplayer_init_func> func_init;
    std::atomic<vodplayer_uninit_func> func_uninit;
    std::atomic<create_vodplayer_func> func_create;
    std::atomic<get_file_head_size_func> func_get_file_head_size;
};

// Indexed by player type.
extern VODPlayerInterface s_vodplayer_interfaces[VOD_PLAYER_MAX_LIB_NUM];

// Puts a storage type into the cache; -1 empties it, so that the file is read again. For tests.
void vod_player_set_storage_type(int32_t storage_type);
