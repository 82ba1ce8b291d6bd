// Links of each kind on the service core, for targets that send bytes to it. Each lives for one input.
#pragma once

#include "tests/vod/fake_ms.h"

#include <memory>
#include <string_view>

// Makes the table ready and silences the log; once per process.
void core_prepare();
// Hands over one package, built or not, as the message service would after its own checks.
void core_read(MsLink &mslink, const uint8_t *bytes, size_t size);
void core_disconnect(MsLink &mslink);
// A request with its standard attributes, accepted and got: `kind` 0x8001 plays, 0x8012 and 0x8006 log in.
void core_open(MsLink &mslink, uint16_t kind);
// A command package around a text, with or without its terminating zero.
void core_command(MsLink &mslink, std::string_view text, bool terminated);
// Every link is gone and every counter back; stops the process otherwise.
void core_require_empty();
