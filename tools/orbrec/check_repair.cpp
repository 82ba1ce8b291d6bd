#include "tools/orbrec/check_keys.h"
#include "tools/orbrec/progress.h"

#include "silo_pool/silo_values.h"

#include <algorithm>

static const char *const s_left = "nothing says how to mend it";

struct repair {
    const check_command &command;
    const index_snapshot &snapshot;
    std::vector<finding> *findings;
    bool may_hide;
    bool is_good = true;
};

static void leave(finding *found, const std::string &reason)
{
    found->reason = reason;
}

// One change in a transaction of its own.
static void mend(repair *run, finding *found, const std::function<mend_result(silo_transaction_t *)> &change,
                 finding_state state = FINDING_MENDED)
{
    mend_result result = MEND_FAILED;
    run->is_good = index_write([&](silo_transaction_t *trans) {
        result = change(trans);
        return result == MEND_DONE ? INDEX_COMMIT : result == MEND_FAILED ? INDEX_FAILED : INDEX_NOTHING;
    });
    if (!run->is_good || result == MEND_LEFT)
        return leave(found, run->is_good ? s_left : "the index cannot be written");
    found->state = state;
}

// ---- Entries and files ----------------------------------------------------------------------------------------------

static bool file_is_gone(const std::string &file)
{
    std::string path, error;
    os_file_info info;
    return !system_path(file, &path, &error) || !os_file_stat(path.c_str(), 0, &info) || !info.is_regular;
}

static void hide(repair *run, finding *found)
{
    if (!run->may_hide)
        return leave(found, "the store may hold entries of other machines: name the devices of this one with --host");
    mend(
        run, found,
        [&](silo_transaction_t *trans) {
            silo_record record;
            bool is_same = silo_record_read(trans, found->id, &record) && found->path == record.path;
            return !is_same || !file_is_gone(found->file) ? MEND_NOTHING : hide_record(trans, found->id);
        },
        FINDING_HIDDEN);
}

// Files that are no recordings tell their size only.
static mend_result refresh_plain(silo_transaction_t *trans, const finding &found, uint64_t size, const std::string &md5)
{
    silo_record record;
    uint64_t revision;
    if (!silo_record_read(trans, found.id, &record) || found.path != record.path ||
        !silo_read_number(trans, silo_key_text(SILO_KEY_REV_HI), &revision))
        return MEND_LEFT;
    silo_key keys[] = {silo_key_field(found.id, SILO_FIELD_SIZE), silo_key_revision(found.id),
                       silo_key_field(found.id, SILO_FIELD_MD5)};
    silo_number_text texts[] = {silo_number_text(size), silo_number_text(revision)};
    bool is_put = silo_set_kv(trans, keys[0].text, keys[0].len, texts[0].digits, texts[0].len) == 0 &&
                  silo_set_kv(trans, keys[1].text, keys[1].len, texts[1].digits, texts[1].len) == 0 &&
                  silo_set_kv(trans, keys[2].text, keys[2].len, md5.data(), md5.size()) == 0;
    return is_put ? MEND_DONE : MEND_FAILED;
}

static void refresh_as_plain(repair *run, finding *found, const std::string &reason)
{
    std::string path, error;
    os_file_info info;
    if (found->kind == FINDING_NO_ENTRY || !system_path(found->file, &path, &error) ||
        !os_file_stat(path.c_str(), 0, &info))
        return leave(found, reason);
    std::string md5 = file_md5(found->file, info.size, nullptr);
    if (md5.empty())
        return leave(found, "it changes, or cannot be read to its end");
    mend(run, found, [&](silo_transaction_t *trans) { return refresh_plain(trans, *found, info.size, md5); });
}

static bool begin_differs(const repair &run, uint64_t id)
{
    return std::ranges::any_of(*run.findings,
                               [&](const finding &found) { return found.kind == FINDING_BEGIN && found.id == id; });
}

// As `orbrec index` would.
static void enter_again(repair *run, finding *found)
{
    if (found->id != 0 && begin_differs(*run, found->id))
        return leave(found, "its begin differs too: orbrec index enters it anew");
    index_wishes wishes;
    wishes.folder = run->command.store.folder();
    wishes.path = found->path;
    indexed_file entered = index_file(found->file, wishes, nullptr);
    if (entered.result == INDEX_NO_RECORDING)
        return refresh_as_plain(run, found, entered.error);
    run->is_good = entered.result != INDEX_STORE_FAILED;
    if (entered.result == INDEX_STOPPED || !run->is_good)
        return leave(found, entered.error);
    found->state = FINDING_MENDED;
}

// ---- Keys -----------------------------------------------------------------------------------------------------------

static void mend_record(repair *run, finding *found)
{
    const index_row *row = row_of(run->snapshot, found->id);
    if (row == nullptr || row->path.empty())
        return leave(found, "nothing says which file it was");
    found->path = row->path;
    found->file = entry_file(row->path, run->command.store.folder());
    if (file_is_gone(found->file))
        return leave(found, "its file is gone, so nothing says what is missing");
    enter_again(run, found);
}

using key_mender = mend_result (*)(silo_transaction_t *trans, std::string_view key);

static key_mender mender_of(const finding &found)
{
    struct row {
        std::string_view prefix;
        key_mender mend;
    };
    static constexpr row ROWS[] = {{SILO_PREFIX_PATH, mend_path_key},
                                   {SILO_PREFIX_BY_TIME, mend_time_key},
                                   {SILO_PREFIX_REVISION, mend_revision_key}};
    for (const row &each : ROWS)
        if (found.key.starts_with(each.prefix))
            return each.mend;
    return nullptr;
}

static void mend_key(repair *run, finding *found)
{
    switch (found->problem) {
    case SILO_PROBLEM_FOREIGN_KEY:
        return leave(found, "it is not the index's and stays as it is");
    case SILO_PROBLEM_NO_COUNTERS:
    case SILO_PROBLEM_ID_BEYOND_COUNTER:
        return mend(run, found, [&](silo_transaction_t *trans) { return mend_counters(trans, run->snapshot); });
    case SILO_PROBLEM_RECORD_WITHOUT_PATH_KEY:
        return mend(run, found, [&](silo_transaction_t *trans) { return mend_own_path_key(trans, found->id); });
    case SILO_PROBLEM_RECORD_WITHOUT_TIME_KEY:
        return mend(run, found, [&](silo_transaction_t *trans) { return mend_own_time_key(trans, found->id); });
    default:
        break;
    }
    if (key_mender mender = mender_of(*found))
        return mend(run, found, [&](silo_transaction_t *trans) { return mender(trans, found->key); });
    mend_record(run, found);
}

static void mend_one(repair *run, finding *found)
{
    switch (found->kind) {
    case FINDING_KEY:
        return mend_key(run, found);
    case FINDING_FILE_MISSING:
        return hide(run, found);
    case FINDING_FOLDER_MISSING:
        return leave(found, "hidden only when the folder is there");
    case FINDING_BEGIN:
        return leave(found, "orbrec index enters it anew, under another id");
    case FINDING_MD5:
        return leave(found, "orbrec verify tells whether the file is sound; orbrec index --md5 takes it as it is");
    default:
        return enter_again(run, found);
    }
}

// Counters first: what is entered later takes the next id. Then what leads to records, then records, then files.
static int step_of(const finding &found)
{
    if (found.kind != FINDING_KEY)
        return 3;
    bool is_counter = found.problem == SILO_PROBLEM_NO_COUNTERS || found.problem == SILO_PROBLEM_ID_BEYOND_COUNTER;
    return is_counter ? 0 : mender_of(found) != nullptr ? 1 : 2;
}

bool check_repair(const check_command &command, const index_snapshot &snapshot, bool may_hide,
                  std::vector<finding> *findings)
{
    repair run{.command = command, .snapshot = snapshot, .findings = findings, .may_hide = may_hide};
    std::ranges::stable_sort(*findings, {}, step_of);
    progress_bar progress("repair", static_cast<int64_t>(findings->size()));
    int64_t done = 0;
    for (finding &found : *findings) {
        if (!run.is_good || orbrec_is_stopped())
            break;
        mend_one(&run, &found);
        progress.show(++done);
    }
    return run.is_good;
}
