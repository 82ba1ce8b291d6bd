// The asynchronous worker of record operations: one thread that carries out queued commands one after the other, keeps
// the open search sessions and answers.
#pragma once

#include "vod/record_sessions.h"

#include <atomic>

// Made by start-up: open find sessions (VodRecFindfd *), and the queue of the worker (VodOperateRecItem *). Each list
// has its own lock. Another start makes others while clients' commands may arrive.
extern std::atomic<DList *> s_lst_findfds;
extern std::atomic<DList *> s_lst_asyn_op;

// Never set: the recordings are always files of this host.
extern int32_t s_storage_type;

// At most so many records are delivered by one command, whatever it asks for.
constexpr int32_t RECORD_COUNT_MAX = 10'000;

// Makes the lists and starts the thread. Each start-up makes new ones; what earlier ones use stays with them.
int record_lists_create();
int record_worker_start();
// Body of the worker's thread; `arg` is its queue.
int rec_asyn_op_thread_start(void *arg);
// Ends the worker, and those of earlier starts, and waits for them; drops what is still queued and closes the sessions;
// for tests, the service's worker lives as long as the process.
void record_worker_stop();

// Queues an item, which then is the worker's: 1, or 0 when it stays the caller's. Any thread.
int rec_operate_for_asyn(VodOperateRecItem *item);

// ---- The worker's own steps -----------------------------------------------------------------------------------------

// 1 when the operation ran and its completion was called.
int deal_with_asyn_rec_operate(VodOperateRecItem *item);

// Answers a command that was carried out.
void on_rec_operate_complete(int32_t command, void *source, VodAsynRecUdata *udata, void *param, int32_t size);
void on_rec_operate_complete_file_find(VodAsynRecUdata *udata, void *param, int32_t size);
void on_rec_operate_complate_get_file(VodAsynRecUdata *udata, void *param, int32_t size);
void on_rec_operate_complete_find_close(VodAsynRecUdata *udata, void *param, int32_t size);
