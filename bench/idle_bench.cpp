// What open players cost that nobody watches: opened and accepted but never started, and started with a client that
// takes nothing any more.
#include "bench/figure.h"
#include "bench/load_options.h"
#include "bench/sample_recording.h"
#include "bench/service_process.h"
#include "bench/stream_session.h"

#include <thread>
#include <vector>

static constexpr uint64_t WINDOW_PACKAGES = 1000;

struct idle_plan {
    int players;
    double seconds, peer_seconds;
    int64_t recording_bytes;
};

static double cpu_percent(const child_process &process, double seconds)
{
    double before = process.cpu_seconds();
    stopwatch watch;
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    return (process.cpu_seconds() - before) / watch.seconds() * 100;
}

static double idle_threads_percent(const load_options &options, const idle_plan &plan, int poll_ms)
{
    child_process peer({options.peer, "--threads", std::to_string(plan.players), "--poll", std::to_string(poll_ms)});
    bench_require(peer.read_line() == "waiting", "the peer did not start");
    return cpu_percent(peer, plan.peer_seconds);
}

static double mebibytes_each(uint64_t bytes, uint64_t before, int players)
{
    return static_cast<double>(bytes > before ? bytes - before : 0) / players / (1 << 20);
}

static void print_state(const std::string &state, const service_process &service, uint64_t resident_before,
                        const idle_plan &plan, double peer_percent)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // what led here comes to rest
    std::string players = std::to_string(plan.players) + " players " + state;
    figure_print({"idle: CPU of " + players, "% of a core", cpu_percent(service.process(), plan.seconds),
                  "for as many threads on a condition", peer_percent, WANTED_BELOW, 1});
    figure_print({"idle: memory for each of " + players, "MiB",
                  mebibytes_each(service.process().resident_bytes(), resident_before, plan.players), "", 0,
                  WANTED_BELOW, 5});
}

int main(int argc, char **argv)
{
    load_options options = load_options_read(argc, argv, "Open players that do nothing");
    idle_plan plan = options.quick ? idle_plan{3, 0.2, 0.1, 4 << 20} : idle_plan{200, 10, 5, 512 << 20};
    data_folder data(options);
    const std::string recording = data.file(options.quick ? "packages_small.rec" : "packages.rec");
    sample_recording(recording, one_frame_packages(plan.recording_bytes));

    double peer_percent = idle_threads_percent(options, plan, 0);
    service_process service(options, {.sleep_interval = 0, .max_num = 200});
    uint64_t resident_before = service.process().resident_bytes();
    std::vector<stream_session> sessions;
    for (int i = 0; i < plan.players; i++)
        sessions.emplace_back(service.port()).open(recording);
    print_state("paused", service, resident_before, plan, peer_percent);

    for (stream_session &session : sessions) {
        session.start();
        session.receive(WINDOW_PACKAGES, ANY_TIME, 0);
    }
    print_state("with a full window", service, resident_before, plan, peer_percent);
    figure_print(
        {"idle: for scale, as many threads looking every ms", "% of a core", idle_threads_percent(options, plan, 1)});
    return 0;
}
