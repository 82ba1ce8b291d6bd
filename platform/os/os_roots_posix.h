// Where client-named files may lie, and how a file of a client's is opened so that it cannot lie elsewhere.
#pragma once

#include <string>
#include <sys/types.h>

// A path that passed the check. With a root, `path` is free of links and the opening must stay below the root.
struct os_allowed_path {
    std::string path, root;
};

// Anything goes for a path of the system's own. A client's is resolved first and must then lie below an access root
// (where there are any) and in no protected folder. `is_made`: its last part need not be there yet. False with errno.
bool os_path_allow(const std::string &host, bool is_client, bool is_made, os_allowed_path *allowed);
// The full path without ".", ".." and doubled separators, by its text alone: links in it stay. False when it counts from a
// working folder that is not there.
bool os_path_normal(const std::string &host, std::string *normal);
// Opens like open(2); what is opened is what was checked, whoever exchanges folders for links meanwhile.
int os_open_allowed(const os_allowed_path &allowed, int flags, mode_t mode);
