#include "platform/silo/pg_socket.h"

#include "platform/os/os.h"

#include <algorithm>
#include <cerrno>

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

pg_ready pg_socket_wait(int socket, bool for_read, bool for_write, uint32_t ms)
{
    pollfd wanted = {.fd = socket, .events = 0, .revents = 0};
    wanted.events = static_cast<short>((for_read ? POLLIN : 0) | (for_write ? POLLOUT : 0));
    uint64_t start = os_tick();
    for (uint64_t passed = 0;; passed = std::min<uint64_t>(os_tick() - start, ms)) {
        int count = poll(&wanted, 1, static_cast<int>(std::min<uint64_t>(ms - passed, INT32_MAX)));
        if (count >= 0)
            return count == 0 ? PG_TIME_UP : PG_SOCKET_READY;
        if (errno != EINTR)
            return PG_SOCKET_FAILED;
    }
}

bool pg_host_addresses(const std::string &name, std::vector<std::string> *addresses)
{
    addrinfo wanted = {}, *found = nullptr;
    wanted.ai_socktype = SOCK_STREAM;
    if (getaddrinfo(name.c_str(), nullptr, &wanted, &found) != 0)
        return false;
    for (const addrinfo *one = found; one != nullptr; one = one->ai_next) {
        char text[NI_MAXHOST];
        if (getnameinfo(one->ai_addr, static_cast<socklen_t>(one->ai_addrlen), text, sizeof text, nullptr, 0,
                        NI_NUMERICHOST) == 0)
            addresses->push_back(text);
    }
    freeaddrinfo(found);
    return !addresses->empty();
}
