#include "tests/avfiltersdk/recording_fixture.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

static constexpr char UNTOUCHED = '\x5A';

read_result read_data(const filter_ptr &filter, int kind, int size)
{
    static std::string buffer;
    buffer.assign(static_cast<size_t>(size), UNTOUCHED);
    read_result result = {};
    result.info.iSize = sizeof(result.info);
    result.count = AVFilterGetData(filter.get(), kind, buffer.data(), size, &result.info);
    const auto used = static_cast<size_t>(std::max(result.count, 0));
    EXPECT_LE(used, buffer.size());
    EXPECT_EQ(buffer.find_first_not_of(UNTOUCHED, used), std::string::npos) << "written behind what was returned";
    result.bytes = buffer.substr(0, used);
    return result;
}

std::string read_all(const filter_ptr &filter, int kind, int reads_max)
{
    std::string all;
    std::vector<char> buffer(0x300000);
    for (int i = 0; i < reads_max; i++) {
        AVFrameInfo info = {};
        info.iSize = sizeof(info);
        int got = AVFilterGetData(filter.get(), kind, buffer.data(), static_cast<int>(buffer.size()), &info);
        if (got <= 0)
            return all;
        all.append(buffer.data(), static_cast<size_t>(got));
    }
    ADD_FAILURE() << "no end after " << reads_max << " reads";
    return all;
}

std::vector<uint32_t> read_numbers(const filter_ptr &filter, int kind)
{
    std::vector<uint32_t> numbers;
    std::vector<char> buffer(0x300000);
    AVFrameInfo info = {};
    info.iSize = sizeof(info);
    while (numbers.size() < 100000 &&
           AVFilterGetData(filter.get(), kind, buffer.data(), static_cast<int>(buffer.size()), &info) > 0)
        numbers.push_back(info.uiFrameNO);
    return numbers;
}

int set_direction(const filter_ptr &filter, int direction)
{
    const AVPlayDirection record = {sizeof(record), direction};
    return AVFilterSetCommond(filter.get(), SET_FILTERCMD_PLAYMODE, &record, sizeof(record));
}

int seek_number(const filter_ptr &filter, int number)
{
    const AVSeekByFrmNo record = {sizeof(record), number};
    return AVFilterSetCommond(filter.get(), SET_FILTERCMD_EXACTSEEKBYFRAMENO, &record, sizeof(record));
}

int seek_abs_time(const filter_ptr &filter, int64_t seconds)
{
    const AVSeekByAbsTime record = {sizeof(record), seconds};
    return AVFilterSetCommond(filter.get(), SET_FILTERCMD_SEEKBYABSTIME, &record, sizeof(record));
}

int seek_ms(const filter_ptr &filter, int64_t ms)
{
    const AVSeekByRelativeTime record = {sizeof(record), ms};
    return AVFilterSetCommond(filter.get(), SET_FILTERCMD_SEEKBYRELATIVETIME, &record, sizeof(record));
}

int seek_bytes(const filter_ptr &filter, int64_t offset)
{
    const AVSeekByBytes record = {sizeof(record), offset};
    return AVFilterSetCommond(filter.get(), SET_FILTERCMD_SEEKBYBYTES, &record, sizeof(record));
}

AVFileInfo file_info(const filter_ptr &filter)
{
    AVFileInfo info = {};
    info.iSise = sizeof(info);
    EXPECT_EQ(AVFilterGetInfo(filter.get(), AVFILTER_INFO_FILE, &info, sizeof(info)), 0);
    return info;
}

std::string frame_bytes(const made_recording &made, size_t from, size_t to)
{
    std::string all;
    for (size_t i = from; i < std::min(to, made.frames.size()); i++)
        all += made.frames[i].bytes;
    return all;
}

std::vector<uint32_t> key_numbers(const made_recording &made)
{
    std::vector<uint32_t> numbers;
    for (const made_frame &frame : made.frames)
        if (frame.is_key())
            numbers.push_back(frame.number);
    return numbers;
}

testing::AssertionResult same_bytes(const std::string &one, const std::string &other)
{
    if (one == other)
        return testing::AssertionSuccess();
    const auto differ = std::ranges::mismatch(one, other);
    return testing::AssertionFailure() << one.size() << " and " << other.size() << " bytes, which differ at "
                                       << differ.in1 - one.begin();
}

std::string read_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

void write_file(const std::string &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::string RecordingTest::put(const std::string &bytes)
{
    const std::string path = folder.file(next_name());
    write_file(path, bytes);
    return path;
}
