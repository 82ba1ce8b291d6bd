// The table of client links: one slot for each connection that the service has admitted. The request handlers fill
// slots, the event dispatch finds them through the connection's user data, the data callbacks through cookies.
#pragma once

#include "platform/ms/ms.h"
#include "platform/os/os_guard.h"
#include "win32_vod/vod_types.h"

#include <atomic>

constexpr int VOD_LINK_SLOTS = 200;
constexpr int VOD_PATH_SIZE = 260;

enum vod_link_type {
    VOD_LINK_TYPE_HARDPLAY = 0,
    VOD_LINK_TYPE_DOWNLOAD = 1,
    VOD_LINK_TYPE_STATE = 2,
    VOD_LINK_TYPE_UPLOAD = 3,
    VOD_LINK_TYPE_LOGIN = 4,
    VOD_LINK_TYPE_REC_LOGIN = 5
};

enum vod_link_status {
    VOD_LINK_STATUS_REQ = 0,
    VOD_LINK_STATUS_ACCEPTING = 1,
    VOD_LINK_STATUS_GET = 3,
    VOD_LINK_STATUS_STOP = 4,
    VOD_LINK_STATUS_TIMEOUT = 6,
    VOD_LINK_STATUS_IS_DESTORY = -1
};

// Positions of the counters, as clients name them.
enum VOD_LINK_TYPE {
    VOD_LINK_DOWN_NUM = 0,
    VOD_LINK_PLAY_NUM = 1,
    VOD_LINK_STATE_NUM = 2,
    VOD_LINK_UP_NUM = 3,
    VOD_LINK_ACTTVE_NUM = 4
};
constexpr int VOD_LINK_COUNTERS = 5;

struct PlayDataInfo {
    handle_orb play_id;
    uint32_t client_buf; // packages that the client has not acknowledged
    char play_filename[VOD_PATH_SIZE];
    int32_t is_set_pos;
    int32_t is_play_end;
    int32_t start, end; // seconds
};

struct DownDataInfo {
    handle_orb down_id;
    char down_filename[VOD_PATH_SIZE];
    int32_t is_down_end;
    int32_t is_recover_download;
};

struct UpDataInfo {
    handle_orb up_id;
    uint64_t file_length;
    int32_t file_type;
    char filename[VOD_PATH_SIZE];
    int32_t is_up_end;
    DVR_TIME start, end;
    char devid[VOD_PATH_SIZE];
    int32_t ch;
    char id[VOD_PATH_SIZE];
    DVR_TIME lock_time;
    int32_t type;
    char orbvfs_filename[VOD_PATH_SIZE];
    int32_t app_type;
    char md5[33];
};

// The first member of each record is the handle, so that it is found at the same place whatever the kind.
union VodData {
    PlayDataInfo play_d;
    DownDataInfo down_d;
    UpDataInfo up_d;
};
static_assert(offsetof(PlayDataInfo, play_id) == 0 && offsetof(DownDataInfo, down_id) == 0 &&
              offsetof(UpDataInfo, up_id) == 0);

struct VodLink {
    int32_t type;
    int32_t status;
    uint16_t module;
    MsLink *mslink;
    VodData p_data;
    int32_t index; // its own number while taken, -1 while free
    int32_t ctrl_type;
    int32_t insert_abstime;
    int32_t vod_file_type; // 1: opened by time range
};

extern LMutex s_vodlinks_mutex;

struct vodlinks_guard : os_lock_guard {
    explicit vodlinks_guard(os_place place = os_place::current()) : os_lock_guard(&s_vodlinks_mutex, place) {}
};

// Creates the lock, and clears the table. Called by start-up before events can arrive. 0 when there is no lock.
int vodlinks_lock_init();
void vodlinks_clear();
// Total links that are admitted at once; may be set while links are taken.
void vodlinks_set_max_num(int32_t max_num);
int32_t vodlinks_max_num();

// A zeroed slot with its handle at -1, null when the limit or the table is reached. Counters are the caller's.
VodLink *vodlink_create();
// 1 when the link was or had already been destroyed, 0 for something that is no link.
int vodlink_destroy(VodLink *link);

// The counter at this position. Going below zero is refused with a log line.
uint32_t vodlinks_count(const vodlinks_guard &held, VOD_LINK_TYPE position);
void vodlinks_count_up(const vodlinks_guard &held, VOD_LINK_TYPE position);
void vodlinks_count_down(const vodlinks_guard &held, VOD_LINK_TYPE position);

// Calls `visit` for each taken slot of one type, in slot order; for those whose request has not filled them yet not at all.
template <class F> void vodlinks_visit(const vodlinks_guard &, int32_t type, F visit);

// The status is read and written by several threads without the lock.
inline int32_t vodlink_status(VodLink *link)
{
    return std::atomic_ref(link->status).load(std::memory_order_acquire);
}
inline void vodlink_set_status(VodLink *link, int32_t status)
{
    std::atomic_ref(link->status).store(status, std::memory_order_release);
}
// Moves to `to` if the status is `from`.
bool vodlink_move_status(VodLink *link, int32_t from, int32_t to);
// VOD_LINK_STATUS_TIMEOUT, unless the link is being destroyed; returns the status before.
int32_t vodlink_set_timeout(VodLink *link);
inline bool vodlink_is_dead(VodLink *link)
{
    int32_t status = vodlink_status(link);
    return status == VOD_LINK_STATUS_TIMEOUT || status == VOD_LINK_STATUS_IS_DESTORY;
}

// Written by acknowledgements and seeks without the lock.
inline uint32_t vodlink_client_buf(VodLink *link)
{
    return std::atomic_ref(link->p_data.play_d.client_buf).load(std::memory_order_relaxed);
}
inline void vodlink_set_client_buf(VodLink *link, uint32_t packages)
{
    std::atomic_ref(link->p_data.play_d.client_buf).store(packages, std::memory_order_relaxed);
}

inline void vodlink_count_sent_package(VodLink *link)
{
    std::atomic_ref(link->p_data.play_d.client_buf).fetch_add(1, std::memory_order_relaxed);
}

// What a player is given as its `usr`: names the slot and this life of it, so that a callback that comes after the slot
// was freed, or taken by another client, finds nothing.
handle_orb vodlink_cookie(const VodLink *link);
VodLink *vodlink_of_cookie(const vodlinks_guard &held, handle_orb cookie);
// Whether the link behind a player's `usr` asked for absolute time; 0 for anything that is no live link. Players ask
// with their own lock held, so this takes none.
int vodlink_cookie_insert_abstime(handle_orb cookie);
void vodlink_set_insert_abstime(VodLink *link, int32_t insert_abstime);

// Lends the lock for at most `ms`, or until vodlink_wake; false when the link died meanwhile. `whole` waits the time
// out even when woken for another reason.
bool vodlink_wait(VodLink *link, vodlinks_guard &held, uint32_t ms, bool whole);
// Takes the table lock, so that it cannot come between a waiter's look and its wait.
void vodlink_wake(VodLink *link);
// Waits until `ms` after the end of the link's last such wait was due: what a wake-up comes late, and the work between,
// is taken off the next wait, down to none. A link that is further behind than that starts anew. False as above.
bool vodlink_pace(VodLink *link, vodlinks_guard &held, uint32_t ms);

// The link's player, download or upload handle, whatever its kind.
handle_orb vodlink_handle(VodLink *link);
// The handle is taken out of the link, so that only one closer gets it; -1 for the others.
handle_orb vodlink_take_play_id(const vodlinks_guard &held, VodLink *link);

// The slots themselves; for the visits above and for tests.
extern VodLink s_vodlinks[VOD_LINK_SLOTS];

// Between being taken and being filled a slot of any kind looks like a playback without a name.
inline bool vodlink_is_filled(const vodlinks_guard &, VodLink *link)
{
    return link->type != VOD_LINK_TYPE_HARDPLAY || link->mslink != nullptr ||
           vodlink_status(link) != VOD_LINK_STATUS_REQ;
}

template <class F> void vodlinks_visit(const vodlinks_guard &held, int32_t type, F visit)
{
    for (VodLink &link : s_vodlinks)
        if (link.index != -1 && link.type == type && vodlink_is_filled(held, &link))
            visit(link);
}
