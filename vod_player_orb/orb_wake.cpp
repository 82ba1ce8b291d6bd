#include "vod_player_orb/orb_wake.h"

#include "platform/os/os_guard.h"
#include "vod_player_orb/player_sync.h"

struct wake_guard : os_lock_guard {
    explicit wake_guard(orb_wake *wake) : os_lock_guard(&wake->mutex) {}
};

int orb_wake_init(orb_wake *wake, const char *name)
{
    if (!os_mutex_init(&wake->mutex, 0))
        return 0;
    if (!os_cond_init(&wake->cond)) {
        os_mutex_destroy(&wake->mutex);
        return 0;
    }
    os_mutex_set_rank(&wake->mutex, ORB_LOCK_RANK_LEAF, name);
    wake->count = 0;
    return 1;
}

void orb_wake_destroy(orb_wake *wake)
{
    os_cond_destroy(&wake->cond);
    os_mutex_destroy(&wake->mutex);
}

uint32_t orb_wake_count(orb_wake *wake)
{
    wake_guard held(wake);
    return wake->count;
}

void orb_wake_call(orb_wake *wake)
{
    wake_guard held(wake);
    wake->count++;
    os_cond_signal(&wake->cond);
}

void orb_wake_wait(orb_wake *wake, uint32_t seen, uint32_t ms)
{
    wake_guard held(wake);
    while (wake->count == seen && os_cond_wait(&wake->cond, &wake->mutex, ms)) {
    }
}
