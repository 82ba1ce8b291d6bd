#include "client/outgoing.h"

#include "platform/os/os_guard.h"
#include "tests/support/raw_client.h"

#include <gtest/gtest.h>

#include <string>

static std::vector<uint8_t> bytes_of(const outgoing_package &out)
{
    auto begin = reinterpret_cast<const uint8_t *>(out.package.head);
    return {begin, begin + out.package.head->total_len};
}

TEST(OutgoingTest, ARequestHasItsAttributesWhereTheServiceReadsThem)
{
    outgoing_package out;
    std::vector<uint8_t> param{9, 8, 7}, data{1, 2};
    ASSERT_TRUE(build_request(&out, REQUEST_PLAYBACK, 5, param, 1, data));
    EXPECT_EQ(bytes_of(out), raw_request(0x8001, 5, param, data, 1));
}

TEST(OutgoingTest, ACommandIsZeroTerminatedAndAsksForAReply)
{
    outgoing_package out;
    ASSERT_TRUE(build_command(&out, 77, "<command name=\"x\"/>"));
    EXPECT_EQ(bytes_of(out), raw_command(77, "<command name=\"x\"/>"));
    EXPECT_EQ(out.package.head->reserved2, 1);
}

TEST(OutgoingTest, AGetCarriesTheHeldPackagesAsSessionId)
{
    outgoing_package out;
    ASSERT_TRUE(build_get(&out, 321));
    EXPECT_EQ(bytes_of(out), raw_get(321));
    EXPECT_TRUE(mp_check_attr_session_id(out.package.attr[0]));
}

TEST(OutgoingTest, AStopIsAStop)
{
    outgoing_package out;
    ASSERT_TRUE(build_stop(&out));
    EXPECT_EQ(bytes_of(out), raw_stop());
}

TEST(OutgoingTest, WhatDoesNotFitIsRefused)
{
    outgoing_package out;
    EXPECT_FALSE(build_request(&out, REQUEST_PLAYBACK, 0, std::vector<uint8_t>(9000), 0, {}));
    EXPECT_FALSE(build_command(&out, 1, std::string(9000, 'x')));
    EXPECT_FALSE(build_request(&out, REQUEST_PLAYBACK, 0, std::vector<uint8_t>(70000), 0, {}));
}
