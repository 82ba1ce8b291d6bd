// A folder with recordings and short names for the calls of the reader.
#pragma once

#include "platform/avfiltersdk/avfiltersdk.h"
#include "tests/support/recording_maker.h"
#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

struct filter_closer {
    void operator()(void *handle) const { AVFilterDestroy(handle); }
};
using filter_ptr = std::unique_ptr<void, filter_closer>;

inline filter_ptr open_filter(const AVOrbFileFilter &filter)
{
    return filter_ptr(AVFilterCreate(0, &filter, sizeof(filter)));
}

inline filter_ptr open_whole(const std::string &path)
{
    return open_filter(whole_file_filter(path));
}

struct read_result {
    int count; // as AVFilterGetData gave it
    std::string bytes;
    AVFrameInfo info;
};

// One read into a buffer of `size` bytes. What lies behind the bytes returned must not have been touched.
read_result read_data(const filter_ptr &filter, int kind, int size = 0x300000);
// Reads until the end; at most `reads_max` times.
std::string read_all(const filter_ptr &filter, int kind = AVFILTER_DATA_FRAMES, int reads_max = 100000);
// The frame numbers of reads until the end, one for each read.
std::vector<uint32_t> read_numbers(const filter_ptr &filter, int kind = AVFILTER_DATA_FRAMES);

int set_direction(const filter_ptr &filter, int direction);
int seek_number(const filter_ptr &filter, int number);
int seek_abs_time(const filter_ptr &filter, int64_t seconds);
int seek_ms(const filter_ptr &filter, int64_t ms);
int seek_bytes(const filter_ptr &filter, int64_t offset);

AVFileInfo file_info(const filter_ptr &filter);

std::string frame_bytes(const made_recording &made, size_t from = 0, size_t to = SIZE_MAX);
std::vector<uint32_t> key_numbers(const made_recording &made);

// Says where they differ instead of printing all of them.
testing::AssertionResult same_bytes(const std::string &one, const std::string &other);

std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &bytes);

class RecordingTest : public testing::Test {
  protected:
    made_recording make(const recording_plan &plan = {}) { return make_recording(folder.file(next_name()), plan); }
    // A file of these bytes.
    std::string put(const std::string &bytes);
    std::string next_name() { return "r" + std::to_string(++files_) + ".rec"; }
    temp_folder folder;

  private:
    int files_ = 0;
};
