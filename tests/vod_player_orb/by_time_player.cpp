#include "tests/vod_player_orb/by_time_player.h"

#include <thread>

by_time_player::by_time_player(data_receiver *receiver, int status)
    : orb_(reinterpret_cast<VODOrbPlayer *>(create_player()))
{
    EXPECT_NE(orb_, nullptr);
    EXPECT_EQ(player_sync_create(orb_), 1);
    orb_->func = data_receiver::callback;
    orb_->usr = receiver->usr();
    text_copy(orb_->play_by_time.host_id, "host7");
    orb_->play_by_time.ch = 3;
    orb_->play_by_time.list_vod_files = adt_dlist_create(sizeof(VodPlayFileInfo));
    orb_->base.status = status;
    orb_->file_info.thread_is_active = orb_->file_info.thread_open_is_active = 1;
    EXPECT_EQ(os_thread_create(&orb_->file_info.thread_id, 0, read, this), 1);
    EXPECT_EQ(os_thread_create(&orb_->file_info.thread_open_id, 0, build, this), 1);
    shared_store(orb_->play_by_time.vaild, 1);
}

int by_time_player::read(void *argument)
{
    auto self = static_cast<by_time_player *>(argument);
    while (shared_load(self->orb_->file_info.thread_is_active)) {
        uint32_t calls = player_wake_count(self->orb_);
        if (shared_load(self->orb_->file_info.thread_is_active))
            player_wake_wait(self->orb_, calls, 5);
    }
    self->reader_ended = true;
    return 0;
}

int by_time_player::build(void *argument)
{
    auto self = static_cast<by_time_player *>(argument);
    while (shared_load(self->orb_->file_info.thread_open_is_active) || !self->opener_may_end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    self->opener_ended = true;
    return 0;
}

void by_time_player::add_file(const VOD_TIME &start)
{
    VodPlayFileInfo file = {};
    file.start = start;
    AVOrbFileFilter filter = avfilter_for("listed.orb");
    file.avfilter_handler = AVFilterCreate(0, &filter, sizeof filter);
    player_guard held(orb_);
    adt_dlist_push_back(orb_->play_by_time.list_vod_files, &file);
}
