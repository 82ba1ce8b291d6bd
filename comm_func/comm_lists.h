// Lists of time ranges: their JSON form and their order. Entries are DataTimeMap pointers, freed with std::free by
// whoever takes them off the list.
#pragma once

#include "platform/os/os.h"
#include "win32_vod/vod_types.h"

struct DataTimeMap {
    PairTime pair_time;
    void *data;        // the caller's context
    handle_orb findfd; // a search handle, -1 until used
};

// Appends one entry for each range of {"param": [["2024-03-05 07:08:09", "2024-03-05 08:00:00"], ...]}. 1 also when
// there is no usable "param"; 0 when an argument is NULL or the text is no JSON. Damaged ranges are left out. `data`
// goes into each entry and stays the caller's. Takes the list's lock for each entry; ends the process when there is no
// memory for one.
int parse_json_to_list(const char *json, DList *lst, void *data);
// Ascending by start time; equal start times keep their order. NULL entries are removed. Holds the list's lock. 0, and
// the list as it was, for NULL and without memory.
int sort_list_by_time(DList *lst);
