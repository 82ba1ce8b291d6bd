// How the threads of one player meet: its lock, its wake, and the record fields that are also read without the lock.
//
// The lock and the wake exist from a successful open to the close. A setter or getter that may run while another thread
// closes the player holds a `player_use` meanwhile; the close waits until the last one is gone before it destroys them.
#pragma once

#include "platform/os/os_guard.h"

#include <atomic>
#include <type_traits>

struct VODOrbPlayer;

// Places in the lock order: a player's lock stands below the link table's and above the store's.
constexpr int ORB_LOCK_RANK_PLAYER = 20;
constexpr int ORB_LOCK_RANK_LEAF = 90;

// ---- Fields shared without the lock ---------------------------------------------------------------------------------

template <class T> T shared_load(const T &field)
{
    return std::atomic_ref<T>(const_cast<T &>(field)).load();
}

template <class T> void shared_store(T &field, std::type_identity_t<T> value)
{
    std::atomic_ref<T>(field).store(value);
}

template <class T> T shared_exchange(T &field, std::type_identity_t<T> value)
{
    return std::atomic_ref<T>(field).exchange(value);
}

// ---- Lock and wake --------------------------------------------------------------------------------------------------

// Makes the player's lock and wake and sets mutex_is_active; logs "!os_mutex_init" when it cannot.
int player_sync_create(VODOrbPlayer *player);
// Clears mutex_is_active, waits for the last player_use, destroys both. Does nothing for a player that has none.
void player_sync_destroy(VODOrbPlayer *player);

// The player's lock. The reading threads hold it for a pass but for callbacks; others need a player_use first.
struct player_guard : os_lock_guard {
    explicit player_guard(VODOrbPlayer *player, os_place place = os_place::current());
};

// Keeps the lock and the wake alive; false when the player is closed.
class player_use {
public:
    explicit player_use(VODOrbPlayer *player);
    ~player_use();
    player_use(const player_use &) = delete;
    player_use &operator=(const player_use &) = delete;
    explicit operator bool() const { return player_ != nullptr; }
    // Has the reading thread look at its mailbox; nothing when the player is closed.
    void wake() const;

private:
    VODOrbPlayer *player_;
};

// For the reading threads, which run only while both exist.
uint32_t player_wake_count(VODOrbPlayer *player);
void player_wake_wait(VODOrbPlayer *player, uint32_t seen, uint32_t ms);
// The pause of a reading thread behind a pass whose data was refused: a millisecond, less when it is called.
void player_refused_wait(VODOrbPlayer *player, uint32_t seen);
