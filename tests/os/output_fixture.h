// Output files in a folder of the test's own.
#pragma once

#include "platform/os/os_output.h"
#include "tests/os/file_fixture.h"

#include <algorithm>
#include <memory>
#include <vector>

struct output_closer {
    void operator()(os_output *output) const { os_output_close(output); }
};
using output_ref = std::unique_ptr<os_output, output_closer>;

class OsOutput : public OsFile {
protected:
    struct wish {
        std::string name;
        int flags = 0;
        std::vector<std::string> inputs{};
    };
    static int try_open(const wish &of, os_output **output)
    {
        std::vector<const char *> inputs;
        for (const std::string &input : of.inputs)
            inputs.push_back(input.c_str());
        os_output_wish asked = {of.name.c_str(), of.flags, inputs.data(), inputs.size()};
        return os_output_open(&asked, output);
    }
    static output_ref open(const wish &of)
    {
        os_output *output = nullptr;
        EXPECT_EQ(try_open(of, &output), OS_OUTPUT_OPENED) << os_file_error();
        return output_ref(output);
    }
    // Of an opening that is to fail.
    static int result_of(const wish &of)
    {
        os_output *output = nullptr;
        int result = try_open(of, &output);
        EXPECT_EQ(output, nullptr);
        return result;
    }
    static bool write(const output_ref &output, const std::string &bytes)
    {
        return os_output_write(output.get(), bytes.data(), bytes.size(), 0) == 1;
    }
    static std::string left(const output_ref &output)
    {
        char kept[4096] = "?";
        EXPECT_EQ(os_output_leave(output.get(), kept, sizeof kept), 1);
        return kept;
    }
    std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        for (const auto &entry : std::filesystem::directory_iterator(folder_.path())) {
            std::u8string name = entry.path().filename().u8string();
            found.emplace_back(name.begin(), name.end());
        }
        std::ranges::sort(found);
        return found;
    }
};
