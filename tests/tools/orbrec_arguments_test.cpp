// What orbrec says to arguments: help, refusals and their exit statuses.
#include "tests/support/environment.h"
#include "tests/tools/orbrec_clip.h"
#include "tools/orbrec/orbrec.h"
#include "tools/orbrec/recording_output.h"

#include <gtest/gtest.h>

namespace {

class OrbrecArgumentsTest : public testing::Test {
protected:
    temp_folder folder_;
};

} // namespace

TEST_F(OrbrecArgumentsTest, WrongArgumentsEndWith64AndSayWhatIsWrong)
{
    folder_.write("in.mp4", "no film");
    struct row {
        const char *arguments, *text;
    };
    for (row each : {row{"", "name a command: import, export, info, verify, index, unindex, reindex or check"},
                     row{"frobnicate", "frobnicate"},
                     row{"import", "required"},
                     row{"import in.mp4", "--output is required"},
                     row{"import in.mp4 -o out/ --codec vp9", "vp9"},
                     row{"import in.mp4 -o out/ --size 100x101", "--size wants WIDTHxHEIGHT"},
                     row{"import in.mp4 -o out/ --size 100", "--size wants WIDTHxHEIGHT"},
                     row{"import in.mp4 -o out/ --start 2024-02-30", "--start wants a local time"},
                     row{"import in.mp4 -o out/ --split 1:99", "--split wants seconds or hh:mm:ss"},
                     row{"import in.mp4 -o out/ --split 0", "--split wants seconds or hh:mm:ss"},
                     row{"import in.mp4 -o out/ --host a/b", "--host wants"},
                     row{"import in.mp4 -o out/ --host ''", "--host wants"},
                     row{"import in.mp4 -o out/ --channel -1", "--channel"},
                     row{"import in.mp4 -o out/ --crf 99", "--crf"},
                     row{"import in.mp4 -o out/ --codec copy --fps 5", "--codec copy leaves the video as it is"},
                     row{"import in.mp4 in.mp4 -o out.rec", "several files cannot go into out.rec"},
                     row{"import in.mp4 -o out.rec --split 60", "several files cannot go into out.rec"},
                     row{"export in.mp4", "--output is required"},
                     row{"export in.mp4 -o x --format avi", "avi"},
                     row{"export in.mp4 -o - --json", "--json and the recording cannot both go to standard output"},
                     row{"info", "required"},
                     row{"info in.mp4 --keys --frames", "--keys"},
                     row{"verify", "required"},
                     row{"verify in.mp4 --sideways", "--sideways"}}) {
        tool_result result = orbrec(folder_, each.arguments);
        EXPECT_EQ(result.status, 64) << each.arguments;
        EXPECT_NE((result.err + result.out).find(each.text), std::string::npos) << each.arguments << "\n" << result.err;
    }
    EXPECT_EQ(names_in(folder_.path().string()), std::vector<std::string>{"in.mp4"});
}

TEST_F(OrbrecArgumentsTest, HelpTeachesWithExamplesAndExitStatuses)
{
    for (const char *command : {"", "import", "export", "info", "verify", "index", "unindex", "reindex", "check"}) {
        tool_result result = orbrec(folder_, std::string(command) + " --help");
        EXPECT_EQ(result.status, 0) << command;
        EXPECT_NE(result.out.find("Examples:"), std::string::npos) << command;
        EXPECT_NE(result.out.find("Exit status:"), std::string::npos) << command;
    }
}

TEST_F(OrbrecArgumentsTest, InputThatIsNoFilmOrMissingCannotBeRead)
{
    folder_.write("in.mp4", "no film");
    EXPECT_EQ(orbrec(folder_, "import in.mp4 -o out/").status, 2);
    EXPECT_EQ(orbrec(folder_, "import missing.mp4 -o out/").status, 2);
    EXPECT_EQ(orbrec(folder_, "export missing.rec -o out.mp4").status, 2);
    tool_result result = orbrec(folder_, "export in.mp4 -o out.mp4");
    EXPECT_EQ(result.status, 4);
    EXPECT_FALSE(path_exists(folder_.file("out.mp4")));
    EXPECT_FALSE(path_exists(folder_.file("out.mp4.part")));
}

TEST_F(OrbrecArgumentsTest, WithJsonEveryFailureIsAnObject)
{
    folder_.write("in.rec", "no recording");
    struct row {
        const char *arguments;
        int status;
    };
    for (row each : {row{"--json", 64}, row{"frobnicate --json", 64}, row{"info --json", 64},
                     row{"export in.rec -o - --json", 64}, row{"import --json in.rec -o out/ --size 3", 64},
                     row{"info --json missing.rec", 2}, row{"info --json in.rec", 2}, row{"export --json missing.rec -o x", 2},
                     row{"import --json missing.mp4 -o out/", 2}, row{"check --json --store lmdb:none", 2},
                     row{"check --json --store nonsense:", 2}, row{"unindex --json in.rec --store lmdb:none", 2},
                     row{"index --json in.rec", 64}}) {
        tool_result result = orbrec(folder_, each.arguments);
        EXPECT_EQ(result.status, each.status) << each.arguments << result.err;
        json_result told = json_of(result.out);
        ASSERT_NE(told, nullptr) << each.arguments << result.out;
        EXPECT_EQ(json_int(told, "status"), each.status) << each.arguments;
        EXPECT_EQ(json_int(told, "error/exit"), each.status) << each.arguments;
        EXPECT_NE(json_text(told, "error/text"), "") << each.arguments;
    }
}

TEST_F(OrbrecArgumentsTest, SoundWithoutPicturesCannotBeImported)
{
    const char head[] = "RIFF\044\0\0\0WAVEfmt \020\0\0\0\001\0\001\0\100\037\0\0\100\037\0\0\001\0\010\0data\0\0\0\0";
    folder_.write("in.wav", std::string(head, sizeof head - 1));
    tool_result result = orbrec(folder_, "import in.wav -o out/");
    EXPECT_EQ(result.status, 2);
}

TEST_F(OrbrecArgumentsTest, OutputThatCannotBeWritten)
{
    clip_make(folder_.file("in.mp4"), {.frames = 30});
    EXPECT_EQ(orbrec(folder_, "import in.mp4 -o no/such/folder/").status, 3);
    EXPECT_EQ(orbrec(folder_, "import in.mp4 -o no/such/a_20240501080000_1.rec").status, 3);
    ASSERT_EQ(orbrec(folder_, "import in.mp4 -o a_20240501080000_1.rec").status, 0);
    EXPECT_EQ(orbrec(folder_, "export a_20240501080000_1.rec -o no/such/out.mp4").status, 3);
    EXPECT_EQ(orbrec(folder_, "export a_20240501080000_1.rec -o .").status, 64);
}

TEST(OrbrecTextTest, DurationsAreSecondsOrClockTimes)
{
    struct row {
        const char *text;
        int64_t seconds; // -1: refused
    };
    for (row each : {row{"1", 1}, row{"600", 600}, row{"1:30", 90}, row{"01:00:00", 3600}, row{"0:00:01", 1},
                     row{"0", -1}, row{"", -1}, row{"-5", -1}, row{"1:60", -1}, row{"1:2:3:4", -1}, row{"1s", -1},
                     row{"1:", -1}, row{"99999999999999999999", -1}}) {
        int64_t seconds = -1;
        EXPECT_EQ(duration_parse(each.text, &seconds), each.seconds > 0) << each.text;
        EXPECT_EQ(seconds, each.seconds) << each.text;
    }
}

TEST(OrbrecTextTest, LocalTimesThatTheCalendarLacksAreRefused)
{
    environment_zone("UTC0");
    int64_t seconds = 0;
    ASSERT_TRUE(local_time_parse("2024-02-29 23:59:59", &seconds));
    EXPECT_EQ(seconds, 1709251199);
    EXPECT_EQ(local_time_text(seconds), "2024-02-29 23:59:59");
    for (const char *text : {"2023-02-29 00:00:00", "2024-13-01 00:00:00", "2024-01-01 24:00:00", "2024-01-01", "",
                             "2024-01-01 00:00:00x", "1969-12-31 23:59:59", "2024-1-1 0:0:0"})
        EXPECT_FALSE(local_time_parse(text, &seconds)) << text;
}

TEST(OrbrecTextTest, SizesAreEvenAndBounded)
{
    int width, height;
    EXPECT_TRUE(size_parse("1280x720", &width, &height));
    EXPECT_EQ(width, 1280);
    EXPECT_EQ(height, 720);
    EXPECT_TRUE(size_parse("16x8192", &width, &height));
    for (const char *text : {"1280", "1280x", "x720", "1281x720", "1280x721", "14x16", "16x8194", "-2x16", "1280X720"})
        EXPECT_FALSE(size_parse(text, &width, &height)) << text;
}

TEST(OrbrecTextTest, StartTimeIsTheNextToLastPieceOfTheName)
{
    EXPECT_TRUE(name_tells_start("door_1_00_0_20240501080000_1.rec"));
    EXPECT_TRUE(name_tells_start("x_20240501080000_1"));
    for (const char *name : {"door.rec", "20240501080000_1.rec", "x_2024050108000_1.rec", "x_2024050108000a_1.rec",
                             "x_20240501080000.rec", "_", "", "x_20240501080000_1_2.rec"})
        EXPECT_FALSE(name_tells_start(name)) << name;
}

TEST(OrbrecHostTest, ModificationTimeIsSetToTheSecond)
{
    temp_folder folder;
    folder.write("a", "abc");
    os_file_info info = {};
    ASSERT_EQ(os_file_set_modified(folder.file("a").c_str(), 1714550403), 1);
    ASSERT_EQ(os_file_stat(folder.file("a").c_str(), 0, &info), 1);
    EXPECT_EQ(info.modified_seconds, 1714550403);
    EXPECT_EQ(info.size, 3u);
    EXPECT_EQ(os_file_set_modified(folder.file("missing").c_str(), 1714550403), 0);
    EXPECT_FALSE(path_exists(folder.file("missing")));
}

TEST(OrbrecHostTest, FileIsNoTerminalAndAnInterruptNeedsAHandler)
{
    EXPECT_EQ(os_is_terminal(99), 0);
    EXPECT_EQ(os_interrupt_install(nullptr), 0);
}
