// A client that sends whatever bytes a test wants, well-formed or not, and shows what comes back.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct raw_attr {
    uint8_t type = 0;
    std::vector<uint8_t> value;
    uint8_t reserved = 0;
};

// A well-formed package from module 200 to module 131; cut, lengthen or change its bytes at will.
std::vector<uint8_t> raw_package(uint8_t code, const std::vector<raw_attr> &attrs, uint16_t reserved2 = 0);
// What a request carries: four device ids, session id, resource information (kind, number, then `param`), the wish for
// absolute time, data.
std::vector<raw_attr> raw_request_attrs(uint16_t kind, uint16_t number, const std::vector<uint8_t> &param,
                                        const std::vector<uint8_t> &data = {}, int32_t insert_abstime = 0);
std::vector<uint8_t> raw_request(uint16_t kind, uint16_t number, const std::vector<uint8_t> &param,
                                 const std::vector<uint8_t> &data = {}, int32_t insert_abstime = 0);
// A command that asks for a reply; the terminating zero is added.
std::vector<uint8_t> raw_command(uint32_t session_id, const std::string &xml, uint16_t reserved2 = 1);
std::vector<uint8_t> raw_get(uint32_t held_packages = 0);
std::vector<uint8_t> raw_stop();

std::vector<uint8_t> raw_u16(uint16_t value);
std::vector<uint8_t> raw_u32(uint32_t value);
// With its terminating zero.
std::vector<uint8_t> raw_text(const std::string &text);
// One after the other.
std::vector<uint8_t> raw_join(std::initializer_list<std::vector<uint8_t>> parts);

struct raw_client_socket;

class raw_client {
  public:
    raw_client();
    ~raw_client();
    raw_client(const raw_client &) = delete;
    raw_client &operator=(const raw_client &) = delete;

    // To 127.0.0.1. Other addresses of this machine may stand for other clients.
    bool connect(uint16_t port, const std::string &own_address = "127.0.0.1");
    // Waits until the bytes are handed to the host; false when the other side is gone.
    bool send(std::span<const uint8_t> bytes);
    // The next whole package, empty when none came in `ms` or the connection ended.
    std::vector<uint8_t> receive(uint32_t ms = 5000);
    // Packages that carry other codes are dropped on the way.
    std::vector<uint8_t> receive_code(uint8_t code, uint32_t ms = 5000);
    // True when the other side ends the connection within `ms`; what it still sends is dropped.
    bool is_closed_within(uint32_t ms = 5000);
    void close();
    // Ends the connection as a crash would: the other side sees an error instead of an end.
    void reset();

  private:
    bool fill(uint32_t ms);
    std::unique_ptr<raw_client_socket> socket_;
    std::vector<uint8_t> received_;
    bool ended_ = false;
};
