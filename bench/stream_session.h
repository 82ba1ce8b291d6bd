// A client that plays a recording and throws away what it gets: the same for the service and for the peer.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

struct stream_count {
    uint64_t packages = 0, bytes = 0; // of data packages, heads included
    bool ended = false;
    double first_seconds = 0, last_seconds = 0; // when the first and the last of them came
};

struct stream_socket;

class stream_session {
public:
    explicit stream_session(uint16_t port);
    ~stream_session();
    stream_session(stream_session &&) noexcept;
    // Asks for a recording and waits until it is open over there.
    void open(const std::string &path);
    // Lets the data flow.
    void start();
    // Takes data until the recording has ended, `packages` have come or `seconds` have passed (looked at with each
    // package). Acknowledges every `acknowledge_every` packages, 0 never.
    stream_count receive(uint64_t packages, double seconds, uint32_t acknowledge_every);

private:
    void acknowledge();
    size_t fill();
    std::unique_ptr<stream_socket> socket_;
};

constexpr uint64_t ALL_PACKAGES = UINT64_MAX;
constexpr double ANY_TIME = 1e9;
constexpr uint32_t ACKNOWLEDGE_EVERY = 250;
