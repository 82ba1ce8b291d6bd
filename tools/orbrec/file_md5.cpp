#include "tools/orbrec/recording_facts.h"
#include "tools/orbrec/recording_reader.h"

extern "C" {
#include <libavutil/md5.h>
#include <libavutil/mem.h>
}

struct av_freer {
    void operator()(void *memory) const { av_free(memory); }
};

static std::string hex(const uint8_t (&digest)[16])
{
    static constexpr char DIGITS[] = "0123456789abcdef";
    std::string text;
    for (uint8_t byte : digest) {
        text += DIGITS[byte >> 4];
        text += DIGITS[byte & 15];
    }
    return text;
}

std::string file_md5(const std::string &name, uint64_t size, const std::function<void(uint64_t)> &progress)
{
    recording_reader reader;
    std::string error;
    std::unique_ptr<AVMD5, av_freer> sum(av_md5_alloc());
    if (sum == nullptr || !reader.open(name, &error))
        return "";
    av_md5_init(sum.get());
    byte_span piece;
    do {
        if (orbrec_is_stopped() || !reader.read(&piece, &error))
            return "";
        av_md5_update(sum.get(), piece.data(), piece.size());
        if (progress)
            progress(reader.position());
    } while (!piece.empty());
    uint8_t digest[16];
    av_md5_final(sum.get(), digest);
    return reader.position() == size ? hex(digest) : "";
}
