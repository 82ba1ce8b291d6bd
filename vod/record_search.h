// Commands of record-search links.
#pragma once

#include "vod/link_table.h"

#include <libxml/tree.h>

// "find_file" that says what it searches answers "error": this build keeps no record index. As no search is ever open,
// "find_next_file" and "findfile_close" get no reply; neither does a command that lacks something.
void deal_rec_event_send_cmd_chs(VodLink *link, MpPackage *package, xmlNode *command);
void deal_rec_event_command_find_file(VodLink *link, MpPackage *package, const xmlNode *command);
void deal_rec_event_command_find_next_file(VodLink *link, MpPackage *package, const xmlNode *command);
void deal_rec_event_command_findfile_close(VodLink *link, MpPackage *package, const xmlNode *command);

// The six fields of a time in a command; 1 when all are there.
int xml_to_dvr_time(const xmlNode *node, DVR_TIME *time);
