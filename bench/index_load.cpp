#include "bench/index_load.h"

#include "bench/figure.h"
#include "bench/index_records.h"
#include "silo_pool/silo_orb.h"
#include "silo_pool/silo_owners.h"

void index_use(const std::string &address)
{
    silo_pool_close();
    silo_pool_set_db_uri(address.c_str());
    bench_require(silo_orb_initialize() == 0, "the index is not ready");
}

static bool put_record(silo_transaction_t *trans, const bench_record &record)
{
    silo_record_values values = {.path = record.path,
                                 .bt = record.bt,
                                 .host = record.host_id,
                                 .ch = static_cast<uint32_t>(record.ch),
                                 .et = record.et,
                                 .size = record.size,
                                 .rt = record.rt,
                                 .md5 = record.md5,
                                 .lock_time = "0-00-00 00:00:00",
                                 .left_out = 0};
    uint64_t id;
    return silo_record_put(trans, values, {}, &id) == SILO_PUT_NEW;
}

double index_load(uint64_t first, uint64_t last, uint64_t total, int batch)
{
    silo_connection_ptr conn(silo_pool_get_connection());
    bench_require(conn != nullptr, "no connection to the store");
    stopwatch watch;
    for (uint64_t id = first; id <= last;) {
        silo_transaction_ptr trans(silo_begin_transaction(conn->db, SILO_WRITE));
        bench_require(trans != nullptr, "no transaction");
        for (int i = 0; i < batch && id <= last; i++, id++)
            bench_require(put_record(trans.get(), bench_record_of(id, total)), "a record is not written");
        bench_require(silo_commit(trans.get()) == 0, "a commit failed");
    }
    return static_cast<double>(last - first + 1) / watch.seconds();
}
