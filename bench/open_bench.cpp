// Opening a large recording by name: in the reader, through a player until its file head comes, and over the network.
#include "bench/figure.h"
#include "bench/host.h"
#include "bench/load_options.h"
#include "bench/sample_recording.h"
#include "bench/service_process.h"
#include "bench/stream_session.h"
#include "win32_vod/vod_player.h"

#include <atomic>
#include <vector>

struct open_cost {
    double ms, bytes_read;
};

// The median time of `runs` calls after one that warms up, and what one call reads.
template <class F> static open_cost cost_of(int runs, F open)
{
    open();
    // Looking at the count is a read as well.
    uint64_t first = own_bytes_read(), second = own_bytes_read();
    open();
    uint64_t third = own_bytes_read();
    std::vector<double> ms;
    for (int i = 0; i < runs; i++) {
        stopwatch watch;
        open();
        ms.push_back(watch.seconds() * 1000);
    }
    uint64_t looking = second - first, with_open = third - second;
    return {median_of(ms), static_cast<double>(with_open > looking ? with_open - looking : 0)};
}

static void open_in_reader(const AVOrbFileFilter &filter)
{
    void *handle = AVFilterCreate(0, &filter, sizeof filter);
    uint8_t head[AVFILTER_FILE_HEAD_SIZE];
    AVFileInfo info = {};
    info.iSise = sizeof info;
    bench_require(handle != nullptr && AVFilterGetInfo(handle, AVFILTER_INFO_FILE_HEAD, head, sizeof head) == 0 &&
                      AVFilterGetInfo(handle, AVFILTER_INFO_FILE, &info, sizeof info) == 0 && info.iTotalFrame > 0,
                  "the recording does not open");
    AVFilterDestroy(handle);
}

static std::atomic<int> s_heads;

static void count_head(handle_orb, int type, char *, int, handle_orb)
{
    if (type != VIDEO_DATA_TYPE_FILEHEAD)
        return;
    s_heads++;
    s_heads.notify_one();
}

// Until the head came; closing is not part of the figure but has to be over before the next.
struct opened_player {
    handle_orb player = vod_player_create(VOD_ORBPLAYER_TYPE);
    explicit opened_player(const std::string &path)
    {
        int before = s_heads;
        bench_require(player != INVALID_HANDLE_ORB && vod_player_open_file(player, path.c_str(), count_head, 0) != 0,
                      "no player opens");
        s_heads.wait(before);
    }
    ~opened_player()
    {
        vod_player_close(player);
        vod_player_destroy(player);
    }
};

static open_cost cost_of_player(int runs, const std::string &path)
{
    open_cost cost = cost_of(1, [&] { opened_player opened(path); });
    std::vector<double> ms;
    for (int i = 0; i < runs; i++) {
        stopwatch watch;
        opened_player opened(path);
        ms.push_back(watch.seconds() * 1000);
    }
    return {median_of(ms), cost.bytes_read};
}

static double ms_over_network(const load_options &options, int runs, const std::string &path)
{
    service_process service(options, {});
    std::vector<double> ms;
    for (int i = 0; i < runs; i++) {
        stream_session session(service.port());
        stopwatch watch;
        session.open(path);
        ms.push_back(watch.seconds() * 1000);
    }
    return median_of(ms);
}

int main(int argc, char **argv)
{
    load_options options = load_options_read(argc, argv, "Opening a large recording");
    const int runs = options.quick ? 1 : 101;
    data_folder data(options);
    const std::string path = data.file(options.quick ? "usual_small.rec" : "usual.rec");
    sample_recording(path, usual_frames(options.quick ? 4 << 20 : 1 << 30));
    bench_require(vod_player_load_lib(VOD_ORBPLAYER_TYPE, nullptr) != 0, "no player library");

    const AVOrbFileFilter filter = sample_filter(path);
    std::vector<uint8_t> head(AVFILTER_FILE_HEAD_SIZE), tail(32 << 10);
    const open_cost least = cost_of(
        runs, [&] { bench_require(read_ends(path, head.data(), head.size(), tail.data(), tail.size()), "no file"); });
    const open_cost reader = cost_of(runs, [&] { open_in_reader(filter); });
    const open_cost player = cost_of_player(runs, path);
    constexpr double bytes_limit = 256 << 10;
    const std::string peer = "to read its first and last bytes";
    figure_print({"open: 1 GiB in the reader, header and totals", "ms", reader.ms, peer, least.ms, WANTED_BELOW, 1});
    figure_print({"open: bytes that the reader reads", "bytes", reader.bytes_read, peer, least.bytes_read, WANTED_BELOW,
                  bytes_limit});
    figure_print({"open: 1 GiB with a player until its head comes", "ms", player.ms, peer, least.ms, WANTED_BELOW, 1});
    figure_print({"open: bytes that the player reads", "bytes", player.bytes_read, peer, least.bytes_read, WANTED_BELOW,
                  bytes_limit});
    figure_print({"open: 1 GiB over the network, request to accept", "ms", ms_over_network(options, runs, path)});
    return 0;
}
