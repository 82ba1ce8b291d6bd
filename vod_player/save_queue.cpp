#include "vod_player/save_queue.h"

#include "platform/os/os_guard.h"
#include "win32_vod/vod_player.h"

#include <atomic>
#include <mutex>

// Storage of this type is written by others: operations are queued as ever but leave the disk alone.
static constexpr int32_t STORAGE_TYPE_WITHOUT_FILES = 3;

// ---- State ----------------------------------------------------------------------------------------------------------

// Nothing is taken while it is held.
static constexpr int SAVE_LOCK_RANK = 90;
static LMutex s_save_mutex;
struct save_guard : os_lock_guard {
    save_guard() : os_lock_guard(&s_save_mutex) {}
};

// Guarded by s_save_mutex: the operations, oldest first, and the bytes of data among them. s_save_filled is signalled
// when an operation is added.
static DList *s_ls_save_buf;
static uint64_t s_save_buf;
static LCond s_save_filled;

// Set before the thread starts, which then touches no file but those that are queued.
static int32_t s_save_storage_type;

// Set once the queue's lock, list and condition are ready and the thread runs.
static std::atomic<bool> s_save_is_started = false;
static std::mutex s_save_start_mutex;

int calc_ability_level(uint64_t queued_bytes)
{
    static constexpr uint64_t MIB = 1 << 20;
    if (queued_bytes <= 50 * MIB)
        return 0;
    if (queued_bytes <= 100 * MIB)
        return 1;
    return queued_bytes <= 200 * MIB ? 2 : 3;
}

// ---- Queuing --------------------------------------------------------------------------------------------------------

VodSaveFileInfo *save_file_info_create(int type, const char *filename, int size)
{
    size_t bytes = sizeof(VodSaveFileInfo) + static_cast<size_t>(size);
    void *memory = os_fault_point("save_file_info_create") ? nullptr : std::calloc(1, bytes);
    if (memory == nullptr) {
        LOG(LOG_FATAL, "info == NULL");
        os_exit(1);
        return nullptr;
    }
    auto info = static_cast<VodSaveFileInfo *>(memory);
    info->type = type;
    info->size = size;
    text_copy(info->file_property.filename, filename);
    return info;
}

char *save_file_info_data(VodSaveFileInfo *info)
{
    return reinterpret_cast<char *>(info + 1);
}

int save_queue_push(VodSaveFileInfo *info)
{
    if (!s_save_is_started)
        return LOGGED(0, LOG_PACKAGE, "s_ls_save_buf == NULL");
    save_guard held;
    if (adt_dlist_push_back(s_ls_save_buf, &info) == nullptr) {
        LOG(LOG_FATAL, "info == NULL");
        os_exit(1);
        return 0;
    }
    s_save_buf += info->type == SAVE_WRITE ? static_cast<uint64_t>(info->size) : 0;
    os_cond_signal(&s_save_filled);
    return 1;
}

int fremove_thr(const char *filename)
{
    if (filename == nullptr)
        return LOGGED(0, LOG_REFUSE, "fremove_thr filename == NULL");
    VodSaveFileInfo *info = save_file_info_create(SAVE_REMOVE, filename, 0);
    if (info != nullptr && save_queue_push(info))
        return 1;
    std::free(info);
    return 0;
}

static VodSaveFileInfo *info_at(DListNode *node)
{
    return *static_cast<VodSaveFileInfo **>(adt_dlist_data(node));
}

bool save_queue_names(const char *filename)
{
    if (!s_save_is_started)
        return false;
    save_guard held;
    for (DListNode *node = adt_dlist_head(s_ls_save_buf); node != nullptr;) {
        if (info_at(node) == nullptr) {
            LOG(LOG_PACKAGE, "info == NULL");
            node = adt_dlist_erase(s_ls_save_buf, node);
            continue;
        }
        if (std::strcmp(info_at(node)->file_property.filename, filename) == 0)
            return true;
        node = adt_dlist_next(node);
    }
    return false;
}

uint64_t save_queue_bytes()
{
    if (!s_save_is_started)
        return 0;
    save_guard held;
    return s_save_buf;
}

// ---- Carrying out ---------------------------------------------------------------------------------------------------

// Operations on one file are carried out in turn, so its end is where the last write stopped.
static void append(VodSaveFileInfo *info)
{
    uint64_t end = 0;
    if (info->fp != nullptr && os_file_size(info->fp, &end))
        os_file_pwrite(info->fp, save_file_info_data(info), static_cast<size_t>(info->size), end);
}

static void fremove(const char *filename, int32_t storage_type)
{
    if (storage_type != STORAGE_TYPE_WITHOUT_FILES && !os_file_remove(filename))
        LOG(LOG_PACKAGE, "remove faild file:%s", filename);
}

// The modification time is deliberately left as the writes made it.
static void fproperty(const char *filename, time_t)
{
    if (filename == nullptr)
        LOG(LOG_REFUSE, "filename == NULL");
}

static void close_file(VodSaveFileInfo *info, int32_t storage_type)
{
    if (storage_type != STORAGE_TYPE_WITHOUT_FILES && info->fp != nullptr)
        os_file_close(info->fp);
    LOG(LOG_REFUSE, "fclose");
    if (info->file_property.tm <= 0)
        return;
    fproperty(info->file_property.filename, info->file_property.tm);
    LOG(LOG_REFUSE, "fproperty");
}

void save_file_info_carry_out(VodSaveFileInfo *info, int32_t storage_type)
{
    switch (info->type) {
    case SAVE_WRITE:
        if (storage_type != STORAGE_TYPE_WITHOUT_FILES)
            append(info);
        break;
    case SAVE_CLOSE:
        close_file(info, storage_type);
        break;
    case SAVE_REMOVE:
        fremove(info->file_property.filename, storage_type);
        LOG(LOG_REFUSE, "fremove");
        break;
    default:
        LOG(LOG_REFUSE, "type：%d not define", info->type);
    }
    std::free(info);
}

// ---- Thread ---------------------------------------------------------------------------------------------------------

// Waits for the oldest operation and takes it. What is taken no longer counts as waiting.
static VodSaveFileInfo *take_oldest()
{
    save_guard held;
    while (adt_dlist_empty(s_ls_save_buf))
        os_cond_wait(&s_save_filled, held.mutex(), OS_WAIT_FOREVER);
    DListNode *head = adt_dlist_head(s_ls_save_buf);
    VodSaveFileInfo *info = info_at(head);
    adt_dlist_erase(s_ls_save_buf, head);
    if (info == nullptr)
        return LOGGED(nullptr, LOG_PACKAGE, "info == NULL");
    s_save_buf -= info->type == SAVE_WRITE ? static_cast<uint64_t>(info->size) : 0;
    return info;
}

static int save_thr_func(void *)
{
    os_thread_name("vod_save");
    for (;;)
        if (VodSaveFileInfo *info = take_oldest(); info != nullptr)
            save_file_info_carry_out(info, s_save_storage_type);
}

// What an earlier, failed start has made is used again.
static bool save_queue_create()
{
    if (s_ls_save_buf == nullptr)
        s_ls_save_buf = adt_dlist_create(sizeof(VodSaveFileInfo *));
    if (s_ls_save_buf == nullptr)
        return LOGGED(false, LOG_PACKAGE, "s_ls_save_buf == NULL");
    if (s_save_mutex.impl == nullptr && !os_mutex_init(&s_save_mutex, 0))
        return LOGGED(false, LOG_SYSTEM, "!os_mutex_init(&s_save_mutex, 0)");
    os_mutex_set_rank(&s_save_mutex, SAVE_LOCK_RANK, "save queue");
    if (s_save_filled.impl == nullptr && !os_cond_init(&s_save_filled))
        return LOGGED(false, LOG_SYSTEM, "!os_cond_init(&s_save_filled)");
    return true;
}

int save_queue_start()
{
    std::lock_guard starting(s_save_start_mutex);
    if (s_save_is_started)
        return 1;
    if (!save_queue_create())
        return 0;
    s_save_storage_type = vod_player_get_storage_type();
    LThread thr = {};
    if (!os_thread_create(&thr, 0, save_thr_func, nullptr))
        return LOGGED(0, LOG_SYSTEM, "!os_thread_create(&thr, 0, save_thr_func, NULL)");
    os_thread_detach(&thr);
    s_save_is_started = true;
    return 1;
}
