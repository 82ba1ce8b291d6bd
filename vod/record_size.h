// How long a reply to "find_next_file" may become, told before it is written: the worker reads no more records than the
// connection's queue has room for.
#pragma once

#include "vod/silo_file_ops.h"

// All but the records; the elements of one record with its numbers and times at their longest; the most characters that
// one byte of the index becomes, a reference such as "&#x4E2D;".
constexpr size_t RECORD_REPLY_FRAME = 128, RECORD_REPLY_FIXED = 720, RECORD_REPLY_CHARACTER = 8;
// No record takes more.
constexpr size_t RECORD_REPLY_MAX =
    RECORD_REPLY_FIXED + RECORD_REPLY_CHARACTER * (sizeof(RecordFileInfo::filename) + sizeof(RecordFileInfo::devid) +
                                                   sizeof(RecordFileInfo::md5) + sizeof(RecordFileInfo::card_num));

// At least as many characters as the record takes in a reply, whatever its texts are read as.
size_t record_reply_size(const RecordFileInfo &record);
