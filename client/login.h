// The handshake of links that carry commands alone.
#pragma once

#include "client/connection.h"

// Asks for a login of this kind and completes it; the connection is open.
vodclient_result connection_login(connection &link, request_kind kind);
