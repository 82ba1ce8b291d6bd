// A running service on a free port, with everything that its handlers see on record, and peers to talk to it.
#pragma once

#include "platform/ms/ms.h"
#include "tests/support/temp_folder.h"

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

using byte_vector = std::vector<uint8_t>;

constexpr uint16_t TEST_MODULE = 131;
constexpr uint16_t CLIENT_MODULE = 7;
// Only to end a test that has failed already.
constexpr auto LIVENESS_LIMIT = std::chrono::seconds(20);

struct seen_event {
    MsLink *link;
    int event;
    void *udata;       // at the time of the event
    byte_vector bytes; // of the package
};

// What one handler has seen, in order. `hook` runs inside the handler, before the event is on record.
class event_record {
public:
    void add(MsLink *link, int event, MpPackage *package);
    std::vector<seen_event> events() const;
    size_t count(int event) const;
    size_t count(MsLink *link, int event) const;
    // False when it does not become true within the liveness limit.
    bool wait_count(int event, size_t wanted);
    bool wait(const std::function<bool()> &condition);
    void reset(std::function<void(MsLink *, int, MpPackage *)> new_hook = {});

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<seen_event> events_;
    std::function<void(MsLink *, int, MpPackage *)> hook_;
};

extern event_record g_service_events, g_client_events;
void on_service_event(MsLink *link, int event, MpPackage *package);
void on_client_event(MsLink *link, int event, MpPackage *package);

// A peer that is no good citizen: a bare socket.
class raw_peer {
public:
    explicit raw_peer(uint16_t port, const std::string &local_address = "127.0.0.1");
    // Opened but not connected yet.
    raw_peer();
    void connect(uint16_t port, const std::string &local_address = "127.0.0.1");
    void send(const byte_vector &bytes);
    // Reads exactly so many bytes; fewer when the connection ends first.
    byte_vector receive(size_t count);
    // True when the other side has closed; waits for it.
    bool sees_end();
    void close();
    void reset_connection();
    uint16_t local_port() const { return socket_.local_endpoint().port(); }

private:
    asio::io_context io_;
    asio::ip::tcp::socket socket_{io_};
};

byte_vector make_package(uint8_t code, uint16_t module_des, const byte_vector &data = {});

class MsServiceTest : public testing::Test {
protected:
    void TearDown() override;
    // Starts with these settings, given as the inside of a JSON object; the port is a free one.
    void start(const std::string &settings = "");
    static ms_statistics statistics();
    static bool eventually(const std::function<bool()> &condition);
    // A connection of the client side of the library.
    static MsLink *connect(void *udata = nullptr);
    // A raw peer that has sent one package; `link` is what the service's handler saw.
    static MsLink *link_of(raw_peer &peer);

    temp_folder folder{temp_folder::working_directory::enter};
    uint16_t port = 0;
};
