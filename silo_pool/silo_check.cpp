#include "silo_pool/silo_check.h"

#include "silo_pool/silo_record.h"
#include "silo_pool/silo_values.h"

#include <algorithm>
#include <iterator>
#include <limits>

const char *silo_problem_text(silo_problem problem)
{
    static constexpr const char *TEXTS[] = {
        "no key of the index",
        "a value that cannot be read",
        "the index's counters cannot be read",
        "a path that leads to no record of that path",
        "a begin time that leads to no record of that time",
        "a revision without a record",
        "a record that lacks what searches need",
        "a record whose path does not lead to it",
        "a record that is not among the begin times",
        "an id that is still to be given out",
        "a record of a revision that searches do not see",
    };
    return static_cast<size_t>(problem) < std::size(TEXTS) ? TEXTS[problem] : "";
}

struct index_check {
    silo_transaction_t *trans;
    silo_check_report report;
    void *user;
    silo_check_counts *counts;
    uint64_t rev_hi = 0, rev_lo = 0, ino = 0;
    uint64_t pairs = 0;
    bool has_counters = false, is_ended = false;
};

static int tell(index_check *check, silo_problem problem, uint64_t id, std::string_view key)
{
    check->counts->problems++;
    check->is_ended = check->report != nullptr && !check->report(check->user, problem, id, key);
    return !check->is_ended;
}

// ---- Keys that lead to records --------------------------------------------------------------------------------------

// The value of one field equals `wanted`.
static bool field_is(index_check *check, uint64_t id, std::string_view field, std::string_view wanted)
{
    char value[sizeof silo_record::path];
    int length = silo_get_vstr(check->trans, silo_key_field(id, field).text, value, sizeof value);
    return length >= 0 && wanted == std::string_view(value, static_cast<size_t>(length));
}

static int check_path_key(index_check *check, std::string_view key, std::string_view value)
{
    uint64_t id;
    if (!silo_number_from_text(value, &id))
        return tell(check, SILO_PROBLEM_BAD_VALUE, 0, key);
    return field_is(check, id, SILO_FIELD_PATH, key.substr(SILO_PREFIX_PATH.size())) ||
           tell(check, SILO_PROBLEM_PATH_WITHOUT_RECORD, id, key);
}

static int check_time_key(index_check *check, std::string_view key, std::string_view value)
{
    uint64_t id;
    if (!silo_number_from_text(value, &id))
        return tell(check, SILO_PROBLEM_BAD_VALUE, 0, key);
    std::string_view rest = key.substr(SILO_PREFIX_BY_TIME.size());
    size_t dot = rest.rfind('.');
    bool leads = dot != std::string_view::npos && silo_number_text(id).view() == rest.substr(dot + 1) &&
                 field_is(check, id, SILO_FIELD_BT, rest.substr(0, dot));
    return leads || tell(check, SILO_PROBLEM_TIME_WITHOUT_RECORD, id, key);
}

static int check_revision_key(index_check *check, std::string_view key, std::string_view value)
{
    std::string_view digits = key.substr(SILO_PREFIX_REVISION.size());
    uint64_t id, revision;
    if (!silo_number_from_text(digits, &id) || silo_number_text(id).view() != digits)
        return tell(check, SILO_PROBLEM_FOREIGN_KEY, 0, key);
    if (!silo_number_from_text(value, &revision))
        return tell(check, SILO_PROBLEM_BAD_VALUE, id, key);
    char path[2];
    return silo_get_vstr(check->trans, silo_key_field(id, SILO_FIELD_PATH).text, path, sizeof path) >= 0 ||
           tell(check, SILO_PROBLEM_REVISION_WITHOUT_RECORD, id, key);
}

// ---- Values of records ----------------------------------------------------------------------------------------------

struct field_rule {
    std::string_view name;
    bool is_number;
    uint64_t number_max;
    bool is_time;
};
static constexpr field_rule s_rules[] = {
    {SILO_FIELD_BT, false, 0, true},
    {SILO_FIELD_CH, true, std::numeric_limits<uint32_t>::max(), false},
    {SILO_FIELD_ET, false, 0, true},
    {SILO_FIELD_HOST, false, 0, false},
    {SILO_FIELD_LOCK_LEVEL, true, std::numeric_limits<uint32_t>::max(), false},
    {SILO_FIELD_LOCK_TIME, false, 0, true},
    {SILO_FIELD_MD5, false, 0, false},
    {SILO_FIELD_PATH, false, 0, false},
    {SILO_FIELD_RT, true, std::numeric_limits<uint32_t>::max(), false},
    {SILO_FIELD_SIZE, true, std::numeric_limits<uint64_t>::max(), false},
};

static int check_record_key(index_check *check, std::string_view key, std::string_view value)
{
    uint64_t id, number;
    std::string_view field;
    if (!silo_key_split(key, &id, &field))
        return tell(check, SILO_PROBLEM_FOREIGN_KEY, 0, key);
    auto rule = std::ranges::find(s_rules, field, &field_rule::name);
    if (rule == std::end(s_rules))
        return tell(check, SILO_PROBLEM_FOREIGN_KEY, id, key);
    DVR_TIME time;
    bool is_good = !(rule->is_number && (!silo_number_from_text(value, &number) || number > rule->number_max)) &&
                   !(rule->is_time && !silo_time_from_text(value, &time));
    return is_good || tell(check, SILO_PROBLEM_BAD_VALUE, id, key);
}

struct key_rule {
    std::string_view prefix;
    int (*check)(index_check *check, std::string_view key, std::string_view value);
};
static constexpr key_rule s_key_rules[] = {
    {SILO_PREFIX_RECORD, check_record_key},
    {SILO_PREFIX_BY_TIME, check_time_key},
    {SILO_PREFIX_PATH, check_path_key},
    {SILO_PREFIX_REVISION, check_revision_key},
};

static int check_pair(void *user, const silo_kv *kv)
{
    auto check = static_cast<index_check *>(user);
    std::string_view key(kv->key, kv->key_len), value(kv->val, kv->val_len);
    check->pairs++;
    for (const key_rule &rule : s_key_rules)
        if (key.starts_with(rule.prefix))
            return rule.check(check, key, value);
    // Looked at before, all three.
    if (key == SILO_KEY_REV_HI || key == SILO_KEY_REV_LO || key == SILO_KEY_INO)
        return 1;
    return tell(check, SILO_PROBLEM_FOREIGN_KEY, 0, key);
}

// ---- Records as a whole ---------------------------------------------------------------------------------------------

static bool leads_to(index_check *check, const silo_key &key, uint64_t id)
{
    uint64_t found;
    return silo_read_number(check->trans, key, &found) && found == id;
}

static int check_parts(index_check *check, const silo_record &record, std::string_view key)
{
    static constexpr uint32_t NEEDED = SILO_HAS_BT | SILO_HAS_CH | SILO_HAS_HOST | SILO_HAS_PATH | SILO_HAS_RT;
    if ((record.has & NEEDED) != NEEDED || !(record.has & SILO_HAS_REVISION))
        return tell(check, SILO_PROBLEM_INCOMPLETE_RECORD, record.ino, key);
    if (check->has_counters && (record.revision < check->rev_lo || record.revision > check->rev_hi))
        return tell(check, SILO_PROBLEM_INVISIBLE, record.ino, key);
    return 1;
}

static int check_record(void *user, const silo_record *record)
{
    auto check = static_cast<index_check *>(user);
    silo_key key = silo_key_record(record->ino);
    check->counts->records++;
    if (!check_parts(check, *record, key.view()))
        return 0;
    if ((record->has & SILO_HAS_PATH) && !leads_to(check, silo_key_path(record->path), record->ino) &&
        !tell(check, SILO_PROBLEM_RECORD_WITHOUT_PATH_KEY, record->ino, key.view()))
        return 0;
    if ((record->has & SILO_HAS_BT) && !leads_to(check, silo_key_by_time(record->bt, record->ino), record->ino) &&
        !tell(check, SILO_PROBLEM_RECORD_WITHOUT_TIME_KEY, record->ino, key.view()))
        return 0;
    return !check->has_counters || record->ino <= check->ino ||
           tell(check, SILO_PROBLEM_ID_BEYOND_COUNTER, record->ino, key.view());
}

static int check_counters(index_check *check)
{
    check->has_counters = true;
    struct counter {
        std::string_view key;
        uint64_t *number;
    };
    for (auto [key, number] : {counter{SILO_KEY_REV_HI, &check->rev_hi}, counter{SILO_KEY_REV_LO, &check->rev_lo},
                               counter{SILO_KEY_INO, &check->ino}}) {
        if (silo_read_number(check->trans, silo_key_text(key), number))
            continue;
        check->has_counters = false;
        if (!tell(check, SILO_PROBLEM_NO_COUNTERS, 0, key))
            return 0;
    }
    return 1;
}

int silo_index_check(silo_transaction_t *trans, silo_check_report report, void *user, silo_check_counts *counts)
{
    *counts = {};
    index_check check{trans, report, user, counts};
    if (!check_counters(&check) || !silo_key_walk(trans, {}, check_pair, &check) || check.is_ended)
        return 0;
    // Where the counters are, a walk that meets no key has failed.
    if (check.has_counters && check.pairs == 0)
        return 0;
    return silo_record_walk(trans, check_record, &check) && !check.is_ended;
}
