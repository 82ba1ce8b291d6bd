#include "platform/silo/pg_socket.h"

#include <winsock2.h>
#include <ws2tcpip.h>

pg_ready pg_socket_wait(int socket, bool for_read, bool for_write, uint32_t ms)
{
    auto handle = static_cast<SOCKET>(socket);
    fd_set read, write, failed;
    FD_ZERO(&read);
    FD_ZERO(&write);
    FD_ZERO(&failed);
    if (for_read)
        FD_SET(handle, &read);
    if (for_write)
        FD_SET(handle, &write);
    FD_SET(handle, &failed); // a connection that is refused shows here and nowhere else
    timeval limit = {static_cast<long>(ms / 1000), static_cast<long>(ms % 1000 * 1000)};
    int count = select(0, &read, &write, &failed, &limit);
    if (count == SOCKET_ERROR)
        return PG_SOCKET_FAILED;
    return count == 0 ? PG_TIME_UP : PG_SOCKET_READY;
}

bool pg_host_addresses(const std::string &name, std::vector<std::string> *addresses)
{
    WSADATA started; // never ended: connections need it for as long as the process lives
    if (WSAStartup(MAKEWORD(2, 2), &started) != 0)
        return false;
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
