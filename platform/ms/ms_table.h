// Handles of connections. An MsLink* is no address: it names a slot of a table and the slot's generation, so that a
// stale one, however old, finds nothing, and no memory has to be kept for connections that have ended.
#pragma once

#include "platform/ms/ms.h"

#include <memory>

class ms_connection;

// A handle for the connection; NULL when the table is full. It is valid until ms_table_remove.
MsLink *ms_table_add(std::shared_ptr<ms_connection> connection);
void ms_table_remove(MsLink *link);
// The connection of a handle, empty for NULL, stale and foreign ones.
std::shared_ptr<ms_connection> ms_table_find(MsLink *link);
