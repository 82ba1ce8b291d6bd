#include "tools/orbrec/recording_output.h"

#include "platform/avfiltersdk/avfilterwriter.h"
#include "tools/media_export/recording_stream.h"
#include "tools/orbrec/orbrec.h"

#include <algorithm>
#include <cstdio>

// Files of 2 GiB and more cannot be downloaded by name.
static constexpr int64_t FILE_BYTES_MAX = 2'000'000'000;
// For the frame's head and absolute time that is inserted later.
static constexpr size_t FRAME_BYTES_SPARED = RECORDING_FRAME_HEAD_BYTES + 64;

bool name_tells_start(const std::string &name)
{
    size_t last = name.rfind('_');
    if (last == std::string::npos || last == 0)
        return false;
    size_t before = name.rfind('_', last - 1);
    if (before == std::string::npos)
        return false;
    std::string_view piece = std::string_view(name).substr(before + 1, last - before - 1);
    return piece.size() == 14 && std::ranges::all_of(piece, [](char c) { return c >= '0' && c <= '9'; });
}

static AVUtcTime calendar_time(int64_t seconds)
{
    tm parts = {};
    os_localtime(seconds, &parts);
    auto field = [](int value) { return static_cast<uint16_t>(value); };
    return {field(parts.tm_year + 1900), field(parts.tm_mon + 1), field(parts.tm_mday),
            field(parts.tm_hour),        field(parts.tm_min),     field(parts.tm_sec)};
}

recording_output::~recording_output()
{
    leave();
}

bool recording_output::fail(int status, const std::string &text)
{
    bool has_file = file_ != nullptr;
    std::string rest = leave();
    error_ = has_file ? text + "; " + rest : text;
    status_ = status;
    return false;
}

// A recording that is completed can be played up to where it broke off; one without a frame is of no use to anybody.
std::string recording_output::leave()
{
    if (writer_ != nullptr)
        AVWriterFinish(writer_);
    writer_ = nullptr;
    std::string rest = "nothing was written";
    if (file_ != nullptr && current_.frames > 0)
        rest = file_->leave();
    else if (file_ != nullptr)
        file_->drop();
    file_.reset();
    return rest;
}

void recording_output::begin(const output_video &video, int64_t start_seconds)
{
    video_ = video;
    start_seconds_ = start_seconds;
}

std::string recording_output::file_name(int64_t start_seconds) const
{
    if (!settings_.file.empty())
        return settings_.file;
    AVUtcTime time = calendar_time(start_seconds);
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "_%02d_0_%04d%02d%02d%02d%02d%02d_%d.rec", settings_.channel, time.usYear,
                  time.usMonth, time.usDay, time.usHour, time.usMinute, time.usSecond, number_);
    bool is_closed = settings_.folder.back() == '/' || settings_.folder.back() == '\\';
    return settings_.folder + (is_closed ? "" : "/") + settings_.host + stamp;
}

bool recording_output::file_open(int64_t time_ms)
{
    if (!settings_.file.empty() && !files_.empty())
        return fail(ORBREC_UNWRITABLE, "the recording becomes too large for one file: name a folder with -o DIR/");
    number_++;
    current_ = {};
    current_.start_seconds = start_seconds_ + time_ms / 1000;
    current_.name = file_name(current_.start_seconds);
    base_ms_ = last_ms_ = time_ms;
    file_ = std::make_unique<tool_output>();
    std::string reason;
    if (file_->open({.name = current_.name, .force = settings_.force, .inputs = settings_.inputs, .name_only = true}) !=
        OS_OUTPUT_OPENED) {
        std::string refusal = file_->error();
        file_.reset();
        return fail(ORBREC_UNWRITABLE, refusal);
    }
    if (!system_path(current_.name, &part_, &reason) || !system_path(file_->temporary(), &part_, &reason))
        return fail(ORBREC_UNWRITABLE, reason);
    AVWriterSettings writer = {};
    writer.iSize = sizeof writer;
    text_copy(writer.cFileName, part_);
    writer.iFrameRate = video_.frame_rate;
    writer.iWidth = video_.width;
    writer.iHeight = video_.height;
    writer.iVEncMode = video_.mode;
    writer.bAudio = video_.has_audio ? 1 : 0;
    writer.tStart = calendar_time(current_.start_seconds);
    writer_ = AVWriterCreate(&writer);
    return writer_ != nullptr || fail(ORBREC_UNWRITABLE, "cannot write " + current_.name + ": " + os_file_error());
}

bool recording_output::file_is_due(const access_unit &unit) const
{
    if (writer_ == nullptr)
        return true;
    bool is_long = settings_.split_ms > 0 && unit.time_ms - base_ms_ >= settings_.split_ms;
    return unit.is_key && (is_long || AVWriterSize(writer_) >= FILE_BYTES_MAX);
}

bool recording_output::add(const access_unit &unit, const std::vector<alaw_frame> &audio)
{
    if (file_is_due(unit) && (!end() || !file_open(unit.time_ms)))
        return false;
    byte_vector sound;
    for (const alaw_frame &frame : audio)
        sound.insert(sound.end(), frame.bytes.begin(), frame.bytes.end());
    if (unit.bytes.size() + sound.size() > PLAYER_FRAME_BYTES_MAX - FRAME_BYTES_SPARED)
        return fail(ORBREC_MEDIA, "a picture of " + std::to_string(unit.bytes.size()) +
                                      " bytes is more than recordings hold: use --size or --crf");
    last_ms_ = std::max(unit.time_ms, last_ms_);
    AVWriterFrame frame = {};
    frame.iFrameType = unit.is_key ? AVFRAME_TYPE_KEY : AVFRAME_TYPE_DELTA;
    frame.uiTimeStamp = static_cast<uint32_t>(last_ms_ - base_ms_);
    frame.pVideo = unit.bytes.data();
    frame.uiVideoBytes = static_cast<uint32_t>(unit.bytes.size());
    frame.pAudio = sound.data();
    frame.usAudioFrames = static_cast<uint16_t>(audio.size());
    frame.usAudioFrameSize = audio.empty() ? 0 : ALAW_FRAME_BYTES;
    frame.iAudioCoder = audio.empty() ? AVAUDIO_NONE : AVAUDIO_G711A;
    if (!AVWriterAddFrame(writer_, &frame))
        return fail(ORBREC_UNWRITABLE, "cannot write " + current_.name + ": " + os_file_error());
    current_.frames++;
    current_.key_frames += unit.is_key ? 1 : 0;
    current_.audio_frames += static_cast<int64_t>(audio.size());
    return true;
}

bool recording_output::end()
{
    if (writer_ == nullptr)
        return true;
    current_.bytes = AVWriterSize(writer_);
    int64_t length_ms = last_ms_ - base_ms_ + 1000 / std::max(video_.frame_rate, 1);
    current_.end_seconds = current_.start_seconds + (length_ms + 999) / 1000;
    void *writer = writer_;
    writer_ = nullptr;
    if (!AVWriterFinish(writer) || !os_file_set_modified(part_.c_str(), current_.end_seconds))
        return fail(ORBREC_UNWRITABLE, "cannot complete " + current_.name + ": " + os_file_error());
    if (!file_->finish())
        return fail(ORBREC_UNWRITABLE, file_->error());
    file_.reset();
    files_.push_back(current_);
    return true;
}
