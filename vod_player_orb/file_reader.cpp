// The reading thread of a recording opened by name.
#include "vod_player_orb/read_buffer.h"
#include "vod_player_orb/vod_player_orb.h"

#include <algorithm>
#include <cstring>

struct file_reader {
    VODOrbPlayer *player;
    read_buffer_ptr buffer; // all zero between passes
    int dirty_bytes;     // how many the current pass may have written
    bool header_pending;
    bool is_refused; // something of the current pass
};

// PASS_DONE: look again at once, or after a pause where data was refused. A pass whose steps all go on had nothing to do.
enum pass_result { PASS_NEXT_STEP, PASS_DONE };
using pass_step = pass_result (*)(file_reader *reader, player_guard &held);

static void reader_callback(file_reader *reader, player_guard &held, int type, char *data, int size)
{
    os_unlock_guard released(held);
    if (!player_callback(reader->player, type, data, size))
        reader->is_refused = true;
}

static void reader_report_over(file_reader *reader, player_guard &held)
{
    char nothing[1] = "";
    reader_callback(reader, held, VIDEO_DATA_TYPE_PLAYBACKOVER, nothing, 0);
}

template <class record> static int reader_command(file_reader *reader, int command, const record &body)
{
    if (AVFilterSetCommond(reader->player->file_info.avfilter_handler, command, &body, sizeof body) != 0)
        return LOGGED(0, LOG_REFUSE, "AVFilterSetCommond failed");
    return 1;
}

static int reader_seek_time(file_reader *reader, int64_t ms)
{
    AVSeekByRelativeTime seek = {.iSise = sizeof seek, .llRelativeTime = ms};
    return reader_command(reader, SET_FILTERCMD_SEEKBYRELATIVETIME, seek);
}

// Which way was asked for is not looked at: a request turns the playback round.
static pass_result serve_direction_request(file_reader *reader, player_guard &held)
{
    VODOrbPlayer *player = reader->player;
    PlayByTimeInfo *mailbox = &player->play_by_time;
    if (!mailbox->is_set_direction)
        return PASS_NEXT_STEP;

    player->base.direction = player->base.direction == 0 ? 1 : 0;
    AVPlayDirection turn = {.iSise = sizeof turn, .iDirection = player->base.direction};
    if (reader_command(reader, SET_FILTERCMD_PLAYMODE, turn))
        reader_seek_time(reader, mailbox->direction_set_time);
    mailbox->is_set_direction = 0;
    mailbox->direction_set_time = 0;
    shared_store(player->base.is_play_end, 0);
    reader_callback(reader, held, VIDEO_DATA_TYPE_SEEK_DONE, nullptr, 0);
    return PASS_DONE;
}

static pass_result serve_time_request(file_reader *reader, player_guard &held)
{
    PlayByTimeInfo *mailbox = &reader->player->play_by_time;
    if (!mailbox->is_set_time_pos)
        return PASS_NEXT_STEP;

    reader_seek_time(reader, mailbox->time_pos);
    mailbox->is_set_time_pos = 0;
    mailbox->time_pos = 0;
    shared_store(reader->player->base.is_play_end, 0);
    reader_callback(reader, held, VIDEO_DATA_TYPE_SEEK_DONE, nullptr, 0);
    return PASS_DONE;
}

// Unlike the others this request is cleared after the callback, so one made meanwhile is answered by the same notice.
static pass_result serve_byte_request(file_reader *reader, player_guard &held)
{
    PlayByTimeInfo *mailbox = &reader->player->play_by_time;
    if (!shared_load(mailbox->is_set_byte_pos))
        return PASS_NEXT_STEP;

    uint64_t offset = std::min<uint64_t>(shared_load(mailbox->set_byte), INT64_MAX);
    AVSeekByBytes seek = {.iSise = sizeof seek, .llBytes = static_cast<int64_t>(offset)};
    reader_command(reader, SET_FILTERCMD_SEEKBYBYTES, seek);
    reader_callback(reader, held, VIDEO_DATA_TYPE_SEEK_DONE, nullptr, 0);
    shared_store(mailbox->is_set_byte_pos, 0);
    shared_store(mailbox->set_byte, 0);
    shared_store(reader->player->base.is_play_end, 0);
    return PASS_DONE;
}

static bool is_playing(const VODOrbPlayer *player)
{
    return shared_load(player->base.status) == VOD_PLAYER_PLAYING_STATUS_PLAY && !shared_load(player->base.is_play_end);
}

static pass_result deliver_header(file_reader *reader, player_guard &held)
{
    VODOrbPlayer *player = reader->player;
    if (!reader->header_pending || !is_playing(player))
        return PASS_NEXT_STEP;

    char *header = reader->buffer->bytes;
    reader->dirty_bytes = STREAM_PIECE_SIZE;
    if (AVFilterGetInfo(player->file_info.avfilter_handler, AVFILTER_INFO_FILE_HEAD, header, STREAM_PIECE_SIZE) != 0) {
        reader_report_over(reader, held);
        shared_store(player->base.is_play_end, 1);
        return LOGGED(PASS_DONE, LOG_REFUSE, "read head error");
    }
    // Not over the status that a close has set meanwhile, which does not wait for the lock.
    int playing = VOD_PLAYER_PLAYING_STATUS_PLAY;
    if (!std::atomic_ref(player->base.status).compare_exchange_strong(playing, VOD_PLAYER_PLAYING_STATUS_HEADER_SENT))
        return PASS_DONE;
    reader_callback(reader, held, VIDEO_DATA_TYPE_FILEHEAD, header, FILE_HEAD_SIZE);
    reader->header_pending = false;
    return PASS_DONE;
}

static void deliver_pieces(file_reader *reader, player_guard &held, int size)
{
    for (int offset = 0; offset < size; offset += STREAM_PIECE_SIZE)
        reader_callback(reader, held, VIDEO_DATA_TYPE_STREAM, reader->buffer->bytes + offset,
                        std::min(size - offset, STREAM_PIECE_SIZE));
}

static pass_result deliver_next_block(file_reader *reader, player_guard &held)
{
    VODOrbPlayer *player = reader->player;
    if (reader->header_pending || !is_playing(player))
        return PASS_NEXT_STEP;

    AVFrameInfo frame = {};
    frame.iSize = sizeof frame;
    int size = AVFilterGetData(player->file_info.avfilter_handler, AVFILTER_DATA_FRAMES, reader->buffer->bytes,
                               READ_BUFFER_SIZE, &frame);
    size = std::min(size, READ_BUFFER_SIZE);
    if (size > 0) {
        reader->dirty_bytes = size;
        deliver_pieces(reader, held, size);
        return PASS_DONE;
    }
    reader_report_over(reader, held);
    shared_store(player->base.is_play_end, 1);
    return PASS_DONE;
}

static constexpr pass_step s_file_steps[] = {
    serve_direction_request, serve_time_request, serve_byte_request, deliver_header, deliver_next_block,
};

static pass_result reader_pass(file_reader *reader)
{
    player_guard held(reader->player);
    for (pass_step step : s_file_steps)
        if (pass_result result = step(reader, held); result != PASS_NEXT_STEP)
            return result;
    return PASS_NEXT_STEP;
}

// A pass finds the buffer cleared. Only what was written is: untouched pages stay unallocated.
static void reader_clear_buffer(file_reader *reader)
{
    std::memset(reader->buffer->bytes, 0, static_cast<size_t>(reader->dirty_bytes));
    reader->dirty_bytes = 0;
}

static void reader_run(file_reader *reader)
{
    VODOrbPlayer *player = reader->player;
    while (shared_load(player->file_info.thread_is_active)) {
        uint32_t calls = player_wake_count(player);
        reader->is_refused = false;
        pass_result result = reader_pass(reader);
        reader_clear_buffer(reader);
        if (!shared_load(player->file_info.thread_is_active))
            return;
        if (result == PASS_NEXT_STEP)
            player_wake_wait(player, calls, OS_WAIT_FOREVER);
        else if (reader->is_refused)
            player_refused_wait(player, calls);
    }
}

static AVFileInfo reader_file_info(VODOrbPlayer *player)
{
    AVFileInfo info = {};
    info.iSise = sizeof info;
    if (AVFilterGetInfo(player->file_info.avfilter_handler, AVFILTER_INFO_FILE, &info, sizeof info) != 0) {
        LOG(LOG_REFUSE, "AVFilterGetInfo failed");
        info = {};
    }
    if (info.iTotalTime == 0 || info.iTotalFrame == 0)
        LOG(LOG_REFUSE, "cur_file_info.iTotalTime == 0 ||cur_file_info.iTotalFrame == 0");
    if (info.llPlayRealSize <= 0)
        LOG(LOG_REFUSE, "file_size <= 0");
    return info;
}

// Before the header is delivered: its receiver asks for the totals.
static void reader_measure(VODOrbPlayer *player)
{
    AVFileInfo info = reader_file_info(player);
    auto stream_bytes = static_cast<uint64_t>(std::max<int64_t>(info.llPlayRealSize, 0));
    shared_store(player->file_info.file_total_size, stream_bytes + FILE_HEAD_SIZE);
    shared_store(player->file_info.file_total_time, info.iTotalTime);
    shared_store(player->file_info.file_total_time_all, info.iTotalTime);
    shared_store(player->file_info.file_total_frames, info.iTotalFrame);
}

int get_original_data(void *player)
{
    os_thread_name("orb_reader");
    file_reader reader = {static_cast<VODOrbPlayer *>(player), nullptr, 0, true, false};
    reader_measure(reader.player);
    reader.buffer = read_buffer_map();
    if (reader.buffer != nullptr)
        reader_run(&reader);
    return 0;
}
