/* Which of the host's names clients may use at all, whatever the access roots of os.h say about where they lead. */
#ifndef PLATFORM_OS_OS_ACCESS_H
#define PLATFORM_OS_OS_ACCESS_H

#include "platform/os/orb_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * 1: in calls with OS_FILE_CLIENT, names of other hosts ("\\server\share\..."), of devices ("\\.\...", "\\?\...") and those
 * that count from the current folder of a drive ("D:name") are refused before anything is opened or asked, because asking
 * would offer this process's credentials to whatever host the client names. 0, the start, leaves that to the access
 * roots, which refuse the same names wherever there are any. A name of another host below an access root stays allowed.
 * Without effect where the host has no such names. Set once at start.
 */
ORB_API void os_access_hosts_shut(int is_shut);

#ifdef __cplusplus
}
#endif

#endif
