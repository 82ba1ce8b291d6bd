#include "vod/link_table.h"

#include "comm_func/comm_func.h"
#include "vod/lock_ranks.h"
#include "vod/vod_interface.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <type_traits>
#include <utility>

LMutex s_vodlinks_mutex;

// Guarded by s_vodlinks_mutex. A slot is free exactly when its index is -1.
VodLink s_vodlinks[VOD_LINK_SLOTS];
static std::array<uint32_t, VOD_LINK_COUNTERS> s_vodlink_counts;
// One for each slot, with s_vodlinks_mutex: woken by acknowledgements and when the link dies.
static std::array<LCond, VOD_LINK_SLOTS> s_vodlink_wakeups;
// When the last paced wait of each slot was due to end, 0 before the first. Guarded by s_vodlinks_mutex.
static std::array<uint64_t, VOD_LINK_SLOTS> s_vodlink_due_ticks;
// The life of each slot that is under way; changed under s_vodlinks_mutex, read by players without it.
static std::array<std::atomic<uint64_t>, VOD_LINK_SLOTS> s_vodlink_lives;
// Copies of the slots' insert_abstime, which players read without the lock.
static std::array<std::atomic<int32_t>, VOD_LINK_SLOTS> s_vodlink_abstimes;
// Set by start-up while the first events may already arrive.
static std::atomic<int32_t> s_vod_max_num = 128;

// The message names the table, the bound is deliberately wider than it.
static constexpr int32_t LINK_INDEX_MAX = 7999;

static constexpr const char *COUNTER_NAMES[VOD_LINK_COUNTERS] = {
    "s_vodlink_down_num", "s_vodlink_play_num", "s_vodlink_state_num", "s_vodlink_up_num", "s_vodlink_active_num"};

int vodlinks_lock_init()
{
    // Another start-up finds the lock in use: it stays.
    if (s_vodlinks_mutex.impl == nullptr && !os_mutex_init(&s_vodlinks_mutex, 1))
        return 0;
    os_mutex_set_rank(&s_vodlinks_mutex, LOCK_RANK_LINK_TABLE, "link table");
    return std::ranges::all_of(s_vodlink_wakeups,
                               [](LCond &cond) { return cond.impl != nullptr || os_cond_init(&cond) != 0; });
}

// Every byte: `{}` need not reach past the first member of the union.
static void vodlink_zero(VodLink *link)
{
    static_assert(std::is_trivially_copyable_v<VodLink>);
    std::memset(link, 0, sizeof *link);
}

void vodlinks_clear()
{
    vodlinks_guard held;
    for (VodLink &link : s_vodlinks) {
        vodlink_zero(&link);
        link.index = -1;
    }
    s_vodlink_counts.fill(0);
}

void vodlinks_set_max_num(int32_t max_num)
{
    s_vod_max_num = max_num;
}

int32_t vodlinks_max_num()
{
    return s_vod_max_num;
}

uint32_t vodlinks_count(const vodlinks_guard &, VOD_LINK_TYPE position)
{
    return s_vodlink_counts[position];
}

void vodlinks_count_up(const vodlinks_guard &, VOD_LINK_TYPE position)
{
    s_vodlink_counts[position]++;
}

void vodlinks_count_down(const vodlinks_guard &, VOD_LINK_TYPE position)
{
    if (s_vodlink_counts[position] == 0) {
        LOG(LOG_SYSTEM, "%s is 0 already", COUNTER_NAMES[position]);
        return;
    }
    s_vodlink_counts[position]--;
}

static uint32_t vodlinks_taken(const vodlinks_guard &)
{
    return s_vodlink_counts[VOD_LINK_PLAY_NUM] + s_vodlink_counts[VOD_LINK_DOWN_NUM] +
           s_vodlink_counts[VOD_LINK_STATE_NUM] + s_vodlink_counts[VOD_LINK_UP_NUM];
}

static void vodlinks_log_counters(const vodlinks_guard &held)
{
    LOG(LOG_REFUSE,
        "vodlink_create: s_vodlink_play_num:%u, s_vodlink_down_num:%u, s_vodlink_state_num:%u, s_vodlink_up_num:%u, "
        "s_vod_max_num:%d",
        vodlinks_count(held, VOD_LINK_PLAY_NUM), vodlinks_count(held, VOD_LINK_DOWN_NUM),
        vodlinks_count(held, VOD_LINK_STATE_NUM), vodlinks_count(held, VOD_LINK_UP_NUM), vodlinks_max_num());
}

static void vodlink_take(const vodlinks_guard &, VodLink *link)
{
    auto index = static_cast<int32_t>(link - s_vodlinks);
    vodlink_zero(link);
    link->p_data.play_d.play_id = INVALID_HANDLE_ORB;
    link->index = index;
    s_vodlink_abstimes[static_cast<size_t>(index)] = 0;
    s_vodlink_due_ticks[static_cast<size_t>(index)] = 0;
    s_vodlink_lives[static_cast<size_t>(index)]++;
}

VodLink *vodlink_create()
{
    vodlinks_guard held;
    vodlinks_log_counters(held);
    if (int32_t max_num = vodlinks_max_num(); max_num < 0 || vodlinks_taken(held) >= static_cast<uint32_t>(max_num))
        return nullptr;
    auto slot = std::ranges::find(s_vodlinks, -1, &VodLink::index);
    if (slot == std::end(s_vodlinks))
        return nullptr;
    vodlink_take(held, slot);
    return slot;
}

bool vodlink_move_status(VodLink *link, int32_t from, int32_t to)
{
    return std::atomic_ref(link->status).compare_exchange_strong(from, to);
}

int32_t vodlink_set_timeout(VodLink *link)
{
    std::atomic_ref status(link->status);
    int32_t before = status.load();
    while (before != VOD_LINK_STATUS_IS_DESTORY && !status.compare_exchange_weak(before, VOD_LINK_STATUS_TIMEOUT)) {
    }
    vodlink_wake(link);
    return before;
}

// ---- Cookies --------------------------------------------------------------------------------------------------------

// The slot's number in the low byte, the number of its life above it: never 0 and never -1.
static constexpr int COOKIE_INDEX_BITS = 8;

handle_orb vodlink_cookie(const VodLink *link)
{
    auto index = static_cast<uint64_t>(link - s_vodlinks);
    return static_cast<handle_orb>(s_vodlink_lives[index] << COOKIE_INDEX_BITS | index);
}

static VodLink *vodlink_by_cookie(handle_orb cookie)
{
    auto bits = static_cast<uint64_t>(cookie);
    uint64_t index = bits & ((1u << COOKIE_INDEX_BITS) - 1);
    if (index >= VOD_LINK_SLOTS || bits >> COOKIE_INDEX_BITS == 0 ||
        bits >> COOKIE_INDEX_BITS != s_vodlink_lives[index])
        return nullptr;
    return &s_vodlinks[index];
}

VodLink *vodlink_of_cookie(const vodlinks_guard &, handle_orb cookie)
{
    VodLink *link = vodlink_by_cookie(cookie);
    return link != nullptr && link->index != -1 ? link : nullptr;
}

int vodlink_cookie_insert_abstime(handle_orb cookie)
{
    VodLink *link = vodlink_by_cookie(cookie);
    return link == nullptr ? 0 : s_vodlink_abstimes[static_cast<size_t>(link - s_vodlinks)].load();
}

void vodlink_set_insert_abstime(VodLink *link, int32_t insert_abstime)
{
    link->insert_abstime = insert_abstime;
    s_vodlink_abstimes[static_cast<size_t>(link - s_vodlinks)] = insert_abstime;
}

// ---- Waiting --------------------------------------------------------------------------------------------------------

bool vodlink_wait(VodLink *link, vodlinks_guard &held, uint32_t ms, bool whole)
{
    if (vodlink_is_dead(link))
        return false;
    handle_orb life = vodlink_cookie(link);
    uint64_t end = os_tick() + ms;
    LCond *wakeup = &s_vodlink_wakeups[static_cast<size_t>(link - s_vodlinks)];
    for (uint32_t left = ms; left > 0;) {
        bool woken = os_cond_wait(wakeup, held.mutex(), left) != 0;
        if (vodlink_of_cookie(held, life) == nullptr || vodlink_is_dead(link))
            return false;
        if (!woken || !whole)
            return true;
        uint64_t now = os_tick();
        left = now < end ? static_cast<uint32_t>(end - now) : 0;
    }
    return !vodlink_is_dead(link);
}

bool vodlink_pace(VodLink *link, vodlinks_guard &held, uint32_t ms)
{
    uint64_t *due = &s_vodlink_due_ticks[static_cast<size_t>(link - s_vodlinks)];
    uint64_t now = os_tick(), end = std::max(*due + ms, now);
    if (*due == 0 || now - *due > uint64_t{2} * ms || *due > now)
        end = now + ms;
    *due = end;
    return vodlink_wait(link, held, static_cast<uint32_t>(end - now), true);
}

void vodlink_wake(VodLink *link)
{
    vodlinks_guard held;
    os_cond_broadcast(&s_vodlink_wakeups[static_cast<size_t>(link - s_vodlinks)]);
}

// ---- Destruction ----------------------------------------------------------------------------------------------------

static bool vodlink_is_slot(const VodLink *link)
{
    return std::ranges::any_of(s_vodlinks, [link](const VodLink &slot) { return &slot == link; });
}

static void vodlink_release_connection(VodLink *link)
{
    MsLink *mslink = nullptr;
    {
        vodlinks_guard held;
        mslink = std::exchange(link->mslink, nullptr);
    }
    if (mslink != nullptr && !mslink_destroy(mslink))
        LOG(LOG_REFUSE, "!mslink_destroy");
}

handle_orb vodlink_handle(VodLink *link)
{
    vodlinks_guard held;
    return link->p_data.play_d.play_id;
}

handle_orb vodlink_take_play_id(const vodlinks_guard &, VodLink *link)
{
    return std::exchange(link->p_data.play_d.play_id, INVALID_HANDLE_ORB);
}

static void vodlink_close_playback(VodLink *link)
{
    handle_orb play_id = INVALID_HANDLE_ORB;
    {
        vodlinks_guard held;
        play_id = vodlink_take_play_id(held, link);
    }
    if (play_id == INVALID_HANDLE_ORB) {
        LOG(LOG_REFUSE, "vodlink->p_data.play_d.play_id == (handle_orb)-1, vodlink->index:%d", link->index);
        return;
    }
    if (!vodplay_close(play_id))
        LOG(LOG_REFUSE, "!vodplay_close");
    vodlinks_guard held;
    vodlinks_count_down(held, VOD_LINK_PLAY_NUM);
}

// The handle stays in the link: a download by time range keeps its slot for as long as it is there.
static void vodlink_close_download(VodLink *link)
{
    handle_orb down_id = vodlink_handle(link);
    if (down_id == INVALID_HANDLE_ORB) {
        LOG(LOG_REFUSE, "vodlink->p_data.down_d.down_id == (handle_orb)-1, vodlink->index:%d", link->index);
        return;
    }
    if (!vodplay_download_close(down_id))
        LOG(LOG_REFUSE, "!vodplay_download_close");
    vodlinks_guard held;
    vodlinks_count_down(held, VOD_LINK_DOWN_NUM);
}

static void vodlink_close_state(VodLink *link)
{
    vodlinks_guard held;
    vodlinks_count_down(held, VOD_LINK_STATE_NUM);
    LOG(LOG_REFUSE, "vodlink_destroy: index:%d, s_vodlink_state_num:%u", link->index,
        vodlinks_count(held, VOD_LINK_STATE_NUM));
}

static void vodlink_close_upload(VodLink *link)
{
    UpDataInfo *upload = &link->p_data.up_d;
    handle_orb up_id = vodlink_handle(link);
    if (up_id == INVALID_HANDLE_ORB)
        return;
    if (!vodplay_upload_close(up_id, commtime_to_local_absseconds(&upload->lock_time)))
        LOG(LOG_REFUSE, "!vodplay_upload_close");
    vodlinks_guard held;
    upload->up_id = INVALID_HANDLE_ORB;
    vodlinks_count_down(held, VOD_LINK_UP_NUM);
}

static void vodlink_close_session(VodLink *link)
{
    switch (link->type) {
    case VOD_LINK_TYPE_HARDPLAY:
        return vodlink_close_playback(link);
    case VOD_LINK_TYPE_DOWNLOAD:
        return vodlink_close_download(link);
    case VOD_LINK_TYPE_STATE:
        return vodlink_close_state(link);
    case VOD_LINK_TYPE_UPLOAD:
        return vodlink_close_upload(link);
    default:
        return; // logins have neither handle nor counter
    }
}

static bool vodlink_still_active(const vodlinks_guard &, const VodLink *link)
{
    switch (link->type) {
    case VOD_LINK_TYPE_HARDPLAY:
        return link->p_data.play_d.is_play_end == 0;
    case VOD_LINK_TYPE_DOWNLOAD:
        return link->p_data.down_d.is_down_end == 0;
    case VOD_LINK_TYPE_UPLOAD:
        return link->p_data.up_d.is_up_end == 0;
    default:
        return false;
    }
}

static void vodlink_free_slot(const vodlinks_guard &, VodLink *link)
{
    if (link->type == VOD_LINK_TYPE_DOWNLOAD) {
        if (link->vod_file_type != 0 && link->p_data.down_d.down_id != INVALID_HANDLE_ORB) {
            LOG(LOG_TRACE, "vodlink->index:%d, is download by time, wait async close", link->index);
            return;
        }
        LOG(LOG_TRACE, "vodlink->index:%d, is download by file or by time error, close", link->index);
    }
    std::atomic_ref(link->index).store(-1);
}

int vodlink_destroy(VodLink *link)
{
    if (link == nullptr)
        return LOGGED(0, LOG_REFUSE, "vodlink == NULL");
    int32_t index = std::atomic_ref(link->index).load();
    if (index < 0 || index > LINK_INDEX_MAX)
        return LOGGED(0, LOG_REFUSE, "vodlink->index < 0 || vodlink->index >= MAX_LINK_NUM---vodlink->index = %d",
                      index);
    if (!vodlink_is_slot(link))
        return LOGGED(0, LOG_SYSTEM, "vodlink is no slot of the table, vodlink->index:%d", index);
    if (std::atomic_ref(link->status).exchange(VOD_LINK_STATUS_IS_DESTORY) == VOD_LINK_STATUS_IS_DESTORY)
        return LOGGED(1, LOG_REFUSE, "vodlink_destroy: index:%d, vodlink->status == VOD_LINK_STATUS_IS_DESTORY return",
                      index);

    vodlink_wake(link);
    vodlink_release_connection(link);
    LOG(LOG_REFUSE, "vodlink_destroy: type:%d, index:%d, vod_file_type:%d", link->type, link->index,
        link->vod_file_type);
    vodlink_close_session(link);

    vodlinks_guard held;
    if (vodlink_still_active(held, link))
        vodlinks_count_down(held, VOD_LINK_ACTTVE_NUM);
    vodlink_free_slot(held, link);
    LOG(LOG_TRACE, "s_vodlink_active_num: %d, s_vodlink_up_num:%d, s_vodlink_down_num:%d, s_vodlink_play_num:%d",
        static_cast<int>(vodlinks_count(held, VOD_LINK_ACTTVE_NUM)),
        static_cast<int>(vodlinks_count(held, VOD_LINK_UP_NUM)),
        static_cast<int>(vodlinks_count(held, VOD_LINK_DOWN_NUM)),
        static_cast<int>(vodlinks_count(held, VOD_LINK_PLAY_NUM)));
    return 1;
}
