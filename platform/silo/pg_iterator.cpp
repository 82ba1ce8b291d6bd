// Walking in key order, with batches read ahead that grow while the walk goes on.
#include "platform/silo/pg_store.h"

#include <algorithm>

static constexpr size_t BATCHES[] = {64, 256, 1024};
// Longer values are fetched when the iterator stands on them, so that a batch stays below 5 MB.
static constexpr size_t READ_AHEAD_VALUE_MAX = 4096;

silo_iterator_t *pg_iterator_begin(silo_transaction_t *trans)
{
    auto iter = new pg_iterator;
    iter->trans = trans;
    return iter;
}

void pg_iterator_end(silo_iterator_t *iter)
{
    delete static_cast<pg_iterator *>(iter);
}

// ---- Filling -------------------------------------------------------------------------------------------------------

static void start_batch(pg_iterator *iter)
{
    iter->rows.clear();
    iter->at = 0;
    iter->writes = pg_transaction_of(iter)->writes;
}

// Where all up to the end of the walk was announced and fetched.
static bool fill_from_known(pg_iterator *iter, const std::string &low)
{
    pg_transaction *trans = pg_transaction_of(iter);
    if (!trans->known.knows_range(low, iter->end))
        return false;
    start_batch(iter);
    const pg_known::pairs_map &pairs = trans->known.pairs();
    for (auto pair = pairs.lower_bound(low); pair != pairs.end() && pair->first < iter->end; ++pair)
        iter->rows.push_back({pair->first, pair->second, true});
    iter->is_last = true;
    return true;
}

static bool fill_from_server(pg_iterator *iter, const std::string &low)
{
    pg_transaction *trans = pg_transaction_of(iter);
    size_t limit = BATCHES[std::min(iter->batch, std::size(BATCHES) - 1)];
    pg_answer result;
    if (!pg_transaction_ask(trans,
                            {"SELECT k, CASE WHEN length(v) <= " + std::to_string(READ_AHEAD_VALUE_MAX) +
                                 " THEN v END FROM " + pg_db_of(trans)->table +
                                 " WHERE k >= $1 AND k < $2 ORDER BY k LIMIT " + std::to_string(limit),
                             {pg_bytes(low), pg_bytes(iter->end)}},
                            &result, "walking"))
        return false;
    start_batch(iter);
    int count = PQntuples(result.get());
    for (int row = 0; row < count; row++)
        iter->rows.push_back({std::string(pg_cell(result, row, 0)), std::string(pg_cell(result, row, 1)),
                              !pg_cell_is_null(result, row, 1)});
    iter->is_last = static_cast<size_t>(count) < limit;
    iter->batch++;
    return true;
}

// ---- Standing ------------------------------------------------------------------------------------------------------

static bool complete_row(pg_iterator *iter, pg_row *row)
{
    if (row->is_whole)
        return true;
    std::string_view value;
    if (pg_get(iter->trans, row->key, &value) != SILO_FOUND)
        return false;
    row->value = value;
    row->is_whole = true;
    return true;
}

static silo_found stand(pg_iterator *iter)
{
    if (iter->at >= iter->rows.size())
        return SILO_ABSENT;
    pg_row &row = iter->rows[iter->at];
    if (!complete_row(iter, &row))
        return SILO_ERROR;
    iter->kv.key = row.key.data();
    iter->kv.key_len = static_cast<uint32_t>(row.key.size());
    iter->kv.val = row.value.data();
    iter->kv.val_len = static_cast<uint32_t>(row.value.size());
    return SILO_FOUND;
}

// `low` by value: it may be the key of a row that goes.
static silo_found fill_and_stand(pg_iterator *iter, std::string low)
{
    if (!fill_from_known(iter, low) && !fill_from_server(iter, low))
        return SILO_ERROR;
    return stand(iter);
}

silo_found pg_iterator_seek(silo_iterator_t *handle, std::string_view key)
{
    auto iter = static_cast<pg_iterator *>(handle);
    iter->end = iter->bound_len == 0 ? pg_range_end() : pg_prefix_end({iter->bound, iter->bound_len});
    iter->batch = 0;
    return fill_and_stand(iter, std::string(key));
}

silo_found pg_iterator_next(silo_iterator_t *handle)
{
    auto iter = static_cast<pg_iterator *>(handle);
    bool is_stale = iter->writes != pg_transaction_of(iter)->writes;
    if (!is_stale && (iter->at + 1 < iter->rows.size() || iter->is_last)) {
        iter->at++;
        return stand(iter);
    }
    if (is_stale)
        iter->batch = 0;
    return fill_and_stand(iter, std::string(iter->kv.key, iter->kv.key_len) + '\0');
}
