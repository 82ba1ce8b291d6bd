#include "tools/media_export/av_output.h"

#include "tools/common/library_watch.h"

static constexpr int BUFFER_BYTES = 1 << 16;

int av_output::write(void *self, uint8_t *bytes, int size)
{
    auto of = static_cast<av_output *>(self);
    library_pause outside;
    if (!of->output_->write({bytes, static_cast<size_t>(size)}, of->position_))
        return AVERROR(EIO); // the output itself says what happened
    of->position_ += static_cast<uint64_t>(size);
    return size;
}

int64_t av_output::seek(void *self, int64_t offset, int whence)
{
    auto of = static_cast<av_output *>(self);
    auto size = static_cast<int64_t>(of->output_->size());
    if ((whence & ~AVSEEK_FORCE) == AVSEEK_SIZE)
        return size;
    int kind = whence & ~AVSEEK_FORCE;
    int64_t base = kind == SEEK_CUR ? static_cast<int64_t>(of->position_) : kind == SEEK_END ? size : 0;
    if (base + offset < 0)
        return AVERROR(EINVAL);
    of->position_ = static_cast<uint64_t>(base + offset);
    return base + offset;
}

bool av_output::open(tool_output *output)
{
    output_ = output;
    auto buffer = static_cast<unsigned char *>(av_malloc(BUFFER_BYTES));
    auto seeking = output->is_stream() ? nullptr : &av_output::seek;
    io_.reset(buffer == nullptr ? nullptr
                                : avio_alloc_context(buffer, BUFFER_BYTES, 1, this, nullptr, &av_output::write, seeking));
    if (io_ == nullptr)
        av_free(buffer);
    return io_ != nullptr;
}
