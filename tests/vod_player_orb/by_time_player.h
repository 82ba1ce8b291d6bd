// A time-range player put together by hand: its threads only wait to be told to end.
#pragma once

#include "tests/vod_player_orb/orb_fixture.h"

#include <atomic>

class by_time_player {
public:
    // `status` as the opener would have left it: NONE while the list is still being built.
    by_time_player(data_receiver *receiver, int status);
    VODPlayer *player() { return &orb_->base; }
    VODOrbPlayer *orb() { return orb_; }
    // Adds a file with an open library handle to the list.
    void add_file(const VOD_TIME &start);
    // The opener ends only when it is told to and this is set.
    std::atomic<bool> opener_may_end = true;
    std::atomic<bool> reader_ended = false, opener_ended = false;

private:
    static int read(void *self);
    static int build(void *self);
    VODOrbPlayer *orb_;
};
