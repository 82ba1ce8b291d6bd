#include "tests/silo/pg_proxy.h"

#include <vector>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

static constexpr int LOOK_MS = 20;

static int listen_somewhere(uint16_t *port)
{
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), size) == 0 && listen(listener, 16) == 0 &&
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) == 0)
        *port = ntohs(address.sin_port);
    return listener;
}

pg_proxy::pg_proxy(uint16_t server_port) : server_port_(server_port)
{
    listener_ = listen_somewhere(&port_);
    thread_ = std::thread([this] { serve(); });
}

pg_proxy::~pg_proxy()
{
    ends_ = true;
    thread_.join();
    close(listener_);
}

void pg_proxy::cut_after(const std::string &text)
{
    text_ = text;
    lets_through_ = true;
    is_armed_ = true;
}

void pg_proxy::cut_before(const std::string &text)
{
    text_ = text;
    lets_through_ = false;
    is_armed_ = true;
}

static bool is_readable(int socket, int ms)
{
    pollfd wanted = {.fd = socket, .events = POLLIN, .revents = 0};
    return poll(&wanted, 1, ms) > 0;
}

// One connection after the other.
void pg_proxy::serve()
{
    while (!ends_) {
        if (!is_readable(listener_, LOOK_MS))
            continue;
        int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(server_port_);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(server, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0)
            carry(client, server);
        close(client);
        close(server);
    }
}

static bool pass_on(int from, int to, std::string *seen)
{
    char bytes[65536];
    ssize_t count = recv(from, bytes, sizeof bytes, 0);
    if (count <= 0)
        return false;
    if (seen != nullptr)
        seen->append(bytes, static_cast<size_t>(count));
    return to < 0 || send(to, bytes, static_cast<size_t>(count), MSG_NOSIGNAL) == count;
}

bool pg_proxy::wants_cut(const std::string &seen) const
{
    return is_armed_ && seen.find(text_) != seen.npos;
}

void pg_proxy::carry(int client, int server)
{
    while (!ends_) {
        pollfd both[] = {{.fd = client, .events = POLLIN, .revents = 0},
                         {.fd = server, .events = POLLIN, .revents = 0}};
        if (poll(both, 2, LOOK_MS) <= 0)
            continue;
        if (both[0].revents != 0) {
            std::string seen;
            if (!pass_on(client, -1, &seen))
                return;
            bool cuts = wants_cut(seen);
            if ((!cuts || lets_through_) && send(server, seen.data(), seen.size(), MSG_NOSIGNAL) < 0)
                return;
            if (cuts) {
                // Its answer shows that the server is done.
                if (lets_through_ && is_readable(server, 10'000))
                    pass_on(server, -1, nullptr);
                is_armed_ = false;
                has_cut_ = true;
                return;
            }
        }
        if (both[1].revents != 0 && !pass_on(server, client, nullptr))
            return;
    }
}

pg_silent_server::pg_silent_server()
{
    listener_ = listen_somewhere(&port_);
}

pg_silent_server::~pg_silent_server()
{
    close(listener_);
}

pg_warning_server::pg_warning_server(const std::string &warning) : warning_(warning)
{
    listener_ = listen_somewhere(&port_);
    thread_ = std::thread([this] { serve(); });
}

pg_warning_server::~pg_warning_server()
{
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
}

static std::string message(char kind, const std::string &body)
{
    return std::string{kind, '\0', '\0', '\0', static_cast<char>(body.size() + 4)} + body;
}

void pg_warning_server::serve()
{
    int client = accept(listener_, nullptr, nullptr);
    char bytes[1024];
    // Questions for encryption are of eight bytes, and refused.
    while (recv(client, bytes, sizeof bytes, 0) == 8)
        send(client, "N", 1, MSG_NOSIGNAL);
    const std::string end(1, '\0'), fields = "VWARNING" + end + "C01000" + end + "M" + warning_ + end;
    const std::string all = message('R', std::string(4, '\0')) + message('N', fields + end);
    send(client, all.data(), all.size(), MSG_NOSIGNAL);
    close(client);
}
