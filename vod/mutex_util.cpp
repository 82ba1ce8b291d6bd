#include "vod/mutex_util.h"

int mutex_init(LMutex *mutex)
{
    return os_mutex_init(mutex, 1);
}

int mutex_lock(LMutex *mutex)
{
    return os_mutex_lock(mutex);
}

int mutex_unlock(LMutex *mutex)
{
    return os_mutex_unlock(mutex);
}

void __mutex_lock_cleanup(void *mutex)
{
    if (mutex != nullptr)
        os_mutex_unlock(static_cast<LMutex *>(mutex));
}
