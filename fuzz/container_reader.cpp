// Recordings of any bytes: 1 byte of options, 4 pairs of a command and its argument, then the file.
#include "platform/avfiltersdk/avfiltersdk.h"

#include "platform/os/os_guard.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

static constexpr size_t PROGRAM_BYTES = 9;
static constexpr int READS_MAX = 2000;

static void require(bool holds)
{
    if (!holds)
        std::abort();
}

// One file for the life of the process, removed at its end.
struct scratch_file {
    const std::filesystem::path path = std::filesystem::temp_directory_path() /
                                       ("vod_fuzz_container_" + std::to_string(os_process_id()));
    ~scratch_file()
    {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }
    void write(const uint8_t *bytes, size_t size) const
    {
        std::ofstream(path, std::ios::binary | std::ios::trunc)
            .write(reinterpret_cast<const char *>(bytes), static_cast<std::streamsize>(size));
    }
};

static void check_info(void *handle, size_t file_size)
{
    AVFileInfo info = {};
    info.iSise = sizeof(info);
    require(AVFilterGetInfo(handle, AVFILTER_INFO_FILE, &info, sizeof(info)) == 0);
    require(info.llFileRealSize == static_cast<int64_t>(file_size));
    require(info.llPlayRealSize >= 0 && info.llPlayRealSize <= info.llFileRealSize - AVFILTER_FILE_HEAD_SIZE);
    require((info.llPlayRealSize == 0) == (info.iTotalFrame == 0) && info.iTotalFrame >= 0 && info.iTotalTime >= 0);
}

// Reads of one kind to the end: whole frames, never more than the file holds.
static void read_to_end(void *handle, int kind, size_t file_size)
{
    static std::vector<uint8_t> buffer(0x300000);
    size_t total = 0;
    for (int i = 0; i < READS_MAX; i++) {
        AVFrameInfo info = {};
        info.iSize = sizeof(info);
        const int got = AVFilterGetData(handle, kind, buffer.data(), static_cast<int>(buffer.size()), &info);
        if (got <= 0)
            return;
        require(got <= static_cast<int>(buffer.size()));
        total += static_cast<size_t>(got);
        require(total <= 4 * file_size); // with inserted times
        if (kind != AVFILTER_DATA_STORED) {
            require(got > AVFILTER_FRAME_HEAD_SIZE && (info.iFrameType == 1 || info.iFrameType == 2));
            require(wire_load<uint32_t>(buffer.data() + 12) == info.uiFrameNO);
        }
    }
}

// Arguments reach from before the beginning to behind the end of small files.
static void run_command(void *handle, uint8_t command, uint8_t argument)
{
    const int64_t value = (int64_t{argument} - 8) * 64;
    const AVPlayDirection direction = {sizeof(direction), argument % 3};
    const AVSeekByFrmNo number = {sizeof(number), argument - 8};
    const AVSeekByAbsTime seconds = {sizeof(seconds), 1767254400 + argument - 8};
    const AVSeekByRelativeTime ms = {sizeof(ms), value};
    const AVSeekByBytes offset = {sizeof(offset), value};
    AVFilterSetCommond(handle, SET_FILTERCMD_PLAYMODE, &direction, sizeof(direction));
    switch (command % 5) {
    case 0:
        break;
    case 1:
        AVFilterSetCommond(handle, SET_FILTERCMD_EXACTSEEKBYFRAMENO, &number, sizeof(number));
        break;
    case 2:
        AVFilterSetCommond(handle, SET_FILTERCMD_SEEKBYABSTIME, &seconds, sizeof(seconds));
        break;
    case 3:
        AVFilterSetCommond(handle, SET_FILTERCMD_SEEKBYRELATIVETIME, &ms, sizeof(ms));
        break;
    default:
        AVFilterSetCommond(handle, SET_FILTERCMD_SEEKBYBYTES, &offset, sizeof(offset));
    }
}

static AVOrbFileFilter make_filter(const scratch_file &scratch, uint8_t options)
{
    AVOrbFileFilter filter = {};
    filter.iSize = sizeof(filter);
    text_copy(filter.cFileName, scratch.path.string());
    filter.iCreateType = options & 1;
    filter.iUsrFlag = options >> 1 & 1;
    filter.tFileStartTime = {2026, 1, 1, 8, 0, 0};
    filter.tPlayStartTime = {2026, 1, 1, 8, 0, static_cast<uint16_t>(options >> 2 & 7)};
    filter.tPlayStopTime = {2026, 1, 1, 8, 0, static_cast<uint16_t>(options >> 5 & 7)};
    return filter;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const scratch_file scratch;
    if (size < PROGRAM_BYTES || size > 1 << 18)
        return 0;
    const size_t file_size = size - PROGRAM_BYTES;
    scratch.write(data + PROGRAM_BYTES, file_size);
    AVFilterStartup();
    const AVOrbFileFilter filter = make_filter(scratch, data[0]);
    void *handle = AVFilterCreate(0, &filter, sizeof(filter));
    if (handle == nullptr)
        return 0;
    check_info(handle, file_size);
    for (int kind : {AVFILTER_DATA_FRAMES, AVFILTER_DATA_NEXT_KEY, AVFILTER_DATA_STORED})
        read_to_end(handle, kind, file_size);
    for (size_t i = 0; i < 4; i++) {
        run_command(handle, data[1 + 2 * i], data[2 + 2 * i]);
        read_to_end(handle, i % 2 == 0 ? AVFILTER_DATA_FRAMES : AVFILTER_DATA_STORED, file_size);
    }
    AVFilterVisitFrames(
        handle, 0, [](void *, const AVFrameInfo *, int64_t offset, int32_t bytes) { return offset + bytes > 0 ? 1 : 0; },
        nullptr);
    AVFilterDestroy(handle);
    return 0;
}
