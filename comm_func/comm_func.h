// Helpers that every module of the system shares: calendar times, encodings, identifiers, lists of time ranges, file
// names and host probes. Plain functions without state, safe from any thread. Unless stated otherwise they return 1 for
// success and 0 for failure, and log a failed precondition at level 2.
#pragma once

#include "comm_func/comm_codec.h"
#include "comm_func/comm_files.h"
#include "comm_func/comm_ids.h"
#include "comm_func/comm_lists.h"
#include "comm_func/comm_time.h"
