#include "tests/support/recording_maker.h"

#include "platform/os/os_guard.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>

static constexpr uint16_t AUDIO_BYTES = 320;

static void require(bool holds, const std::string &what)
{
    if (holds)
        return;
    std::fprintf(stderr, "recording_maker: %s\n", what.c_str());
    std::abort();
}

std::string made_recording::bytes() const
{
    std::string all = header;
    for (const made_frame &frame : frames)
        all += frame.bytes;
    return all;
}

const made_frame &made_recording::key_at(uint32_t time_stamp) const
{
    const made_frame *found = &frames.front();
    for (const made_frame &frame : frames)
        if (frame.is_key() && frame.time_stamp <= time_stamp)
            found = &frame;
    return *found;
}

const made_frame &made_recording::key_at_byte(int64_t offset) const
{
    const made_frame *found = &frames.front();
    for (const made_frame &frame : frames)
        if (frame.is_key() && frame.offset - AVFILTER_FILE_HEAD_SIZE <= offset)
            found = &frame;
    return *found;
}

std::string recording_name(const std::string &host, int channel, const AVUtcTime &start, const std::string &tag)
{
    char time[32];
    std::snprintf(time, sizeof(time), "%04hu%02hu%02hu%02hu%02hu%02hu", start.usYear, start.usMonth, start.usDay,
                  start.usHour, start.usMinute, start.usSecond);
    return host + "_" + std::to_string(channel) + "_" + time + "_" + tag + ".rec";
}

// NAL units in front of the slice.
static std::string access_unit_head(int video_mode, bool is_key)
{
    using namespace std::string_literals;
    if (video_mode == AVMODE_H265)
        return is_key ? "\0\0\0\1\x40\x01\x0C\x01"s + "\0\0\0\1\x42\x01\x01\x01"s + "\0\0\0\1\x44\x01\xC1\x72"s +
                            "\0\0\0\1\x26\x01"s
                      : "\0\0\0\1\x02\x01"s;
    return is_key ? "\0\0\0\1\x67\x64\x00\x1F"s + "\0\0\0\1\x68\xEE\x3C\x80"s + "\0\0\0\1\x65"s : "\0\0\0\1\x41"s;
}

std::string make_access_unit(int video_mode, bool is_key, int bytes, uint32_t seed)
{
    std::string unit = access_unit_head(video_mode, is_key);
    std::minstd_rand random(seed + 1);
    // No zeros, so that nothing in it needs escaping.
    while (static_cast<int>(unit.size()) < bytes)
        unit.push_back(static_cast<char>(random() % 255 + 1));
    return unit;
}

static AVWriterSettings writer_settings(const std::string &path, const recording_plan &plan)
{
    AVWriterSettings settings = {};
    settings.iSize = sizeof(settings);
    char name[sizeof(settings.cFileName)];
    require(os_path_from_host(path.c_str(), name, sizeof(name)) != 0, "no such path: " + path);
    text_copy(settings.cFileName, name);
    settings.iFrameRate = plan.frame_rate;
    settings.iWidth = plan.width;
    settings.iHeight = plan.height;
    settings.iVEncMode = plan.video_mode;
    settings.bAudio = plan.audio;
    settings.tStart = plan.start;
    return settings;
}

recording_grower::recording_grower(const std::string &path, const recording_plan &plan) : plan_(plan)
{
    const AVWriterSettings settings = writer_settings(path, plan);
    writer_ = AVWriterCreate(&settings);
    require(writer_ != nullptr, "cannot create " + path);
    made_.path = path;
}

recording_grower::~recording_grower()
{
    AVWriterAbandon(writer_);
}

// What the writer has put into the file from `offset` on.
static std::string read_back(const std::string &path, int64_t offset, size_t size)
{
    std::string bytes(size, '\0');
    std::ifstream file(std::filesystem::path(std::u8string(path.begin(), path.end())), std::ios::binary);
    file.seekg(offset);
    file.read(bytes.data(), static_cast<std::streamsize>(size));
    require(file.gcount() == static_cast<std::streamsize>(size), "cannot read back " + path);
    return bytes;
}

void recording_grower::add_frame()
{
    const auto index = static_cast<uint32_t>(made_.frames.size());
    const bool is_key = index % static_cast<uint32_t>(plan_.gop) == 0;
    const uint32_t seed = plan_.seed * 1000003 + index;
    const int busy = index < static_cast<uint32_t>(plan_.busy_frames) ? 10 : 1;
    const int bytes = busy * (is_key ? plan_.key_bytes : plan_.delta_bytes);
    const std::string video =
        make_access_unit(plan_.video_mode, is_key, bytes + static_cast<int>(seed % 7) * bytes / 50, seed);
    const std::string audio(plan_.audio ? AUDIO_BYTES : 0, '\x55');
    AVWriterFrame frame = {};
    frame.iFrameType = is_key ? AVFRAME_TYPE_KEY : AVFRAME_TYPE_DELTA;
    frame.uiTimeStamp =
        plan_.first_time_stamp + static_cast<uint32_t>(uint64_t{index} * 1000 / static_cast<uint32_t>(plan_.frame_rate));
    frame.pVideo = video.data();
    frame.uiVideoBytes = static_cast<uint32_t>(video.size());
    frame.pAudio = audio.data();
    frame.usAudioFrames = plan_.audio ? 1 : 0;
    frame.usAudioFrameSize = plan_.audio ? AUDIO_BYTES : 0;
    frame.iAudioCoder = plan_.audio ? AVAUDIO_G711A : AVAUDIO_NONE;
    const int64_t offset = AVWriterSize(writer_);
    require(AVWriterAddFrame(writer_, &frame) == 1, "cannot write to " + made_.path);
    const auto stored = static_cast<size_t>(AVWriterSize(writer_) - offset);
    made_.frames.push_back(
        {frame.iFrameType, index + 1, frame.uiTimeStamp, offset, read_back(made_.path, offset, stored)});
}

void recording_grower::add_frames(int count)
{
    for (int i = 0; i < count; i++)
        add_frame();
    made_.header = read_back(made_.path, 0, AVFILTER_FILE_HEAD_SIZE);
}

void recording_grower::finish()
{
    require(AVWriterFinish(writer_) == 1, "cannot finish " + made_.path);
    writer_ = nullptr;
    made_.header = read_back(made_.path, 0, AVFILTER_FILE_HEAD_SIZE);
}

made_recording make_recording(const std::string &path, const recording_plan &plan)
{
    recording_grower grower(path, plan);
    grower.add_frames(plan.frames);
    if (plan.finished)
        grower.finish();
    return grower.made();
}

AVOrbFileFilter whole_file_filter(const std::string &path)
{
    AVOrbFileFilter filter = {};
    filter.iSize = sizeof(filter);
    filter.iCreateType = 1;
    char name[sizeof(filter.cFileName)];
    require(os_path_from_host(path.c_str(), name, sizeof(name)) != 0, "no such path: " + path);
    text_copy(filter.cFileName, name);
    return filter;
}

AVOrbFileFilter play_time_filter(const std::string &path, const AVUtcTime &file_start, const AVUtcTime &play_start,
                                 const AVUtcTime &play_stop)
{
    AVOrbFileFilter filter = whole_file_filter(path);
    filter.iCreateType = 0;
    filter.tFileStartTime = file_start;
    filter.tPlayStartTime = play_start;
    filter.tPlayStopTime = play_stop;
    return filter;
}
