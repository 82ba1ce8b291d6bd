// Finding the server that takes writes.
#pragma once

#include "platform/silo/pg_address.h"
#include "platform/silo/pg_link.h"

#include <string>

// A connection to the first server of the address that takes writes, within the address's time; the one that did so
// last is asked first. nullptr with what each server said.
pg_connection pg_connect(const pg_address &address, std::string *reason);
