/*
 * Start and stop of the recording-access service. Call from one thread of the host.
 */
#ifndef WIN32_VOD_VOD_H
#define WIN32_VOD_VOD_H

#include "win32_vod/vod_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Brings the whole service up: 1 when it runs, 0 when a step failed (the log says which; what earlier steps built
 * stays). May end the process with status 1 when there is no memory. Call it once: every call runs all steps again.
 */
VOD_API int vod_startup(void);
/*
 * For a process that looks at a configuration instead of serving: reads it with the very readers of vod_startup, starts
 * nothing that lasts and writes the same lines to the log. 1 when nothing of it would end the start, else 0. The message
 * service's own settings are not looked at.
 */
VOD_API int vod_check_settings(void);
/*
 * Stops the analysis engine and the flow controller and unloads the player libraries; returns the result of the latter,
 * 1. The message-service binding, the link table and the worker live as long as the process.
 */
VOD_API int vod_cleanup(void);
/* Always 0: the started flag is not maintained. */
VOD_API int vod_is_startup(void);
/* Loads the player library of player type `type`; only 3 can be loaded, `filename` is ignored. 1 when loaded, else 0. */
VOD_API int vod_set_player_lib(int type, const char *filename);

#ifdef __cplusplus
}
#endif

#endif
