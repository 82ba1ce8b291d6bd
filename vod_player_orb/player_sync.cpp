#include "vod_player_orb/player_sync.h"

#include "vod_player_orb/vod_player_orb.h"

int player_sync_create(VODOrbPlayer *player)
{
    if (!os_mutex_init(&player->file_info.mutex_id, 1))
        return LOGGED(0, LOG_REFUSE, "!os_mutex_init");
    if (!orb_wake_init(&player->wake, "player wake")) {
        os_mutex_destroy(&player->file_info.mutex_id);
        return LOGGED(0, LOG_REFUSE, "!os_mutex_init");
    }
    os_mutex_set_rank(&player->file_info.mutex_id, ORB_LOCK_RANK_PLAYER, "player");
    shared_store(player->file_info.mutex_is_active, 1);
    shared_store(player->sync_users, 1);
    return 1;
}

void player_sync_destroy(VODOrbPlayer *player)
{
    if (!shared_exchange(player->file_info.mutex_is_active, 0))
        return;
    std::atomic_ref(player->sync_users).fetch_sub(1);
    while (shared_load(player->sync_users) != 0)
        os_sleep(1);
    orb_wake_destroy(&player->wake);
    os_mutex_destroy(&player->file_info.mutex_id);
}

player_guard::player_guard(VODOrbPlayer *player, os_place place) : os_lock_guard(&player->file_info.mutex_id, place) {}

// One more user, unless there is nothing to use any more.
static bool sync_take(VODOrbPlayer *player)
{
    std::atomic_ref users(player->sync_users);
    uint32_t seen = users.load();
    while (seen != 0 && shared_load(player->file_info.mutex_is_active))
        if (users.compare_exchange_weak(seen, seen + 1))
            return true;
    return false;
}

player_use::player_use(VODOrbPlayer *player) : player_(sync_take(player) ? player : nullptr) {}

player_use::~player_use()
{
    if (player_ != nullptr)
        std::atomic_ref(player_->sync_users).fetch_sub(1);
}

void player_use::wake() const
{
    if (player_ != nullptr)
        orb_wake_call(&player_->wake);
}

uint32_t player_wake_count(VODOrbPlayer *player)
{
    return orb_wake_count(&player->wake);
}

void player_refused_wait(VODOrbPlayer *player, uint32_t seen)
{
    static constexpr uint32_t REFUSED_PASS_MS = 1;
    orb_wake_wait(&player->wake, seen, REFUSED_PASS_MS);
}

void player_wake_wait(VODOrbPlayer *player, uint32_t seen, uint32_t ms)
{
    orb_wake_wait(&player->wake, seen, ms);
}
