// The record index over its stores, beside the same records and questions in plain LMDB with one read for each value,
// in SQLite and in a PostgreSQL table.
#include "bench/figure.h"
#include "bench/index_load.h"
#include "bench/index_peers.h"
#include "platform/os/os.h"
#include "silo_pool/silo_channels.h"
#include "silo_pool/silo_orb.h"
#include "tests/silo/pg_server.h"
#include "tests/support/temp_folder.h"

#include <CLI/CLI.hpp>
#include <filesystem>

struct bench_plan {
    uint64_t records = 1000000, server_records = 100000, single_inserts = 2000;
    int runs = 5;
};

// Of the connection that the last search used, since it was opened.
static uint64_t s_round_trips;

static size_t ask(const bench_question &question)
{
    silo_orb_iterator *it = silo_orb_iterator_init(question.is_one_channel ? BENCH_HOST : nullptr, BENCH_CHANNEL, 0,
                                                   question.from, question.to);
    bench_require(it != nullptr, "no search");
    size_t found = 0;
    while (silo_orb_iterator_next(it) == 0)
        found++;
    s_round_trips = silo_round_trips(it->conn->db);
    silo_orb_iterator_destroy(it);
    return found;
}

// ---- Questions ------------------------------------------------------------------------------------------------------

template <class F> static double milliseconds(int runs, F call)
{
    call();
    std::vector<double> ms;
    for (int i = 0; i < runs; i++) {
        stopwatch watch;
        call();
        ms.push_back(watch.seconds() * 1000);
    }
    return median_of(ms);
}

struct named_peer {
    const char *name;
    index_peer *peer;
    double ratio_wanted[3]; // for each question; 0: none
};

static void ask_all(const std::string &store, int runs, const std::vector<named_peer> &peers)
{
    for (size_t i = 0; i < 3; i++) {
        const bench_question &question = BENCH_QUESTIONS[i];
        silo_channels_forget();
        stopwatch watch;
        size_t found = ask(question);
        if (question.is_one_channel)
            figure_print({store + ": " + question.name + ", first time", "ms", watch.seconds() * 1000});
        double ours = milliseconds(runs, [&] { ask(question); });
        for (const named_peer &other : peers) {
            bench_require(other.peer->ask(question) == found, std::string(other.name) + " finds something else");
            double peer = milliseconds(runs, [&] { other.peer->ask(question); });
            double limit = other.ratio_wanted[i];
            figure_print({store + ": " + question.name + ", " + std::to_string(found) + " records", "ms", ours,
                          other.name, peer, limit > 0 ? WANTED_RATIO_AT_MOST : WANTED_NOTHING, limit});
        }
    }
}

// ---- Stores ---------------------------------------------------------------------------------------------------------

static double load_peer(index_peer *peer, uint64_t records)
{
    stopwatch watch;
    peer->load(records);
    return static_cast<double>(records) / watch.seconds();
}

static uint64_t bytes_below(const std::string &folder)
{
    uint64_t bytes = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(folder))
        bytes += entry.is_regular_file() ? entry.file_size() : 0;
    return bytes;
}

static void embedded(const temp_folder &folder, const bench_plan &plan)
{
    auto plain = lmdb_peer(folder.file("plain"));
    auto sqlite = sqlite_peer(folder.path().string());
    std::string store = "lmdb:" + folder.file("store");
    index_use(store + "?sync=0");
    double ours = index_load(1, plan.records, plan.records, 1000);
    double bytes = static_cast<double>(bytes_below(folder.file("store"))) / static_cast<double>(plan.records);
    figure_print({"lmdb: inserts, 1000 a commit", "records/s", ours, "plain LMDB", load_peer(plain.get(), plan.records),
                  WANTED_RATIO_AT_LEAST, 0.4});
    double plain_bytes = static_cast<double>(bytes_below(folder.file("plain"))) / static_cast<double>(plan.records);
    figure_print({"lmdb: bytes of a record", "bytes", bytes, "plain LMDB", plain_bytes, WANTED_RATIO_AT_MOST, 1.2});
    std::vector<named_peer> peers = {{"plain LMDB", plain.get(), {0.5, 0.3, 0.3}}};
    if (sqlite != nullptr) {
        figure_print({"SQLite: inserts, 1000 a commit", "records/s", load_peer(sqlite.get(), plan.records)});
        peers.push_back({"SQLite", sqlite.get(), {}});
    }
    ask_all("lmdb", plan.runs, peers);
    uint64_t next = plan.records + 1;
    figure_print({"lmdb: inserts, 1 a commit, not synced", "records/s",
                  index_load(next, next + plan.single_inserts - 1, plan.records, 1)});
    next += plan.single_inserts;
    index_use(store);
    figure_print({"lmdb: inserts, 1 a commit, synced", "records/s",
                  index_load(next, next + plan.single_inserts - 1, plan.records, 1)});
    silo_pool_close();
}

// The pool hands out the same connection again.
static double round_trips_per_1000(const bench_question &question)
{
    ask(question);
    uint64_t before = s_round_trips;
    size_t found = ask(question);
    return 1000.0 * static_cast<double>(s_round_trips - before) / static_cast<double>(found);
}

static void server(const bench_plan &plan)
{
    std::string why;
    pg_server server;
    if (!pg_programs_are_there(&why) || !server.start()) {
        std::printf("PostgreSQL is left out: %s\n", why.c_str());
        return;
    }
    auto table = postgresql_peer(server.uri());
    index_use(server.uri("connect_ms=10000&statement_ms=60000"));
    double ours = index_load(1, plan.server_records, plan.server_records, 1000);
    figure_print({"PostgreSQL: inserts, 1000 a commit", "records/s", ours, "table (COPY)",
                  load_peer(table.get(), plan.server_records)});
    ask_all("PostgreSQL", plan.runs, {{"table", table.get(), {}}});
    figure_print({"PostgreSQL: round trips for 1000 records of a day",
                  "",
                  round_trips_per_1000(BENCH_QUESTIONS[0]),
                  {},
                  0,
                  WANTED_BELOW,
                  20});
    uint64_t next = plan.server_records + 1;
    figure_print({"PostgreSQL: inserts, 1 a commit", "records/s",
                  index_load(next, next + plan.single_inserts / 4, plan.server_records, 1)});
    silo_pool_close();
}

int main(int argc, char **argv)
{
    bench_plan plan;
    bool is_quick = false;
    std::string data;
    CLI::App app("The record index beside plain LMDB, SQLite and a PostgreSQL table");
    app.add_flag("--quick", is_quick, "small and once: shows that it works, measures nothing");
    app.add_option("--records", plan.records, "records in the embedded stores")->check(CLI::Range(64, 100000000));
    app.add_option("--server-records", plan.server_records, "records in the servers")->check(CLI::Range(64, 100000000));
    app.add_option("--data", data, "accepted as the other benches do; nothing is kept");
    CLI11_PARSE(app, argc, argv);
    if (is_quick)
        plan = {2000, 1000, 20, 1};
    os_log_set_level(LOG_SYSTEM);
    temp_folder folder;
    embedded(folder, plan);
    server(plan);
    return 0;
}
