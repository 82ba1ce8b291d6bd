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

void vod_deal_event_req_res_upload(MsLink *mslink, MpPackage *package)
{
    if (mslink == nullptr)
        return LOG(LOG_REFUSE, "mslink == NULL");
    if (package == nullptr)
        return LOG(LOG_REFUSE, "package == NULL");
    if (package->head->code != MP_CODE_REQUEST_RES)
        return LOG(LOG_REFUSE, "package->head->code = %d", package->head->code);
    if (mslink_get_udata(mslink) != nullptr)
        return LOG(LOG_REFUSE, "mslink_get_udata(mslink) != NULL");
    if (!vod_reject_req_res(mslink, VOD_ERROR_NO_STORAGE))
        LOG(LOG_REFUSE, "!vod_reject_req_res");
    else
        LOG(LOG_REFUSE, "##### no free disk return ####");
}

void vod_deal_event_push_res(VodLink *link, MpPackage *package)
{
    if (link == nullptr)
        return LOG(LOG_REFUSE, "vodlink == NULL");
    if (package == nullptr)
        return LOG(LOG_REFUSE, "package == NULL");
}
