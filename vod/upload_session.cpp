#include "vod/upload_session.h"

#include "platform/json/json.h"
#include "vod/hardplay_request.h"
#include "vod/lock_ranks.h"
#include "vod/mutex_util.h"
#include "vod/reply.h"

#include <cstdlib>

DList *s_lst_merge_path;

// Set by start-up, read by requests.
static char s_vod_upload_file_save_path[VOD_PATH_SIZE] = "C:\\zeta\\Web\\upload";
static int32_t s_vod_upload_file_save_day = 30;
static int32_t s_min_free_percent = 4;
static LMutex s_free_disk_mutex;

void upload_set_save_path(const char *path)
{
    text_copy(s_vod_upload_file_save_path, path);
}

const char *upload_save_path()
{
    return s_vod_upload_file_save_path;
}

void upload_set_save_day(int32_t days)
{
    s_vod_upload_file_save_day = days;
}

int32_t upload_save_day()
{
    return s_vod_upload_file_save_day;
}

int32_t upload_min_free_percent()
{
    return s_min_free_percent;
}

int free_disk_lock_init()
{
    return s_free_disk_mutex.impl != nullptr || mutex_init(&s_free_disk_mutex);
}

static void merge_path_add(const char *path)
{
    auto dir = static_cast<char *>(std::malloc(std::strlen(path) + 1));
    if (dir == nullptr) {
        LOG(LOG_FATAL, "!dir");
        os_exit(1);
        return;
    }
    std::strcpy(dir, path);
    LOG(LOG_REFUSE, "merge dir:%s", dir);
    dlist_guard held(s_lst_merge_path);
    if (adt_dlist_push_back(s_lst_merge_path, &dir) == nullptr)
        std::free(dir);
}

static void merge_path_read(json_object *path)
{
    if (path == nullptr)
        return LOG(LOG_REFUSE, "is_error(jso_path)");
    if (!json_object_is_type(path, json_type_string))
        return LOG(LOG_REFUSE, "path == NULL");
    merge_path_add(json_object_get_string(path));
}

int load_merge_path()
{
    static constexpr char filename[] = "var\\web\\merge_path.json";
    json_ref file(json_object_from_file_ex(filename));
    if (file == nullptr)
        return LOGGED(0, LOG_REFUSE, "is_error(jso_file), %s", filename);
    s_min_free_percent = json_object_get_field_int(file.get(), "free_percent", 4);
    json_object *paths = nullptr;
    if (!json_object_object_get_ex(file.get(), "paths", &paths) || paths == nullptr)
        return LOGGED(0, LOG_REFUSE, "jso_paths == NULL");
    if (!json_object_is_type(paths, json_type_array))
        return LOGGED(0, LOG_REFUSE, "!json_object_is_type(jso_paths, json_type_array)");
    for (size_t i = 0; i < json_object_array_length(paths); i++)
        merge_path_read(json_object_array_get_idx(paths, i));
    return 1;
}

// Logs why a request was rejected, or that the reject could not be sent.
static void upload_reject(MsLink *mslink, uint32_t code, int failed_level, const char *reason)
{
    if (vod_reject_req_res(mslink, code))
        LOG(LOG_REFUSE, "%s", reason);
    else
        LOG(failed_level, "!vod_reject_req_res");
}

static void upload_link_fill(VodLink *link, MsLink *mslink, const MpPackage *package, std::string_view filename)
{
    mslink_set_udata(mslink, link);
    vodlinks_guard held;
    link->mslink = mslink;
    link->type = VOD_LINK_TYPE_UPLOAD;
    vodlink_set_status(link, VOD_LINK_STATUS_REQ);
    link->module = package->head->module_src;
    text_copy(link->p_data.up_d.filename, filename);
    vodlinks_count_up(held, VOD_LINK_UP_NUM);
    vodlinks_count_up(held, VOD_LINK_ACTTVE_NUM);
}

// The link stays, still counted as active, until its connection ends.
static void upload_give_up(MsLink *mslink)
{
    {
        vodlinks_guard held;
        vodlinks_count_down(held, VOD_LINK_UP_NUM);
    }
    upload_reject(mslink, VOD_ERROR_NO_STORAGE, LOG_REFUSE, "##### no free disk return ####");
}

void vod_deal_event_req_res_upload(MsLink *mslink, MpPackage *package)
{
    hardplay_request request = {};
    if (!hardplay_request_begin(mslink, package, &request))
        return;
    if (request.filename.size() >= VOD_PATH_SIZE)
        return upload_reject(mslink, VOD_ERROR_NAME_TOO_LONG, LOG_REFUSE, "upload return, no free disk");
    VodLink *link = vodlink_create();
    if (link == nullptr)
        return upload_reject(mslink, ORB_ERROR_MORE_NUM, LOG_PACKAGE, "reject_req_upload max upload num ");
    upload_link_fill(link, mslink, package, request.filename);
    upload_give_up(mslink);
}

static void vod_deal_event_push_res_up(VodLink *link)
{
    // There is no storage, so no upload is ever accepted and none gets that far.
    if (vodlink_status(link) != VOD_LINK_STATUS_GET)
        LOG(LOG_PACKAGE, "vodlink->status != VOD_LINK_STATUS_GET");
}

void vod_deal_event_push_res(VodLink *link, MpPackage *package)
{
    if (link == nullptr)
        return LOG(LOG_PACKAGE, "vodlink == NULL");
    if (package == nullptr)
        return LOG(LOG_REFUSE, "package == NULL");
    if (link->type == VOD_LINK_TYPE_UPLOAD)
        vod_deal_event_push_res_up(link);
}
