// Commands of record-search links.
#pragma once

#include "vod/link_table.h"

#include <libxml/tree.h>

// "find_file" answers "error": this build keeps no record index. Everything else is ignored.
void deal_rec_event_send_cmd_chs(VodLink *link, MpPackage *package, xmlNode *command);
