// The asynchronous worker of record operations: one thread that carries out queued commands one after the other.
#pragma once

#include "platform/os/os.h"

// Made by start-up: open find sessions, and the queue of the worker.
extern DList *s_lst_findfds;
extern DList *s_lst_asyn_op;

// Makes the lists and starts the thread. Each start-up makes new ones; what earlier ones use stays with them.
int record_lists_create();
int record_worker_start();
// Body of the worker's thread.
int rec_asyn_op_thread_start(void *arg);
// Ends the worker and waits for it; for tests, the service's worker lives as long as the process.
void record_worker_stop();
