// Whoever reads the service's log may stop reading, or go: it goes on serving, and ends when it is told to.
#include "tests/integration/play_session.h"
#include "tests/integration/service_process.h"

#include "platform/json/json.h"
#include "platform/os/os.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

// More than the pipe and the queue hold.
static constexpr int COMMANDS = 45;

class LogReaderTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::create_directory(folder_.path() / "rec");
        make_recording(folder_.file("rec/short.rec"));
        folder_.write("etc/conf/ms_config.json", R"({"port": 0})");
        folder_.write("etc/conf/vod_svr.json", R"({"fs_charset": "UTF-8", "log": {"level": 1, "queue_bytes": 65536}})");
        child_options options;
        options.out = folder_.file("out");
        options.err_is_pipe = true;
        ASSERT_TRUE(process_.start({program_beside("vod_svr"), "--root", folder_.path().string(), "--json"}, options));
        for (uint64_t deadline = os_tick() + 60'000; server_.port == 0 && os_tick() < deadline; os_sleep(5))
            server_.port = port_of(file_of(options.out));
        ASSERT_NE(server_.port, 0);
    }
    static uint16_t port_of(const std::string &ready_line)
    {
        json_ref ready(json_tokener_parse(ready_line.c_str()));
        return static_cast<uint16_t>(json_object_get_field_int(ready.get(), "port", 0));
    }
    // Long commands, because a place in the program that logs without pause is cut down to few lines.
    void expect_that_it_serves(int commands) const
    {
        raw_session session;
        ASSERT_EQ(session.request(server_.port, "rec/short.rec"), 10);
        for (int i = 0; i < commands; i++) {
            ASSERT_TRUE(session.send(raw_command(1, control_xml(16, 0) + std::string(6000, ' '))));
            ASSERT_NE(session.control(16, 0).find("<value>"), std::string::npos) << i;
        }
        session.client().close();
        EXPECT_EQ(link_counters(server_).size(), 5u);
    }
    void expect_that_it_ends()
    {
        EXPECT_TRUE(process_.ask_to_end());
        EXPECT_EQ(process_.wait(30'000), 0);
    }

    temp_folder folder_{temp_folder::working_directory::enter};
    child_process process_;
    vodclient_server server_ = {"127.0.0.1", 0, 20'000};
};

TEST_F(LogReaderTest, OneThatStopsReadingHoldsUpNeitherClientsNorTheEnd)
{
    expect_that_it_serves(COMMANDS);
    expect_that_it_ends();
}

TEST_F(LogReaderTest, OneThatHasGoneEndsNothing)
{
    process_.close_pipe();
    expect_that_it_serves(5);
    EXPECT_TRUE(process_.is_running());
    expect_that_it_ends();
}

TEST_F(LogReaderTest, OneThatReadsAgainHearsHowMuchItMissed)
{
    expect_that_it_serves(COMMANDS);
    std::string heard;
    // The note comes by itself once the queue is empty.
    while (heard.find(" lines were not written") == std::string::npos) {
        std::string more = process_.read(4096);
        ASSERT_FALSE(more.empty());
        heard += more;
    }
    std::thread reader([this] { process_.read(); });
    expect_that_it_serves(1);
    expect_that_it_ends();
    reader.join();
}
