#include "tests/support/raw_client.h"

#include "platform/ms/ms.h"
#include "platform/os/os_guard.h"

#include <asio.hpp>

#include <chrono>

struct raw_client_socket {
    asio::io_context io;
    asio::ip::tcp::socket tcp{io};
};

// ---- Packages -------------------------------------------------------------------------------------------------------

std::vector<uint8_t> raw_u16(uint16_t value)
{
    std::vector<uint8_t> bytes(sizeof value);
    wire_store(bytes.data(), value);
    return bytes;
}

std::vector<uint8_t> raw_u32(uint32_t value)
{
    std::vector<uint8_t> bytes(sizeof value);
    wire_store(bytes.data(), value);
    return bytes;
}

std::vector<uint8_t> raw_text(const std::string &text)
{
    std::vector<uint8_t> bytes(text.begin(), text.end());
    bytes.push_back(0);
    return bytes;
}

std::vector<uint8_t> raw_join(std::initializer_list<std::vector<uint8_t>> parts)
{
    std::vector<uint8_t> all;
    for (const std::vector<uint8_t> &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

std::vector<uint8_t> raw_package(uint8_t code, const std::vector<raw_attr> &attrs, uint16_t reserved2)
{
    std::vector<uint8_t> body;
    for (const raw_attr &attr : attrs)
        body = raw_join(
            {body, {attr.type, attr.reserved}, raw_u16(static_cast<uint16_t>(attr.value.size() + 4)), attr.value});
    return raw_join({raw_u32(MP_HEAD_FLAG), {0, code}, raw_u16(reserved2), {131, 200},
                     raw_u16(static_cast<uint16_t>(body.size() + sizeof(MpPackHead))), body});
}

static std::vector<raw_attr> device_ids()
{
    return std::vector<raw_attr>(4, raw_attr{MP_ATTR_DEVICE_ID, std::vector<uint8_t>(MP_MAX_DEVID_LEN)});
}

std::vector<raw_attr> raw_request_attrs(uint16_t kind, uint16_t number, const std::vector<uint8_t> &param,
                                        const std::vector<uint8_t> &data, int32_t insert_abstime)
{
    std::vector<raw_attr> attrs = device_ids();
    attrs.push_back({MP_ATTR_SESSION_ID, raw_u32(0)});
    attrs.push_back({MP_ATTR_RES_INFO, raw_join({raw_u16(kind), raw_u16(number), param})});
    attrs.push_back({MP_ATTR_INSERT_ABSTIME, raw_u32(static_cast<uint32_t>(insert_abstime))});
    attrs.push_back({MP_ATTR_DATA, data});
    return attrs;
}

std::vector<uint8_t> raw_request(uint16_t kind, uint16_t number, const std::vector<uint8_t> &param,
                                 const std::vector<uint8_t> &data, int32_t insert_abstime)
{
    return raw_package(MP_CODE_REQUEST_RES, raw_request_attrs(kind, number, param, data, insert_abstime));
}

std::vector<uint8_t> raw_command(uint32_t session_id, const std::string &xml, uint16_t reserved2)
{
    std::vector<raw_attr> attrs = device_ids();
    attrs.push_back({MP_ATTR_ERROR, raw_u32(0)});
    attrs.push_back({MP_ATTR_CMD_INFO,
                     raw_join({raw_u32(0), raw_u32(1), raw_u32(0), raw_u32(static_cast<uint32_t>(xml.size() + 1))})});
    attrs.push_back({MP_ATTR_SESSION_ID, raw_u32(session_id)});
    attrs.push_back({MP_ATTR_DATA, raw_text(xml)});
    return raw_package(MP_CODE_SEND_CMD_CHS, attrs, reserved2);
}

std::vector<uint8_t> raw_get(uint32_t held_packages)
{
    return raw_package(MP_CODE_GET_RES, {{MP_ATTR_SESSION_ID, raw_u32(held_packages)}});
}

std::vector<uint8_t> raw_stop()
{
    return raw_package(MP_CODE_STOP_RES, {{MP_ATTR_SESSION_ID, raw_u32(0)}});
}

// ---- The connection -------------------------------------------------------------------------------------------------

raw_client::raw_client() : socket_(std::make_unique<raw_client_socket>())
{
}

raw_client::~raw_client() = default;

bool raw_client::connect(uint16_t port, const std::string &own_address)
{
    asio::error_code error;
    socket_->tcp.open(asio::ip::tcp::v4(), error);
    socket_->tcp.bind({asio::ip::make_address(own_address), 0}, error);
    if (error)
        return false;
    socket_->tcp.connect({asio::ip::address_v4::loopback(), port}, error);
    if (error)
        return false;
    // A command behind one that is not answered does not wait for the host to acknowledge that one.
    socket_->tcp.set_option(asio::ip::tcp::no_delay(true), error);
    return true;
}

bool raw_client::send(std::span<const uint8_t> bytes)
{
    asio::error_code error;
    asio::write(socket_->tcp, asio::buffer(bytes.data(), bytes.size()), error);
    return !error;
}

// Waits at most `ms` for more bytes; false when none came.
bool raw_client::fill(uint32_t ms)
{
    std::array<uint8_t, 65536> buffer;
    asio::error_code result = asio::error::timed_out;
    size_t count = 0;
    if (ended_)
        return false;
    socket_->io.restart();
    socket_->tcp.async_read_some(asio::buffer(buffer), [&](asio::error_code error, size_t bytes) {
        result = error;
        count = bytes;
    });
    socket_->io.run_for(std::chrono::milliseconds(ms));
    if (!socket_->io.stopped()) {
        asio::error_code ignored;
        socket_->tcp.cancel(ignored);
        socket_->io.run();
    }
    received_.insert(received_.end(), buffer.begin(), buffer.begin() + static_cast<ptrdiff_t>(count));
    ended_ = result && result != asio::error::timed_out && result != asio::error::operation_aborted;
    return count > 0;
}

std::vector<uint8_t> raw_client::receive(uint32_t ms)
{
    uint64_t deadline = os_tick() + ms;
    for (;;) {
        int length = mp_frame_length(received_.data(), received_.size());
        if (length > 0 && static_cast<size_t>(length) <= received_.size()) {
            std::vector<uint8_t> package(received_.begin(), received_.begin() + length);
            received_.erase(received_.begin(), received_.begin() + length);
            return package;
        }
        uint64_t now = os_tick();
        if (length < 0 || now >= deadline || !fill(static_cast<uint32_t>(deadline - now)))
            return {};
    }
}

std::vector<uint8_t> raw_client::receive_code(uint8_t code, uint32_t ms)
{
    for (;;) {
        std::vector<uint8_t> package = receive(ms);
        if (package.empty() || package[offsetof(MpPackHead, code)] == code)
            return package;
    }
}

bool raw_client::is_closed_within(uint32_t ms)
{
    uint64_t deadline = os_tick() + ms;
    for (uint64_t now = os_tick(); !ended_ && now < deadline; now = os_tick()) {
        fill(static_cast<uint32_t>(deadline - now));
        received_.clear();
    }
    return ended_;
}

void raw_client::close()
{
    asio::error_code ignored;
    socket_->tcp.close(ignored);
    ended_ = true;
}

void raw_client::reset()
{
    asio::error_code ignored;
    socket_->tcp.set_option(asio::socket_base::linger(true, 0), ignored);
    close();
}
