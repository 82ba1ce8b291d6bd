// Conversions between CommTime, text, XML and seconds since 1970. A CommTime is always wall-clock time in the machine's
// zone. Seconds travel as 32-bit values: a time after 2038-01-19 03:14:07 UTC comes out negative.
#pragma once

#include "win32_vod/vod_types.h"

#include <cstdint>

struct _xmlNode;

// The smallest buffer that the functions writing text accept, also for the compact form.
constexpr int MIN_STR_TIME_LEN = 20;

// ---- Text "2024-03-05 07:08:09" -------------------------------------------------------------------------------------

// Reads digits at fixed positions and looks at nothing else; positions past the end of the text read as 0.
int strtime_to_commtime(const char *time, CommTime *comm_time);
// `len` points at the size of `time`; it is only read. Fields wider than their places are cut to the buffer.
int commtime_to_strtime(const CommTime *comm_time, char *time, const int *len);

// ---- Comparing ------------------------------------------------------------------------------------------------------

// -1 earlier, 0 equal, 1 later, -2 when an argument is NULL. Fields are compared as they are.
int32_t commtime_compare(const CommTime *time1, const CommTime *time2);

// ---- XML ------------------------------------------------------------------------------------------------------------

// Child elements "year" to "second" hold the fields in decimal; all must be there. Not to be used after a failure.
int xml_to_commtime(_xmlNode *xml, CommTime *comm_time);

// ---- Seconds --------------------------------------------------------------------------------------------------------

// A time that cannot be broken down gives 1900-01-00 00:00:00 and still 1.
int time_t_to_commtime(int64_t time, CommTime *comm_time);
// Both return -1 on failure and for times outside 1970 to 3000. Fields out of range are normalised.
int32_t commtime_to_time_t(const CommTime *comm_time);
// `isdst` 1: daylight saving is in force, 0: it is not, negative: let the calendar decide.
int32_t commtime_to_time_t_ex(const CommTime *comm_time, int isdst);
// Long form and compact form ("20240305070809"). Fields that the text does not supply count as 0.
int32_t strtime_to_time_t(const char *time);
int32_t strtime_to_time_t_ex(const char *time);
// Long form and compact form; failures are logged at level 4.
int time_t_to_string(int time, char *strtime, int len);
int time_t_to_string_ex(int time, char *strtime, int len);
// The wall-clock fields counted as if they were UTC. `comm_time` must not be NULL.
int32_t commtime_to_absseconds(const CommTime *comm_time);
// The true seconds of the local time. `comm_time` must not be NULL.
int32_t commtime_to_local_absseconds(const CommTime *comm_time);
