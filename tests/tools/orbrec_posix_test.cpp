// POSIX only: a device that is always full, script(1), which makes a terminal, and a server that breaks off.
#include "platform/avfiltersdk/avfilterwriter.h"
#include "platform/os/os_guard.h"
#include "tests/tools/orbrec_clip.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using testing::HasSubstr;

namespace {

// Gives the first part of a file to everybody who asks for all of it, and closes the connection.
class breaking_server {
public:
    breaking_server(std::vector<uint8_t> bytes, size_t given) : bytes_(std::move(bytes)), given_(given)
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr *>(&address), size), 0);
        EXPECT_EQ(listen(socket_, 5), 0);
        EXPECT_EQ(getsockname(socket_, reinterpret_cast<sockaddr *>(&address), &size), 0);
        url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/in.mkv";
        thread_ = std::thread([this] { serve(); });
    }
    ~breaking_server()
    {
        shutdown(socket_, SHUT_RDWR);
        thread_.join();
        close(socket_);
    }
    breaking_server(const breaking_server &) = delete;
    breaking_server &operator=(const breaking_server &) = delete;
    std::string url;

private:
    void serve()
    {
        for (int taken; (taken = accept(socket_, nullptr, nullptr)) >= 0; close(taken)) {
            char request[4096];
            std::string head =
                "HTTP/1.1 200 OK\r\nContent-Type: video/x-matroska\r\nContent-Length: " + std::to_string(bytes_.size()) +
                "\r\n\r\n";
            if (read(taken, request, sizeof request) <= 0)
                continue;
            send(taken, head.data(), head.size(), MSG_NOSIGNAL);
            send(taken, bytes_.data(), given_, MSG_NOSIGNAL);
            shutdown(taken, SHUT_WR);
            while (read(taken, request, sizeof request) > 0)
                ;
        }
    }
    std::vector<uint8_t> bytes_;
    size_t given_;
    int socket_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::thread thread_;
};

class OrbrecPosixTest : public testing::Test {
protected:
    temp_folder folder_;
};

} // namespace

TEST_F(OrbrecPosixTest, FullDiskIsAnErrorOfTheOutput)
{
    clip_make(folder_.file("in.mp4"), {.frames = 30});
    ASSERT_EQ(orbrec(folder_, "import in.mp4 -o r_20240501080000_1.rec").status, 0);
    for (const char *format : {"mp4", "annexb"}) {
        child_process tool;
        ASSERT_TRUE(tool.start(orbrec_words(std::string("export r_20240501080000_1.rec -o - --format ") + format),
                               {.folder = folder_.file("."), .out = "/dev/full", .err = folder_.file("err")}));
        EXPECT_EQ(tool.wait(10'000), 3) << format;
    }
}

TEST_F(OrbrecPosixTest, ProgressIsDrawnOnATerminalAndWipedAtTheEnd)
{
    const char *script = "/usr/bin/script";
    if (!std::filesystem::exists(script))
        GTEST_SKIP() << "script is not installed";
    clip_make(folder_.file("in.avi"), {.encoder = "mpeg4", .frames = 30});
    std::string command = "'" + orbrec_words("")[0] + "' import in.avi -o rec/ --start '2024-05-01 08:00:00'";
    tool_result result = child_run({script, "-qec", command, "/dev/null"}, {.folder = folder_.file(".")});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("in.avi ["), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\033[K"), std::string::npos);
}

TEST_F(OrbrecPosixTest, AConnectionThatBreaksOffIsAnErrorAndTellsHowMuchCame)
{
    clip_make(folder_.file("in.mkv"), {.encoder = "mpeg4", .frames = 200});
    std::vector<uint8_t> bytes = file_bytes(folder_.file("in.mkv"));
    breaking_server server(bytes, bytes.size() / 2);
    tool_result result = orbrec(folder_, "import " + server.url + " -o rec/ --start '2024-05-01 08:00:00'");
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("to its end: "));
    EXPECT_THAT(result.err, HasSubstr("pictures, "));
    EXPECT_THAT(result.err, HasSubstr("what came until then is in rec/local_00_0_20240501080000_1.rec.part"));
}

TEST_F(OrbrecPosixTest, ResultsThatCannotBeWrittenAreAnErrorOfTheOutput)
{
    clip_make(folder_.file("in.mp4"), {.frames = 30});
    ASSERT_EQ(orbrec(folder_, "import in.mp4 -o r_20240501080000_1.rec").status, 0);
    ASSERT_EQ(orbrec(folder_, "reindex --scan . --root . --host h --store lmdb:index").status, 0);
    for (const char *arguments :
         {"info r_20240501080000_1.rec", "info --json r_20240501080000_1.rec", "info --json --frames r_20240501080000_1.rec",
          "info --keys r_20240501080000_1.rec", "verify r_20240501080000_1.rec", "verify --json r_20240501080000_1.rec",
          "check --store lmdb:index", "check --json --store lmdb:index", "reindex --scan . --store lmdb:index",
          "export --force r_20240501080000_1.rec -o out.mp4", "import --force in.mp4 -o r_20240501080000_1.rec", "--help"}) {
        child_process tool;
        ASSERT_TRUE(tool.start(orbrec_words(arguments),
                               {.folder = folder_.file("."), .out = "/dev/full", .err = folder_.file("err")}));
        EXPECT_EQ(tool.wait(30'000), 3) << arguments;
        std::vector<uint8_t> said = file_bytes(folder_.file("err"));
        EXPECT_THAT(std::string(said.begin(), said.end()), HasSubstr("cannot write to standard output: No space left"))
            << arguments;
    }
}

TEST_F(OrbrecPosixTest, NamesCannotSteerTheTerminalAndAreValidJson)
{
    const std::string name = "a\033[2J\xC2\x9B\xE2\x80\xAE\xC3\xA4_20240501080000_1.rec", shown = "a?[2J??\xC3\xA4_2024";
    clip_make(folder_.file("in.mp4"), {.frames = 30});
    tool_result made = orbrec(folder_, "import in.mp4 -o '" + name + "'");
    ASSERT_EQ(made.status, 0) << made.err;
    EXPECT_THAT(made.out, HasSubstr(shown));
    EXPECT_THAT(orbrec(folder_, "info '" + name + "'").out, HasSubstr(shown));
    EXPECT_THAT(orbrec(folder_, "verify '" + name + "'").out, HasSubstr(shown));
    EXPECT_THAT(orbrec(folder_, "export '" + name + "' -o '" + name + "'").err, HasSubstr(shown));
    tool_result missing = orbrec(folder_, "info --json 'no\xFF\033.rec'");
    EXPECT_EQ(missing.status, 2);
    EXPECT_THAT(missing.err, HasSubstr("no??.rec"));
    EXPECT_THAT(missing.out, HasSubstr("no\xEF\xBF\xBD\\u001b.rec"));
}

TEST_F(OrbrecPosixTest, AListOfManyFramesGoesOutAsItIsRead)
{
    constexpr uint32_t FRAMES = 150'000;
    AVWriterSettings settings = {};
    settings.iSize = sizeof settings;
    text_copy(settings.cFileName, folder_.file("many.rec"));
    settings.iFrameRate = 25;
    settings.iWidth = settings.iHeight = 16;
    settings.iVEncMode = AVMODE_H264;
    settings.tStart = {2026, 1, 1, 8, 0, 0};
    void *writer = AVWriterCreate(&settings);
    ASSERT_NE(writer, nullptr) << os_file_error();
    const uint8_t picture[] = {0, 0, 0, 1, 0x65, 1};
    for (uint32_t i = 0; i < FRAMES; i++) {
        AVWriterFrame frame = {};
        frame.iFrameType = i == 0 ? AVFRAME_TYPE_KEY : AVFRAME_TYPE_DELTA;
        frame.uiTimeStamp = i * 40;
        frame.pVideo = picture;
        frame.uiVideoBytes = sizeof picture;
        ASSERT_EQ(AVWriterAddFrame(writer, &frame), 1);
    }
    ASSERT_EQ(AVWriterFinish(writer), 1);
    child_process tool;
    ASSERT_TRUE(tool.start(orbrec_words("info --json --frames many.rec"), {.folder = folder_.file("."), .out_is_pipe = true}));
    std::string told = tool.read(100);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // Whoever keeps them all has done so before the first byte: two hundred megabytes and more.
    EXPECT_LT(tool.figures().resident_bytes, 100u << 20);
#endif
    told += tool.read();
    EXPECT_EQ(tool.wait(60'000), 0);
    json_result facts = json_of(told);
    ASSERT_NE(facts, nullptr);
    EXPECT_EQ(json_int(facts, "frames"), FRAMES);
    EXPECT_EQ(json_int(facts, "header/frame_count"), FRAMES);
    EXPECT_EQ(json_object_array_length(json_at(facts, "frame_list")), FRAMES);
    EXPECT_EQ(json_int(facts, "frame_list/149999/number"), FRAMES);
}
