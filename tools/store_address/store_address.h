// Which store holds the record index of a service: one answer for the service's own process and for the tools beside
// it.
#pragma once

#include <string>

// Names the store before anything else does.
inline constexpr char STORE_VARIABLE[] = "ZETA_DB_SOCK";
// Below the service's folder.
inline constexpr char STORE_DEFAULT[] = "lmdb:var/index";

// For the service whose folder is `root` (the host's form, "." the working directory): what STORE_VARIABLE
// says, else "store" in its etc/conf/vod_svr.json, else STORE_DEFAULT. A folder that the latter two name is taken below
// `root` unless it is a full one.
std::string store_address(const std::string &root);
// Whether that folder looks like a service's: it has a configuration or an index.
bool store_root_is_service(const std::string &root);
bool store_is_embedded(const std::string &address);
// Whether there is no such embedded store yet; stores on servers answer for themselves.
bool store_is_missing(const std::string &address);
