// One client that takes data as fast as it comes, without pacing: bytes a second and the service's processor time for
// each gigabyte, beside a bare sender and beside a loop that also reads the file.
#include "bench/figure.h"
#include "bench/load_options.h"
#include "bench/sample_recording.h"
#include "bench/service_process.h"
#include "bench/stream_session.h"

#include <vector>

struct stream_cost {
    double gigabytes_a_second, cpu_seconds_a_gigabyte, data_bytes_of_package;
};

static stream_cost stream_once(const child_process &sender, uint16_t port, const std::string &recording)
{
    stream_session session(port);
    session.open(recording);
    double cpu_before = sender.cpu_seconds();
    stopwatch watch;
    session.start();
    stream_count count = session.receive(ALL_PACKAGES, ANY_TIME, ACKNOWLEDGE_EVERY);
    double gigabytes = static_cast<double>(count.bytes) / 1e9, seconds = watch.seconds();
    bench_require(count.ended && count.packages > 0, "the recording did not end");
    return {gigabytes / seconds, (sender.cpu_seconds() - cpu_before) / gigabytes,
            static_cast<double>(count.bytes) / static_cast<double>(count.packages) - 16};
}

static std::vector<std::string> peer_arguments(const load_options &options, int data_bytes, int64_t total,
                                               const std::string &file)
{
    std::vector<std::string> arguments = {options.peer, "--package", std::to_string(data_bytes), "--total",
                                          std::to_string(total)};
    if (!file.empty())
        arguments.insert(arguments.end(), {"--file", file});
    return arguments;
}

class peer_sender {
public:
    peer_sender(const load_options &options, int data_bytes, int64_t total, const std::string &file)
        : process_(peer_arguments(options, data_bytes, total, file)),
          port_(static_cast<uint16_t>(std::stoi("0" + process_.read_line())))
    {
        bench_require(port_ != 0, "the peer did not start");
    }
    stream_cost stream() { return stream_once(process_, port_, "any"); }

private:
    child_process process_;
    uint16_t port_;
};

static double median_speed(const std::vector<stream_cost> &costs)
{
    std::vector<double> values;
    for (const stream_cost &cost : costs)
        values.push_back(cost.gigabytes_a_second);
    return median_of(values);
}

static double median_cpu(const std::vector<stream_cost> &costs)
{
    std::vector<double> values;
    for (const stream_cost &cost : costs)
        values.push_back(cost.cpu_seconds_a_gigabyte);
    return median_of(values);
}

static void compare(const load_options &options, const std::string &name, const std::string &recording, int64_t bytes)
{
    const int runs = options.quick ? 1 : 5;
    service_process service(options, {.sleep_interval = 0});
    auto stream = [&] { return stream_once(service.process(), service.port(), recording); };
    const int data_bytes = static_cast<int>(stream().data_bytes_of_package); // and warms up
    peer_sender bare(options, data_bytes, bytes, ""), reading(options, data_bytes, bytes, recording);
    bare.stream();
    reading.stream();
    std::vector<stream_cost> ours, bares, readings;
    for (int i = 0; i < runs; i++) {
        ours.push_back(stream());
        bares.push_back(bare.stream());
        readings.push_back(reading.stream());
    }
    figure_print({"stream: " + name, "GB/s", median_speed(ours), "bare sender", median_speed(bares),
                  WANTED_RATIO_AT_LEAST, 0.7});
    figure_print({"stream: " + name, "CPU s/GB", median_cpu(ours), "clear, read, copy, send", median_cpu(readings),
                  WANTED_RATIO_AT_MOST, 1.3});
    figure_print(
        {"stream: " + name + ", for scale", "GB/s", median_speed(readings), "bare sender", median_speed(bares)});
}

int main(int argc, char **argv)
{
    load_options options = load_options_read(argc, argv, "Playing as fast as the client takes it");
    data_folder data(options);
    const int64_t bytes = options.quick ? 4 << 20 : 512 << 20;
    const std::string suffix = options.quick ? "_small.rec" : ".rec";
    const std::string packages = data.file("packages" + suffix), usual = data.file("usual_512" + suffix);
    sample_recording(packages, one_frame_packages(bytes));
    compare(options, "frames of 48 KiB", packages, bytes);
    sample_recording(usual, usual_frames(bytes));
    compare(options, "frames of 8 to 16 KiB", usual, bytes);
    return 0;
}
