#include "vod/silo_file_ops.h"

#include "platform/os/os_guard.h"
#include "silo_pool/rbtree.h"
#include "silo_pool/silo_orb.h"
#include "silo_pool/silo_pool.h"
#include "silo_pool/silo_values.h"
#include "vod/lock_ranks.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <new>

static_assert(SILO_POOL_LOCK_RANK == static_cast<int>(LOCK_RANK_STORE_POOL));

// An open search. The tree holds one of its users, each thread inside a step another one; the last one ends it.
struct finding {
    rb_node node;
    int32_t id;
    silo_orb_iterator *iterator;
    int32_t users; // guarded by mod.lock
};

struct silo_file_ops_state {
    LMutex lock; // guards the rest
    rb_root findings;
    int32_t id_hw;  // the last number given
    int32_t opened; // searches that are open or being opened
};
static silo_file_ops_state mod;

struct mod_guard : os_lock_guard {
    explicit mod_guard(os_place place = os_place::current()) : os_lock_guard(&mod.lock, place) {}
};

static const finding *finding_of(const rb_node *node)
{
    return reinterpret_cast<const finding *>(node);
}

static int __findings_rbcmp(const rb_node *key, const rb_node *node, const rb_root *)
{
    int32_t one = finding_of(key)->id, other = finding_of(node)->id;
    return one < other ? -1 : one > other ? 1 : 0;
}

static bool __mod_init()
{
    bool is_made = os_mutex_init(&mod.lock, 1) != 0;
    os_mutex_set_rank(&mod.lock, LOCK_RANK_LEAF, "searches");
    mod.findings.root_node = nullptr;
    mod.findings.cmp_func = __findings_rbcmp;
    return is_made;
}
static const bool s_mod_is_made = __mod_init();

static finding *find_by_id(const mod_guard &, int32_t id)
{
    finding key = {};
    key.id = id;
    return reinterpret_cast<finding *>(rb_find(&key.node, &mod.findings));
}

int silo_db_init()
{
    return silo_orb_initialize();
}

bool silo_db_is_server()
{
    return silo_pool_is_server();
}

// ---- Opening and closing --------------------------------------------------------------------------------------------

static constexpr int32_t FINDINGS_TOLD_MIN = 64;

static bool admit_search()
{
    mod_guard held;
    if (mod.opened >= SILO_FINDINGS_MAX)
        return LOGGED(false, LOG_SYSTEM, "silo_db_find_file: %d searches are open", mod.opened);
    mod.opened++;
    // Clients that forget to close theirs show long before the limit.
    if (mod.opened >= FINDINGS_TOLD_MIN && std::has_single_bit(static_cast<uint32_t>(mod.opened)))
        LOG(LOG_REFUSE, "silo_db_find_file: %d searches are open", mod.opened);
    return true;
}

static void end_finding(finding *search)
{
    if (search != nullptr)
        silo_orb_iterator_destroy(search->iterator);
    delete search;
    mod_guard held;
    mod.opened--;
}

static silo_orb_iterator *open_iterator(const char *host_id, int32_t ch, int32_t filetype, const DVR_TIME &start,
                                        const DVR_TIME &end)
{
    char bt[SILO_TIME_SIZE], et[SILO_TIME_SIZE];
    silo_time_to_text(start, bt);
    silo_time_to_text(end, et);
    return silo_orb_iterator_init(host_id, ch, filetype, bt, et);
}

static int32_t __new_id(const mod_guard &held)
{
    do
        mod.id_hw = mod.id_hw == INT32_MAX || mod.id_hw < 0 ? 1 : mod.id_hw + 1;
    while (find_by_id(held, mod.id_hw) != nullptr);
    return mod.id_hw;
}

static int32_t enter_finding(finding *search)
{
    mod_guard held;
    search->id = __new_id(held);
    search->users = 1;
    rb_insert(&search->node, &mod.findings);
    return search->id;
}

int silo_db_find_file(const char *host_id, int32_t ch, int32_t filetype, const DVR_TIME *start, const DVR_TIME *end,
                      int32_t *findfd)
{
    if (!s_mod_is_made || start == nullptr || end == nullptr || findfd == nullptr || !admit_search())
        return 0;
    auto search = new (std::nothrow) finding{};
    if (search != nullptr)
        search->iterator = open_iterator(host_id, ch, filetype, *start, *end);
    if (search == nullptr || search->iterator == nullptr) {
        end_finding(search);
        return 0;
    }
    *findfd = enter_finding(search);
    return 1;
}

static finding *use_finding(int32_t findfd)
{
    mod_guard held;
    finding *search = find_by_id(held, findfd);
    if (search != nullptr)
        search->users++;
    return search;
}

static void leave_finding(finding *search)
{
    {
        mod_guard held;
        if (--search->users > 0)
            return;
    }
    end_finding(search);
}

static finding *erase_finding(int32_t findfd)
{
    mod_guard held;
    finding *search = find_by_id(held, findfd);
    if (search != nullptr)
        rb_erase(&search->node, &mod.findings);
    return search;
}

int silo_db_find_close(int32_t findfd)
{
    finding *search = erase_finding(findfd);
    if (search == nullptr)
        return 0;
    leave_finding(search);
    return 1;
}

// ---- Reading --------------------------------------------------------------------------------------------------------

static void fill_file_info(const silo_record &record, RecordFileInfo *f)
{
    f->ch = record.ch;
    text_copy(f->devid, record.host_id);
    LOG(LOG_TRACE, "get next file path => '%s'", record.path);
    silo_time_from_text(record.et, &f->endtime);
    text_copy(f->filename, record.path);
    f->filetype = record.rt;
    f->lock_level = static_cast<int32_t>(record.lock_level);
    silo_time_from_text(record.lock_time, &f->locktime);
    text_copy(f->md5, record.md5);
    f->size = static_cast<int64_t>(record.size);
    silo_time_from_text(record.bt, &f->starttime);
}

int silo_db_get_next_file(int32_t findfd, RecordFileInfo *f)
{
    if (f == nullptr)
        return -1;
    std::memset(f, 0, sizeof *f);
    finding *search = use_finding(findfd);
    if (search == nullptr)
        return -1;
    int result = silo_orb_iterator_next(search->iterator);
    if (result == 0)
        fill_file_info(search->iterator->current, f);
    leave_finding(search);
    return result == 0 ? 0 : -1;
}
