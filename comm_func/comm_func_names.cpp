#include "comm_func/comm_files.h"

#include "platform/os/os_guard.h"

#include <climits>
#include <cstdio>

// ---- Device-qualified names -----------------------------------------------------------------------------------------

int add_cloud_devid_to_filename(const char *dev_id, const char *filename, char *filename_out)
{
    if (dev_id == nullptr)
        return LOGGED(0, LOG_REFUSE, "dev_id == NULL");
    if (filename == nullptr)
        return LOGGED(0, LOG_REFUSE, "filename == NULL");
    if (filename_out == nullptr)
        return LOGGED(0, LOG_REFUSE, "id_filename == NULL");
    std::strcpy(filename_out, dev_id);
    std::strcat(filename_out, "--");
    std::strcat(filename_out, filename);
    return 1;
}

int parse_cloud_devid_filename(const char *filename, char *dev_id, char *real_filename)
{
    if (filename == nullptr)
        return LOGGED(0, LOG_REFUSE, "filename == NULL");
    if (dev_id == nullptr)
        return LOGGED(0, LOG_REFUSE, "dev_id == NULL");
    if (real_filename == nullptr)
        return LOGGED(0, LOG_REFUSE, "real_filename == NULL");

    const char *separator = std::strstr(filename, "--");
    if (separator == nullptr)
        return 1;
    auto dev_id_length = static_cast<size_t>(separator - filename);
    std::memcpy(dev_id, filename, dev_id_length);
    dev_id[dev_id_length] = '\0';
    std::strcpy(real_filename, separator + 2);
    return 1;
}

// ---- Recordings -----------------------------------------------------------------------------------------------------

int replace_suffix_by_md5(const char *filename, char *filename_md5, int filename_md5_len)
{
    static constexpr char SUFFIX[] = ".md5";
    if (filename == nullptr || filename_md5 == nullptr)
        return LOGGED(0, LOG_SYSTEM, "filename == NULL || filename_md5 == NULL");
    size_t length = std::strlen(filename), room = filename_md5_len > 0 ? static_cast<size_t>(filename_md5_len) : 0;
    if (length >= room)
        return LOGGED(0, LOG_SYSTEM, "filename:%s, len:%d >= filename_md5_len:%d", filename, static_cast<int>(length),
                      filename_md5_len);

    std::strcpy(filename_md5, filename);
    const char *dot = std::strrchr(filename_md5, '.');
    if (dot != nullptr && std::strcmp(dot, SUFFIX) == 0)
        return LOGGED(0, LOG_SYSTEM, "filename: %s", filename);
    size_t stem = dot != nullptr ? static_cast<size_t>(dot - filename_md5) : length;
    if (room <= stem + std::strlen(SUFFIX))
        return 0;
    std::strcpy(filename_md5 + stem, SUFFIX);
    return 1;
}

int get_db_rec_type(int rec_type)
{
    static constexpr int s_db_rec_types[] = {255, 2, 1, 1, 1, 1, 1, 4};
    if (rec_type < 0 || rec_type >= static_cast<int>(std::size(s_db_rec_types)))
        return rec_type;
    return s_db_rec_types[rec_type];
}

// ---- Disk status ----------------------------------------------------------------------------------------------------

void get_disk_status_filename(const char *disk_path, char *buf, int buf_len)
{
    static constexpr std::string_view MOUNT_PREFIX = "/orbfs";
    if (disk_path == nullptr || buf == nullptr || buf_len <= 0)
        return;
    std::string_view path(disk_path);
    if (path.starts_with(MOUNT_PREFIX))
        path.remove_prefix(MOUNT_PREFIX.size());
    char name[256];
    text_copy(name, path);
    for (char *slash = std::strchr(name, '/'); slash != nullptr; slash = std::strchr(slash, '/'))
        *slash = '_';
    std::snprintf(buf, static_cast<size_t>(buf_len), "/var/run/diskstatus/%s", name);
}
