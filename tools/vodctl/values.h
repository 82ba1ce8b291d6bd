// Reads the values that options take. Each answers false for anything that is not wholly such a value.
#pragma once

#include "tools/vodctl/vodctl.h"

// "HOST", "HOST:PORT", "[IPV6]:PORT" or a bare IPv6 address; the port stays what it is when none is given.
bool server_parse(const std::string &text, vodclient_server *server);
// Seconds ("90", "2.5"), "mm:ss" or "hh:mm:ss", the seconds with up to three decimals; not negative.
bool time_ms_parse(const std::string &text, int64_t *ms);
// "rec", "annexb" or "mp4"
bool format_parse(const std::string &text, play_format *format);
// What the extension of an output's name suggests; rec for all others.
play_format format_of_name(const std::string &name);
