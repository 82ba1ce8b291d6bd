// Lets a thread sleep until somebody has work for it, without polling and without missing a call.
//
// The sleeper notes the count, looks at everything it may have to do, and when there is nothing waits for the count to
// move on. A call that comes in between moves the count, so the wait returns at once.
#pragma once

#include "platform/os/os.h"

#include <cstdint>

struct orb_wake {
    LMutex mutex; // a leaf: nothing is taken inside it
    LCond cond;
    uint32_t count; // guarded by mutex
};

// `name` stands for its lock where the lock order is checked. 0 without memory.
int orb_wake_init(orb_wake *wake, const char *name);
// Nobody may wait or call any more.
void orb_wake_destroy(orb_wake *wake);
// The others may be called from any thread.
uint32_t orb_wake_count(orb_wake *wake);
void orb_wake_call(orb_wake *wake);
// Returns when the count is no longer `seen` or `ms` (OS_WAIT_FOREVER allowed) have passed.
void orb_wake_wait(orb_wake *wake, uint32_t seen, uint32_t ms);
