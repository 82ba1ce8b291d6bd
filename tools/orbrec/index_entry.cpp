#include "tools/orbrec/index_entry.h"

#include "silo_pool/silo_values.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

// Searches look at the low 16 bits of a type; one without a bit is never found.
static constexpr uint32_t TYPE_DEFAULT = 1;

const char *index_result_text(index_result result)
{
    static constexpr const char *TEXTS[] = {"added", "updated", "replaced", "unchanged", "failed", "stopped", "failed"};
    return TEXTS[result];
}

// ---- The record that is there ---------------------------------------------------------------------------------------

static void add_path(const std::string &name, std::vector<std::string> *paths)
{
    std::string path, error;
    if (index_path(name, &path, &error) && std::ranges::find(*paths, path) == paths->end())
        paths->push_back(path);
}

std::vector<std::string> index_paths(const std::string &full, const std::string &folder)
{
    std::vector<std::string> paths;
    add_path(full, &paths);
    std::string root;
    char separator = static_cast<char>(std::filesystem::path::preferred_separator);
    if (full_name(folder + "/x", &root))
        root.pop_back();
    if (!root.empty() && root.back() == separator && full.starts_with(root))
        add_path(full.substr(root.size()), &paths);
    return paths;
}

uint64_t index_find(silo_transaction_t *trans, const std::vector<std::string> &paths, std::string *path)
{
    uint64_t id;
    for (const std::string &each : paths)
        if (silo_record_find(trans, each, &id)) {
            *path = each;
            return id;
        }
    return 0;
}

struct known_record {
    uint64_t id = 0; // 0: there is none
    std::string path;
    silo_record record = {};
    bool is_visible = false;
    bool is_astray = false; // the path leads to a record of another path, which stays as it is
};

// ---- One file on its way --------------------------------------------------------------------------------------------

struct index_job {
    const index_wishes &wishes;
    std::vector<std::string> paths;
    indexed_file file;
    // What the record is to say, with what it says already where nothing else is known.
    std::string host;
    uint32_t channel = 0, type = 0;
};

static known_record known_read(silo_transaction_t *trans, const index_job &job)
{
    known_record known = {};
    known.id = index_find(trans, job.paths, &known.path);
    if (known.id == 0 || !silo_record_read(trans, known.id, &known.record))
        return known;
    if ((known.record.has & SILO_HAS_PATH) && known.path != known.record.path)
        return {.path = known.path, .is_astray = true};
    known.is_visible = (known.record.has & SILO_HAS_REVISION) && silo_record_is_visible(trans, known.record.revision);
    return known;
}

// False when nobody says which device it is of.
static bool wanted_values(index_job *job, const known_record &known)
{
    const recording_facts &facts = job->file.facts;
    const silo_record &record = known.record;
    bool has_host = (record.has & SILO_HAS_HOST) != 0, has_channel = (record.has & SILO_HAS_CH) != 0;
    bool has_type = (record.has & SILO_HAS_RT) && (record.rt & 0xFFFF) != 0;
    uint32_t named_type = (facts.type & 0xFFFF) != 0 ? facts.type : TYPE_DEFAULT;
    job->host = !job->wishes.host.empty() ? job->wishes.host : has_host ? record.host_id : facts.host;
    job->channel = job->wishes.channel.value_or(has_channel ? record.ch : facts.channel);
    job->type = job->wishes.type.value_or(has_type ? static_cast<uint32_t>(record.rt) : named_type);
    return !job->host.empty();
}

static bool is_complete(const silo_record &record)
{
    static constexpr uint32_t NEEDED =
        SILO_HAS_BT | SILO_HAS_CH | SILO_HAS_HOST | SILO_HAS_PATH | SILO_HAS_RT | SILO_HAS_SIZE | SILO_HAS_REVISION;
    return (record.has & NEEDED) == NEEDED;
}

// The values that are written once.
static bool is_other(const index_job &job, const silo_record &record)
{
    const recording_facts &facts = job.file.facts;
    static constexpr uint32_t ONCE = SILO_HAS_BT | SILO_HAS_CH | SILO_HAS_HOST | SILO_HAS_PATH;
    return (record.has & ONCE) != ONCE || facts.begin != record.bt || job.channel != record.ch ||
           job.host != record.host_id;
}

static bool has_end(const silo_record &record)
{
    return (record.has & SILO_HAS_ET) != 0;
}

static bool is_current(const index_job &job, const known_record &known)
{
    const silo_record &record = known.record;
    const recording_facts &facts = job.file.facts;
    if (known.id == 0 || !known.is_visible || !is_complete(record) || is_other(job, record) ||
        job.type != static_cast<uint32_t>(record.rt) || facts.size != record.size)
        return false;
    if (facts.is_growing)
        return !has_end(record);
    return has_end(record) && facts.end == record.et && strlen(record.md5) == 32 &&
           (job.file.md5.empty() || job.file.md5 == record.md5);
}

// ---- Writing --------------------------------------------------------------------------------------------------------

static bool forget(silo_transaction_t *trans, uint64_t id, std::string_view field)
{
    silo_key key = silo_key_field(id, field);
    return silo_delete(trans, key.text, key.len) == 0;
}

// Locks outlive a new id.
static bool keep_lock(silo_transaction_t *trans, uint64_t id, const silo_record &record)
{
    if (!(record.has & SILO_HAS_LOCK_LEVEL))
        return true;
    silo_key key = silo_key_field(id, SILO_FIELD_LOCK_LEVEL);
    silo_number_text level(record.lock_level);
    return silo_set_kv(trans, key.text, key.len, level.digits, level.len) == 0;
}

// The values look into the job and the record.
static silo_record_values values_of(const index_job &job, const known_record &known)
{
    const recording_facts &facts = job.file.facts;
    silo_record_values values = {};
    values.path = known.path.empty() ? std::string_view(facts.path) : std::string_view(known.path);
    values.bt = facts.begin;
    values.host = job.host;
    values.ch = job.channel;
    values.et = facts.end;
    values.size = facts.size;
    values.rt = job.type;
    values.md5 = job.file.md5;
    values.lock_time = known.record.lock_time;
    if (!(known.record.has & SILO_HAS_LOCK_TIME))
        values.left_out |= SILO_HAS_LOCK_TIME;
    if (facts.end.empty())
        values.left_out |= SILO_HAS_ET;
    if (job.file.md5.empty())
        values.left_out |= SILO_HAS_MD5;
    return values;
}

static bool put_record(silo_transaction_t *trans, index_job *job, const known_record &known)
{
    bool is_new = known.id == 0, replaces = !is_new && is_other(*job, known.record);
    if (replaces && silo_orb_delete_path(trans, known.path.c_str(), 0) != 0)
        return false;
    if (silo_key stray = silo_key_path(known.path); known.is_astray && silo_delete(trans, stray.text, stray.len) != 0)
        return false;
    std::string expected = is_new || replaces ? "" : std::to_string(known.id);
    silo_put_result put = silo_record_put(trans, values_of(*job, known), expected, &job->file.id);
    if (put != SILO_PUT_NEW && put != SILO_PUT_CONTINUED)
        return false;
    job->file.result = is_new ? INDEX_ADDED : replaces ? INDEX_REPLACED : INDEX_UPDATED;
    if (replaces)
        return keep_lock(trans, job->file.id, known.record);
    // What is written again has neither yet.
    return !job->file.facts.is_growing ||
           (forget(trans, job->file.id, SILO_FIELD_ET) && forget(trans, job->file.id, SILO_FIELD_MD5));
}

static index_step write_step(silo_transaction_t *trans, index_job *job)
{
    known_record known = known_read(trans, *job);
    wanted_values(job, known);
    if (is_current(*job, known)) {
        // A first try whose answer was lost has done it.
        if (job->file.id != known.id)
            job->file.result = INDEX_UNCHANGED;
        job->file.id = known.id;
        return INDEX_NOTHING;
    }
    return put_record(trans, job, known) ? INDEX_COMMIT : INDEX_FAILED;
}

static void finish(index_job *job, index_result result, const std::string &error)
{
    job->file.result = result;
    job->file.error = error;
}

// Whether there is nothing more to do.
static bool look_first(index_job *job)
{
    known_record known;
    if (!index_read([&](silo_transaction_t *trans) {
            known = known_read(trans, *job);
            return true;
        }))
        return finish(job, INDEX_STORE_FAILED, "the index cannot be read"), true;
    if (!wanted_values(job, known))
        return finish(job, INDEX_NO_RECORDING, "its name does not say of which device it is: give --host"), true;
    job->file.id = known.id;
    bool is_done = !job->wishes.renew_md5 && is_current(*job, known);
    if (is_done)
        job->file.md5 = known.record.md5;
    job->file.result = INDEX_UNCHANGED;
    return is_done;
}

static bool sum_up(index_job *job, const std::function<void(uint64_t)> &progress)
{
    recording_facts *facts = &job->file.facts;
    if (facts->is_growing)
        return true;
    job->file.md5 = file_md5(facts->file, facts->size, progress);
    if (!job->file.md5.empty())
        return true;
    if (orbrec_is_stopped())
        finish(job, INDEX_STOPPED, "stopped");
    else
        finish(job, INDEX_NO_RECORDING, "it changes, or cannot be read to its end: index it again later");
    return false;
}

indexed_file index_file(const std::string &name, const index_wishes &wishes,
                        const std::function<void(uint64_t)> &progress)
{
    index_job job{.wishes = wishes, .paths = {}, .file = {}, .host = {}};
    if (!recording_facts_read(name, &job.file.facts, &job.file.error)) {
        job.file.result = INDEX_NO_RECORDING;
        return job.file;
    }
    job.paths = wishes.path.empty() ? index_paths(job.file.facts.file, wishes.folder) : std::vector{wishes.path};
    if (!look_first(&job) && sum_up(&job, progress)) {
        if (!index_write([&](silo_transaction_t *trans) { return write_step(trans, &job); }))
            finish(&job, INDEX_STORE_FAILED, "the index cannot be written");
    }
    job.file.facts.host = job.host;
    job.file.facts.channel = job.channel;
    job.file.facts.type = job.type;
    return job.file;
}
