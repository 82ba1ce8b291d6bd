#include "tests/tools/vodctl_process.h"

#include "platform/os/os.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

static constexpr uint32_t END_MS = 60'000;
static constexpr char ERR_FILE[] = "run.err";

static std::vector<std::string> words_of(const std::vector<std::string> &arguments)
{
    std::vector<std::string> words{program_beside("vodctl")};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

std::string file_text(const std::string &name)
{
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

child_result run_vodctl(const std::vector<std::string> &arguments, const std::vector<std::string> &environment)
{
    child_options options;
    options.environment = environment;
    return child_run(words_of(arguments), options);
}

child_result run_vodctl_into_pipe(size_t read_bytes, const std::vector<std::string> &arguments)
{
    child_options options;
    options.err = ERR_FILE;
    options.out_is_pipe = true;
    child_process process;
    EXPECT_TRUE(process.start(words_of(arguments), options));
    child_result result;
    result.out = process.read(read_bytes);
    process.close_pipe();
    result.status = process.wait(END_MS);
    result.err = file_text(ERR_FILE);
    return result;
}

// Whether a file whose name begins so holds something.
static bool has_begun(const std::string &name)
{
    for (const auto &entry : std::filesystem::directory_iterator(".")) {
        std::error_code missing;
        uintmax_t size = entry.file_size(missing);
        if (!missing && size > 0 && entry.path().filename().string().starts_with(name))
            return true;
    }
    return false;
}

child_result run_vodctl_and_stop(const std::string &file, const std::vector<std::string> &arguments)
{
    child_options options;
    options.out = "run.out";
    options.err = ERR_FILE;
    child_process process;
    EXPECT_TRUE(process.start(words_of(arguments), options));
    for (uint64_t deadline = os_tick() + END_MS; os_tick() < deadline && process.is_running() && !has_begun(file);)
        os_sleep(10);
    EXPECT_TRUE(process.ask_to_end());
    child_result result;
    result.status = process.wait(END_MS);
    result.out = file_text(options.out);
    result.err = file_text(ERR_FILE);
    return result;
}
