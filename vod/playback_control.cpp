// The commands that steer a playback.
#include "vod/playback_session.h"
#include "vod/reply.h"
#include "vod/xml_text.h"

#include <algorithm>
#include <climits>
#include <cstdio>

static int clamp_to_int(int64_t value)
{
    return static_cast<int>(std::clamp<int64_t>(value, INT_MIN, INT_MAX));
}

// What one control code does to the player: 1 when it succeeded. `answer` is the reply value.
struct control_call {
    VodLink *link;
    handle_orb playerfd;
    int value;
    int *answer;
};

static int open_window_if(const control_call &call, int result)
{
    if (result) {
        vodlink_set_client_buf(call.link, 0);
        vodlink_wake(call.link);
    }
    return result;
}

static int control_play(const control_call &call)
{
    return vodplay_play(call.playerfd);
}

static int control_set_pos(const control_call &call)
{
    int result = vodplay_set_play_pos(call.playerfd, call.value);
    {
        vodlinks_guard held;
        call.link->p_data.play_d.is_set_pos = 1;
    }
    return open_window_if(call, result);
}

static int control_get_pos(const control_call &call)
{
    return vodplay_get_play_pos(call.playerfd, call.answer);
}

static int control_total_frames(const control_call &call)
{
    return vodplay_get_file_total_frames(call.playerfd, call.answer);
}

static int control_total_time(const control_call &call)
{
    return vodplay_get_file_total_time(call.playerfd, call.answer);
}

static int control_reverse_seconds(const control_call &call)
{
    return vodplay_set_play_direction(call.playerfd, clamp_to_int(int64_t{call.value} * 1000 + 999), 1);
}

static int control_forward_seconds(const control_call &call)
{
    return vodplay_set_play_direction(call.playerfd, clamp_to_int(int64_t{call.value} * 1000), 0);
}

static int control_forward(const control_call &call)
{
    return vodplay_set_play_direction(call.playerfd, call.value, 0);
}

static int control_reverse(const control_call &call)
{
    return vodplay_set_play_direction(call.playerfd, call.value, 1);
}

static int control_set_time(const control_call &call)
{
    return open_window_if(call, vodplay_set_play_time(call.playerfd, call.value));
}

static int control_set_byte(const control_call &call)
{
    return open_window_if(call, vodplay_set_play_byte(call.playerfd, call.value));
}

static int control_set_absolute_time(const control_call &call)
{
    const PlayDataInfo &play = call.link->p_data.play_d;
    int result = play.play_filename[0] == '\0'
                     ? vodplay_set_play_absolute_time(call.playerfd, call.value)
                     : vodplay_set_play_time(call.playerfd, clamp_to_int((int64_t{call.value} - play.start) * 1000));
    return open_window_if(call, result);
}

static constexpr struct {
    int code;
    int (*act)(const control_call &call);
} CONTROL_CODES[] = {
    {1, control_play},
    {12, control_set_pos},
    {13, control_get_pos},
    {16, control_total_frames},
    {17, control_total_time},
    {24, control_reverse_seconds},
    {25, control_set_time},
    {30, control_set_byte},
    {31, control_forward_seconds},
    {34, control_set_absolute_time},
    {35, control_forward},
    {36, control_reverse},
};

static constexpr char CONTROL_REPLY[] = "<?xml version=\"1.0\"?>\n<command_return name=\"playback_control\" "
                                        "result=\"%s\">\n\t<value>%d</value>\n</command_return>";

void vod_deal_event_play_cmd_playback_control(VodLink *link, MpPackage *package, xmlNode *command)
{
    int answer = -1;
    int code = xml_child_int(command, "control_code").value_or(-1);
    int value = xml_child_int(command, "value").value_or(0);
    auto entry = std::ranges::find(CONTROL_CODES, code, [](const auto &row) { return row.code; });
    bool done = entry != std::end(CONTROL_CODES) && entry->act({link, vodlink_handle(link), value, &answer}) != 0;

    char text[sizeof CONTROL_REPLY + 32];
    std::snprintf(text, sizeof text, CONTROL_REPLY, done ? "ok" : "error",
                  done ? answer : static_cast<int>(os_get_errno()));
    command_answer(link, package, text);
}

void vod_deal_event_play_cmd_stop_playback(VodLink *link, MpPackage *, xmlNode *command)
{
    if (link->type != VOD_LINK_TYPE_HARDPLAY)
        return LOG(LOG_REFUSE, "vodlink->type != VOD_LINK_TYPE_HARDPLAY---vodlink->type = %d", link->type);
    if (link->mslink == nullptr)
        return LOG(LOG_REFUSE, "odlink->mslink == NULL");
    xml_text name(xmlGetProp(command, BAD_CAST "name"));
    if (name == nullptr || xmlStrcmp(name.get(), BAD_CAST "stop_playback") != 0)
        return LOG(LOG_REFUSE, "xmlStrcmp(name, BAD_CAST stop_playback) != 0");

    int32_t before = vodlink_set_timeout(link);
    handle_orb play_id = INVALID_HANDLE_ORB;
    {
        vodlinks_guard held;
        play_id = vodlink_take_play_id(held, link);
    }
    if (!vodplay_close(play_id)) {
        vodlink_move_status(link, VOD_LINK_STATUS_TIMEOUT, before);
        LOG(LOG_REFUSE, "!vodplay_close");
    }
    vodlinks_guard held;
    // Once for each playback: the count is what admits others.
    if (play_id != INVALID_HANDLE_ORB)
        vodlinks_count_down(held, VOD_LINK_PLAY_NUM);
    LOG(LOG_REFUSE, "vod_deal_event_play_cmd_stop_playback: index:%d, s_vodlink_play_num:%u, ", link->index,
        vodlinks_count(held, VOD_LINK_PLAY_NUM));
}

void vod_deal_event_play_command(VodLink *link, MpPackage *package, xmlNode *command)
{
    xml_text name(xmlGetProp(command, BAD_CAST "name"));
    if (name == nullptr)
        return LOG(LOG_REFUSE, "name == NULL");
    if (xmlStrcmp(name.get(), BAD_CAST "playback_control") == 0)
        vod_deal_event_play_cmd_playback_control(link, package, command);
    else if (xmlStrcmp(name.get(), BAD_CAST "stop_playback") == 0)
        vod_deal_event_play_cmd_stop_playback(link, package, command);
}
