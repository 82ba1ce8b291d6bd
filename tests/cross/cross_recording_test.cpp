// Recordings that the programs of one host make, in the hands of the other's.
#include "tests/cross/cross_programs.h"
#include "tests/integration/play_session.h"
#include "tests/tools/orbrec_clip.h"

#include <filesystem>

class CrossRecordingTest : public CrossTest {
protected:
    // The one recording that the import made.
    static std::string import(program_host host, const std::string &folder)
    {
        child_result result = run_program(host, "orbrec",
                                          {"import", "--codec", "copy", "--no-audio", "--start", "2026-01-01 08:00:00",
                                           "--host", "door", "film.mp4", "-o", folder + "/"});
        EXPECT_EQ(result.status, 0) << result.err;
        std::vector<std::string> names = names_in(folder);
        return names.size() == 1 ? folder + "/" + names[0] : std::string();
    }
};

TEST_F(CrossRecordingTest, BothImportTheSameFilmToTheSameBytesAndPlayEachOthers)
{
    cross_service windows(program_host::windows);
    for (const char *encoder : {"libx264", "libx265"}) {
        clip_make("film.mp4", {.encoder = encoder, .frames = 60});
        std::filesystem::remove_all("posix");
        std::filesystem::remove_all("windows");
        std::filesystem::create_directory("posix");
        std::filesystem::create_directory("windows");
        std::string ours = import(program_host::posix, "posix"), theirs = import(program_host::windows, "windows");
        ASSERT_FALSE(ours.empty() || theirs.empty());
        EXPECT_EQ(std::filesystem::path(ours).filename(), std::filesystem::path(theirs).filename());
        EXPECT_GT(file_of(ours).size(), 1000u);
        EXPECT_TRUE(file_of(ours) == file_of(theirs)) << encoder;
        for (program_host host : {program_host::posix, program_host::windows})
            EXPECT_EQ(run_program(host, "orbrec", {"verify", "--decode", ours, theirs}).status, 0) << name_of(host);
        ASSERT_TRUE(windows.start());
        EXPECT_TRUE(play_all(windows.server(), ours).bytes == file_of(ours)) << encoder;
        windows.end();
    }
}

TEST_F(CrossRecordingTest, ExportsOfTheSameRecordingAreTheSame)
{
    temp_folder folder(temp_folder::working_directory::enter);
    make_recording("made.rec");
    for (program_host host : {program_host::posix, program_host::windows}) {
        child_result result = run_program(
            host, "orbrec", {"export", "made.rec", "-o", std::string(name_of(host)) + ".h264", "--format", "annexb"});
        EXPECT_EQ(result.status, 0) << result.err;
    }
    EXPECT_GT(file_of("posix.h264").size(), 100'000u);
    EXPECT_TRUE(file_of("posix.h264") == file_of("windows.h264"));
}
