// A command's text on each kind of link that takes commands. Whatever it says, the link stays and every answer parses.
#include "fuzz/core_session.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    core_prepare();
    std::string_view text(reinterpret_cast<const char *>(data), size);
    for (uint16_t kind : {uint16_t{0x8001}, uint16_t{0x8012}, uint16_t{0x8006}}) {
        MsLink mslink;
        core_open(mslink, kind);
        if (mslink.udata == nullptr)
            std::abort();
        core_command(mslink, text, true);
        core_command(mslink, text, false);
        for (const sent_package &sent : mslink.sent)
            sent.parsed();
        core_disconnect(mslink);
    }
    core_require_empty();
    return 0;
}
