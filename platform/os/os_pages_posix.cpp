#include "platform/os/os_pages.h"

#include "platform/os/os.h"

#include <sys/mman.h>

void *os_pages_map(size_t bytes)
{
    if (bytes == 0 || os_fault_point("os_pages_map"))
        return nullptr;
    void *pages = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED)
        return nullptr;
    // Where the host hands out pages of megabytes the first byte written would cost one. It may not know the wish.
    madvise(pages, bytes, MADV_NOHUGEPAGE);
    return pages;
}

void os_pages_unmap(void *pages, size_t bytes)
{
    if (pages != nullptr)
        munmap(pages, bytes);
}
