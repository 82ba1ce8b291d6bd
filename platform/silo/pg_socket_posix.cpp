#include "platform/silo/pg_socket.h"

#include "platform/os/os.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>

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
