#include "tests/vod/vod_fixture.h"

#include <cstring>
#include <stdexcept>

MpPackage *client_package::get()
{
    if (exact_ != nullptr)
        return &parsed_;
    std::vector<uint8_t> bytes(MP_MAX_PACKAGE_LEN);
    mp_build_package(bytes.data(), MP_MAX_PACKAGE_LEN, code_, 131, CLIENT_MODULE, reserved2_, &parsed_);
    for (const auto &[type, value] : attributes_)
        if (!mp_add_attr_value(&parsed_, type, value.data(), static_cast<uint32_t>(value.size())))
            throw std::runtime_error("the attribute does not fit");
    mp_commit_package(&parsed_);
    size_t length = parsed_.head->total_len;
    exact_.reset(new uint8_t[length]);
    std::memcpy(exact_.get(), bytes.data(), length);
    if (!mp_parse_package(exact_.get(), length, &parsed_))
        throw std::runtime_error("the test's package does not parse");
    return &parsed_;
}

std::string u16(uint16_t value)
{
    return {static_cast<char>(value & 255), static_cast<char>(value >> 8)};
}

std::string u32(uint32_t value)
{
    return u16(static_cast<uint16_t>(value)) + u16(static_cast<uint16_t>(value >> 16));
}

static std::string time_bytes(const CommTime &time)
{
    return u16(time.year) + u16(time.month) + u16(time.day) + u16(time.hour) + u16(time.minute) + u16(time.second);
}

std::string hardplay_info(const hardplay_wish &wish)
{
    return u16(wish.kind) + u16(wish.channel) + time_bytes(wish.start) + time_bytes(wish.end) + u32(0) + u32(0) +
           u32(wish.start_cluster) + u16(wish.file_type) + u16(wish.mode) + wish.filename + '\0';
}

static client_package with_ids(client_package package)
{
    for (char id : {'0', '1', '2', '3'})
        package.attr(MP_ATTR_DEVICE_ID, std::string(MP_MAX_DEVID_LEN, id));
    return package;
}

client_package hardplay_package(const hardplay_wish &wish)
{
    return with_ids(client_package(MP_CODE_REQUEST_RES))
        .attr(MP_ATTR_SESSION_ID, u32(9))
        .attr(MP_ATTR_RES_INFO, hardplay_info(wish))
        .attr(MP_ATTR_INSERT_ABSTIME, u32(static_cast<uint32_t>(wish.insert_abstime)))
        .attr(MP_ATTR_DATA, wish.data);
}

client_package res_package(uint16_t kind, const std::string &res_param)
{
    return with_ids(client_package(MP_CODE_REQUEST_RES))
        .attr(MP_ATTR_SESSION_ID, u32(9))
        .attr(MP_ATTR_RES_INFO, u16(kind) + u16(0) + res_param + '\0');
}

client_package get_package()
{
    return client_package(MP_CODE_GET_RES).attr(MP_ATTR_SESSION_ID, u32(9));
}

client_package ack_package(uint32_t held)
{
    return client_package(MP_CODE_GET_RES).attr(MP_ATTR_SESSION_ID, u32(held));
}

client_package command_package(const std::string &xml, uint16_t reserved2, uint32_t session)
{
    return with_ids(client_package(MP_CODE_SEND_CMD_CHS, reserved2))
        .attr(MP_ATTR_ERROR, u32(0))
        .attr(MP_ATTR_CMD_INFO, u32(0) + u32(1) + u32(0) + u32(static_cast<uint32_t>(xml.size() + 1)))
        .attr(MP_ATTR_SESSION_ID, u32(session))
        .attr(MP_ATTR_DATA, xml + '\0');
}

std::string control_xml(int code, int value)
{
    return "<command name=\"playback_control\"><control_code>" + std::to_string(code) + "</control_code><value>" +
           std::to_string(value) + "</value></command>";
}

VodTest::VodTest()
{
    fake_facade_reset();
    s_fake_ms = {};
    s_fake_vca = {};
    if (!vodlinks_lock_init())
        throw std::runtime_error("no lock");
    vodlinks_clear();
    vodlinks_set_max_num(128);
    download_set_max_num(50);
    playback_set_sleep_interval(0);
    analysis_set_started(false);
    vod_player_set_usr_abstime_func(vodlink_cookie_insert_abstime);
    log.clear();
}

VodTest::~VodTest()
{
    vodlinks_clear();
}

uint32_t VodTest::count(VOD_LINK_TYPE position)
{
    vodlinks_guard held;
    return vodlinks_count(held, position);
}

VodLink *VodTest::start_playback(MsLink &mslink, const hardplay_wish &wish)
{
    read(mslink, hardplay_package(wish));
    VodLink *link = link_of(mslink);
    if (link == nullptr)
        return nullptr;
    deliver_head(link);
    read(mslink, get_package());
    return link;
}

void VodTest::deliver(VodLink *link, int type, const std::string &data, handle_orb playerfd)
{
    std::string copy = data;
    on_recv_hardplay(playerfd, type, copy.data(), static_cast<int>(copy.size()), vodlink_cookie(link));
}

size_t VodTest::taken_slots()
{
    size_t taken = 0;
    for (const VodLink &link : s_vodlinks)
        taken += link.index != -1;
    return taken;
}
