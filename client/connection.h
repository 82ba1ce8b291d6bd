// One connection to the service: sends packages, sorts what arrives, lets callers wait for it.
//
// Packages arrive on a thread of the message service, which only puts them into the queues below and never waits, so
// that other connections are not held up. A connection is found by a number that stands in its user data: an event that
// is under way when the connection is given up finds nothing, or keeps the record alive until it has returned.
#pragma once

#include "client/outgoing.h"
#include "client/reply_pieces.h"
#include "client/stream_queue.h"
#include "client/vodclient.h"
#include "platform/os/os_guard.h"

#include <deque>
#include <string>
#include <vector>

struct command_reply {
    bool readable = false;
    uint32_t session_id = 0;
    std::string text;
};

struct connection {
    connection();
    ~connection();
    connection(const connection &) = delete;
    connection &operator=(const connection &) = delete;

    LMutex mutex{};
    LCond changed{}; // signalled when anything below changes
    bool usable = false; // both could be made

    // All guarded by `mutex`.
    MsLink *link = nullptr;
    uintptr_t number = 0; // 0 before connecting
    bool over = false;
    vodclient_result over_result; // why
    std::vector<uint8_t> answer;  // the accept or reject package, empty until it came
    std::deque<command_reply> replies;
    reply_pieces pieces; // of the reply that is coming
    stream_queue stream;
    vodclient_server server; // written once, before the first event
};

struct connection_guard : os_lock_guard {
    explicit connection_guard(connection &of) : os_lock_guard(&of.mutex) {}
};

// Connects; once per record. The record must be owned by a shared_ptr, as events share it.
vodclient_result connection_open(const std::shared_ptr<connection> &self, const vodclient_server &server);
// Gives the connection up. Whoever waits is told; what has arrived can still be taken.
void connection_close(connection &self);
vodclient_result connection_send(connection &self, const outgoing_package &package);

// Waits until `ready(held)` answers true (VODCLIENT_OK), the connection is over (its reason) or the time runs out.
// `ready` is asked before the end is looked at, so that what came before the end is not lost.
template <class F>
vodclient_result connection_wait(connection &self, connection_guard &held, uint32_t timeout_ms, const F &ready)
{
    uint64_t deadline = os_tick() + timeout_ms;
    for (;;) {
        if (ready(held))
            return {};
        if (self.over)
            return self.over_result;
        uint64_t now = os_tick();
        if (now >= deadline)
            return {VODCLIENT_TIMEOUT, 0, "nothing came from the service in time"};
        os_cond_wait(&self.changed, &self.mutex, static_cast<uint32_t>(deadline - now));
    }
}

// Sends a request and waits for its answer: VODCLIENT_OK with the accept package in `accept`, VODCLIENT_REFUSED with
// the reject's code.
vodclient_result connection_request(connection &self, const outgoing_package &request, std::vector<uint8_t> *accept);
// Sends a command and waits for the reply that carries its session id.
vodclient_result connection_command(connection &self, uint32_t session_id, std::string_view xml, std::string *reply);

vodclient_result bad_reply(const char *what);
// "127.0.0.1:7131"
std::string server_name(const vodclient_server &server);
