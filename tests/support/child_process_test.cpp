// Programs as processes of their own: what they are told, what they say, how they end.
#include "tests/support/child_process.h"
#include "tests/support/environment.h"
#include "tests/support/temp_folder.h"

#include "platform/os/os.h"

#include <gtest/gtest.h>

#include <fstream>

static std::vector<std::string> words(std::vector<std::string> more)
{
    more.insert(more.begin(), program_beside("child_program"));
    return more;
}

TEST(ChildProcessTest, WordsArriveAsTheyWereGiven)
{
    std::vector<std::string> given{
        "plain",           "two words",  "",       R"(C:\folder\)",           R"(a\"b)", R"("quoted")", R"(\\)",
        R"(end space\\ )", "$HOME *?'`", "%PATH%", "\xE4\xB8\xAD\xE6\x96\x87"};
    std::vector<std::string> all{"words"};
    std::string expected;
    for (const std::string &word : given) {
        all.push_back(word);
        expected += word + "\n";
    }
    child_result result = child_run(words(all));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, expected);
    EXPECT_EQ(result.err, "");
}

TEST(ChildProcessTest, TheStatusIsTheProgramsOwn)
{
    for (int status : {0, 1, 64, 255})
        EXPECT_EQ(child_run(words({"end", std::to_string(status)})).status, status);
}

TEST(ChildProcessTest, AProgramThatIsNotThereDoesNotEndWell)
{
    child_process process;
    bool is_made = process.start({"no/such/program"});
    EXPECT_TRUE(!is_made || process.wait(10'000) == 127);
}

TEST(ChildProcessTest, VariablesAreAddedAndReplaced)
{
    environment_set("VOD_TEST_KEPT", "kept");
    environment_set("VOD_TEST_REPLACED", "old");
    child_options options;
    options.environment = {"VOD_TEST_REPLACED=new=1", "VOD_TEST_ADDED=added"};
    EXPECT_EQ(child_run(words({"variable", "VOD_TEST_KEPT"}), options).out, "kept\n");
    EXPECT_EQ(child_run(words({"variable", "VOD_TEST_REPLACED"}), options).out, "new=1\n");
    EXPECT_EQ(child_run(words({"variable", "VOD_TEST_ADDED"}), options).out, "added\n");
    EXPECT_EQ(child_run(words({"variable", "VOD_TEST_ADDED"})).out, "none\n");
}

TEST(ChildProcessTest, ItWorksInTheFolderThatIsNamed)
{
    temp_folder folder;
    child_options options;
    options.folder = folder.path().string();
    EXPECT_EQ(child_run(words({"folder"}), options).out, folder.path().filename().string() + "\n");
}

TEST(ChildProcessTest, StreamsAreFilesByteForByte)
{
    temp_folder folder;
    folder.write("in", std::string("a\r\nb\n\x1A c\0d", 10));
    child_options options;
    options.in = folder.file("in");
    child_result result = child_run(words({"copy"}), options);
    EXPECT_EQ(result.out, std::string("a\r\nb\n\x1A c\0d", 10));
    EXPECT_EQ(result.err, "copied\n");
    EXPECT_EQ(child_run(words({"copy"})).out, ""); // without input
}

TEST(ChildProcessTest, APipeThatIsClosedEndsTheWriting)
{
    child_options options;
    options.out_is_pipe = true;
    child_process process;
    ASSERT_TRUE(process.start(words({"write"}), options));
    EXPECT_EQ(process.read(8), "01234567");
    EXPECT_EQ(process.wait(100), CHILD_RUNS);
    process.close_pipe();
    // Where writing into a closed pipe is not an error it ends the program.
    int status = process.wait(20'000);
    EXPECT_TRUE(status == 3 || status == CHILD_ENDED_BY_FORCE) << status;
}

static void end_politely(const char *deed, const std::string &ready, int status)
{
    bool (child_process::*const ways[])() = {&child_process::ask_to_end, &child_process::press_ctrl_c};
    child_options options;
    options.out_is_pipe = true;
    for (auto ask : ways) {
        child_process process, other;
        ASSERT_TRUE(process.start(words({deed}), options) && other.start(words({deed}), options));
        ASSERT_EQ(process.read(ready.size()), ready);
        ASSERT_EQ(other.read(ready.size()), ready);
        EXPECT_TRUE((process.*ask)());
        EXPECT_EQ(process.wait(20'000), status);
        EXPECT_FALSE((process.*ask)());
        EXPECT_EQ(other.wait(50), CHILD_RUNS); // nobody else is asked
    }
}

TEST(ChildProcessTest, AProgramThatServesEndsInOrderWhenAsked)
{
    end_politely("serve", "serves", 4);
}

TEST(ChildProcessTest, AProgramThatWorksEndsInOrderWhenAsked)
{
    end_politely("work", "works", 5);
}

TEST(ChildProcessTest, ARequestToEndIsKeptUntilSomebodyWaitsForIt)
{
    end_politely("start", "starts", 7);
}

TEST(ChildProcessTest, ASecondRequestEndsAtOnce)
{
    child_options options;
    options.out_is_pipe = true;
    child_process process;
    ASSERT_TRUE(process.start(words({"linger"}), options));
    ASSERT_EQ(process.read(7), "lingers");
    ASSERT_TRUE(process.ask_to_end());
    EXPECT_EQ(process.read(6), "\nasked");
    EXPECT_EQ(process.wait(50), CHILD_RUNS);
    EXPECT_TRUE(process.ask_to_end());
    int status = process.wait(20'000); // by force, or whatever the host takes for it
    EXPECT_TRUE(status != CHILD_RUNS && status != 6) << status;
}

TEST(ChildProcessTest, EndedAtOnceItSaysNothing)
{
    child_options options;
    options.out_is_pipe = true;
    child_process process;
    ASSERT_TRUE(process.start(words({"serve"}), options));
    EXPECT_EQ(process.read(6), "serves");
    EXPECT_TRUE(process.is_running());
    EXPECT_GT(process.pid(), 0);
    process.end_now();
    EXPECT_FALSE(process.is_running());
    EXPECT_EQ(process.wait(0), CHILD_ENDED_BY_FORCE);
}

TEST(ChildProcessTest, FiguresAreThoseOfTheProcess)
{
    child_options options;
    options.out_is_pipe = true;
    child_process process;
    ASSERT_TRUE(process.start(words({"write"}), options));
    for (uint64_t deadline = os_tick() + 20'000; process.figures().cpu_ms < 20 && os_tick() < deadline;)
        process.read(100'000);
    child_figures figures = process.figures();
    EXPECT_GE(figures.cpu_ms, 20u);
    EXPECT_GE(figures.threads, 1);
    EXPECT_LE(figures.threads, 4);
    EXPECT_GE(figures.descriptors, 3);
    EXPECT_GT(figures.resident_bytes, 100'000u);
}
