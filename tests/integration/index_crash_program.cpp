// Changes a record index without end, until it is killed: enters, continues and deletes records at random, each in one
// transaction. Says beforehand what it is about to commit, afterwards that it is committed.
//
//     index_crash_program STORE LOG SEED
#include "platform/os/os_guard.h"
#include "silo_pool/silo_orb.h"
#include "silo_pool/silo_owners.h"

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

static constexpr size_t RECORDS_MAX = 40;

struct live_record {
    uint64_t id;
    std::string path;
};

struct crash_writer {
    std::FILE *log;
    std::string seed;
    std::mt19937 random;
    std::vector<live_record> live{};
    int made = 0;
};

static void say(crash_writer *writer, const std::string &line)
{
    // In one piece.
    std::string text = line + "\n";
    std::fwrite(text.data(), 1, text.size(), writer->log);
    std::fflush(writer->log);
}

static int take_live(void *user, const silo_record *record)
{
    static_cast<crash_writer *>(user)->live.push_back({record->ino, record->path});
    return 1;
}

static bool read_live(crash_writer *writer)
{
    silo_connection_ptr conn(silo_pool_get_connection());
    silo_transaction_ptr trans(conn != nullptr ? silo_begin_transaction(conn->db, SILO_READ) : nullptr);
    return trans != nullptr && silo_record_walk(trans.get(), take_live, writer) != 0;
}

// What is about to be committed, with the record as it will be.
struct next_change {
    std::string line;
    live_record record;
    size_t place; // among the live ones
    enum { ADD, CONTINUE, DELETE } what;
};

static bool put(crash_writer *writer, silo_transaction_t *trans, next_change *change)
{
    uint64_t size = writer->random() % 1000000;
    std::string time = "2026-01-0" + std::to_string(1 + size % 9) + " 08:00:00";
    silo_record_values values = {.path = change->record.path,
                                 .bt = time,
                                 .host = "dev",
                                 .ch = 1,
                                 .et = "2026-02-01 00:00:00",
                                 .size = size,
                                 .rt = 1,
                                 .md5 = "0123456789abcdef0123456789abcdef",
                                 .lock_time = "0-00-00 00:00:00",
                                 .left_out = 0};
    bool is_new = change->what == next_change::ADD;
    silo_put_result result =
        silo_record_put(trans, values, is_new ? "" : std::to_string(change->record.id), &change->record.id);
    change->line = (is_new ? "add " : "continue ") + std::to_string(change->record.id) + " " + std::to_string(size) +
                   " " + change->record.path;
    return result == (is_new ? SILO_PUT_NEW : SILO_PUT_CONTINUED);
}

static bool apply(crash_writer *writer, silo_transaction_t *trans, next_change *change)
{
    bool must_delete = writer->live.size() >= RECORDS_MAX;
    uint32_t dice = static_cast<uint32_t>(writer->random() % 4);
    if (writer->live.empty() || (!must_delete && dice < 2)) {
        change->what = next_change::ADD;
        change->record = {0, "D:\\rec\\" + writer->seed + "-" + std::to_string(++writer->made) + ".rec"};
        return put(writer, trans, change);
    }
    change->place = writer->random() % writer->live.size();
    change->record = writer->live[change->place];
    change->what = must_delete || dice == 2 ? next_change::DELETE : next_change::CONTINUE;
    if (change->what == next_change::CONTINUE)
        return put(writer, trans, change);
    change->line = "delete " + std::to_string(change->record.id) + " 0 " + change->record.path;
    return silo_orb_delete_path(trans, change->record.path.c_str(), 0) == 0;
}

static bool change_once(crash_writer *writer)
{
    silo_connection_ptr conn(silo_pool_get_connection());
    silo_transaction_ptr trans(conn != nullptr ? silo_begin_transaction(conn->db, SILO_WRITE) : nullptr);
    next_change change = {};
    if (trans == nullptr || !apply(writer, trans.get(), &change))
        return false;
    say(writer, change.line);
    if (silo_commit(trans.get()) != 0)
        return false;
    say(writer, "committed");
    if (change.what == next_change::ADD)
        writer->live.push_back(change.record);
    if (change.what == next_change::DELETE)
        writer->live.erase(writer->live.begin() + static_cast<ptrdiff_t>(change.place));
    return true;
}

int main(int argc, char **argv)
{
    argv = os_program_start(argc, argv);
    if (argc != 4)
        return 64;
    os_log_set_level(LOG_SYSTEM);
    silo_pool_set_db_uri(argv[1]);
    crash_writer writer{.log = std::fopen(argv[2], "ab"),
                        .seed = argv[3],
                        .random = std::mt19937(static_cast<uint32_t>(std::atoi(argv[3])))};
    if (writer.log == nullptr || silo_orb_initialize() != 0 || !read_live(&writer))
        return 1;
    while (change_once(&writer)) {
    }
    return 2;
}
