#include "bench/sample_recording.h"

#include "bench/figure.h"
#include "platform/os/os_guard.h"

#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <vector>

sample_plan one_frame_packages(int64_t file_bytes)
{
    constexpr uint32_t video = AVFILTER_PACKAGE_SIZE - AVFILTER_FRAME_HEAD_SIZE;
    return {file_bytes, 50, video, video, video};
}

sample_plan usual_frames(int64_t file_bytes)
{
    return {file_bytes, 50, 100 << 10, 8 << 10, 16 << 10};
}

// An access unit whose slice is without zeros, so that nothing in it needs escaping.
static std::vector<uint8_t> access_unit(bool is_key, uint32_t bytes)
{
    std::vector<uint8_t> unit = {0, 0, 0, 1, 0x41};
    if (is_key)
        unit = {0, 0, 0, 1, 0x67, 0x64, 0x00, 0x1F, 0, 0, 0, 1, 0x68, 0xEE, 0x3C, 0x80, 0, 0, 0, 1, 0x65};
    std::minstd_rand random(bytes);
    while (unit.size() < bytes)
        unit.push_back(static_cast<uint8_t>(random() % 255 + 1));
    return unit;
}

static void *writer_open(const std::string &path)
{
    AVWriterSettings settings = {};
    settings.iSize = sizeof settings;
    bench_require(os_path_from_host(path.c_str(), settings.cFileName, sizeof settings.cFileName) != 0, "no such path");
    settings.iFrameRate = 25;
    settings.iWidth = 1920;
    settings.iHeight = 1080;
    settings.iVEncMode = AVMODE_H264;
    settings.tStart = {2026, 1, 1, 8, 0, 0};
    void *writer = AVWriterCreate(&settings);
    bench_require(writer != nullptr, "cannot create " + path);
    return writer;
}

static void write_frames(void *writer, const sample_plan &plan)
{
    const std::vector<uint8_t> key = access_unit(true, plan.key_bytes);
    const std::vector<uint8_t> delta = access_unit(false, plan.delta_bytes_max);
    const uint32_t spread = plan.delta_bytes_max - plan.delta_bytes_min + 1;
    for (uint32_t i = 0; AVWriterSize(writer) < plan.file_bytes; i++) {
        const bool is_key = i % static_cast<uint32_t>(plan.gop) == 0;
        AVWriterFrame frame = {};
        frame.iFrameType = is_key ? AVFRAME_TYPE_KEY : AVFRAME_TYPE_DELTA;
        frame.uiTimeStamp = i * 40;
        frame.pVideo = is_key ? key.data() : delta.data();
        frame.uiVideoBytes = is_key ? plan.key_bytes : plan.delta_bytes_min + i * 2654435761u % spread;
        bench_require(AVWriterAddFrame(writer, &frame) != 0, std::string("cannot write: ") + os_file_error());
    }
}

static void read_through(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<char> block(1 << 20);
    while (file.read(block.data(), static_cast<std::streamsize>(block.size())))
        continue;
}

void sample_recording(const std::string &path, const sample_plan &plan)
{
    std::error_code missing;
    auto size = std::filesystem::file_size(path, missing);
    if (missing || static_cast<int64_t>(size) < plan.file_bytes) {
        std::filesystem::remove(path, missing);
        void *writer = writer_open(path);
        write_frames(writer, plan);
        bench_require(AVWriterFinish(writer) != 0, "cannot finish " + path);
    }
    read_through(path);
}

AVOrbFileFilter sample_filter(const std::string &path)
{
    AVOrbFileFilter filter = {};
    filter.iSize = sizeof filter;
    filter.iCreateType = 1;
    bench_require(os_path_from_host(path.c_str(), filter.cFileName, sizeof filter.cFileName) != 0, "no such path");
    return filter;
}
