// Reading and writing single pairs, and fetching many in one go.
#include "platform/silo/pg_store.h"

#include "platform/os/os_guard.h"

#include <algorithm>
#include <charconv>

// Writes wait for the next question, but not without end.
static constexpr size_t PENDING_BYTES_MAX = 4 << 20;

// ---- One pair ------------------------------------------------------------------------------------------------------

static silo_found found(const std::string *value, std::string_view *out)
{
    if (value != nullptr)
        *out = *value;
    return value != nullptr ? SILO_FOUND : SILO_ABSENT;
}

silo_found pg_get(silo_transaction_t *handle, std::string_view key, std::string_view *value)
{
    auto trans = static_cast<pg_transaction *>(handle);
    if (pg_pending::outcome pending = trans->pending.look(key); pending.is_decided)
        return found(pending.value, value);
    if (trans->known.knows(key))
        return found(trans->known.value(key), value);
    pg_answer result;
    if (!pg_transaction_ask(trans, {"SELECT v FROM " + pg_db_of(trans)->table + " WHERE k = $1", {pg_bytes(key)}},
                            &result, "reading"))
        return SILO_ERROR;
    if (PQntuples(result.get()) == 0)
        return SILO_ABSENT;
    trans->value = pg_cell(result, 0, 0);
    return found(&trans->value, value);
}

// What was known and read ahead may no longer be true.
static bool changed(pg_transaction *trans)
{
    trans->writes++;
    trans->known.clear();
    if (trans->pending.bytes() < PENDING_BYTES_MAX)
        return true;
    pg_answer result;
    return pg_transaction_ask(trans, {"SELECT 1"}, &result, "writing");
}

bool pg_set(silo_transaction_t *handle, std::string_view key, std::string_view value)
{
    auto trans = static_cast<pg_transaction *>(handle);
    trans->pending.set(key, value);
    return changed(trans);
}

bool pg_remove(silo_transaction_t *handle, std::string_view key)
{
    auto trans = static_cast<pg_transaction *>(handle);
    trans->pending.remove(key);
    return changed(trans);
}

bool pg_remove_prefix(silo_transaction_t *handle, std::string_view prefix)
{
    auto trans = static_cast<pg_transaction *>(handle);
    trans->pending.remove_prefix(prefix);
    return changed(trans);
}

// ---- Many pairs ----------------------------------------------------------------------------------------------------

// What one announcement may bring: at worst some 30 MB cross the wire and a part of it is kept.
static constexpr size_t PREFIXES_MAX = 1024;
static constexpr int PREFIX_PAIRS = 32;
static constexpr size_t FETCHED_VALUE_MAX = 512;

using pairs_list = std::vector<std::pair<std::string, std::string>>;

// What is announced: single keys, sorted and once each, and ranges.
struct announced {
    std::vector<std::string_view> keys;
    std::vector<pg_range> ranges;
};

static announced sort_out(const silo_prefix *prefixes, size_t count)
{
    announced all;
    for (size_t i = 0; i < std::min(count, PREFIXES_MAX); i++) {
        std::string_view text(prefixes[i].text, prefixes[i].len);
        if (prefixes[i].exact)
            all.keys.push_back(text);
        else
            all.ranges.push_back(pg_prefix_range(text));
    }
    std::ranges::sort(all.keys);
    all.keys.erase(std::unique(all.keys.begin(), all.keys.end()), all.keys.end());
    return all;
}

static std::string short_value(const char *value)
{
    return std::string("CASE WHEN length(") + value + ") <= " + std::to_string(FETCHED_VALUE_MAX) + " THEN " + value +
           " END";
}

static pg_statement keys_statement(const std::string &table, const std::vector<std::string_view> &keys)
{
    pg_bytes_array wanted;
    for (std::string_view key : keys)
        wanted.add(key);
    return {"SELECT k, " + short_value("v") + " FROM " + table + " WHERE k = ANY($1)", {wanted.value()}};
}

static pg_statement ranges_statement(const std::string &table, const std::vector<pg_range> &ranges)
{
    pg_bytes_array low, high;
    for (const pg_range &range : ranges) {
        low.add(range.low);
        high.add(range.high);
    }
    std::string limit = std::to_string(PREFIX_PAIRS);
    return {"SELECT p.i::int8, t.k, " + short_value("t.v") +
                " FROM unnest($1, $2) WITH ORDINALITY AS p(low, high, i), LATERAL (SELECT k, v FROM " + table +
                " WHERE k >= p.low AND k < p.high ORDER BY k LIMIT " + limit + ") AS t ORDER BY p.i, t.k",
            {low.value(), high.value()}};
}

static void know_keys(pg_known *known, const std::vector<std::string_view> &keys, const pg_answer &result)
{
    static constexpr int ABSENT = -1;
    std::vector<int> rows(keys.size(), ABSENT);
    for (int row = 0, end = PQntuples(result.get()); row < end; row++) {
        auto place = std::ranges::lower_bound(keys, pg_cell(result, row, 0));
        if (place != keys.end() && *place == pg_cell(result, row, 0))
            rows[static_cast<size_t>(place - keys.begin())] = row;
    }
    for (size_t i = 0; i < keys.size(); i++) {
        if (rows[i] == ABSENT)
            known->add(pg_key_range(keys[i]), {});
        else if (!pg_cell_is_null(result, rows[i], 1))
            known->add(pg_key_range(keys[i]), {{std::string(keys[i]), std::string(pg_cell(result, rows[i], 1))}});
    }
}

// Takes the pairs of one range, the rows from `row` on that carry its number, and says how much of the range they show:
// up to the last pair where there may be more, up to the first one that is too long to have been fetched.
static int take_pairs(const pg_answer &result, int row, size_t number, pg_range *range, pairs_list *pairs)
{
    int first = row, end = PQntuples(result.get());
    bool is_cut = false;
    for (; row < end && pg_cell_int8(result, row, 0) == static_cast<int64_t>(number); row++) {
        std::string_view key = pg_cell(result, row, 1);
        if (!is_cut && pg_cell_is_null(result, row, 2)) {
            range->high = key;
            is_cut = true;
        }
        if (!is_cut)
            pairs->emplace_back(key, pg_cell(result, row, 2));
    }
    if (!is_cut && row - first == PREFIX_PAIRS)
        range->high = pairs->back().first + '\0';
    return row;
}

static void know_ranges(pg_known *known, std::vector<pg_range> *ranges, const pg_answer &result)
{
    int row = 0;
    for (size_t i = 0; i < ranges->size(); i++) {
        pairs_list pairs;
        row = take_pairs(result, row, i + 1, &(*ranges)[i], &pairs);
        known->add((*ranges)[i], pairs);
    }
}

int pg_prefetch(silo_transaction_t *handle, const silo_prefix *prefixes, size_t count)
{
    auto trans = static_cast<pg_transaction *>(handle);
    const std::string &table = pg_db_of(trans)->table;
    trans->known.clear();
    announced all = sort_out(prefixes, count);
    std::vector<pg_statement> statements;
    if (!all.keys.empty())
        statements.push_back(keys_statement(table, all.keys));
    if (!all.ranges.empty())
        statements.push_back(ranges_statement(table, all.ranges));
    if (statements.empty())
        return 0;
    std::vector<pg_answer> results;
    if (!pg_transaction_ask(trans, std::move(statements), &results, "reading ahead"))
        return -1;
    if (!all.keys.empty())
        know_keys(&trans->known, all.keys, results.front());
    if (!all.ranges.empty())
        know_ranges(&trans->known, &all.ranges, results.back());
    return 0;
}
