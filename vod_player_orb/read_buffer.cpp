#include "vod_player_orb/read_buffer.h"

#include "platform/os/os_pages.h"

void read_buffer_unmapper::operator()(read_buffer *buffer) const
{
    os_pages_unmap(buffer, sizeof *buffer);
}

read_buffer_ptr read_buffer_map(os_place place)
{
    read_buffer_ptr buffer(static_cast<read_buffer *>(os_pages_map(sizeof(read_buffer))));
    if (buffer == nullptr) {
        log_debug_ex(LOG_FATAL, place.file_name(), static_cast<int>(place.line()), "%s", "buf == NULL");
        os_exit(1);
    }
    return buffer;
}
