// vodctl state: what is being played and downloaded.
#include "tools/common/tool_text.h"
#include "tools/vodctl/state_text.h"
#include "tools/vodctl/vodctl.h"

#include <cstdlib>

static void print_table(const char *title, const link_state::kind &kind)
{
    report_line("%s: %s", title, kind.count.empty() ? "0" : kind.count.c_str());
    for (const link_state::entry &link : kind.links)
        report_line("  %3s %%  %s", printable(link.percent).c_str(), link.file.c_str());
}

static json_object *json_of(const link_state::kind &kind)
{
    json_object *object = json_object_new_object(), *links = json_object_new_array();
    json_object_object_add(object, "count", json_object_new_int64(std::strtoll(kind.count.c_str(), nullptr, 10)));
    for (const link_state::entry &link : kind.links) {
        json_object *entry = json_object_new_object();
        json_add(entry, "file", link.file);
        json_add(entry, "percent", std::strtoll(link.percent.c_str(), nullptr, 10));
        json_object_array_add(links, entry);
    }
    json_object_object_add(object, "links", links);
    return object;
}

static int print_state(const vodctl_settings &settings, const std::string &xml)
{
    link_state state;
    if (!link_state_read(xml, &state))
        return vodctl_fail(VODCTL_INCOMPLETE,
                           "the service's answer is no link state; check that host and port are those of the recording "
                           "service");
    if (settings.json) {
        json_ref object(json_object_new_object());
        json_object_object_add(object.get(), "playbacks", json_of(state.playbacks));
        json_object_object_add(object.get(), "downloads", json_of(state.downloads));
        report_json(object.get());
        return VODCTL_OK;
    }
    print_table("playbacks", state.playbacks);
    print_table("downloads", state.downloads);
    return VODCTL_OK;
}

static int print_written(const vodctl_settings &settings, const std::string &name)
{
    if (settings.json) {
        json_ref object(json_object_new_object());
        json_add(object.get(), "written_by_service", name);
        report_json(object.get());
    } else {
        report_line("the service has written its link state to %s", name.c_str());
    }
    return VODCTL_OK;
}

int vodctl_state(const vodctl_settings &settings, const std::string &name)
{
    std::string text;
    if (vodclient_result result = vodclient_link_state(settings.server, name, &text); !result)
        return vodctl_fail(result);
    return name == VODCLIENT_STATE_FROM_NET ? print_state(settings, text) : print_written(settings, text);
}
