#include "platform/os/os.h"

int os_header_is_c(void);

int os_header_is_c(void)
{
    struct os_clock clock = {0};
    LMutex mutex = {0};
    return clock.tick == NULL && mutex.impl == NULL;
}
