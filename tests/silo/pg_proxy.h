// Stands between a store's client and its server, and cuts the connection where a test wants it.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

class pg_proxy {
public:
    explicit pg_proxy(uint16_t server_port);
    ~pg_proxy();
    pg_proxy(const pg_proxy &) = delete;
    pg_proxy &operator=(const pg_proxy &) = delete;
    uint16_t port() const { return port_; }
    // Once the client has sent this, it gets nothing more: the server still receives it, its answer is dropped and the
    // connection is closed.
    void cut_after(const std::string &text);
    // The same, but the server does not receive it either.
    void cut_before(const std::string &text);
    bool has_cut() const { return has_cut_; }

private:
    void serve();
    void carry(int client, int server);
    bool wants_cut(const std::string &seen) const;
    int listener_ = -1;
    uint16_t port_ = 0, server_port_;
    std::string text_; // set before the client sends it
    bool lets_through_ = false;
    std::atomic<bool> is_armed_ = false, has_cut_ = false, ends_ = false;
    std::thread thread_;
};

// Listens on 127.0.0.1 and never says anything.
class pg_silent_server {
public:
    pg_silent_server();
    ~pg_silent_server();
    uint16_t port() const { return port_; }

private:
    int listener_ = -1;
    uint16_t port_ = 0;
};

// Listens on 127.0.0.1, lets the first client in with a warning and hangs up.
class pg_warning_server {
public:
    explicit pg_warning_server(const std::string &warning);
    ~pg_warning_server();
    pg_warning_server(const pg_warning_server &) = delete;
    pg_warning_server &operator=(const pg_warning_server &) = delete;
    uint16_t port() const { return port_; }

private:
    void serve();
    const std::string warning_;
    int listener_ = -1;
    uint16_t port_ = 0;
    std::thread thread_;
};
