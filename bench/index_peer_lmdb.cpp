#include "bench/figure.h"
#include "bench/index_peers.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <lmdb.h>

static void check(int result, const char *what)
{
    bench_require(result == MDB_SUCCESS, std::string(what) + ": " + mdb_strerror(result));
}

static MDB_val value_of(const std::string &text)
{
    return {text.size(), const_cast<char *>(text.data())};
}

class lmdb_index : public index_peer {
public:
    explicit lmdb_index(const std::string &folder)
    {
        std::filesystem::create_directories(folder);
        check(mdb_env_create(&env_), "mdb_env_create");
        check(mdb_env_set_mapsize(env_, size_t{16} << 30), "mdb_env_set_mapsize");
        check(mdb_env_open(env_, folder.c_str(), MDB_NOSYNC, 0644), "mdb_env_open");
    }
    ~lmdb_index() override { mdb_env_close(env_); }

    void load(uint64_t total) override
    {
        for (uint64_t id = 1; id <= total;) {
            MDB_txn *txn;
            check(mdb_txn_begin(env_, nullptr, 0, &txn), "mdb_txn_begin");
            check(mdb_dbi_open(txn, nullptr, 0, &dbi_), "mdb_dbi_open");
            for (int i = 0; i < 1000 && id <= total; i++, id++)
                put_record(txn, bench_record_of(id, total));
            check(mdb_txn_commit(txn), "mdb_txn_commit");
        }
    }

    size_t ask(const bench_question &question) override
    {
        MDB_txn *txn;
        MDB_cursor *cursor;
        check(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn), "mdb_txn_begin");
        check(mdb_cursor_open(txn, dbi_, &cursor), "mdb_cursor_open");
        std::string start = std::string("bt.") + question.from + ".", end = std::string("bt.") + question.to + ".Z";
        MDB_val key = value_of(start), value;
        size_t found = 0;
        for (int rc = mdb_cursor_get(cursor, &key, &value, MDB_SET_RANGE); rc == MDB_SUCCESS;
             rc = mdb_cursor_get(cursor, &key, &value, MDB_NEXT)) {
            if (std::string_view(static_cast<char *>(key.mv_data), key.mv_size) >= end)
                break;
            found += read_record(txn, std::string(static_cast<char *>(value.mv_data), value.mv_size), question);
        }
        mdb_cursor_close(cursor);
        mdb_txn_abort(txn);
        return found;
    }

private:
    void put(MDB_txn *txn, const std::string &key, const std::string &value)
    {
        MDB_val k = value_of(key), v = value_of(value);
        check(mdb_put(txn, dbi_, &k, &v, 0), "mdb_put");
    }
    void put_record(MDB_txn *txn, const bench_record &record)
    {
        std::string id = std::to_string(record.id), f = "f." + id + ".";
        put(txn, std::string("p.") + record.path, id);
        put(txn, f + "path", record.path);
        put(txn, f + "bt", record.bt);
        put(txn, std::string("bt.") + record.bt + "." + id, id);
        put(txn, f + "host", record.host_id);
        put(txn, f + "ch", std::to_string(record.ch));
        put(txn, f + "et", record.et);
        put(txn, "r." + id, "2");
        put(txn, f + "size", std::to_string(record.size));
        put(txn, f + "rt", std::to_string(record.rt));
        put(txn, f + "md5", record.md5);
        put(txn, f + "lock_time", "0-00-00 00:00:00");
    }
    // The length of the copied text, -1 when the key is absent.
    int get(MDB_txn *txn, const char *key, char *to, size_t size)
    {
        MDB_val k = {std::strlen(key), const_cast<char *>(key)}, v;
        if (mdb_get(txn, dbi_, &k, &v) != MDB_SUCCESS)
            return -1;
        size_t length = v.mv_size < size ? v.mv_size : size - 1;
        std::memcpy(to, v.mv_data, length);
        to[length] = '\0';
        return static_cast<int>(length);
    }
    // Eleven questions a record: one for each of its keys, as the keys stand in docs/record-index.md.
    size_t read_record(MDB_txn *txn, const std::string &id, const bench_question &question)
    {
        char key[64], host[256], text[4096];
        auto field = [&](const char *name, char *to, size_t size) {
            std::snprintf(key, sizeof key, "f.%s.%s", id.c_str(), name);
            return get(txn, key, to, size);
        };
        std::snprintf(key, sizeof key, "r.%s", id.c_str());
        if (get(txn, key, text, sizeof text) < 0 || std::strtoull(text, nullptr, 10) > 2 ||
            field("rt", text, sizeof text) < 0 || field("host", host, sizeof host) < 0 ||
            field("ch", text, sizeof text) < 0)
            return 0;
        if (question.is_one_channel && (std::strcmp(host, BENCH_HOST) != 0 || std::atoi(text) != BENCH_CHANNEL))
            return 0;
        bool is_whole = true;
        for (const char *name : {"path", "bt", "size", "et", "lock_time", "md5"})
            is_whole = field(name, text, sizeof text) >= 0 && is_whole;
        field("lock_level", text, sizeof text);
        return is_whole;
    }

    MDB_env *env_ = nullptr;
    MDB_dbi dbi_ = 0;
};

std::unique_ptr<index_peer> lmdb_peer(const std::string &folder)
{
    return std::make_unique<lmdb_index>(folder);
}
