#include "tools/vodctl/values.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

TEST(ServerValueTest, HostAndPort)
{
    struct row {
        const char *text, *host;
        uint16_t port;
    };
    for (const row &of : {row{"localhost", "localhost", 7131}, row{"recorder:80", "recorder", 80},
                          row{"10.0.0.1:65535", "10.0.0.1", 65535}, row{"[::1]:7132", "::1", 7132},
                          row{"[::1]", "::1", 7131}, row{"::1", "::1", 7131}, row{"fe80::1:2", "fe80::1:2", 7131}}) {
        vodclient_server server;
        ASSERT_TRUE(server_parse(of.text, &server)) << of.text;
        EXPECT_EQ(server.host, of.host) << of.text;
        EXPECT_EQ(server.port, of.port) << of.text;
    }
}

TEST(ServerValueTest, WhatIsNoServerIsRefused)
{
    for (const char *text : {"", ":", ":80", "host:", "host:0", "host:65536", "host:8x", "host:-1", "[", "[]", "[]:80",
                             "[::1", "[::1]80", "[::1]:", "[::1]:x"}) {
        vodclient_server server;
        EXPECT_FALSE(server_parse(text, &server)) << text;
        EXPECT_EQ(server.host, "127.0.0.1") << text;
    }
}

TEST(TimeValueTest, SecondsMinutesAndHours)
{
    struct row {
        const char *text;
        int64_t ms;
    };
    for (const row &of :
         {row{"0", 0}, row{"90", 90'000}, row{"2.5", 2'500}, row{"0.001", 1}, row{"1.25", 1'250}, row{"1:30", 90'000},
          row{"00:01:30", 90'000}, row{"01:00:00", 3'600'000}, row{"1:02:03.4", 3'723'400}, row{"100:00", 6'000'000},
          row{"999:59:59", 3'599'999'000}, row{"10000000", 10'000'000'000}}) {
        int64_t ms = -1;
        EXPECT_TRUE(time_ms_parse(of.text, &ms)) << of.text;
        EXPECT_EQ(ms, of.ms) << of.text;
    }
}

TEST(TimeValueTest, WhatIsNoTimeIsRefused)
{
    for (const char *text :
         {"",     "x",      "-1",      "+1",      "1.",         ".5", "1.2345", "1.x",      ":",    "1:",      ":1",
          "1:60", "1:2:60", "1:60:00", "1:2:3:4", "1000:00:00", " 1", "1 ",     "10000001", "1.-1", "60000:00"}) {
        int64_t ms = 77;
        EXPECT_FALSE(time_ms_parse(text, &ms)) << text;
        EXPECT_EQ(ms, 77) << text;
    }
}

TEST(TimeValueTest, AnyTimeOfTheDaySurvivesTheRoundTrip)
{
    EXPECT_TRUE(rc::check([] {
        int hour = *rc::gen::inRange(0, 24), minute = *rc::gen::inRange(0, 60), second = *rc::gen::inRange(0, 60);
        char text[16];
        std::snprintf(text, sizeof text, "%02d:%02d:%02d", hour, minute, second);
        int64_t ms = -1;
        RC_ASSERT(time_ms_parse(text, &ms));
        RC_ASSERT(ms == ((hour * 60 + minute) * 60 + second) * int64_t{1000});
    }));
}

TEST(TimeValueTest, AnyTextIsReadWithoutHarm)
{
    EXPECT_TRUE(rc::check([](const std::string &text) {
        int64_t ms = 0;
        if (time_ms_parse(text, &ms))
            RC_ASSERT(ms >= 0);
        vodclient_server server;
        if (server_parse(text, &server))
            RC_ASSERT(!server.host.empty() && server.port != 0);
    }));
}

TEST(FormatValueTest, NamesAndExtensions)
{
    play_format format = play_format::rec;
    EXPECT_TRUE(format_parse("mp4", &format));
    EXPECT_EQ(format, play_format::mp4);
    EXPECT_TRUE(format_parse("annexb", &format));
    EXPECT_EQ(format, play_format::annexb);
    EXPECT_TRUE(format_parse("rec", &format));
    EXPECT_EQ(format, play_format::rec);
    EXPECT_FALSE(format_parse("avi", &format));
    EXPECT_FALSE(format_parse("", &format));
}

TEST(FormatValueTest, TheOutputsExtensionDecides)
{
    struct row {
        const char *name;
        play_format format;
    };
    for (const row &of :
         {row{"a.mp4", play_format::mp4}, row{"A.MP4", play_format::mp4}, row{"a.m4v", play_format::mp4},
          row{"a.h264", play_format::annexb}, row{"a.265", play_format::annexb}, row{"a.hevc", play_format::annexb},
          row{"a.rec", play_format::rec}, row{"-", play_format::rec}, row{"mp4", play_format::rec},
          row{"dir.mp4/a", play_format::rec}, row{"a.", play_format::rec}, row{"", play_format::rec}})
        EXPECT_EQ(format_of_name(of.name), of.format) << of.name;
}
