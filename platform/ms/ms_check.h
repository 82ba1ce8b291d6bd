/* For a host that wants to know whether the message service could start, without starting it. */
#ifndef PLATFORM_MS_MS_CHECK_H
#define PLATFORM_MS_MS_CHECK_H

#include "platform/os/orb_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Reads "etc\conf\ms_config.json" as ms_startup does, with the same lines in the log, and looks whether this host would let
 * it listen there, without listening. 1 when it would; also, with a line of level 2, when the port is only taken at the
 * moment: that may be the running service. 0, logged as ms_startup does, when it would not.
 */
ORB_API int ms_settings_check(void);

#ifdef __cplusplus
}
#endif

#endif
