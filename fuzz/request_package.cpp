// Packages that parse but say anything: on a fresh connection, on a playing one, on a login.
#include "fuzz/core_session.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    core_prepare();
    for (uint16_t kind : {uint16_t{0}, uint16_t{0x8001}, uint16_t{0x8012}}) {
        MsLink mslink;
        if (kind != 0)
            core_open(mslink, kind);
        core_read(mslink, data, size);
        core_read(mslink, data, size);
        for (const sent_package &sent : mslink.sent)
            sent.parsed();
        core_disconnect(mslink);
    }
    core_require_empty();
    return 0;
}
