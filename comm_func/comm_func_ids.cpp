#include "comm_func/comm_ids.h"

#include "platform/os/os_guard.h"

#include <cstdio>

int generate_guid(char *guid, int32_t len)
{
    if (guid == nullptr || len < 32)
        return LOGGED(0, LOG_REFUSE, "guid == NULL || len < 32");
    os_guid uuid = {};
    if (!os_guid_create(&uuid))
        return LOGGED(0, LOG_REFUSE, "CoCreateGuid(&uuid)");
    std::snprintf(guid, static_cast<size_t>(len), "%08lX%04X%04x%02X%02X%02X%02X%02X%02X%02X%02X",
                  static_cast<unsigned long>(uuid.data1), uuid.data2, uuid.data3, uuid.data4[0], uuid.data4[1],
                  uuid.data4[2], uuid.data4[3], uuid.data4[4], uuid.data4[5], uuid.data4[6], uuid.data4[7]);
    return 1;
}

using version_test = bool (*)(const os_system_version &version);

struct system_name {
    uint32_t major, minor;
    version_test test; // NULL: every one
    const char *name;
};

// The first line that fits gives the name.
static constexpr system_name s_system_names[] = {
    {4, 0, [](const os_system_version &v) { return v.platform_id == 2; }, "Microsoft Windows NT 4.0"},
    {4, 0, [](const os_system_version &v) { return v.platform_id == 1; }, "Microsoft Windows 95"},
    {4, 10, nullptr, "Microsoft Windows 98"},
    {4, 90, nullptr, "Microsoft Windows Me"},
    {5, 0, nullptr, "Microsoft Windows 2000"},
    {5, 1, nullptr, "Microsoft Windows XP"},
    {5, 2, [](const os_system_version &v) { return v.is_workstation && v.is_x64; },
     "Microsoft Windows XP Professional x64 Edition"},
    {5, 2, [](const os_system_version &v) { return v.server_r2_metric == 0; }, "Microsoft Windows Server 2003"},
    {5, 2, nullptr, "Microsoft Windows Server 2003 R2"},
    {6, 0, [](const os_system_version &v) { return v.is_workstation != 0; }, "Microsoft Windows Vista"},
    {6, 0, nullptr, "Microsoft Windows Server 2008"},
    {6, 1, [](const os_system_version &v) { return v.is_workstation != 0; }, "Microsoft Windows 7"},
    {6, 1, nullptr, "Microsoft Windows Server 2008 R2"},
    // What 6.2 and all later releases report; called by the last name that clients know.
    {6, 2, nullptr, "Microsoft Windows 7"},
};

const char *system_type_name(const os_system_version &version)
{
    for (const system_name &known : s_system_names)
        if (known.major == version.major && known.minor == version.minor &&
            (known.test == nullptr || known.test(version)))
            return known.name;
    return "未知操作系统";
}

int get_system_type(char *system_type)
{
    if (system_type == nullptr)
        return LOGGED(0, LOG_REFUSE, "system_type == NULL");
    os_system_version version = {};
    if (!os_system_version_get(&version))
        return 0;
    std::strcpy(system_type, system_type_name(version));
    return 1;
}
