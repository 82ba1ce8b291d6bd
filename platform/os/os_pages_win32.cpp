#include "platform/os/os_pages.h"

#include "platform/os/os.h"
#include "platform/os/os_win32.h"

void *os_pages_map(size_t bytes)
{
    if (bytes == 0 || os_fault_point("os_pages_map"))
        return nullptr;
    return VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
}

void os_pages_unmap(void *pages, size_t)
{
    if (pages != nullptr)
        VirtualFree(pages, 0, MEM_RELEASE);
}
