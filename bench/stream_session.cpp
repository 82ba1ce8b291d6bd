#include "bench/stream_session.h"

#include "bench/figure.h"
#include "platform/ms/ms.h"
#include "tests/support/raw_client.h"

#include <asio.hpp>

#include <cstring>

static constexpr uint16_t REQUEST_PLAYBACK = 0x8001;
static constexpr size_t BUFFER_BYTES = 256 << 10;
static constexpr size_t PLAY_TIMES_BYTES = 40; // the record before the file's name, all zero here

struct stream_socket {
    asio::io_context io;
    asio::ip::tcp::socket tcp{io};
    std::unique_ptr<uint8_t[]> bytes = std::make_unique<uint8_t[]>(BUFFER_BYTES);
    size_t filled = 0;
    uint32_t unacknowledged = 0;
};

stream_session::stream_session(uint16_t port) : socket_(std::make_unique<stream_socket>())
{
    asio::error_code failed;
    socket_->tcp.connect({asio::ip::address_v4::loopback(), port}, failed);
    bench_require(!failed, "cannot connect: " + failed.message());
    socket_->tcp.set_option(asio::ip::tcp::no_delay(true));
}

stream_session::~stream_session() = default;
stream_session::stream_session(stream_session &&) noexcept = default;

static void send_package(stream_socket &socket, const std::vector<uint8_t> &package)
{
    asio::error_code failed;
    asio::write(socket.tcp, asio::buffer(package), failed);
    bench_require(!failed, "cannot send: " + failed.message());
}

size_t stream_session::fill()
{
    stream_socket &socket = *socket_;
    asio::error_code failed;
    size_t got =
        socket.tcp.read_some(asio::buffer(socket.bytes.get() + socket.filled, BUFFER_BYTES - socket.filled), failed);
    bench_require(!failed, "the connection ended: " + failed.message());
    socket.filled += got;
    return got;
}

// Length of the package at `at`, 0 when it is not there whole yet.
static size_t whole_package(const stream_socket &socket, size_t at)
{
    int len = mp_frame_length(socket.bytes.get() + at, socket.filled - at);
    bench_require(len >= 0, "no package");
    return static_cast<size_t>(len) <= socket.filled - at ? static_cast<size_t>(len) : 0;
}

static void drop_front(stream_socket &socket, size_t count)
{
    std::memmove(socket.bytes.get(), socket.bytes.get() + count, socket.filled - count);
    socket.filled -= count;
}

void stream_session::open(const std::string &path)
{
    std::vector<uint8_t> param(PLAY_TIMES_BYTES);
    send_package(*socket_, raw_request(REQUEST_PLAYBACK, 1, raw_join({param, raw_text(path)})));
    size_t len = 0;
    while ((len = whole_package(*socket_, 0)) == 0)
        fill();
    MpPackage answer = {};
    bench_require(mp_parse_package(socket_->bytes.get(), len, &answer) != 0 && answer.head->code == MP_CODE_ACCEPT_RES,
                  "refused to play " + path);
    drop_front(*socket_, len);
}

void stream_session::start()
{
    send_package(*socket_, raw_get());
}

void stream_session::acknowledge()
{
    socket_->unacknowledged = 0;
    send_package(*socket_, raw_get());
}

stream_count stream_session::receive(uint64_t packages, double seconds, uint32_t acknowledge_every)
{
    constexpr size_t empty_data = sizeof(MpPackHead) + sizeof(MpAttrHead); // says that the recording has ended
    stream_count count;
    stopwatch watch;
    while (count.packages < packages && !count.ended && watch.seconds() < seconds) {
        size_t at = 0;
        const uint64_t before = count.packages;
        for (size_t len; !count.ended && count.packages < packages && (len = whole_package(*socket_, at)) != 0;
             at += len) {
            count.ended = len == empty_data;
            count.packages += count.ended ? 0 : 1;
            count.bytes += len;
            if (++socket_->unacknowledged == acknowledge_every)
                acknowledge();
        }
        if (count.packages != before)
            count.last_seconds = watch.seconds();
        if (before == 0)
            count.first_seconds = count.last_seconds;
        drop_front(*socket_, at);
        if (at == 0)
            fill();
    }
    return count;
}
