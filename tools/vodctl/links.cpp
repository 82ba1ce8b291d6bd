// vodctl links: how many links of each kind the service has.
#include "tools/vodctl/vodctl.h"

#include <cstdio>

namespace {
struct link_kind {
    vodclient_link_kind kind;
    const char *key, *title;
};
} // namespace

static constexpr link_kind s_link_kinds[] = {{VODCLIENT_LINKS_DOWNLOAD, "downloads", "downloads"},
                                             {VODCLIENT_LINKS_PLAYBACK, "playbacks", "playbacks"},
                                             {VODCLIENT_LINKS_STATE, "states", "state links"},
                                             {VODCLIENT_LINKS_UPLOAD, "uploads", "uploads"},
                                             {VODCLIENT_LINKS_ACTIVE, "active", "active sessions"}};

int vodctl_links(const vodctl_settings &settings)
{
    vodclient_login login;
    if (vodclient_result result = login.open(settings.server); !result)
        return vodctl_fail(result);
    json_ref object(json_object_new_object());
    std::string table;
    for (const link_kind &kind : s_link_kinds) {
        int32_t count = 0;
        if (vodclient_result result = login.link_num(kind.kind, &count); !result)
            return vodctl_fail(result);
        json_add(object.get(), kind.key, count);
        char line[64];
        std::snprintf(line, sizeof line, "%-16s %6d\n", kind.title, count);
        table += line;
    }
    if (settings.json)
        report_json(object.get());
    else
        report_put(table);
    return VODCTL_OK;
}
