// The run-time check of the lock order: what each thread holds, and whether it may take one more.
#pragma once

#include <cstddef>

struct os_lock_place {
    const char *file;
    int line;
};

// What the check knows about a mutex. Rank 0 has no place in the order.
struct os_lock_rank {
    int rank;
    const char *name;
};

#if defined(OS_LOCK_RANKS)
// Before taking: ends the process when a held mutex has the same rank or a higher one.
void os_lock_order_check(const void *mutex, const os_lock_rank &rank, const os_lock_place &place);
void os_lock_order_taken(const void *mutex, const os_lock_rank &rank, const os_lock_place &place);
void os_lock_order_released(const void *mutex);
// Before lending: ends the process unless the thread holds the mutex exactly once.
void os_lock_order_check_lent(const void *mutex, const os_lock_place &place);
#else
inline void os_lock_order_check(const void *, const os_lock_rank &, const os_lock_place &) {}
inline void os_lock_order_taken(const void *, const os_lock_rank &, const os_lock_place &) {}
inline void os_lock_order_released(const void *) {}
inline void os_lock_order_check_lent(const void *, const os_lock_place &) {}
#endif
