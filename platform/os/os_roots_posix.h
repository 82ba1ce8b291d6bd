// Where client-named files may lie, and how a file of a client's is opened so that it cannot lie elsewhere.
#pragma once

#include <string>
#include <sys/types.h>

// Opens like open(2). For a client's name links are resolved first, the result must lie below an access root (when there
// are any) and outside every protected folder, and what is opened is what was checked. -1 with errno on failure.
int os_open_allowed(const std::string &host, bool is_client, int flags, mode_t mode);
