#include "vod_player_orb/insert_abstime.h"

#include "comm_func/orb_userdata.h"
#include "vod_player/usr_abstime.h"
#include "vod_player_orb/read_buffer.h"
#include "vod_player_orb/vod_player_orb.h"

constexpr int SCANNED_FRAMES_MAX = 100;

struct avfilter_destroyer {
    void operator()(void *handle) const { AVFilterDestroy(handle); }
};
using avfilter_ptr = std::unique_ptr<void, avfilter_destroyer>;

static bool next_has_abstime(void *handle, int mode, read_buffer *buffer)
{
    AVFrameInfo frame = {};
    frame.iSize = sizeof frame;
    int size = AVFilterGetData(handle, AVFILTER_DATA_FRAMES, buffer->bytes, READ_BUFFER_SIZE, &frame);
    uint32_t abs_time = 0;
    auto bytes = reinterpret_cast<const uint8_t *>(buffer->bytes);
    return size > 0 && get_abstime_from_sei(mode, bytes, std::min(size, READ_BUFFER_SIZE), &abs_time) && abs_time != 0;
}

static bool scan_for_abstime(void *handle, read_buffer *buffer)
{
    AVFileInfo info = {};
    info.iSise = sizeof info;
    int frames = SCANNED_FRAMES_MAX;
    if (AVFilterGetInfo(handle, AVFILTER_INFO_FILE, &info, sizeof info) == 0)
        frames = std::min(frames, info.iTotalFrame);
    for (int i = 0; i < frames; i++)
        if (next_has_abstime(handle, info.iVEncMode, buffer))
            return true;
    return false;
}

int check_iframe_abstime_exist(AVOrbFileFilter *filter_info)
{
    if (filter_info == nullptr)
        return LOGGED(0, LOG_REFUSE, "check_iframe_abstime_exist filter_info == NULL");
    filter_info->iUsrFlag = 0;
    avfilter_ptr handle(AVFilterCreate(0, filter_info, sizeof *filter_info));
    if (handle == nullptr)
        return LOGGED(0, LOG_REFUSE, "AVFilterCreate failed");
    read_buffer_ptr buffer = read_buffer_map();
    return buffer != nullptr && scan_for_abstime(handle.get(), buffer.get());
}

int insert_abstime_for(AVOrbFileFilter *filter_info, handle_orb usr)
{
    // Without the wish the answer is 0 whatever the file holds, and the search costs up to a hundred reads.
    int wanted = vod_player_usr_abstime(usr);
    return wanted != 0 && !check_iframe_abstime_exist(filter_info) ? wanted : 0;
}

int get_insert_abstime(AVOrbFileFilter *filter_info, VODOrbPlayer *orb_player)
{
    if (filter_info == nullptr || orb_player == nullptr)
        return LOGGED(0, LOG_REFUSE, "filter_info == NULL || orb_player == NULL");
    return insert_abstime_for(filter_info, orb_player->usr);
}
