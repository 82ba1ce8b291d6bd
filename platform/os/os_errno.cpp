#include "platform/os/os.h"

static thread_local uint32_t t_error;

uint32_t os_get_errno(void)
{
    return t_error;
}

void os_set_errno(uint32_t code)
{
    t_error = code;
}
