// The settings file, the device identifier and a port that cannot be had.
#include "platform/ms/ms_settings.h"

#include "tests/ms/ms_fixture.h"
#include "tests/support/log_capture.h"

#include <string>

class MsSettingsTest : public MsServiceTest {
protected:
    ms_settings read(const std::string &text)
    {
        folder.write("etc\\conf\\ms_config.json", text);
        return ms_settings_read();
    }
};

static void expect_defaults(const ms_settings &settings)
{
    EXPECT_EQ(settings.listen, "127.0.0.1");
    EXPECT_EQ(settings.port, 7131);
    EXPECT_EQ(settings.threads, 4u);
    EXPECT_EQ(settings.max_connections, 1024u);
    EXPECT_EQ(settings.max_connections_per_address, 512u);
    EXPECT_EQ(settings.max_queued_bytes, 1048576u);
    EXPECT_EQ(settings.receive_deadline_ms, 30000u);
    EXPECT_EQ(settings.idle_ms, 0u);
    EXPECT_EQ(settings.dead_peer_ms, 60000u);
    EXPECT_EQ(settings.send_buffer_bytes, 0u);
    EXPECT_EQ(settings.device_id, "");
}

TEST_F(MsSettingsTest, MissingFileGivesTheDefaultsSilently)
{
    log_capture log;
    expect_defaults(ms_settings_read());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(MsSettingsTest, MissingKeysAndWrongTypesGiveTheDefaults)
{
    expect_defaults(read("{}"));
    expect_defaults(read(R"({"port": "80", "threads": null, "listen": 7, "max_connections": [], "device_id": {},
                             "idle_ms": 1.5, "unknown": 1})"));
}

TEST_F(MsSettingsTest, FileThatIsNoObjectGivesTheDefaultsAndALogLine)
{
    for (const char *text : {"", "{", "[1]", "7", "nonsense"}) {
        log_capture log;
        expect_defaults(read(text));
        EXPECT_EQ(log.count("etc\\conf\\ms_config.json is no JSON object, defaults taken", 2), 1u) << text;
    }
}

TEST_F(MsSettingsTest, EveryKeyIsRead)
{
    ms_settings settings = read(R"({"listen": "0.0.0.0", "port": 9000, "threads": 2, "max_connections": 10,
        "max_connections_per_address": 3, "max_queued_bytes": 70000, "receive_deadline_ms": 1, "idle_ms": 2,
        "dead_peer_ms": 3, "send_buffer_bytes": 4, "device_id": "recorder-9"})");
    EXPECT_EQ(settings.listen, "0.0.0.0");
    EXPECT_EQ(settings.port, 9000);
    EXPECT_EQ(settings.threads, 2u);
    EXPECT_EQ(settings.max_connections, 10u);
    EXPECT_EQ(settings.max_connections_per_address, 3u);
    EXPECT_EQ(settings.max_queued_bytes, 70000u);
    EXPECT_EQ(settings.receive_deadline_ms, 1u);
    EXPECT_EQ(settings.idle_ms, 2u);
    EXPECT_EQ(settings.dead_peer_ms, 3u);
    EXPECT_EQ(settings.send_buffer_bytes, 4u);
    EXPECT_EQ(settings.device_id, "recorder-9");
}

TEST_F(MsSettingsTest, NumbersOutOfRangeAreMovedIntoItAndLogged)
{
    log_capture log;
    ms_settings settings =
        read(R"({"port": 65536, "threads": 0, "max_connections": -5, "max_queued_bytes": 65534, "idle_ms": -1})");
    EXPECT_EQ(settings.port, 65535);
    EXPECT_EQ(settings.threads, 1u);
    EXPECT_EQ(settings.max_connections, 1u);
    EXPECT_EQ(settings.max_queued_bytes, 65535u);
    EXPECT_EQ(settings.idle_ms, 0u);
    EXPECT_EQ(log.count("etc\\conf\\ms_config.json: port 65536 is out of range, 65535 taken", 2), 1u);
    EXPECT_EQ(log.count("etc\\conf\\ms_config.json: threads 0 is out of range, 1 taken", 2), 1u);
    EXPECT_EQ(log.count_containing("out of range"), 5u);
}

TEST_F(MsSettingsTest, DeviceIdIsTheSettingOrMadeFromTheHost)
{
    ms_settings settings;
    std::string made = ms_settings_device_id(settings);
    EXPECT_EQ(made.substr(0, 4), "vod-");
    EXPECT_GT(made.size(), 4u);
    EXPECT_EQ(made, ms_settings_device_id(settings));
    EXPECT_EQ(made.find_first_of("/\\ _\n"), std::string::npos);
    settings.device_id = std::string(100, 'x');
    EXPECT_EQ(ms_settings_device_id(settings), std::string(59, 'x'));
}

TEST_F(MsSettingsTest, StartupTakesTheDeviceIdOfItsSettings)
{
    char before[64] = {}, after[64] = {};
    ASSERT_EQ(ms_get_local_devid(before), 1);
    EXPECT_STRNE(before, "");
    start("\"device_id\": \"recorder-9\"");
    ASSERT_EQ(ms_get_local_devid(after), 1);
    EXPECT_STREQ(after, "recorder-9");
    EXPECT_EQ(ms_get_local_devid(nullptr), 0);
}

TEST_F(MsSettingsTest, PortThatIsTakenFailsTheStartAndALaterOneSucceeds)
{
    log_capture log;
    asio::io_context io;
    asio::ip::tcp::acceptor taken(io, {asio::ip::make_address("127.0.0.1"), 0});
    std::string number = std::to_string(taken.local_endpoint().port());
    folder.write("etc\\conf\\ms_config.json", "{\"port\": " + number + "}");
    EXPECT_EQ(ms_startup(), 0);
    EXPECT_EQ(log.count("cannot listen on 127.0.0.1 port " + number + ": Address already in use", 4), 1u);
    EXPECT_EQ(ms_listen_port(), 0);
    taken.close();
    EXPECT_EQ(ms_startup(), 1);
    EXPECT_EQ(std::to_string(ms_listen_port()), number);
}

TEST_F(MsSettingsTest, ListenAddressMustBeOne)
{
    log_capture log;
    folder.write("etc\\conf\\ms_config.json", R"({"listen": "everywhere", "port": 0})");
    EXPECT_EQ(ms_startup(), 0);
    EXPECT_EQ(log.count("cannot listen on everywhere port 0: not an address", 4), 1u);
}

TEST_F(MsSettingsTest, ServiceListensOnLoopbackUnlessToldOtherwise)
{
    start();
    raw_peer loopback(port);
    EXPECT_NE(link_of(loopback), nullptr);
    asio::io_context io;
    asio::ip::tcp::socket other(io);
    asio::error_code error;
    other.connect({asio::ip::make_address("127.0.0.2"), port}, error);
    EXPECT_EQ(error, asio::error::connection_refused);
}
