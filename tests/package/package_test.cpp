// The programs of the unpacked archive, moved to a folder of another name, with nothing of the build beside them.
#include "platform/json/json.h"
#include "platform/os/os.h"
#include "tests/support/child_process.h"
#include "tests/support/host.h"
#include "tests/support/recording_maker.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace {

class PackageTest : public testing::Test {
protected:
    void SetUp() override
    {
        fs::path unpacked = host_path(program_beside("x")).parent_path().parent_path() / "package-test" / "unpacked";
        ASSERT_TRUE(fs::exists(unpacked)) << unpacked << ": run the test package_unpacked first";
        fs::copy(unpacked, host_path(root("")), fs::copy_options::recursive);
        // Another service may use the port of the delivered configuration.
        folder_.write(NAME + data("etc/conf/ms_config.json"), "{\"port\": 0}");
    }
    // One folder on Windows, the usual ones elsewhere.
    bool is_flat() const { return fs::exists(host_path(root("README.txt"))); }
    std::string root(const std::string &name) const { return folder_.file(NAME + name); }
    std::string data(const std::string &name) const { return (is_flat() ? "" : "share/win32-vod/") + name; }
    std::string program(const std::string &name) const
    {
        std::string suffix = host_path(program_beside("x")).extension().string();
        return root((is_flat() ? "" : "bin/") + name + suffix);
    }
    child_result run(const std::string &name, std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), program(name));
        return child_run(arguments, {.folder = root(data(""))});
    }
    std::string bytes_of(const std::string &path) const
    {
        std::ifstream file(host_path(path), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static inline const std::string NAME = "Aufnahmen 录像/";
    temp_folder folder_;
};

std::string line_of(child_process *process)
{
    std::string line, letter;
    while (letter = process->read(1), !letter.empty() && letter != "\n")
        line += letter;
    return line;
}

} // namespace

TEST_F(PackageTest, ProgramsStartWhereTheyWereUnpacked)
{
    child_result version = run("vod_svr", {"--version"});
    EXPECT_EQ(version.status, 0) << version.err;
    EXPECT_EQ(version.out, "vod_svr " VOD_VERSION "\n");
    for (const char *name : {"vodctl", "orbrec"}) {
        child_result help = run(name, {"--help"});
        EXPECT_EQ(help.status, 0) << help.err;
        EXPECT_NE(help.out.find("Exit status:"), std::string::npos) << name;
    }
}

TEST_F(PackageTest, DeliveredConfigurationIsFoundAndUsable)
{
    child_result check = run("vod_svr", {"--check"});
    EXPECT_EQ(check.status, 0) << check.err;
    EXPECT_EQ(check.out, "the configuration can be used\n");
    child_result elsewhere = child_run({program("vod_svr"), "--root", root(data("")), "--check"});
    EXPECT_EQ(elsewhere.out, "the configuration can be used\n") << elsewhere.err;
    folder_.write(NAME + data("etc/conf/vod_svr.json"), "{");
    EXPECT_EQ(run("vod_svr", {"--check"}).status, 1) << "the file is not the one that is read";
    EXPECT_EQ(child_run({program("vod_svr"), "--root", root(data("")), "--check"}).status, 1);
}

TEST_F(PackageTest, ServiceServesARecordingFromItsFolder)
{
    AVUtcTime start = {2026, 1, 1, 8, 0, 0};
    std::string name = recording_name("door", 1, start);
    made_recording made = make_recording(folder_.file(name), {.frames = 50});
    fs::copy(host_path(folder_.file(name)), host_path(root(data("recordings/" + name))));
    child_process service;
    ASSERT_TRUE(service.start({program("vod_svr"), "--json"},
                              {.folder = root(data("")), .err = folder_.file("err"), .out_is_pipe = true}));
    json_ref ready(json_tokener_parse(line_of(&service).c_str()));
    ASSERT_NE(ready, nullptr) << bytes_of(folder_.file("err"));
    std::string server = "127.0.0.1:" + std::to_string(json_object_get_field_int(ready.get(), "port", 0));

    std::string played = folder_.file("played.rec");
    child_result play = run("vodctl", {"--server", server, "play", "recordings\\" + name, "-o", played});
    EXPECT_EQ(play.status, 0) << play.err << bytes_of(folder_.file("err"));
    EXPECT_EQ(bytes_of(played), made.bytes());
    EXPECT_EQ(run("vodctl", {"--server", server, "play", "etc\\conf\\vod_svr.json", "-o", played, "--force"}).status, 1);
    EXPECT_EQ(run("vodctl", {"--server", server, "state"}).status, 0);
    EXPECT_EQ(run("orbrec", {"verify", played}).status, 0);
    ASSERT_TRUE(service.ask_to_end());
    EXPECT_EQ(service.wait(30'000), 0) << bytes_of(folder_.file("err"));
}
