#include "platform/os/os_internal.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

size_t os_module_filename(char *buffer, size_t size)
{
    if (buffer == nullptr || size == 0 || os_fault_point("os_module_filename"))
        return 0;
    char path[4096];
    ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    // A full buffer may be a cut path.
    if (length <= 0 || static_cast<size_t>(length) >= sizeof path || static_cast<size_t>(length) >= size)
        return 0;
    std::memcpy(buffer, path, static_cast<size_t>(length));
    buffer[length] = '\0';
    return static_cast<size_t>(length);
}

int os_process_id(void)
{
    return static_cast<int>(getpid());
}

static bool random_bytes(void *bytes, size_t size)
{
    for (size_t done = 0; done < size;) {
        ssize_t got = getrandom(static_cast<char *>(bytes) + done, size - done, 0);
        if (got < 0 && errno != EINTR)
            return false;
        done += got < 0 ? 0 : static_cast<size_t>(got);
    }
    return true;
}

int os_guid_create(os_guid *guid)
{
    os_guid made;
    if (guid == nullptr || os_fault_point("os_guid_create") || !random_bytes(&made, sizeof made))
        return 0;
    // Version 4, variant 1 of RFC 4122.
    made.data3 = static_cast<uint16_t>((made.data3 & 0x0FFF) | 0x4000);
    made.data4[0] = static_cast<uint8_t>((made.data4[0] & 0x3F) | 0x80);
    *guid = made;
    return 1;
}

int os_host_version(struct os_system_version *)
{
    return OS_NO_SYSTEM_VERSION;
}

void os_stream_keep(std::FILE *stream)
{
    fcntl(fileno(stream), F_SETFD, FD_CLOEXEC);
}

bool os_stderr_is_journal()
{
    // "device:inode" of the stream that the service manager connected; a later redirection makes it another one.
    const char *named = std::getenv("JOURNAL_STREAM");
    unsigned long long device = 0, inode = 0;
    struct stat info;
    return named != nullptr && std::sscanf(named, "%llu:%llu", &device, &inode) == 2 &&
           fstat(STDERR_FILENO, &info) == 0 && info.st_dev == device && info.st_ino == inode;
}
