// What tests of the service core share: the real link table, sessions and dispatch over a fake facade and message
// service, and builders of the packages that clients send.
#pragma once

#include "tests/support/log_capture.h"
#include "tests/vod/fake_facade.h"
#include "tests/vod/fake_ms.h"
#include "tests/vod/fake_vca.h"

#include "vod/download_session.h"
#include "vod/hardplay_request.h"
#include "vod/link_table.h"
#include "vod/playback_session.h"
#include "vod/vod_event.h"
#include "vod_player/usr_abstime.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

constexpr uint8_t CLIENT_MODULE = 200;

// A package as it arrives, in memory of exactly its size, so that a sanitizer sees every step past its end.
class client_package {
public:
    explicit client_package(uint8_t code, uint16_t reserved2 = 0) : code_(code), reserved2_(reserved2) {}
    client_package &attr(uint8_t type, const std::string &value)
    {
        attributes_.emplace_back(type, value);
        exact_.reset();
        return *this;
    }
    // Built by the first call, so that later ones cannot fail.
    MpPackage *get();

private:
    uint8_t code_;
    uint16_t reserved2_;
    std::vector<std::pair<uint8_t, std::string>> attributes_;
    std::shared_ptr<uint8_t[]> exact_;
    MpPackage parsed_ = {};
};

struct hardplay_wish {
    uint16_t kind = 0x8001, channel = 3, file_type = 0, mode = 0;
    CommTime start = {2026, 1, 2, 3, 4, 5}, end = {2026, 1, 2, 3, 5, 5};
    uint32_t start_cluster = 0;
    std::string filename = "D:\\rec\\host_01_0_20260102030405_0.rec";
    std::string data; // attribute 7
    int32_t insert_abstime = 0;
};

std::string u16(uint16_t value);
std::string u32(uint32_t value);
std::string hardplay_info(const hardplay_wish &wish);
// Positions 0 to 7 of a request.
client_package hardplay_package(const hardplay_wish &wish);
client_package res_package(uint16_t kind, const std::string &res_param);
client_package get_package();
client_package ack_package(uint32_t held);
client_package command_package(const std::string &xml, uint16_t reserved2 = 1, uint32_t session = 9);
std::string control_xml(int code, int value);

class VodTest : public testing::Test {
protected:
    VodTest();
    ~VodTest() override;
    // Delivers an event as the message service would.
    void read(MsLink &mslink, client_package package)
    {
        on_vod_module_event(&mslink, MS_CLIENT_EV_READ, package.get());
    }
    void disconnect(MsLink &mslink)
    {
        on_vod_module_event(&mslink, MS_CLIENT_EV_DISCONNECT, nullptr);
        mslink.udata = nullptr;
    }
    static VodLink *link_of(MsLink &mslink) { return static_cast<VodLink *>(mslink.udata.load()); }
    static uint32_t count(VOD_LINK_TYPE position);
    // A playback that was accepted and got: its data flows.
    VodLink *start_playback(MsLink &mslink, const hardplay_wish &wish = {});
    // The player's callback for a link.
    void deliver(VodLink *link, int type, const std::string &data = "", handle_orb playerfd = 77);
    void deliver_head(VodLink *link) { deliver(link, VIDEO_DATA_TYPE_FILEHEAD, std::string(88, 'H')); }
    static size_t taken_slots();

    log_capture log;
};

struct VodEventTest : VodTest {
    MsLink mslink;
};

struct LinkTableTest : VodTest {
    VodLink *take(int32_t type, VOD_LINK_TYPE counter)
    {
        VodLink *link = vodlink_create();
        vodlinks_guard held;
        link->type = type;
        vodlinks_count_up(held, counter);
        return link;
    }
    VodLink *take_active(int32_t type, VOD_LINK_TYPE counter, handle_orb handle)
    {
        VodLink *link = take(type, counter);
        vodlinks_guard held;
        link->p_data.play_d.play_id = handle;
        vodlinks_count_up(held, VOD_LINK_ACTTVE_NUM);
        return link;
    }
};

struct PlaybackRequestTest : VodTest {
    MsLink mslink;
    static hardplay_wish by_time(uint16_t mode = 0)
    {
        hardplay_wish wish;
        wish.filename.clear();
        wish.data = "DEVICE-7" + std::string(52, '\0');
        wish.mode = mode;
        return wish;
    }
    void expect_rejected(uint32_t code)
    {
        EXPECT_EQ(mslink.last().code(), MP_CODE_REJECT_RES);
        EXPECT_EQ(mslink.last().attr(0), u32(code));
    }
    void expect_nothing_left()
    {
        EXPECT_EQ(taken_slots(), 0u);
        EXPECT_EQ(count(VOD_LINK_PLAY_NUM), 0u);
        EXPECT_EQ(count(VOD_LINK_ACTTVE_NUM), 0u);
    }
};

struct PlaybackDataTest : VodTest {
    MsLink mslink;
    // Waits, for at most a generous while, for what another thread does.
    static bool soon(const std::function<bool()> &happened)
    {
        for (int i = 0; i < 4000 && !happened(); i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return happened();
    }
    static bool stays_false(const std::function<bool()> &happened)
    {
        for (int i = 0; i < 10; i++) {
            if (happened())
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }
};
