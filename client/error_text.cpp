#include "client/vodclient.h"

#include <algorithm>
#include <iterator>

namespace {
struct error_text {
    uint32_t code;
    const char *text;
};
} // namespace

static constexpr error_text s_error_texts[] = {
    {0x1000007, "the recorder could not open this channel and time range; ask for another range, or try again later"},
    {0x1000008, "the service has no free link: it serves as many clients as it may; try again later, or raise "
                "\"max_num\" in its vod_config.json"},
    {0x1000009, "the connection is congested; try again"},
    {0x100000a, "the connection is broken; connect again"},
    {0x1000027, "the file name is too long: the service takes up to 259 bytes"},
    {0x1000028,
     "the recording cannot be opened; check its name, that it exists, and that it lies in a folder which the "
     "service may serve"},
    {0x100002f, "this is no recording, or it is too damaged to be read; \"orbrec verify\" tells more about the file"},
    {0x1000036, "this kind of file cannot be resumed; start from its beginning"},
    {0x100003d, "the service cannot analyse recordings on this machine; ask without analysis rules"},
};

const char *vodclient_error_text(uint32_t error_code)
{
    auto found = std::ranges::find(s_error_texts, error_code, &error_text::code);
    return found == std::end(s_error_texts) ? "the service gave no known reason; its log tells more" : found->text;
}
