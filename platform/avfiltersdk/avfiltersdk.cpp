#include "platform/avfiltersdk/avfiltersdk.h"

#include "platform/avfiltersdk/recording.h"

static constexpr int FAILED = -1;

static recording *recording_of(void *handle)
{
    return static_cast<recording *>(handle);
}

int AVFilterStartup(void)
{
    return 0;
}

// Memory and file calls of the caller's own are not taken: positioned reads are what keeps a changing file safe.
static bool filter_is_usable(const AVOrbFileFilter *filter)
{
    const AVFileOperate &calls = filter->tFileOperate;
    const bool has_own_calls = filter->tFilterMem.pMalloc != nullptr || filter->tFilterMem.pFree != nullptr ||
                               calls.pfOpen != nullptr || calls.pfRead != nullptr || calls.pfSeek != nullptr;
    return filter->iSize == sizeof(*filter) && !has_own_calls &&
           std::memchr(filter->cFileName, '\0', sizeof(filter->cFileName)) != nullptr;
}

void *AVFilterCreate(int kind, const AVOrbFileFilter *filter, int size)
{
    if (kind != 0 || filter == nullptr || size != sizeof(*filter) || !filter_is_usable(filter))
        return nullptr;
    return recording_open(*filter);
}

void AVFilterDestroy(void *handle)
{
    delete recording_of(handle);
}

int AVFilterCheckValidData(int kind, const void *bytes, int size)
{
    if (kind != 0 || bytes == nullptr || size != AVFILTER_FILE_HEAD_SIZE)
        return FAILED;
    return file_header_is_plausible(file_header_load(static_cast<const uint8_t *>(bytes))) ? 0 : FAILED;
}

static int get_file_head(recording *rec, void *buffer, int size)
{
    uint8_t head[AVFILTER_FILE_HEAD_SIZE];
    if (size < AVFILTER_FILE_HEAD_SIZE || os_file_pread(rec->file.get(), head, sizeof(head), 0) != sizeof(head))
        return FAILED;
    std::memcpy(buffer, head, sizeof(head));
    return 0;
}

static int get_file_info(recording *rec, void *buffer, int size)
{
    AVFileInfo info;
    if (size != sizeof(info))
        return FAILED;
    std::memcpy(&info.iSise, buffer, sizeof(info.iSise));
    if (info.iSise != sizeof(info) || !recording_refresh(rec))
        return FAILED;
    recording_fill_info(rec, &info);
    std::memcpy(buffer, &info, sizeof(info));
    return 0;
}

int AVFilterGetInfo(void *handle, int info, void *buffer, int size)
{
    if (handle == nullptr || buffer == nullptr)
        return FAILED;
    switch (info) {
    case AVFILTER_INFO_FILE_HEAD:
        return get_file_head(recording_of(handle), buffer, size);
    case AVFILTER_INFO_FILE:
        return get_file_info(recording_of(handle), buffer, size);
    default:
        return FAILED;
    }
}

int AVFilterGetData(void *handle, int kind, void *buffer, int size, AVFrameInfo *info)
{
    if (handle == nullptr || buffer == nullptr || size <= 0)
        return FAILED;
    recording *rec = recording_of(handle);
    auto to = static_cast<uint8_t *>(buffer);
    if (kind == AVFILTER_DATA_STORED)
        return recording_read_stored(rec, to, size);
    if (info == nullptr || info->iSize != sizeof(*info))
        return FAILED;
    switch (kind) {
    case AVFILTER_DATA_FRAMES:
        return recording_read_frames(rec, to, size, info);
    case AVFILTER_DATA_NEXT_KEY:
        return recording_read_next_key(rec, to, size, info);
    case AVFILTER_DATA_FIRST_KEY:
        return recording_read_first_key(rec, to, size, info);
    default:
        return FAILED;
    }
}

// A command's record, copied out when its sizes are right.
template <class T> static bool take_record(const void *record, int record_size, T *taken)
{
    if (record == nullptr || record_size != sizeof(T))
        return false;
    std::memcpy(taken, record, sizeof(T));
    return taken->iSise == sizeof(T);
}

static bool set_play_mode(recording *rec, const void *record, int record_size)
{
    AVPlayDirection mode;
    if (!take_record(record, record_size, &mode) || (mode.iDirection != 0 && mode.iDirection != 1))
        return false;
    rec->direction = mode.iDirection;
    return true;
}

static bool seek_by_number(recording *rec, const void *record, int record_size)
{
    AVSeekByFrmNo seek;
    return take_record(record, record_size, &seek) && recording_seek_number(rec, seek.iFrameNo);
}

static bool seek_by_abs_time(recording *rec, const void *record, int record_size)
{
    AVSeekByAbsTime seek;
    return take_record(record, record_size, &seek) && recording_seek_abs_time(rec, seek.llAbsTime);
}

static bool seek_by_relative_time(recording *rec, const void *record, int record_size)
{
    AVSeekByRelativeTime seek;
    return take_record(record, record_size, &seek) && recording_seek_time(rec, seek.llRelativeTime);
}

static bool seek_by_bytes(recording *rec, const void *record, int record_size)
{
    AVSeekByBytes seek;
    return take_record(record, record_size, &seek) && recording_seek_bytes(rec, seek.llBytes);
}

struct command {
    int number;
    bool (*run)(recording *rec, const void *record, int record_size);
};

static constexpr command s_commands[] = {
    {SET_FILTERCMD_PLAYMODE, set_play_mode},
    {SET_FILTERCMD_EXACTSEEKBYFRAMENO, seek_by_number},
    {SET_FILTERCMD_SEEKBYABSTIME, seek_by_abs_time},
    {SET_FILTERCMD_SEEKBYRELATIVETIME, seek_by_relative_time},
    {SET_FILTERCMD_SEEKBYBYTES, seek_by_bytes},
};

int AVFilterSetCommond(void *handle, int command, const void *record, int record_size)
{
    if (handle == nullptr)
        return FAILED;
    for (const auto &known : s_commands)
        if (known.number == command)
            return known.run(recording_of(handle), record, record_size) ? 0 : FAILED;
    return FAILED;
}

int AVFilterVisitFrames(void *handle, int key_frames_only,
                        int (*visit)(void *user, const AVFrameInfo *info, int64_t offset, int32_t frame_bytes),
                        void *user)
{
    if (handle == nullptr || visit == nullptr || !recording_refresh(recording_of(handle)))
        return FAILED;
    recording *rec = recording_of(handle);
    found_frame frame;
    for (int64_t at = rec->range.start; frame_next(&rec->window, {at, rec->range.end, rec->range.end}, &frame);
         at = frame.end()) {
        AVFrameInfo info;
        recording_fill_frame_info(frame.header, &info);
        if ((key_frames_only == 0 || frame.is_key()) &&
            !visit(user, &info, frame.offset, static_cast<int32_t>(frame.bytes())))
            break;
    }
    return 0;
}
