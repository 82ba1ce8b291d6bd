// Which store holds the record index of a service: one answer for the service's own process and for the tools beside it.
#pragma once

#include <string>

// For the service whose folder is `root` (the host's form, "." the working directory): what the environment variable
// ZETA_DB_SOCK names, else "store" in its etc/conf/vod_svr.json, else the embedded store in its folder var/index. A folder
// of an embedded store that the file names is taken below `root` unless it is a full one.
std::string store_address(const std::string &root);
// Whether that folder looks like a service's: it has a configuration or an index.
bool store_root_is_service(const std::string &root);
// Whether the address names an embedded store, and if so whether there is one; stores on servers answer for themselves.
bool store_is_embedded(const std::string &address);
bool store_is_missing(const std::string &address);
