#include "tests/client/fake_service.h"

#include "platform/os/os_guard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

using namespace std::chrono_literals;

static constexpr auto LIVELINESS_LIMIT = 5s;

static fake_service *s_fake; // set while one lives

uint32_t seen_package::u32(size_t position) const
{
    return position < attrs.size() && attrs[position].value.size() >= 4
               ? wire_load<uint32_t>(attrs[position].value.data())
               : 0;
}

uint16_t seen_package::u16(size_t position, size_t offset) const
{
    bool there = position < attrs.size() && attrs[position].value.size() >= offset + 2;
    return there ? wire_load<uint16_t>(attrs[position].value.data() + offset) : uint16_t{0};
}

std::string seen_package::text(size_t position) const
{
    if (position >= attrs.size())
        return {};
    const std::vector<uint8_t> &value = attrs[position].value;
    return {value.begin(), std::find(value.begin(), value.end(), uint8_t{0})};
}

std::string seen_package::xml_value(const std::string &name) const
{
    std::string xml = text(7), open = "<" + name + ">";
    size_t from = xml.find(open), to = xml.find("</" + name + ">");
    return from == std::string::npos || to == std::string::npos
               ? ""
               : xml.substr(from + open.size(), to - from - open.size());
}

static seen_package copy_of(const MpPackage &package)
{
    seen_package seen;
    seen.code = package.head->code;
    seen.head = *package.head;
    for (uint32_t i = 0; i < package.size; i++) {
        uint32_t len = 0;
        const uint8_t *value = mp_attr_value(&package, i, 0, &len);
        seen.attrs.push_back({package.attr[i]->type, package.attr[i]->reserved, {value, value + len}});
    }
    return seen;
}

fake_service::fake_service()
{
    folder_.write("etc\\conf\\ms_config.json", "{\"port\": 0}");
    s_fake = this;
    EXPECT_EQ(ms_startup(), 1);
    EXPECT_EQ(ms_bind_client_event(131, on_event), 1);
}

fake_service::~fake_service()
{
    ms_cleanup();
    s_fake = nullptr;
}

vodclient_server fake_service::server(uint32_t timeout_ms) const
{
    return {"127.0.0.1", ms_listen_port(), timeout_ms};
}

void fake_service::on(uint8_t code, handler action)
{
    std::lock_guard held(mutex_);
    handlers_[code] = std::move(action);
}

void fake_service::on_event(MsLink *link, int event, MpPackage *package)
{
    if (event == MS_CLIENT_EV_READ)
        return s_fake->take(link, copy_of(*package));
    std::lock_guard held(s_fake->mutex_);
    s_fake->disconnects_ += event == MS_CLIENT_EV_DISCONNECT ? 1 : 0;
    s_fake->changed_.notify_all();
}

void fake_service::take(MsLink *link, const seen_package &package)
{
    handler action;
    {
        std::lock_guard held(mutex_);
        seen_.push_back(package);
        last_link_ = link;
        if (auto found = handlers_.find(package.code); found != handlers_.end())
            action = found->second;
        changed_.notify_all();
    }
    if (action)
        action(*this, link, package);
}

static size_t count_of(const std::vector<seen_package> &packages, uint8_t code)
{
    return static_cast<size_t>(std::ranges::count(packages, code, &seen_package::code));
}

std::vector<seen_package> fake_service::seen(uint8_t code) const
{
    std::lock_guard held(mutex_);
    std::vector<seen_package> found;
    std::ranges::copy_if(seen_, std::back_inserter(found), [&](const seen_package &of) { return of.code == code; });
    return found;
}

bool fake_service::wait_for(uint8_t code, size_t count) const
{
    std::unique_lock held(mutex_);
    return changed_.wait_for(held, LIVELINESS_LIMIT, [&] { return count_of(seen_, code) >= count; });
}

bool fake_service::wait_for_disconnect() const
{
    std::unique_lock held(mutex_);
    return changed_.wait_for(held, LIVELINESS_LIMIT, [&] { return disconnects_ > 0; });
}

MsLink *fake_service::last_link() const
{
    std::lock_guard held(mutex_);
    return last_link_;
}

static bool send_patiently(MsLink *link, const MpPackage &package)
{
    while (!ms_send_package(link, &package)) {
        if (os_get_errno() != ORB_ERROR_TRY_AGAIN)
            return false;
        ms_wait_sendable(link, 100);
    }
    return true;
}

void fake_service::accept(MsLink *link, const std::vector<uint8_t> &data)
{
    std::vector<uint8_t> buffer(MP_MAX_PACKAGE_LEN);
    MpPackage package{};
    ASSERT_EQ(mp_build_package_accept_res(buffer.data(), MP_MAX_PACKAGE_LEN, 200, 131, data.data(),
                                          static_cast<uint32_t>(data.size()), &package), 1);
    send_patiently(link, package);
}

void fake_service::accept_playback(MsLink *link, const std::vector<uint8_t> &head, uint64_t total_size)
{
    std::vector<uint8_t> buffer(MP_MAX_PACKAGE_LEN), data{3, 0, 0, 0};
    data.insert(data.end(), head.begin(), head.end());
    MpPackage package{};
    ASSERT_EQ(mp_build_package_accept_res(buffer.data(), MP_MAX_PACKAGE_LEN, 200, 131, data.data(),
                                          static_cast<uint32_t>(data.size()), &package), 1);
    uint8_t totals[16] = {}, size[8];
    wire_store<uint32_t>(totals, 100);
    wire_store<uint32_t>(totals + 4, 4);
    wire_store<uint32_t>(totals + 8, 1'700'000'000);
    wire_store(size, total_size);
    ASSERT_NE(mp_add_attr_value(&package, MP_ATTR_HARDPLAY_INFO, totals, sizeof totals), nullptr);
    ASSERT_NE(mp_add_attr_value(&package, MP_ATTR_DATA, size, sizeof size), nullptr);
    ASSERT_EQ(mp_commit_package(&package), 1);
    send_patiently(link, package);
}

void fake_service::reject(MsLink *link, uint32_t code)
{
    uint8_t buffer[256];
    MpPackage package{};
    ASSERT_EQ(mp_build_package_reject_res(buffer, sizeof buffer, code, "fake", &package), 1);
    send_patiently(link, package);
}

bool fake_service::data(MsLink *link, const std::vector<uint8_t> &bytes, uint8_t mark)
{
    std::vector<uint8_t> buffer(bytes.size() + 64);
    MpPackage package{};
    if (!mp_build_package_send_res(buffer.data(), static_cast<uint32_t>(buffer.size()), 200, 131, bytes.data(),
                                   static_cast<uint32_t>(bytes.size()), &package))
        return false;
    package.attr[0]->reserved = mark;
    return send_patiently(link, package);
}

struct text_piece {
    size_t pieces, piece, total_len;
    const char *data;
    size_t data_len;
};

static void send_piece(MsLink *link, const seen_package &command, const text_piece &of)
{
    std::vector<uint8_t> buffer(of.data_len + 1024);
    auto id = [&](size_t position) { return command.attrs.at(position).value.data(); };
    auto u32 = [](size_t value) { return static_cast<uint32_t>(value); };
    MpPackage package{};
    ASSERT_EQ(mp_build_package_ret_cmd_chs(buffer.data(), u32(buffer.size()), 0, command.head.module_src,
                                           command.head.module_des, id(3), id(2), id(1), id(0), command.u32(6),
                                           u32(of.pieces), u32(of.piece), u32(of.total_len), 0, of.data,
                                           u32(of.data_len), &package),
              1);
    send_patiently(link, package);
}

void fake_service::reply(MsLink *link, const seen_package &command, const std::string &text)
{
    send_piece(link, command, {1, 0, text.size() + 1, text.c_str(), text.size() + 1});
}

void fake_service::reply_in_pieces(MsLink *link, const seen_package &command, const std::string &text,
                                   size_t piece_bytes, int skipped)
{
    size_t pieces = (text.size() + piece_bytes - 1) / piece_bytes;
    for (size_t piece = 0; piece < pieces; piece++) {
        size_t begin = piece * piece_bytes;
        size_t length = piece + 1 == pieces ? text.size() - begin + 1 : piece_bytes;
        if (static_cast<int>(piece) != skipped)
            send_piece(link, command, {pieces, piece, text.size() + 1, text.c_str() + begin, length});
    }
}

void fake_service::reply_control(MsLink *link, const seen_package &command, const char *result, int value)
{
    reply(link, command,
          std::string("<?xml version=\"1.0\"?>\n<command_return name=\"playback_control\" result=\"") + result
              + "\">\n\t<value>" + std::to_string(value) + "</value>\n</command_return>");
}

void fake_service::send(MsLink *link, const std::vector<uint8_t> &package)
{
    std::vector<uint8_t> bytes = package;
    MpPackage parsed{};
    ASSERT_EQ(mp_parse_package(bytes.data(), bytes.size(), &parsed), 1);
    send_patiently(link, parsed);
}
