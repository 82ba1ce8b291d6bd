/*
 * Memory straight from the host, for large buffers of which mostly little is used. A page costs memory once it is written,
 * and all of them are given back at once. An allocator promises neither: it keeps large blocks that were freed for the next
 * time, and then has to clear them whole. Safe from any thread.
 */
#ifndef PLATFORM_OS_OS_PAGES_H
#define PLATFORM_OS_OS_PAGES_H

#include "platform/os/orb_export.h"

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* `bytes` bytes, all zero, which the caller gives back with os_pages_unmap. NULL for 0 bytes and without memory. */
ORB_API void *os_pages_map(size_t bytes);
/* `bytes` as they were asked for. NULL is left alone. */
ORB_API void os_pages_unmap(void *pages, size_t bytes);

#ifdef __cplusplus
}
#endif

#endif
