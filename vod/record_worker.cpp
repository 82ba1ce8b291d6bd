#include "vod/record_worker.h"

#include "platform/os/os_guard.h"
#include "vod/lock_ranks.h"
#include "vod/log_buffered.h"
#include "vod/record_outbox.h"
#include "vod/record_pressure.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <utility>

std::atomic<DList *> s_lst_findfds;
std::atomic<DList *> s_lst_asyn_op;

static LThread s_asyn_op_thr;
static std::atomic<int32_t> s_asyn_thread_is_terminate;
// Wakes the worker; made once.
static LMutex s_asyn_mutex;
static LCond s_asyn_wakeup;
// How often something was queued. Guarded by s_asyn_mutex.
static uint64_t s_asyn_queued;
// Workers that have not ended: those of earlier starts too. Guarded by s_asyn_mutex.
static uint32_t s_asyn_workers;

// A command that takes longer holds up those of all clients: it is told.
static constexpr uint64_t STALL_MS = 1000;
// How often it is looked whether connections have taken their replies, while commands of theirs wait for that.
static constexpr uint32_t HELD_UP_MS = 10;
// Until that is tried again for which there was no memory.
static constexpr uint32_t RETRY_MS = 100;

int record_lists_create()
{
    s_lst_findfds = adt_dlist_create(sizeof(void *));
    if (s_lst_findfds == nullptr)
        return LOGGED_BUFFERED(0, "s_lst_findfds == NULL");
    s_lst_asyn_op = adt_dlist_create(sizeof(void *));
    if (s_lst_asyn_op == nullptr)
        return LOGGED_BUFFERED(0, "s_lst_asyn_op == NULL");
    adt_dlist_set_rank(s_lst_findfds, LOCK_RANK_LEAF, "s_lst_findfds");
    adt_dlist_set_rank(s_lst_asyn_op, LOCK_RANK_LEAF, "s_lst_asyn_op");
    return 1;
}

static int wakeup_init()
{
    if (s_asyn_mutex.impl == nullptr) {
        if (!os_mutex_init(&s_asyn_mutex, 1))
            return 0;
        os_mutex_set_rank(&s_asyn_mutex, LOCK_RANK_LEAF, "record worker");
    }
    return s_asyn_wakeup.impl != nullptr || os_cond_init(&s_asyn_wakeup);
}

static void worker_count(int change)
{
    os_lock_guard held(&s_asyn_mutex);
    s_asyn_workers += static_cast<uint32_t>(change);
    os_cond_broadcast(&s_asyn_wakeup);
}

static int worker_create()
{
    worker_count(1);
    if (os_thread_create(&s_asyn_op_thr, 0, rec_asyn_op_thread_start, s_lst_asyn_op))
        return 1;
    worker_count(-1);
    return 0;
}

int record_worker_start()
{
    s_asyn_thread_is_terminate = 0;
    // The worker of an earlier start goes on by itself, with the queue that it was given.
    if (s_asyn_op_thr.impl != nullptr)
        os_thread_detach(&s_asyn_op_thr);
    s_asyn_op_thr = {};
    if (!wakeup_init() || !worker_create())
        return LOGGED_BUFFERED(0, "!os_thread_create(&s_asyn_op_thr, 0, rec_asyn_op_thread_start, NULL)");
    return 1;
}

// ---- The queue ------------------------------------------------------------------------------------------------------

static void worker_wake()
{
    if (s_asyn_mutex.impl == nullptr)
        return;
    os_lock_guard held(&s_asyn_mutex);
    s_asyn_queued++;
    os_cond_broadcast(&s_asyn_wakeup);
}

int rec_operate_for_asyn(VodOperateRecItem *item)
{
    if (item == nullptr)
        return LOGGED(0, LOG_SYSTEM, "item == NULL");
    DList *queue = s_lst_asyn_op;
    if (queue == nullptr)
        return 0;
    {
        dlist_guard held(queue);
        if (adt_dlist_push_back(queue, &item) == nullptr)
            return 0;
    }
    worker_wake();
    return 1;
}

static MsLink *caller_of(const VodOperateRecItem *item)
{
    return item->udata == nullptr ? nullptr : item->udata->mslink;
}

// The oldest item whose connection has taken its replies so far. `is_held_up` when there are only others.
static record_item queue_take(DList *queue, bool *is_held_up)
{
    dlist_guard held(queue);
    *is_held_up = adt_dlist_head(queue) != nullptr;
    for (DListNode *node = adt_dlist_head(queue); node != nullptr; node = adt_dlist_next(node)) {
        auto item = *static_cast<VodOperateRecItem **>(adt_dlist_data(node));
        if (record_outbox_is_behind(caller_of(item)))
            continue;
        adt_dlist_erase(queue, node);
        return record_item(item);
    }
    return nullptr;
}

// ---- The thread -----------------------------------------------------------------------------------------------------

// Whose client has gone nobody can answer; what it wanted closed is closed all the same.
static bool is_for_nobody(const VodOperateRecItem *item)
{
    if (item->udata == nullptr || (item->command != RECORD_FIND_FILE && item->command != RECORD_GET_FILE))
        return false;
    vodlinks_guard held;
    return vodlink_of_cookie(held, item->udata->link_life) == nullptr;
}

// Out of memory a step is lost, but not the thread.
template <class F> static void guarded(const char *what, F step)
{
    try {
        step();
    } catch (const std::exception &error) {
        LOG(LOG_SYSTEM, "%s: %s", what, error.what());
    }
}

static void operate(VodOperateRecItem *item)
{
    uint64_t begun = os_tick();
    guarded("deal_with_asyn_rec_operate", [item] {
        if (is_for_nobody(item))
            LOG(LOG_REFUSE, "command => %d is left out, its link has gone", item->command);
        else
            deal_with_asyn_rec_operate(item);
    });
    if (uint64_t took = os_tick() - begun; took > STALL_MS)
        LOG(LOG_SYSTEM, "command => %d took %llu ms, the others had to wait", item->command,
            static_cast<unsigned long long>(took));
}

static void item_done(record_item item)
{
    MsLink *mslink = caller_of(item.get());
    item.reset();
    guarded("record_pressure_leave", [mslink] { record_pressure_leave(mslink); });
}

// Tries replies again and closes what was forgotten. In how many milliseconds there may be more of that.
static uint32_t tend()
{
    uint32_t next_ms = RETRY_MS;
    guarded("record worker", [&next_ms] { next_ms = std::min(record_outbox_try(), record_sessions_sweep()); });
    return next_ms;
}

static uint64_t queued_so_far()
{
    os_lock_guard held(&s_asyn_mutex);
    return s_asyn_queued;
}

// Waits until something is queued after `seen`, `ms` have passed, or the worker is to end.
static void wait_for_more(uint64_t seen, uint32_t ms)
{
    os_lock_guard held(&s_asyn_mutex);
    while (s_asyn_queued == seen && !s_asyn_thread_is_terminate)
        if (!os_cond_wait(&s_asyn_wakeup, held.mutex(), ms) || ms != OS_WAIT_FOREVER)
            return;
}

int rec_asyn_op_thread_start(void *arg)
{
    auto queue = static_cast<DList *>(arg);
    os_thread_name("vod-records");
    LOG(LOG_TRACE, "%s: s_asyn_thread_is_terminate = %d", "rec_asyn_op_thread_start",
        s_asyn_thread_is_terminate.load());
    while (!s_asyn_thread_is_terminate) {
        uint64_t seen = queued_so_far();
        uint32_t wait_ms = tend();
        bool is_held_up = false;
        if (record_item item = queue_take(queue, &is_held_up)) {
            operate(item.get());
            item_done(std::move(item));
        } else {
            wait_for_more(seen, is_held_up ? std::min(wait_ms, HELD_UP_MS) : wait_ms);
        }
    }
    guarded("record worker", record_outbox_clear);
    worker_count(-1);
    return 0;
}

// ---- The end, for tests ---------------------------------------------------------------------------------------------

static record_item queue_take_any(DList *queue)
{
    dlist_guard held(queue);
    DListNode *head = adt_dlist_head(queue);
    if (head == nullptr)
        return nullptr;
    auto item = *static_cast<VodOperateRecItem **>(adt_dlist_data(head));
    adt_dlist_erase(queue, head);
    return record_item(item);
}

static VodRecFindfd *sessions_take(DList *sessions)
{
    dlist_guard held(sessions);
    DListNode *head = adt_dlist_head(sessions);
    if (head == nullptr)
        return nullptr;
    auto session = *static_cast<VodRecFindfd **>(adt_dlist_data(head));
    adt_dlist_erase(sessions, head);
    return session;
}

static void lists_empty()
{
    record_outbox_clear();
    if (DList *queue = s_lst_asyn_op)
        while (record_item item = queue_take_any(queue))
            item_done(std::move(item));
    if (DList *sessions = s_lst_findfds)
        while (VodRecFindfd *session = sessions_take(sessions)) {
            silo_db_find_close(session->findfd);
            std::free(session);
        }
}

static void workers_end()
{
    os_lock_guard held(&s_asyn_mutex);
    s_asyn_thread_is_terminate = 1;
    os_cond_broadcast(&s_asyn_wakeup);
    while (s_asyn_workers != 0)
        os_cond_wait(&s_asyn_wakeup, held.mutex(), OS_WAIT_FOREVER);
}

void record_worker_stop()
{
    if (s_asyn_op_thr.impl != nullptr) {
        workers_end();
        os_thread_join(&s_asyn_op_thr, nullptr);
        s_asyn_op_thr = {};
    }
    lists_empty();
}
