// Identifiers: a GUID as text, the name of the operating system.
#pragma once

#include <cstdint>

struct os_system_version;

// 32 hexadecimal digits, the third group in lower case. `len` at least 32; 33 bytes hold the whole text, 32 cut it. 0,
// and `guid` as it was, for a smaller buffer and when the host gives no random bytes.
int generate_guid(char *guid, int32_t len);
// `system_type` has room for 64 bytes. A host without a version of its own gets the name for unknown systems. 0 for
// NULL and, without a word, when the host does not tell its version.
int get_system_type(char *system_type);
// The name for one version; never NULL.
const char *system_type_name(const os_system_version &version);
