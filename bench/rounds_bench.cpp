// What open players cost in memory when they come and go: round after round a hundred clients open a recording, look at
// their heads and leave.
#include "bench/figure.h"
#include "bench/load_options.h"
#include "bench/sample_recording.h"
#include "bench/service_process.h"
#include "bench/stream_session.h"

#include <algorithm>
#include <thread>
#include <vector>

struct rounds_plan {
    int rounds, players;
    int64_t recording_bytes;
};

static double mebibytes_above(uint64_t bytes, uint64_t before)
{
    return static_cast<double>(bytes > before ? bytes - before : 0) / (1 << 20);
}

// With all of them open; they have left when it is back.
static uint64_t resident_in_round(const service_process &service, const std::string &recording, int players)
{
    std::vector<stream_session> sessions;
    for (int i = 0; i < players; i++)
        sessions.emplace_back(service.port()).open(recording);
    return service.process().resident_bytes();
}

int main(int argc, char **argv)
{
    load_options options = load_options_read(argc, argv, "Players that come and go");
    const rounds_plan plan = options.quick ? rounds_plan{3, 3, 4 << 20} : rounds_plan{20, 100, 512 << 20};
    data_folder data(options);
    const std::string recording = data.file(options.quick ? "packages_small.rec" : "packages.rec");
    sample_recording(recording, one_frame_packages(plan.recording_bytes));

    child_process peer({options.peer, "--threads", std::to_string(plan.players), "--poll", "0"});
    bench_require(peer.read_line() == "waiting", "the peer did not start");
    const double peer_mebibytes = mebibytes_above(peer.resident_bytes(), 0);
    service_process service(options, {.sleep_interval = 0, .max_num = 200});
    const uint64_t before = service.process().resident_bytes();
    std::vector<double> rounds;
    for (int i = 0; i < plan.rounds; i++) {
        rounds.push_back(mebibytes_above(resident_in_round(service, recording, plan.players), before));
        std::this_thread::sleep_for(std::chrono::milliseconds(200)); // they leave
    }
    const std::string players = std::to_string(plan.players) + " open players";
    for (size_t round : {size_t{0}, size_t{2}, rounds.size() - 1})
        figure_print({"rounds: memory of " + players + ", round " + std::to_string(round + 1), "MiB", rounds[round],
                      "for as many threads on a condition", peer_mebibytes, WANTED_BELOW, 60});
    figure_print({"rounds: the most of " + std::to_string(plan.rounds) + " rounds", "MiB", std::ranges::max(rounds),
                  "in the first one", rounds[0], WANTED_BELOW, 60});
    return 0;
}
