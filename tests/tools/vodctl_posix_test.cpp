// POSIX only: devices, pipes and links as outputs of vodctl play.
#include "tests/tools/vodctl_play_fixture.h"

#include <filesystem>
#include <sys/stat.h>
#include <thread>

using VodctlPosixTest = VodctlPlayTest;

TEST_F(VodctlPosixTest, ADeviceIsWrittenIntoAndStaysWhatItIs)
{
    for (const char *format : {"rec", "annexb", "mp4"}) {
        is_playing = false;
        if (!VODCTL_HAS_MEDIA && std::string(format) != "rec")
            continue;
        child_result result = run({"play", "x", "-o", "/dev/null", "--force", "--format", format});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
    }
}

TEST_F(VodctlPosixTest, APipeWithANameCarriesTheRecording)
{
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    std::string carried;
    std::thread reader([&] { carried = file_text("pipe"); });
    child_result result = run({"play", "x", "-o", "pipe"});
    reader.join();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(carried, text_of(file));
    EXPECT_TRUE(std::filesystem::is_fifo("pipe"));
}

TEST_F(VodctlPosixTest, ALinkIsFollowedToTheFileThatItReplaces)
{
    std::filesystem::create_directory("real");
    service.folder().write("real/old.rec", "old");
    std::filesystem::create_symlink("real/old.rec", "out.rec");
    EXPECT_EQ(run({"play", "x", "-o", "out.rec"}).status, 4);
    EXPECT_EQ(run({"play", "x", "-o", "out.rec", "--force"}).status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink("out.rec"));
    EXPECT_EQ(file_text("real/old.rec"), text_of(file));
}

TEST_F(VodctlPosixTest, ResultsThatCannotBeWrittenAreALocalError)
{
    service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &request) {
        static const std::string STATE = "<?xml version=\"1.0\"?>\n<vod><hardplay play_num=\"0\"/></vod>\n";
        bool is_state = request.u16(5, 0) == 0x8003;
        self.accept(link, is_state ? std::vector<uint8_t>(STATE.begin(), STATE.end()) : std::vector<uint8_t>(100));
    });
    service.on(MP_CODE_GET_RES, [](fake_service &self, MsLink *link, const seen_package &) { self.data(link, {0}); });
    service.on(MP_CODE_SEND_CMD_CHS, [](fake_service &self, MsLink *link, const seen_package &command) {
        bool is_find = command.text(7).find("\"find_file\"") != std::string::npos;
        bool is_next = command.text(7).find("\"find_next_file\"") != std::string::npos;
        self.reply(link, command,
                   is_find   ? "<command_return name=\"find_file\" result=\"ok\"><session_id>5</session_id>"
                               "</command_return>"
                   : is_next ? "<command_return name=\"find_next_file\" result=\"end\" count=\"0\"></command_return>"
                             : "<command_return name=\"get_vod_link_num\" result=\"ok\"><link_num>1</link_num>"
                               "</command_return>");
    });
    for (const std::vector<std::string> &command : {std::vector<std::string>{"links"}, {"--json", "links"}, {"state"},
                                                    {"--json", "state"}, {"timeline"}, {"--json", "timeline"},
                                                    {"--json", "find"}, {"find", "--csv"}, {"--help"}}) {
        std::vector<std::string> words = with_server(command);
        words.insert(words.begin(), program_beside("vodctl"));
        child_process process;
        ASSERT_TRUE(process.start(words, {.out = "/dev/full", .err = "err"}));
        EXPECT_EQ(process.wait(30'000), 4) << command.back() << file_text("err");
        EXPECT_NE(file_text("err").find("cannot write to standard output: No space left"), std::string::npos);
    }
}
