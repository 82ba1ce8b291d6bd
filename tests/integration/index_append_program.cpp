// Enters records one after the other, each in a transaction of its own and a second later than the one before:
//
//     index_append_program STORE PREFIX COUNT
//
// "<prefix>0", "<prefix>1", ... of the device "writer". With the prefix "=", which is no name, it rewrites what is there
// as often. Ends with 0 when every commit succeeded.
#include "platform/os/os_guard.h"
#include "silo_pool/silo_orb.h"
#include "silo_pool/silo_owners.h"

#include <cstdio>
#include <cstdlib>
#include <string>

static silo_record_values values_of(const std::string &path, const std::string &begin)
{
    return {.path = path,
            .bt = begin,
            .host = "writer",
            .ch = 1,
            .et = begin,
            .size = 1'000'000,
            .rt = 1,
            .md5 = "0123456789abcdef0123456789abcdef",
            .lock_time = "0-00-00 00:00:00",
            .left_out = 0};
}

static int write_once(const std::string &path, int number, bool is_again)
{
    silo_connection_ptr conn(silo_pool_get_connection());
    silo_transaction_ptr trans(conn != nullptr ? silo_begin_transaction(conn->db, SILO_WRITE) : nullptr);
    char begin[64];
    std::snprintf(begin, sizeof begin, "2024-05-06 %02d:%02d:%02d", number / 3600, number / 60 % 60, number % 60);
    uint64_t id = 0;
    if (trans == nullptr)
        return SILO_COMMIT_FAILED;
    std::string known;
    if (is_again && silo_record_find(trans.get(), path, &id))
        known = std::to_string(id);
    silo_put_result result = silo_record_put(trans.get(), values_of(path, begin), known, &id);
    if (result != SILO_PUT_NEW && result != SILO_PUT_CONTINUED)
        return silo_transaction_conflict(trans.get()) ? SILO_COMMIT_CONFLICT : SILO_COMMIT_FAILED;
    return silo_commit(trans.get());
}

int main(int argc, char **argv)
{
    argv = os_program_start(argc, argv);
    if (argc != 4)
        return 64;
    silo_pool_set_db_uri(argv[1]);
    std::string prefix = argv[2];
    bool is_again = prefix == "=";
    int status = 0;
    for (int i = 0, count = std::atoi(argv[3]); i < count && status == 0;) {
        std::string path = is_again ? "again_" + std::to_string(i % 200) : prefix + std::to_string(i);
        int result = write_once(path, is_again ? i % 200 : i, is_again);
        if (result == 0)
            i++;
        else if (result != SILO_COMMIT_CONFLICT)
            status = 1;
    }
    silo_pool_close();
    return status;
}
