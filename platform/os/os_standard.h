/* The standard streams of a process as its starter left them. */
#ifndef PLATFORM_OS_OS_STANDARD_H
#define PLATFORM_OS_OS_STANDARD_H

#include "platform/os/orb_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Opens the null device on each standard stream that is closed, so that no file or connection that the process opens
 * later becomes its standard output. os_program_start does it first of all. 0, with the process to be ended, when a
 * stream stays closed.
 */
ORB_API int os_standard_streams_open(void);

#ifdef __cplusplus
}
#endif

#endif
