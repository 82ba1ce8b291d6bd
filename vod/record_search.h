// Commands of record-search links: read here on the message service's threads, carried out by the record worker, which
// also answers them. What cannot be read is logged and gets no reply.
#pragma once

#include "vod/link_table.h"

#include <libxml/tree.h>

void deal_rec_event_send_cmd_chs(VodLink *link, MpPackage *package, xmlNode *command);
void deal_rec_event_command_find_file(VodLink *link, MpPackage *package, const xmlNode *command);
void deal_rec_event_command_find_next_file(VodLink *link, MpPackage *package, const xmlNode *command);
void deal_rec_event_command_findfile_close(VodLink *link, MpPackage *package, const xmlNode *command);

// The six fields of a time in a command; 1 when all are there.
int xml_to_dvr_time(const xmlNode *node, DVR_TIME *time);
