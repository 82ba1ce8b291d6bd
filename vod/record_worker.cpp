#include "vod/record_worker.h"

#include "platform/os/os_guard.h"
#include "vod/log_buffered.h"

#include <atomic>

DList *s_lst_findfds;
DList *s_lst_asyn_op;

static LThread s_asyn_op_thr;
static std::atomic<int32_t> s_asyn_thread_is_terminate;
// Wakes the worker; made once.
static LMutex s_asyn_mutex;
static LCond s_asyn_wakeup;

int record_lists_create()
{
    s_lst_findfds = adt_dlist_create(sizeof(void *));
    if (s_lst_findfds == nullptr)
        return LOGGED_BUFFERED(0, "s_lst_findfds == NULL");
    s_lst_asyn_op = adt_dlist_create(sizeof(void *));
    if (s_lst_asyn_op == nullptr)
        return LOGGED_BUFFERED(0, "s_lst_asyn_op == NULL");
    return 1;
}

static int wakeup_init()
{
    return (s_asyn_mutex.impl != nullptr || os_mutex_init(&s_asyn_mutex, 1)) &&
           (s_asyn_wakeup.impl != nullptr || os_cond_init(&s_asyn_wakeup));
}

int record_worker_start()
{
    s_asyn_thread_is_terminate = 0;
    // The worker of an earlier start goes on by itself.
    if (s_asyn_op_thr.impl != nullptr)
        os_thread_detach(&s_asyn_op_thr);
    s_asyn_op_thr = {};
    if (!wakeup_init() || !os_thread_create(&s_asyn_op_thr, 0, rec_asyn_op_thread_start, NULL))
        return LOGGED_BUFFERED(0, "!os_thread_create(&s_asyn_op_thr, 0, rec_asyn_op_thread_start, NULL)");
    return 1;
}

int rec_asyn_op_thread_start(void *)
{
    os_thread_name("vod-records");
    os_lock_guard held(&s_asyn_mutex);
    while (!s_asyn_thread_is_terminate)
        os_cond_wait(&s_asyn_wakeup, held.mutex(), OS_WAIT_FOREVER);
    return 0;
}

void record_worker_stop()
{
    if (s_asyn_op_thr.impl == nullptr)
        return;
    {
        os_lock_guard held(&s_asyn_mutex);
        s_asyn_thread_is_terminate = 1;
        os_cond_broadcast(&s_asyn_wakeup);
    }
    os_thread_join(&s_asyn_op_thr, nullptr);
    s_asyn_op_thr = {};
}
