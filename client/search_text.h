// The XML of record searches.
#pragma once

#include "client/vodclient.h"

#include <functional>
#include <string_view>

// Empty when out of memory.
std::string find_file_text(const vodclient_find_request &request);

struct find_next_return {
    bool is_over = false;
    std::vector<vodclient_record> records;
};
// Reads the reply to "find_file": false when it is none; `*session` is 0 when the search could not be opened.
bool find_file_read(std::string_view text, int32_t *session);
// Reads the reply to "find_next_file" with this count. False when it is anything else, says "error", has more records, or
// `should_stop` (may be empty) has answered true, which it is asked while the text is read.
bool find_next_read(std::string_view text, uint32_t count, const std::function<bool()> &should_stop,
                    find_next_return *out);
