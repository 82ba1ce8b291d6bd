#include "platform/os/os_guard.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using testing::ElementsAre;

class OsPipe : public testing::Test {
protected:
    // A command that writes `text` as it is.
    std::string shows(const std::string &text) const
    {
        folder_.write("text", text);
        return host_show_command(folder_.file("text"));
    }
    static std::string read_all(os_pipe *pipe, size_t piece)
    {
        std::string text, buffer(piece, '#');
        int64_t got = 0;
        while ((got = os_pipe_read(pipe, buffer.data(), piece)) > 0)
            text.append(buffer, 0, static_cast<size_t>(got));
        EXPECT_EQ(got, 0);
        return text;
    }
    static std::vector<std::string> lines(os_pipe *pipe, size_t size)
    {
        std::vector<std::string> found;
        std::string line(size, '#');
        while (os_pipe_line(pipe, line.data(), size))
            found.push_back(line.c_str());
        return found;
    }
    static int status_of(const char *command)
    {
        os_pipe *pipe = os_popen(command);
        EXPECT_NE(pipe, nullptr);
        return os_pclose(pipe);
    }
    temp_folder folder_;
};

TEST_F(OsPipe, OutputArrivesByteForByte)
{
    const std::string text = "one\ntwo\r\n\r\nthree\n\nno end";
    for (size_t piece : {1, 3, 4096}) {
        os_pipe *pipe = os_popen(shows(text).c_str());
        ASSERT_NE(pipe, nullptr);
        EXPECT_EQ(read_all(pipe, piece), text) << piece;
        EXPECT_EQ(os_pclose(pipe), 0);
    }
}

TEST_F(OsPipe, LongOutputArrivesWhole)
{
    std::string text;
    for (int i = 0; i < 20000; i++)
        text += std::to_string(i) + "\r\n";
    os_pipe *pipe = os_popen(shows(text).c_str());
    ASSERT_NE(pipe, nullptr);
    EXPECT_TRUE(read_all(pipe, 1000) == text);
    EXPECT_EQ(os_pclose(pipe), 0);
}

TEST_F(OsPipe, LinesKeepTheirEndsAndAreCutAtTheBuffer)
{
    os_pipe *pipe = os_popen(shows("one\ntwo\r\nlonger line\n\nend").c_str());
    ASSERT_NE(pipe, nullptr);
    EXPECT_THAT(lines(pipe, 8), ElementsAre("one\n", "two\r\n", "longer ", "line\n", "\n", "end"));
    EXPECT_EQ(os_pclose(pipe), 0);
}

TEST_F(OsPipe, StatusIsThatOfTheCommand)
{
    EXPECT_EQ(status_of("exit 0"), 0);
    EXPECT_EQ(status_of("exit 3"), 3);
    EXPECT_EQ(status_of("exit 255"), 255);
}

TEST_F(OsPipe, CommandThatIsNotThereEndsWithAStatus)
{
    testing::internal::CaptureStderr();
    os_pipe *pipe = os_popen("no-such-command-anywhere");
    ASSERT_NE(pipe, nullptr);
    EXPECT_EQ(read_all(pipe, 10), "");
    EXPECT_GT(os_pclose(pipe), 0);
    testing::internal::GetCapturedStderr();
}

TEST_F(OsPipe, NamesOfChineseCharactersReachTheShell)
{
    const std::string system_name = "\xC2\xBC\xCF\xF1";
    folder_.write(host_name(system_name), "shown");
    os_pipe *pipe = os_popen(host_show_command(folder_.file(system_name)).c_str());
    ASSERT_NE(pipe, nullptr);
    EXPECT_EQ(read_all(pipe, 10), "shown");
    EXPECT_EQ(os_pclose(pipe), 0);
}

TEST_F(OsPipe, CommandThatStillWritesDoesNotHoldTheClosing)
{
    os_pipe *pipe = os_popen(shows(std::string(1 << 20, 'x') + "\n").c_str());
    ASSERT_NE(pipe, nullptr);
    char byte = 0;
    EXPECT_EQ(os_pipe_read(pipe, &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
    // Whether the command minds, only its status tells.
    os_pclose(pipe);
}

TEST_F(OsPipe, WrongArgumentsAreRefused)
{
    char buffer[4] = "#";
    EXPECT_EQ(os_popen(nullptr), nullptr);
    EXPECT_EQ(os_popen(std::string(5000, 'a').c_str()), nullptr);
    EXPECT_EQ(os_pipe_read(nullptr, buffer, 1), -1);
    EXPECT_EQ(os_pipe_line(nullptr, buffer, 1), 0);
    EXPECT_EQ(os_pclose(nullptr), -1);
    os_pipe *pipe = os_popen("echo x");
    ASSERT_NE(pipe, nullptr);
    EXPECT_EQ(os_pipe_read(pipe, nullptr, 1), -1);
    EXPECT_EQ(os_pipe_line(pipe, nullptr, 1), 0);
    EXPECT_EQ(os_pipe_line(pipe, buffer, 0), 0);
    EXPECT_STREQ(buffer, "#");
    EXPECT_EQ(read_all(pipe, 1).front(), 'x');
    EXPECT_EQ(os_pclose(pipe), 0);
}

TEST_F(OsPipe, FailuresThatAreAskedFor)
{
    os_fault_arm(1);
    EXPECT_EQ(os_popen("echo x"), nullptr);
    os_pipe *pipe = os_popen("echo x");
    ASSERT_NE(pipe, nullptr);
    char buffer[8];
    os_fault_arm(1);
    EXPECT_EQ(os_pipe_read(pipe, buffer, 1), -1);
    os_fault_arm(1);
    EXPECT_EQ(os_pipe_line(pipe, buffer, sizeof buffer), 0);
    os_fault_disarm();
    EXPECT_EQ(read_all(pipe, 1).front(), 'x');
    EXPECT_EQ(os_pclose(pipe), 0);
}
