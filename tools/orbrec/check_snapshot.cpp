#include "tools/orbrec/check.h"

#include <algorithm>

bool index_snapshot::is_hidden(const index_row &row) const
{
    return has_revisions && (row.has & SILO_HAS_REVISION) && (row.revision < rev_lo || row.revision > rev_hi);
}

bool index_snapshot::is_index() const
{
    static constexpr uint32_t TELLING = SILO_HAS_PATH | SILO_HAS_BT;
    return has_revisions ||
           std::ranges::any_of(rows, [](const index_row &row) { return (row.has & TELLING) == TELLING; });
}

static int take_problem(void *user, silo_problem problem, uint64_t id, std::string_view key)
{
    auto snapshot = static_cast<index_snapshot *>(user);
    if (problem == SILO_PROBLEM_FOREIGN_KEY)
        snapshot->foreign_keys++;
    if (problem == SILO_PROBLEM_RECORD_WITHOUT_PATH_KEY)
        snapshot->not_led_to.insert(id);
    // Hidden entries are looked at with their files.
    if (problem != SILO_PROBLEM_INVISIBLE)
        snapshot->problems.push_back({problem, id, std::string(key)});
    return !orbrec_is_stopped();
}

static int take_row(void *user, const silo_record *record)
{
    auto snapshot = static_cast<index_snapshot *>(user);
    snapshot->rows.push_back({.id = record->ino,
                              .size = record->size,
                              .revision = record->revision,
                              .has = record->has,
                              .ch = record->ch,
                              .path = record->path,
                              .host = record->host_id,
                              .begin = record->bt,
                              .end = record->et,
                              .md5 = record->md5});
    snapshot->highest_id = std::max(snapshot->highest_id, record->ino);
    snapshot->highest_revision = std::max(snapshot->highest_revision, record->revision);
    return !orbrec_is_stopped();
}

bool snapshot_take(index_snapshot *snapshot)
{
    bool is_read = index_read([&](silo_transaction_t *trans) {
        snapshot->has_revisions = silo_read_number(trans, silo_key_text(SILO_KEY_REV_HI), &snapshot->rev_hi) &&
                                  silo_read_number(trans, silo_key_text(SILO_KEY_REV_LO), &snapshot->rev_lo);
        silo_check_counts counts;
        return silo_index_check(trans, take_problem, snapshot, &counts) != 0 &&
               silo_record_walk(trans, take_row, snapshot) != 0 && !orbrec_is_stopped();
    });
    std::ranges::sort(snapshot->rows, {}, &index_row::id);
    return is_read;
}

const index_row *row_of(const index_snapshot &snapshot, uint64_t id)
{
    auto row = std::ranges::lower_bound(snapshot.rows, id, {}, &index_row::id);
    return row == snapshot.rows.end() || row->id != id ? nullptr : &*row;
}
