#include "platform/avfiltersdk/avfilterwriter.h"

#include "platform/avfiltersdk/frame_format.h"

#include "platform/os/os_guard.h"

#include <algorithm>

struct free_memory {
    void operator()(uint8_t *memory) const { std::free(memory); }
};

struct recording_writer {
    os_file_ptr file;
    file_header header;
    int64_t size; // of the file so far
    uint32_t frame_count, last_time_stamp;
    std::unique_ptr<uint8_t, free_memory> frame; // a whole frame, so that it reaches the file in one write
    size_t frame_room;
};

static bool settings_to_header(const AVWriterSettings &settings, file_header *header)
{
    const int32_t values[] = {settings.iFrameRate, settings.iWidth, settings.iHeight, settings.iVEncMode};
    if (std::ranges::any_of(values, [](int32_t value) { return value < 0 || value > UINT16_MAX; }))
        return false;
    *header = {.frame_rate = static_cast<uint16_t>(settings.iFrameRate),
               .width = static_cast<uint16_t>(settings.iWidth),
               .height = static_cast<uint16_t>(settings.iHeight),
               .mode = static_cast<uint16_t>(settings.iVEncMode),
               .audio = static_cast<uint16_t>(settings.bAudio != 0),
               .start = settings.tStart,
               .total_size = 0,
               .frame_count = 0,
               .is_old = false};
    return file_header_is_plausible(*header);
}

static bool write_header(recording_writer *writer)
{
    uint8_t head[AVFILTER_FILE_HEAD_SIZE];
    file_header_store(head, writer->header);
    return os_file_pwrite(writer->file.get(), head, sizeof(head), 0) == 1;
}

void *AVWriterCreate(const AVWriterSettings *settings)
{
    file_header header;
    if (settings == nullptr || settings->iSize != sizeof(*settings) ||
        std::memchr(settings->cFileName, '\0', sizeof(settings->cFileName)) == nullptr ||
        !settings_to_header(*settings, &header) || os_fault_point("AVWriterCreate"))
        return nullptr;
    std::unique_ptr<recording_writer> writer(new (std::nothrow) recording_writer());
    os_file *file = nullptr;
    if (writer == nullptr || !os_file_open(settings->cFileName, OS_FILE_WRITE | OS_FILE_EXCLUSIVE, &file))
        return nullptr;
    writer->file.reset(file);
    writer->header = header;
    writer->size = FRAMES_OFFSET;
    if (!write_header(writer.get())) {
        writer.reset();
        os_file_remove(settings->cFileName);
    }
    return writer.release();
}

static bool frame_is_allowed(const recording_writer *writer, const AVWriterFrame &frame, frame_header *header)
{
    const uint64_t audio_bytes = uint64_t{frame.usAudioFrames} * frame.usAudioFrameSize;
    const uint64_t payload = frame.uiVideoBytes + audio_bytes;
    const bool is_key = frame.iFrameType == AVFRAME_TYPE_KEY;
    if ((!is_key && frame.iFrameType != AVFRAME_TYPE_DELTA) || (writer->frame_count == 0 && !is_key) ||
        writer->frame_count == UINT32_MAX || frame.uiTimeStamp < writer->last_time_stamp || payload == 0 ||
        payload > FRAME_PAYLOAD_WRITE_MAX || frame.iAudioCoder < 0 || frame.iAudioCoder > UINT8_MAX ||
        (frame.uiVideoBytes > 0 && frame.pVideo == nullptr) || (audio_bytes > 0 && frame.pAudio == nullptr))
        return false;
    *header = {.payload_bytes = static_cast<uint32_t>(payload),
               .type = static_cast<uint8_t>(frame.iFrameType),
               .number = writer->frame_count + 1,
               .time_stamp = frame.uiTimeStamp,
               .video_bytes = frame.uiVideoBytes,
               .audio_frames = frame.usAudioFrames,
               .audio_frame_bytes = frame.usAudioFrameSize,
               .audio_coder = static_cast<uint8_t>(frame.iAudioCoder)};
    return true;
}

static bool reserve_frame(recording_writer *writer, size_t bytes)
{
    if (bytes <= writer->frame_room)
        return true;
    auto memory = static_cast<uint8_t *>(os_fault_point("AVWriterAddFrame") ? nullptr : std::malloc(bytes));
    if (memory == nullptr)
        return false;
    writer->frame.reset(memory);
    writer->frame_room = bytes;
    return true;
}

int AVWriterAddFrame(void *handle, const AVWriterFrame *frame)
{
    auto writer = static_cast<recording_writer *>(handle);
    frame_header header;
    if (writer == nullptr || frame == nullptr || !frame_is_allowed(writer, *frame, &header))
        return 0;
    const size_t bytes = AVFILTER_FRAME_HEAD_SIZE + size_t{header.payload_bytes};
    if (!reserve_frame(writer, bytes))
        return 0;
    uint8_t *to = writer->frame.get();
    frame_header_store(to, header);
    to += AVFILTER_FRAME_HEAD_SIZE;
    to = std::copy_n(static_cast<const uint8_t *>(frame->pVideo), header.video_bytes, to);
    std::copy_n(static_cast<const uint8_t *>(frame->pAudio), header.payload_bytes - header.video_bytes, to);
    if (!os_file_pwrite(writer->file.get(), writer->frame.get(), bytes, static_cast<uint64_t>(writer->size)))
        return 0;
    writer->size += static_cast<int64_t>(bytes);
    writer->frame_count++;
    writer->last_time_stamp = header.time_stamp;
    return 1;
}

int64_t AVWriterSize(void *handle)
{
    auto writer = static_cast<recording_writer *>(handle);
    return writer == nullptr ? 0 : writer->size;
}

int AVWriterFinish(void *handle)
{
    std::unique_ptr<recording_writer> writer(static_cast<recording_writer *>(handle));
    if (writer == nullptr)
        return 0;
    writer->header.total_size = static_cast<uint32_t>(std::min<int64_t>(writer->size, UINT32_MAX));
    writer->header.frame_count = writer->frame_count;
    // A frame that failed half-way is cut off: the reader would only have to skip it.
    const bool is_written = write_header(writer.get()) &&
                            os_file_truncate(writer->file.get(), static_cast<uint64_t>(writer->size)) &&
                            os_file_sync(writer->file.get());
    const bool is_closed = os_file_close(writer->file.release()) == 1;
    return is_written && is_closed;
}

void AVWriterAbandon(void *handle)
{
    delete static_cast<recording_writer *>(handle);
}
