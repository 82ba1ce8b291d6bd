#include "tests/ms/ms_fixture.h"

#include <asio/read.hpp>
#include <asio/write.hpp>

#include <algorithm>
#include <thread>

event_record g_service_events, g_client_events;

void event_record::add(MsLink *link, int event, MpPackage *package)
{
    std::function<void(MsLink *, int, MpPackage *)> hook;
    {
        std::lock_guard held(mutex_);
        hook = hook_;
    }
    seen_event seen = {link, event, mslink_get_udata(link), {}};
    if (package != nullptr) {
        auto bytes = reinterpret_cast<const uint8_t *>(package->head);
        seen.bytes.assign(bytes, bytes + package->head->total_len);
    }
    if (hook)
        hook(link, event, package);
    std::lock_guard held(mutex_);
    events_.push_back(std::move(seen));
    changed_.notify_all();
}

std::vector<seen_event> event_record::events() const
{
    std::lock_guard held(mutex_);
    return events_;
}

size_t event_record::count(int event) const
{
    std::lock_guard held(mutex_);
    return static_cast<size_t>(std::ranges::count(events_, event, &seen_event::event));
}

size_t event_record::count(MsLink *link, int event) const
{
    std::lock_guard held(mutex_);
    return static_cast<size_t>(std::ranges::count_if(
        events_, [=](const seen_event &seen) { return seen.link == link && seen.event == event; }));
}

bool event_record::wait_count(int event, size_t wanted)
{
    std::unique_lock held(mutex_);
    return changed_.wait_for(held, LIVENESS_LIMIT, [&] {
        return static_cast<size_t>(std::ranges::count(events_, event, &seen_event::event)) >= wanted;
    });
}

bool event_record::wait(const std::function<bool()> &condition)
{
    auto deadline = std::chrono::steady_clock::now() + LIVENESS_LIMIT;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

void event_record::reset(std::function<void(MsLink *, int, MpPackage *)> new_hook)
{
    std::lock_guard held(mutex_);
    events_.clear();
    hook_ = std::move(new_hook);
}

void on_service_event(MsLink *link, int event, MpPackage *package)
{
    g_service_events.add(link, event, package);
}

void on_client_event(MsLink *link, int event, MpPackage *package)
{
    g_client_events.add(link, event, package);
}

raw_peer::raw_peer()
{
    socket_.open(asio::ip::tcp::v4());
}

raw_peer::raw_peer(uint16_t port, const std::string &local_address) : raw_peer()
{
    connect(port, local_address);
}

void raw_peer::connect(uint16_t port, const std::string &local_address)
{
    socket_.bind({asio::ip::make_address(local_address), 0});
    socket_.connect({asio::ip::make_address("127.0.0.1"), port});
}

void raw_peer::send(const byte_vector &bytes)
{
    asio::write(socket_, asio::buffer(bytes));
}

byte_vector raw_peer::receive(size_t count)
{
    byte_vector bytes(count);
    asio::error_code error;
    bytes.resize(asio::read(socket_, asio::buffer(bytes), error));
    return bytes;
}

bool raw_peer::sees_end()
{
    byte_vector bytes(65536);
    asio::error_code error;
    while (!error)
        socket_.read_some(asio::buffer(bytes), error);
    return error == asio::error::eof || error == asio::error::connection_reset;
}

void raw_peer::close()
{
    socket_.close();
}

void raw_peer::reset_connection()
{
    socket_.set_option(asio::socket_base::linger(true, 0));
    socket_.close();
}

byte_vector make_package(uint8_t code, uint16_t module_des, const byte_vector &data)
{
    byte_vector bytes(MP_MAX_PACKAGE_LEN);
    MpPackage package;
    bool built = mp_build_package(bytes.data(), MP_MAX_PACKAGE_LEN, code, module_des, CLIENT_MODULE, 0, &package) &&
                 (data.empty() || mp_add_attr_value(&package, MP_ATTR_DATA, data.data(),
                                                    static_cast<uint32_t>(data.size())) != nullptr) &&
                 mp_commit_package(&package);
    EXPECT_TRUE(built);
    bytes.resize(package.used);
    return bytes;
}

void MsServiceTest::TearDown()
{
    ms_cleanup();
    g_service_events.reset();
    g_client_events.reset();
}

void MsServiceTest::start(const std::string &settings)
{
    folder.write("etc\\conf\\ms_config.json", "{\"port\": 0" + (settings.empty() ? "" : ", " + settings) + "}");
    ASSERT_EQ(ms_startup(), 1);
    ASSERT_EQ(ms_bind_client_event(TEST_MODULE, on_service_event), 1);
    port = ms_listen_port();
    ASSERT_NE(port, 0);
}

ms_statistics MsServiceTest::statistics()
{
    ms_statistics now = {};
    ms_get_statistics(&now);
    return now;
}

bool MsServiceTest::eventually(const std::function<bool()> &condition)
{
    return g_service_events.wait(condition);
}

MsLink *MsServiceTest::connect(void *udata)
{
    MsLink *link = ms_connect("127.0.0.1", ms_listen_port(), 5000, on_client_event, udata);
    EXPECT_NE(link, nullptr) << ms_connect_error();
    return link;
}

MsLink *MsServiceTest::link_of(raw_peer &peer)
{
    size_t before = g_service_events.count(MS_CLIENT_EV_READ);
    peer.send(make_package(MP_CODE_ACK_RES, TEST_MODULE));
    EXPECT_TRUE(g_service_events.wait_count(MS_CLIENT_EV_READ, before + 1));
    // Ends of earlier connections may have come in between.
    auto events = g_service_events.events();
    auto last = std::ranges::find(events.rbegin(), events.rend(), int{MS_CLIENT_EV_READ}, &seen_event::event);
    return last == events.rend() ? nullptr : last->link;
}
