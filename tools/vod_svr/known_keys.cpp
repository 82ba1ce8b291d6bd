#include "tools/vod_svr/known_keys.h"

#include "platform/json/json.h"

#include <algorithm>

static constexpr std::string_view SVR = "vod_svr.json", MS = "ms_config.json", VOD = "vod_config.json";

static constexpr known_key s_known[] = {
    {SVR, "fs_charset", SETTING_TEXT},
    {SVR, "store", SETTING_TEXT},
    {SVR, "log.level", SETTING_NUMBER},
    {SVR, "log.stderr", SETTING_NUMBER},
    {SVR, "log.journal", SETTING_NUMBER},
    {SVR, "log.file", SETTING_TEXT},
    {SVR, "log.file_bytes", SETTING_NUMBER},
    {SVR, "log.file_count", SETTING_NUMBER},
    {SVR, "log.queue_bytes", SETTING_NUMBER},

    {MS, "listen", SETTING_TEXT},
    {MS, "port", SETTING_NUMBER},
    {MS, "threads", SETTING_NUMBER},
    {MS, "max_connections", SETTING_NUMBER},
    {MS, "max_connections_per_address", SETTING_NUMBER},
    {MS, "max_queued_bytes", SETTING_NUMBER},
    {MS, "receive_deadline_ms", SETTING_NUMBER},
    {MS, "idle_ms", SETTING_NUMBER},
    {MS, "dead_peer_ms", SETTING_NUMBER},
    {MS, "send_buffer_bytes", SETTING_NUMBER},
    {MS, "device_id", SETTING_TEXT},

    {VOD, "sleep_interval", SETTING_NUMBER},
    {VOD, "max_num", SETTING_NUMBER},
    {VOD, "max_download_num", SETTING_NUMBER},
    {VOD, "start_vca", SETTING_NUMBER},
    {VOD, "access.roots", SETTING_OWN},
    {VOD, "access.state_dir", SETTING_OWN},
    {VOD, "access.state_files", SETTING_OWN},
    {VOD, "index.trust_seconds", SETTING_NUMBER},
    {VOD, "commands.max_bytes", SETTING_OWN},
    {VOD, "search.max_waiting", SETTING_NUMBER},
    {VOD, "search.max_per_address", SETTING_NUMBER},
    {VOD, "search.max_on_server", SETTING_NUMBER},
    {VOD, "search.idle_seconds", SETTING_NUMBER},
    {VOD, "flow_ctl_face", SETTING_TEXT},
    {VOD, "flow_ctl_payload", SETTING_NUMBER},
    {VOD, "timeplayback_all_rec", SETTING_NUMBER},
    {VOD, "use_exact_play", SETTING_NUMBER},
    {VOD, "upload.save_path", SETTING_TEXT},
    {VOD, "upload.save_day", SETTING_NUMBER},
};

std::span<const known_key> known_keys()
{
    return s_known;
}

// What a key of a file is called, and what is written in the object around it: "log." of "log.level".
struct written_key {
    std::string_view file;
    std::string around, key;
    std::string name() const { return around + key; }
};

static bool is_object_of(const known_key &known, const std::string &name)
{
    return known.name.starts_with(name + '.');
}

static const known_key *known_of(const written_key &written)
{
    auto is_it = [&](const known_key &known) { return known.file == written.file && known.name == written.name(); };
    auto found = std::ranges::find_if(s_known, is_it);
    // A dot in a key makes no object.
    return found == std::end(s_known) || written.key.find('.') != std::string::npos ? nullptr : &*found;
}

static bool is_known_object(const written_key &written)
{
    return std::ranges::any_of(s_known, [&](const known_key &known) {
        return known.file == written.file && is_object_of(known, written.name());
    });
}

// Names of settings and of the objects that hold them.
static std::vector<std::string> names_of(std::string_view file)
{
    std::vector<std::string> names;
    for (const known_key &known : s_known) {
        if (known.file != file)
            continue;
        for (size_t dot = known.name.find('.'); dot != std::string_view::npos; dot = known.name.find('.', dot + 1))
            names.emplace_back(known.name.substr(0, dot));
        names.emplace_back(known.name);
    }
    return names;
}

// A key may stand in the wrong object; that counts as a mistake or two.
static int distance_of(const written_key &written, const std::string &name)
{
    std::string last = name.substr(name.rfind('.') + 1);
    bool is_elsewhere = written.around + last != name;
    return 2 * std::min(json_key_distance(written.key.c_str(), last.c_str()),
                        json_key_distance(written.name().c_str(), name.c_str())) +
           3 * is_elsewhere;
}

static std::string nearest_name(const written_key &written)
{
    auto names = names_of(written.file);
    auto nearest = std::ranges::min_element(names, {}, [&](const std::string &name) { return distance_of(written, name); });
    return nearest == names.end() ? std::string() : *nearest;
}

static constexpr size_t NAME_SHOWN_MAX = 80;

static std::string place_of(const written_key &written)
{
    return "\"" + written.name().substr(0, NAME_SHOWN_MAX) + "\" in etc/conf/" + std::string(written.file);
}

static bool is_of_kind(json_object *value, setting_kind kind)
{
    return kind == SETTING_OWN || json_object_is_type(value, kind == SETTING_NUMBER ? json_type_int : json_type_string);
}

static void look_into(std::string_view file, const std::string &around, json_object *object,
                      std::vector<std::string> *findings);

static void look_at(const written_key &written, json_object *value, std::vector<std::string> *findings)
{
    if (const known_key *known = known_of(written)) {
        if (!is_of_kind(value, known->kind))
            findings->push_back(place_of(written) + " must be a " +
                                (known->kind == SETTING_NUMBER ? "whole number" : "text") + ", the default is taken");
    } else if (!is_known_object(written)) {
        findings->push_back("unknown key " + place_of(written) + " is ignored; is \"" + nearest_name(written) +
                            "\" meant?");
    } else if (json_object_is_type(value, json_type_object)) {
        look_into(written.file, written.name() + '.', value, findings);
    } else {
        findings->push_back(place_of(written) + " must be an object");
    }
}

static void look_into(std::string_view file, const std::string &around, json_object *object,
                      std::vector<std::string> *findings)
{
    json_object_object_foreach(object, key, value)
        look_at({file, around, key}, value, findings);
}

std::vector<std::string> key_findings(std::string_view file, json_object *config)
{
    std::vector<std::string> findings;
    if (json_object_is_type(config, json_type_object))
        look_into(file, "", config, &findings);
    return findings;
}
