#include "comm_func/comm_files.h"

#include "platform/os/os_guard.h"

#include <cerrno>
#include <cstdio>

static os_file_ptr open_to_read(const char *filename, int flags)
{
    os_file *file = nullptr;
    os_file_open(filename, OS_FILE_READ | flags, &file);
    return os_file_ptr(file);
}

static os_file_ptr open_client_file(const char *utf8_name)
{
    char path[260];
    if (os_code_convert("utf-8", "GB18030", path, sizeof path, utf8_name, std::strlen(utf8_name)) <= 0)
        return nullptr;
    return open_to_read(path, OS_FILE_CLIENT);
}

int is_mp4_file(const char *filename)
{
    static constexpr std::string_view BRAND = "ftyp";
    if (filename == nullptr)
        return LOGGED(0, LOG_SYSTEM, "filename == NULL");
    os_file_ptr file = open_client_file(filename);
    if (file == nullptr)
        return LOGGED(0, LOG_SYSTEM, "fp == NULL, filename:%s", filename);

    char start[256];
    int64_t got = os_file_pread(file.get(), start, sizeof start, 0);
    std::string_view bytes(start, got > 0 ? static_cast<size_t>(got) : 0);
    for (size_t word = 0; word + BRAND.size() <= bytes.size(); word += BRAND.size())
        if (bytes.substr(word, BRAND.size()) == BRAND)
            return 1;
    return 0;
}

// ---- Disk status ----------------------------------------------------------------------------------------------------

long get_uptime()
{
    return 0;
}

long get_uptime_from_status_file(const char *)
{
    return -1;
}

// The number at the start of the file, after blanks.
static bool read_number(os_file *file, long *number)
{
    char text[256] = "";
    int64_t got = os_file_pread(file, text, sizeof text - 1, 0);
    text[got > 0 ? got : 0] = '\0';
    char *end = text;
    *number = std::strtol(text, &end, 10);
    return end != text;
}

int disk_check_file_is_active(const char *filename, int valid_interval)
{
    os_file_ptr file = open_to_read(filename, 0);
    if (file == nullptr)
        return LOGGED(0, LOG_TRACE, "!fopen(\"/var/run/diskstatus/checktime\", \"r\")");
    long update_time = 0;
    if (!read_number(file.get(), &update_time))
        return LOGGED(0, LOG_SYSTEM, "!fscanf");

    long uptime = get_uptime();
    auto passed = static_cast<int32_t>(static_cast<uint32_t>(uptime) - static_cast<uint32_t>(update_time));
    if (passed >= valid_interval)
        return LOGGED(0, LOG_TRACE, "uptime:%ld-update_time:%ld:%ld >= %d, disk_check is unactive", uptime, update_time,
                      static_cast<long>(passed), valid_interval);
    return 1;
}

int disk_check_is_active(int valid_interval)
{
    return disk_check_file_is_active("/var/run/diskstatus/checktime", valid_interval);
}

int get_cmd_result(const char *cmd, char *, int)
{
    if (cmd == nullptr)
        LOG(LOG_REFUSE, "cmd == NULL");
    return 0;
}
