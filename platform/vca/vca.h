/* The video-content-analysis engine. */
#ifndef PLATFORM_VCA_VCA_H
#define PLATFORM_VCA_VCA_H

#include "platform/os/orb_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* 0 when the engine runs; not 0 when this build has none. */
ORB_API int vca_startup(void);
/* 0 on success; stopping an engine that never started succeeds. */
ORB_API int vca_cleanup(void);
/* Ends a query; 0 on success, not 0 for a query that does not exist. */
ORB_API int vca_destory_query(int query_id);

#ifdef __cplusplus
}
#endif

#endif
