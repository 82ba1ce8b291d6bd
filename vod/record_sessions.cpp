#include "vod/record_sessions.h"

#include "platform/os/os_guard.h"
#include "vod/record_limits.h"
#include "vod/record_worker.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <string_view>
#include <vector>

// When the next search may have been idle for long enough; none before that. The worker's, and of those of earlier starts.
static std::atomic<uint64_t> s_sweep_tick = UINT64_MAX;
static std::atomic<uint64_t> s_refused;
// How often those are looked at that are idle for long enough but whose client is still there.
static constexpr uint64_t LOOK_AGAIN_MS = 60'000;

// ---- Who ------------------------------------------------------------------------------------------------------------

static MsLink *caller_of(const VodOperateRecItem *item)
{
    return item->udata == nullptr ? nullptr : item->udata->mslink;
}

static handle_orb life_of(const VodOperateRecItem *item)
{
    return item->udata == nullptr ? 0 : item->udata->link_life;
}

void record_caller_name(const VodOperateRecItem *item, char (&name)[RECORD_PEER_NAME])
{
    if (!mslink_peer_name(caller_of(item), name, sizeof name))
        name[0] = '\0';
}

// Without the port: "10.0.0.1", "[::1]".
static std::string_view address_in(const char *peer_name)
{
    std::string_view name = peer_name;
    return name.substr(0, name.rfind(':'));
}

// ---- The list -------------------------------------------------------------------------------------------------------

template <class F> static void visit_sessions(F visit)
{
    DList *sessions = s_lst_findfds;
    if (sessions == nullptr)
        return;
    dlist_guard held(sessions);
    for (DListNode *node = adt_dlist_head(sessions); node != nullptr; node = adt_dlist_next(node))
        visit(**static_cast<VodRecFindfd **>(adt_dlist_data(node)));
}

static bool session_add(VodRecFindfd *session)
{
    DList *sessions = s_lst_findfds;
    if (sessions == nullptr)
        return false;
    dlist_guard held(sessions);
    return adt_dlist_push_back(sessions, &session) != nullptr;
}

// Counts from now.
static void session_used(VodRecFindfd *session, const VodOperateRecItem *item)
{
    session->used_tick = os_tick();
    session->used_by = life_of(item);
    s_sweep_tick = std::min(s_sweep_tick.load(), session->used_tick + record_idle_ms());
}

bool record_session_open(int32_t findfd, const VodOperateRecItem *item)
{
    auto session = static_cast<VodRecFindfd *>(std::calloc(1, sizeof(VodRecFindfd)));
    if (session != nullptr) {
        session->findfd = findfd;
        session->owner = caller_of(item);
        record_caller_name(item, session->owner_name);
        session_used(session, item);
        if (session_add(session))
            return true;
    }
    std::free(session);
    // Nobody could ever close it.
    silo_db_find_close(findfd);
    return LOGGED(false, LOG_SYSTEM, "no memory for the session %d", findfd);
}

VodRecFindfd *record_session_take(int32_t findfd)
{
    DList *sessions = s_lst_findfds;
    if (sessions == nullptr)
        return nullptr;
    dlist_guard held(sessions);
    for (DListNode *node = adt_dlist_head(sessions); node != nullptr; node = adt_dlist_next(node)) {
        auto session = *static_cast<VodRecFindfd **>(adt_dlist_data(node));
        if (session->findfd != findfd)
            continue;
        session->time = 0;
        adt_dlist_erase(sessions, node);
        return session;
    }
    return nullptr;
}

static void session_close(int32_t findfd)
{
    std::free(record_session_take(findfd));
    silo_db_find_close(findfd);
}

void record_session_give_back(VodRecFindfd *session, const VodOperateRecItem *item)
{
    session_used(session, item);
    if (session_add(session))
        return;
    LOG(LOG_SYSTEM, "no memory for the session %d", session->findfd);
    silo_db_find_close(session->findfd);
    std::free(session);
}

// ---- How many -------------------------------------------------------------------------------------------------------

static uint64_t idle_ms_of(const VodRecFindfd &session, uint64_t now)
{
    return now > session.used_tick ? now - session.used_tick : 0;
}

// What is open, of one address or (empty) of all, and which of it has been idle longest.
struct open_sessions {
    uint32_t count = 0;
    VodRecFindfd oldest = {};
};

static open_sessions sessions_of(std::string_view address, bool is_of_all)
{
    open_sessions open;
    visit_sessions([&](const VodRecFindfd &session) {
        if (!is_of_all && address_in(session.owner_name) != address)
            return;
        if (open.count++ == 0 || session.used_tick < open.oldest.used_tick)
            open.oldest = session;
    });
    return open;
}

// Whether there is room for one more now.
static bool make_room(const open_sessions &open, uint32_t limit, const char *caller)
{
    if (open.count < limit)
        return true;
    uint64_t idle_ms = idle_ms_of(open.oldest, os_tick());
    if (idle_ms <= record_idle_ms())
        return false;
    LOG(LOG_REFUSE, "the session %d of %s is closed: idle for %llu s, it makes room for %s", open.oldest.findfd,
        open.oldest.owner_name, static_cast<unsigned long long>(idle_ms / 1000), caller);
    session_close(open.oldest.findfd);
    return true;
}

static bool refuse(const char *caller, uint32_t count, const char *whose)
{
    return LOGGED(false, LOG_REFUSE, "a search of %s is refused: %u %s are open; %llu were refused so far", caller, count,
                  whose, static_cast<unsigned long long>(++s_refused));
}

bool record_session_admit(const VodOperateRecItem *item)
{
    char caller[RECORD_PEER_NAME];
    record_caller_name(item, caller);
    const bool is_server = silo_db_is_server();
    open_sessions own = sessions_of(address_in(caller), false);
    if (!make_room(own, record_address_max(is_server), caller))
        return refuse(caller, own.count, "of its address");
    open_sessions all = sessions_of({}, true);
    // Of its own store the index keeps the limit itself, and says so.
    return make_room(all, record_all_max(is_server), caller) || !is_server || refuse(caller, all.count, "in all");
}

// ---- The end of those that were forgotten ---------------------------------------------------------------------------

static std::vector<VodRecFindfd> idle_sessions(uint64_t now, uint64_t *next)
{
    std::vector<VodRecFindfd> idle;
    visit_sessions([&](const VodRecFindfd &session) {
        if (idle_ms_of(session, now) > record_idle_ms())
            idle.push_back(session);
        else
            *next = std::min(*next, session.used_tick + record_idle_ms() + 1);
    });
    return idle;
}

static bool has_gone(const VodRecFindfd &session)
{
    vodlinks_guard held;
    return vodlink_of_cookie(held, session.used_by) == nullptr;
}

// When there may be others.
static uint64_t close_forgotten(uint64_t now)
{
    uint64_t next = UINT64_MAX;
    for (const VodRecFindfd &session : idle_sessions(now, &next)) {
        if (!has_gone(session)) {
            next = std::min(next, now + std::min<uint64_t>(record_idle_ms(), LOOK_AGAIN_MS));
            continue;
        }
        LOG(LOG_REFUSE, "the session %d of %s is closed: idle for %llu s, its client has gone", session.findfd,
            session.owner_name, static_cast<unsigned long long>(idle_ms_of(session, now) / 1000));
        session_close(session.findfd);
    }
    return next;
}

static bool is_any_open()
{
    DList *sessions = s_lst_findfds;
    if (sessions == nullptr)
        return false;
    dlist_guard held(sessions);
    return adt_dlist_size(sessions) != 0;
}

uint32_t record_sessions_sweep()
{
    if (!is_any_open())
        s_sweep_tick = UINT64_MAX;
    uint64_t now = os_tick();
    if (now >= s_sweep_tick)
        s_sweep_tick = close_forgotten(now);
    uint64_t next = s_sweep_tick;
    if (next == UINT64_MAX)
        return OS_WAIT_FOREVER;
    return next > now ? static_cast<uint32_t>(next - now) : 0;
}
