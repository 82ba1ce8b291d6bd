#include "tests/support/child_process.h"

#include "tests/support/temp_folder.h"

#include "platform/os/os.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

static constexpr uint32_t RUN_MS = 120'000;

static std::string text_of(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

child_result child_run(const std::vector<std::string> &words, const child_options &options)
{
    temp_folder streams; // of its own, because a test may count the files where the program works
    child_options redirected = options;
    redirected.out = streams.file("out");
    redirected.err = streams.file("err");
    child_process process;
    child_result result;
    if (!process.start(words, redirected)) {
        ADD_FAILURE() << words.at(0) << " cannot be started";
        return result;
    }
    result.status = process.wait(RUN_MS);
    if (result.status == CHILD_RUNS) {
        ADD_FAILURE() << words.at(0) << " does not end";
        process.end_now();
    }
    result.out = text_of(streams.path() / "out");
    result.err = text_of(streams.path() / "err");
    return result;
}

std::string program_beside(const std::string &name)
{
    char self[4096] = "";
    EXPECT_GT(os_module_filename(self, sizeof self), 0u);
    std::filesystem::path path(self);
    return (path.parent_path() / name).replace_extension(path.extension()).string();
}
