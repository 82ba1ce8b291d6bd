// Searching a large record index over the network: how long a client waits for the first hundred records.
#include "bench/figure.h"
#include "bench/find_session.h"
#include "bench/index_load.h"
#include "bench/load_options.h"
#include "bench/service_process.h"
#include "silo_pool/silo_pool.h"

#include <algorithm>
#include <deque>
#include <vector>

static constexpr int COUNT = 100;
static constexpr double FIRST_REPLY_MS = 20;

struct find_question {
    const char *name, *host;
    int channel, day; // of BENCH_QUESTIONS
    bool is_wanted;   // within FIRST_REPLY_MS
};

// Who asks for a device that has nothing waits until all has been looked at.
static constexpr find_question s_questions[] = {
    {"one day", "", -1, 0, true},
    {"one channel of a day", BENCH_HOST, BENCH_CHANNEL, 1, true},
    {"one channel of 30 days", BENCH_HOST, BENCH_CHANNEL, 2, true},
    {"a device without recordings, 30 days", "nobody", -1, 2, false},
};

static double ms_of(find_session *session, const find_question &question)
{
    return 1000 * session->find(question.host, question.channel, BENCH_QUESTIONS[question.day], COUNT);
}

// Of services that have just started, where nothing is remembered of earlier searches.
static double first_ms(const load_options &options, const std::string &store, const find_question &question, int runs)
{
    std::vector<double> ms;
    for (int i = 0; i < runs; i++) {
        service_process service(options, {.store = store});
        find_session session(service.port());
        ms.push_back(ms_of(&session, question));
    }
    return median_of(ms);
}

static void measure(const load_options &options, const std::string &store, const find_question &question, int runs)
{
    const std::string name = std::string("find: ") + question.name;
    const wanted_of_figure wanted = question.is_wanted ? WANTED_BELOW : WANTED_NOTHING;
    const double first = first_ms(options, store, question, std::min(runs, 5));
    service_process service(options, {.store = store});
    find_session session(service.port());
    std::vector<double> ms;
    for (int i = 0; i < runs; i++)
        ms.push_back(ms_of(&session, question));
    const std::string peer = "the same bytes, echoed";
    const double echo = 1000 * echo_seconds(runs, session.reply_bytes());
    figure_print({name + ", service just started", "ms", first, peer, echo, wanted, FIRST_REPLY_MS});
    figure_print({name + ", " + std::to_string(session.records()) + " records", "ms", median_of(ms), peer, echo, wanted,
                  FIRST_REPLY_MS});
    if (!question.is_wanted)
        return;
    std::ranges::sort(ms);
    figure_print({name + ", 99 of 100 searches within", "ms", ms[ms.size() - 1 - ms.size() / 100], peer, echo, wanted,
                  FIRST_REPLY_MS});
}

// Clients that take nothing of what they are answered must not be felt by one that does.
static void measure_beside_unread(const load_options &options, const std::string &store, size_t unread, int runs)
{
    service_process service(options, {.store = store});
    std::deque<find_session> others;
    for (size_t i = 0; i < unread; i++)
        others.emplace_back(service.port()).ask_without_reading("", -1, BENCH_QUESTIONS[2], 10000, 60);
    find_session session(service.port());
    std::vector<double> ms;
    for (int i = 0; i < runs; i++)
        ms.push_back(ms_of(&session, s_questions[0]));
    std::ranges::sort(ms);
    const std::string name = "find: one day, beside " + std::to_string(unread) + " that do not read, ";
    figure_print({name + "99 of 100 within", "ms", ms[ms.size() - 1 - ms.size() / 100], "", 0, WANTED_BELOW,
                  FIRST_REPLY_MS});
    figure_print({name + "longest", "ms", ms.back()});
}

int main(int argc, char **argv)
{
    load_options options = load_options_read(argc, argv, "First reply of a search over the network");
    const uint64_t records = options.quick ? 2000 : 1000000;
    load_options own = options;
    own.data.clear(); // the index is filled too quickly to be worth keeping
    data_folder data(own);
    const std::string store = "lmdb:" + data.file("store");
    index_use(store + "?sync=0");
    index_load(1, records, records, 1000);
    silo_pool_close();
    for (const find_question &question : s_questions)
        measure(options, store, question, options.quick ? 3 : question.is_wanted ? 300 : 20);
    for (size_t unread : {1, 10})
        measure_beside_unread(options, store, unread, options.quick ? 3 : 300);
    return 0;
}
