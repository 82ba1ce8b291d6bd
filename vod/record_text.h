// The texts of record searches: of the index's records as clients see them, and the reply that lists them.
#pragma once

#include "vod/record_item.h"
#include "vod/xml_text.h"

#include <span>
#include <string>
#include <string_view>

// A text of the index as clients get it: UTF-8 as it is, GB18030 decoded, so that a name that was found can be asked
// for; of anything else, the bytes that no XML can hold become '?'.
std::string record_client_text(std::string_view stored);
// A path of the index as the system's file calls take it; false when it has no such form.
bool record_system_path(const char *stored, std::span<char> path);

// The reply to "find_next_file" as a document. Null when there is no memory, which is logged.
xml_doc record_reply_document(const VodAsynRec_GetFile &opit);
