// Mutexes of the core and the flow controller: recursive ones.
#pragma once

#include "platform/os/os.h"

int mutex_init(LMutex *mutex);
int mutex_lock(LMutex *mutex);
int mutex_unlock(LMutex *mutex);
// Clean-up handler: unlocks the mutex that it is given, if any.
void __mutex_lock_cleanup(void *mutex);
