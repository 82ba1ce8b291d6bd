#include "tools/orbrec/media_ending.h"

extern "C" {
#include <libavutil/log.h>
}

#include <atomic>
#include <cstdarg>
#include <string_view>

// Set by whichever thread of a library speaks.
static std::atomic<bool> s_was_cut_off;

static void message_arrived(void *object, int level, const char *format, va_list arguments)
{
    std::string_view text = format;
    for (std::string_view sign : {"ended prematurely", "ends prematurely", "partial file"})
        if (text.find(sign) != std::string_view::npos)
            s_was_cut_off = true;
    av_log_default_callback(object, level, format, arguments);
}

void media_ending_watch()
{
    s_was_cut_off = false;
    av_log_set_callback(message_arrived);
}

// A session over the network without a length has no end but that of its connection.
static bool is_endless(const media_source &source)
{
    return source.input->pb == nullptr && source.input->duration <= 0;
}

std::string media_ending_fault(const media_source &source, int result, bool last_is_broken)
{
    if (result != AVERROR_EOF)
        return av_reason(result);
    const AVIOContext *io = source.input->pb;
    if (io != nullptr && io->error < 0 && io->error != AVERROR_EOF)
        return av_reason(io->error);
    if (is_endless(source))
        return "the connection has ended";
    return s_was_cut_off || last_is_broken ? "it is cut off" : "";
}
