// Paced playback: whether the pauses that the service makes between packages are as long as they should be and no
// longer, and what they cost.
#include "bench/figure.h"
#include "bench/load_options.h"
#include "bench/sample_recording.h"
#include "bench/service_process.h"
#include "bench/stream_session.h"

#include <numeric>
#include <thread>
#include <vector>

static constexpr int SLEEP_INTERVAL_MS = 5;

struct paced_cost {
    double packages_a_second, cpu_percent;
};

// Packages a second, counted from one package to another.
static void take_for(stream_session *session, double seconds, double *rate)
{
    stream_count count = session->receive(ALL_PACKAGES, seconds, ACKNOWLEDGE_EVERY);
    double time = count.last_seconds - count.first_seconds;
    *rate = time > 0 ? static_cast<double>(count.packages - 1) / time : 0;
}

// All sessions together, once all have started.
static paced_cost paced(const child_process &sender, uint16_t port, const std::string &recording, size_t count,
                        double seconds)
{
    std::vector<stream_session> sessions;
    for (size_t i = 0; i < count; i++)
        sessions.emplace_back(port).open(recording);
    for (stream_session &session : sessions)
        session.start();
    for (stream_session &session : sessions)
        session.receive(2, ANY_TIME, ACKNOWLEDGE_EVERY);
    std::vector<double> rates(count);
    std::vector<std::thread> takers;
    double cpu_before = sender.cpu_seconds();
    stopwatch watch;
    for (size_t i = 0; i < count; i++)
        takers.emplace_back(take_for, &sessions[i], seconds, &rates[i]);
    for (std::thread &taker : takers)
        taker.join();
    double took = watch.seconds();
    return {std::accumulate(rates.begin(), rates.end(), 0.0), (sender.cpu_seconds() - cpu_before) / took * 100};
}

static paced_cost paced_peer(const load_options &options, size_t count, double seconds)
{
    child_process peer({options.peer, "--total", std::to_string(uint64_t{1} << 40), "--pause",
                        std::to_string(SLEEP_INTERVAL_MS * count)});
    auto port = static_cast<uint16_t>(std::stoi("0" + peer.read_line()));
    bench_require(port != 0, "the peer did not start");
    return paced(peer, port, "any", count, seconds);
}

int main(int argc, char **argv)
{
    load_options options = load_options_read(argc, argv, "Playing with pauses between packages");
    data_folder data(options);
    const std::string recording = data.file(options.quick ? "packages_small.rec" : "packages.rec");
    sample_recording(recording, one_frame_packages(options.quick ? 4 << 20 : 512 << 20));
    const double seconds = options.quick ? 0.2 : 10;
    service_process service(options, {.sleep_interval = SLEEP_INTERVAL_MS});
    constexpr double allowed = 1000.0 / SLEEP_INTERVAL_MS;
    for (size_t count : {size_t{1}, options.quick ? size_t{3} : size_t{10}}) {
        paced_cost peer = paced_peer(options, count, seconds);
        paced_cost ours = paced(service.process(), service.port(), recording, count, seconds);
        const std::string sessions = count == 1 ? "1 session" : std::to_string(count) + " sessions";
        figure_print({"pacing: packages of " + sessions, "% of allowed", ours.packages_a_second / allowed * 100,
                      "for sleeps alone", peer.packages_a_second / allowed * 100, WANTED_AT_LEAST, 98});
        figure_print({"pacing: CPU of " + sessions, "% of a core", ours.cpu_percent, "for sleeps and sends alone",
                      peer.cpu_percent, WANTED_BELOW, 3});
    }
    return 0;
}
