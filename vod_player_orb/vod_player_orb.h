// The recording file player: its records and what its source files share. Other units reach it through the operation
// table and the four entry points of win32_vod/vod_player_orb.h.
#pragma once

#include "comm_func/comm_time.h"
#include "platform/avfiltersdk/avfiltersdk.h"
#include "platform/os/os_guard.h"
#include "vod_player_orb/orb_wake.h"
#include "vod_player_orb/player_sync.h"
#include "win32_vod/vod_player_orb.h"

#include <cstddef>
#include <cstdint>

constexpr int VOD_ORBPLAYER_MAX_SUPPORTS = 200;
constexpr size_t MAX_PATH_BYTES = 260; // a path with its zero
constexpr int FILE_HEAD_SIZE = 88;
constexpr int STREAM_PIECE_SIZE = AVFILTER_PACKAGE_SIZE; // largest block of one data callback
constexpr int READ_BUFFER_SIZE = 0x300000;

// ---- Recording file layout ------------------------------------------------------------------------------------------

// The first 88 bytes of a recording, little-endian; also the first block that a client receives.
struct S_header {
    uint16_t FrameRate, Width, Height;
    uint16_t Mode; // video coding: 21, 22 H.264, 23 H.265
    uint16_t bAudio;
    uint16_t Year, Month, Day, Hour, Minute, Second;
    uint16_t CoverMask;
    char cCovWord[56];
    uint32_t TotalSize, FrameCount;
};
static_assert(sizeof(S_header) == FILE_HEAD_SIZE);
static_assert(offsetof(S_header, FrameRate) == 0 && offsetof(S_header, Width) == 2 && offsetof(S_header, Height) == 4);
static_assert(offsetof(S_header, Mode) == 6 && offsetof(S_header, bAudio) == 8 && offsetof(S_header, Year) == 10);
static_assert(offsetof(S_header, Month) == 12 && offsetof(S_header, Day) == 14 && offsetof(S_header, Hour) == 16);
static_assert(offsetof(S_header, Minute) == 18 && offsetof(S_header, Second) == 20);
static_assert(offsetof(S_header, CoverMask) == 22 && offsetof(S_header, cCovWord) == 24);
static_assert(offsetof(S_header, TotalSize) == 80 && offsetof(S_header, FrameCount) == 84);

// The older layout of the same bytes. Only its first one is looked at: 0xFF marks a file that skips the validity check.
struct STR_FILEHEADER {
    uint8_t Flag, FrameRate[3], Pos[3], VideoSize[3];
    uint16_t Year, Month, Day, Hour, Minute, Second;
    uint16_t CoverMask;
    char cCovWord[64];
};
static_assert(sizeof(STR_FILEHEADER) == FILE_HEAD_SIZE);
static_assert(offsetof(STR_FILEHEADER, Year) == 10 && offsetof(STR_FILEHEADER, CoverMask) == 22);
static_assert(offsetof(STR_FILEHEADER, cCovWord) == 24);

// Before each frame, little-endian.
struct S_FrameHeader {
    uint32_t u32FrameID, u32FrameSize;
    uint8_t u8FrameType, u8flag, u8reserved[2];
    uint32_t u32FrameNO, u32TimeStamp;
    uint32_t u32VStreamLen;
    uint16_t u16AFrames, u16AFrameSize;
    uint8_t u8ACoder, u8reserved2;
    uint16_t reserved;
};
static_assert(sizeof(S_FrameHeader) == 32);
static_assert(offsetof(S_FrameHeader, u8FrameType) == 8 && offsetof(S_FrameHeader, u32FrameNO) == 12);
static_assert(offsetof(S_FrameHeader, u32TimeStamp) == 16 && offsetof(S_FrameHeader, u32VStreamLen) == 20);
static_assert(offsetof(S_FrameHeader, u16AFrames) == 24 && offsetof(S_FrameHeader, u16AFrameSize) == 26);
static_assert(offsetof(S_FrameHeader, u8ACoder) == 28 && offsetof(S_FrameHeader, reserved) == 30);

// ---- Player record --------------------------------------------------------------------------------------------------

struct VODOrbFileInfo {
    void *avfilter_handler; // used by the reading thread; by open and close when there is none
    int file_total_time;    // seconds
    int file_total_time_all;
    int file_total_frames;
    uint64_t file_total_size; // bytes, the file header included
    uint64_t file_play_pos;   // bytes; guarded by mutex_id, never moves in file mode
    int thread_is_active;     // the reading thread runs while it is 1
    LThread thread_id;
    int mutex_is_active;
    LMutex mutex_id;           // the player's lock
    int thread_open_is_active; // the opener thread goes on while it is 1
    LThread thread_open_id;    // to be joined by the time-range closer when set
    char filename[MAX_PATH_BYTES];
};

// How the building of a play list has ended.
enum nFindResult { nInitFind = 0, nFindFile = 1, nNotFind = 2, nFormatErr = 3 };

struct PlayByTimeInfo {
    int vaild;             // 1: a time-range player
    DList *list_vod_files; // of VodPlayFileInfo, in play order
    DListNode *current_file_node;
    char host_id[60];
    int ch;
    int file_type;
    VOD_TIME start, end;
    unsigned start_time_stamp;
    int blParesVodOK;
    S_header file_header;
    int header_is_read;
    int play_end;
    int end_notified;
    int is_set_pos, pos; // percent
    int destroy;         // set by destroy: the time-range closer may free the record
    int64_t start_bytes;
    uint64_t file_total_size;
    int parse_vod_result; // nFindResult
    // The mailbox of file mode too. The byte request is written without the lock, the others under it.
    int is_set_time_pos, time_pos; // milliseconds
    int is_set_byte_pos;
    uint64_t set_byte;
    int is_set_direction;
    unsigned direction_set_time;                     // milliseconds
    int is_set_absolute_time_pos, absolute_time_pos; // seconds since 1970
    int need_update;
};

// One file of a play list.
struct VodPlayFileInfo {
    char filename[MAX_PATH_BYTES];
    VOD_TIME start, end;
    int64_t tm_start, tm_end;
    int bl_parts; // 1: still being recorded
    unsigned iframerate;
    uint64_t file_real_size;
    void *avfilter_handler; // open while the file is played
    unsigned start_frame_timestamp, end_frame_timestamp;
    unsigned first_frame_timestamp;
    unsigned total_frame;
    AVUtcTime play_start, play_end;
    int64_t tm_play_start, tm_play_end;
    int need_set_direction, direction;
    int is_parse;
    int isdst;
};
static_assert(sizeof(VodPlayFileInfo) == 400 || sizeof(void *) != 8);

struct SliceByTimeInfo {
    int vaild;
    int Iframetimes; // deliver every n-th key frame
    int SliceNum;
    int curIFrameNum;
    int curIFrameNO;
    int frameno;
};

struct RecAnalyzeParam {
    int vaild;
    int analyze_fd; // -1: no query
};

// How far the closing of a time-range player has come.
enum closing_state { CLOSING_NOT = 0, CLOSING_QUEUED = 1, CLOSING_STARTED = 2, CLOSING_WITHOUT_THREAD = 3 };

struct VODOrbPlayer {
    VODPlayer base;
    OnRecvOriginalDataFunc func;
    int player_id;  // slot index
    handle_orb usr; // the caller's; never looked into
    VODOrbFileInfo file_info;
    PlayByTimeInfo play_by_time;
    SliceByTimeInfo slice_by_time;
    RecAnalyzeParam analyze_param;

    orb_wake wake;       // wakes the reading thread when it has nothing to do
    uint32_t sync_users; // holders of the lock and the wake, the open player itself included
    int closing;         // closing_state
};
static_assert(offsetof(VODOrbPlayer, base) == 0, "the record's address is the handle");
static_assert(sizeof(VODPlayerFunc) == 22 * sizeof(void *));

inline handle_orb player_handle(VODOrbPlayer *player)
{
    return reinterpret_cast<handle_orb>(player);
}

inline bool player_is_by_time(const VODOrbPlayer *player)
{
    return shared_load(player->play_by_time.vaild) != 0;
}

// The player behind an operation's argument; null, with its log line, when there is none or it is another type's.
VODOrbPlayer *orb_player_of(VODPlayer *player);
// Hands data to the player's user, false when it was refused. Called with the player's lock released.
bool player_callback(VODOrbPlayer *player, int type, char *data, int size);

// ---- Slot table and settings (player_table.cpp) ---------------------------------------------------------------------

// The one operation table of all players.
const VODPlayerFunc *get_orbplayer_func();
// Gives the player's slot back; the record stays the caller's.
void player_slot_free(VODOrbPlayer *player);
// Settings as player_init found them, 0 without.
int vodplayer_is_timeplayback_all_rec();
int vodplayer_is_use_exact_play();

// ---- Opening and reading --------------------------------------------------------------------------------------------

// An open request for the library: whole name, no times, the library's own memory and files.
AVOrbFileFilter avfilter_for(const char *filename);
// Hours east of UTC.
int local_zone_hours();
// The file's times: start from its name, stop from its modification time. `filename` is a system path. 0, logged, when
// the file cannot be looked at or its name has no time.
int vod_orbplayer_file_find_time(const char *filename, VOD_TIME *start_time, VOD_TIME *end_time);
AVUtcTime utc_time_of(const VOD_TIME &time);
// The reading thread of a file opened by name; `player` is a VODOrbPlayer.
int get_original_data(void *player);

// Opens a recording by name (UTF-8, at most 259 bytes) and starts its reading thread, on which `func` is called. 0,
// with the player as it was, on failure. Opening, closing and destroying one player are for one thread at a time; the
// setters and getters below may meanwhile be called from any.
int vod_orbplayer_open_file(VODPlayer *player, const char *filename, OnRecvOriginalDataFunc func, handle_orb usr);
// Opens what was recorded of channel `ch` of `host_id` between two local times.
int vod_orbplayer_open_file_by_time(VODPlayer *player, const char *host_id, int ch, int file_type,
                                    const VOD_TIME *start_time, const VOD_TIME *end_time, OnRecvOriginalDataFunc func,
                                    handle_orb usr);

// ---- Setters (setters.cpp) ------------------------------------------------------------------------------------------

// All but the direction and the start offset refuse a player that is not open; each lets a paused player play on.
// Whatever the player's status.
int vod_orbplayer_play(VODPlayer *player);
// Percent, clamped to 0..100.
int vod_orbplayer_set_play_pos(VODPlayer *player, int pos);
// Kilobytes of 1024 bytes, at most to the end of the file.
int vod_orbplayer_set_play_byte(VODPlayer *player, int byte);
// The offset in bytes at which a time range starts; 1 and nothing for a file opened by name.
int vod_orbplayer_set_play_bytes(VODPlayer *player, uint64_t bytes);
// Milliseconds from the start, negative ones count as 0.
int vod_orbplayer_set_play_time(VODPlayer *player, int time);
// Seconds since 1970, negative ones count as 0. Only noted for a file opened by name.
int vod_orbplayer_set_play_absolute_time(VODPlayer *player, int time);
// Turns round at `time` milliseconds when `direction` is not the one being played. 1 also when there is nothing to do.
int vod_orbplayer_set_play_direction(VODPlayer *player, int time, int direction);

// ---- Slices and analysis (modes.cpp) --------------------------------------------------------------------------------

int vod_orbplayer_set_slice_iframetimes(VODPlayer *player, int iframetimes);
int vod_orbplayer_set_analyze_info(VODPlayer *player, QueryRule *rules, int rule_count);
int vod_orbplayer_set_analyze_info_ex(VODPlayer *player, int rules_type, void *rules_info, int rules_size);

// ---- Getters (getters.cpp) ------------------------------------------------------------------------------------------

// The first four answer -1 (the size 0) for a player that is not open.
// Percent; always 0 for a file opened by name.
int vod_orbplayer_get_play_pos(VODPlayer *player);
// Seconds.
int vod_orbplayer_get_file_time(VODPlayer *player);
int vod_orbplayer_get_file_total_frames(VODPlayer *player);
// Bytes, the file header included.
uint64_t vod_orbplayer_get_file_total_size(VODPlayer *player);
// Start of a time range's first file, seconds since 1970; 0 for an empty list and a file opened by name.
unsigned int vod_orbplayer_get_file_begin_time(VODPlayer *player);
// Always -1 and 0: this player has no such information.
int vod_orbplayer_get_hardplay_file_info(VODPlayer *player, char **play_time_info);
int vod_orbplayer_release_hardplay_file_info(VODPlayer *player);
// Start of the first file of the play list, seconds since 1970, 0 for an empty one. With the player's lock held.
unsigned int time_range_begin(const VODOrbPlayer *player);

// ---- Closing (close.cpp, async_close.cpp) ---------------------------------------------------------------------------

// Waits for the reading thread's pass, callbacks included. 0 for a player that is not open. A time range's record lives
// on until its closer has told the user and destroy was called.
int vod_orbplayer_close(VODPlayer *player);
// Closes an open player first. The handle is dead afterwards.
int vod_orbplayer_destroy(VODPlayer *player);
// Tells the player's threads to end and waits for the reading one. A reading thread looks at thread_is_active, which is
// cleared first, before it takes a stopped opener for an answer.
void player_stop_reader(VODOrbPlayer *player);
// Ends the library handle of the file; needs the reading thread gone.
void player_close_recording(VODOrbPlayer *player);
// Ends the analysis query, once.
void player_end_analysis(VODOrbPlayer *player);
// Starts the thread that frees a closed time-range player once it is destroyed; the record is that thread's from then
// on. 0 when no thread starts.
int time_range_closer_start(VODOrbPlayer *player);
// That thread; `player` is a VODOrbPlayer.
int vod_orbplayer_close_by_time_thr(void *player);

// Makes the list and starts the thread of the asynchronous close; ends the process when it cannot.
void asyn_close_start();
// Hands a time-range player, whose list is still being built, to that thread; 0 without memory.
int asyn_close_append(VODOrbPlayer *player);
// Players that wait for it.
int asyn_close_waiting();
