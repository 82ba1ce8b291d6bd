// The small steps that every package, frame or link goes through, each beside the least that any program would need.
#include "bench/load_options.h"
#include "bench/pair_reporter.h"
#include "bench/sample_recording.h"
#include "comm_func/orb_userdata.h"
#include "platform/ms/ms.h"
#include "platform/os/os_guard.h"
#include "tests/support/raw_client.h"
#include "vod/link_table.h"

#include <fstream>
#include <mutex>
#include <random>

static constexpr int PACKAGE_DATA = AVFILTER_PACKAGE_SIZE;

static std::vector<uint8_t> random_bytes(size_t count)
{
    std::minstd_rand random(1);
    std::vector<uint8_t> bytes(count);
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>(random() >> 8);
    return bytes;
}

// ---- Packages -------------------------------------------------------------------------------------------------------

static void parse(benchmark::State &state, std::vector<uint8_t> bytes)
{
    MpPackage package;
    for (auto _ : state) {
        int is_parsed = mp_parse_package(bytes.data(), bytes.size(), &package);
        benchmark::DoNotOptimize(is_parsed);
        benchmark::ClobberMemory();
    }
}

static void parse_peer(benchmark::State &state, std::vector<uint8_t> bytes)
{
    uint8_t head[64];
    const size_t size = std::min(bytes.size(), sizeof head);
    for (auto _ : state) {
        std::memcpy(head, bytes.data(), size);
        benchmark::DoNotOptimize(head);
        benchmark::ClobberMemory();
    }
    state.SetLabel("to copy 64 bytes");
}

static std::vector<uint8_t> request_bytes()
{
    return raw_request(0x8001, 1, std::vector<uint8_t>(100, 'x'), std::vector<uint8_t>(60));
}

static void build(benchmark::State &state)
{
    const std::vector<uint8_t> data = random_bytes(PACKAGE_DATA);
    std::vector<uint8_t> out(MP_MAX_PACKAGE_LEN);
    MpPackage package;
    for (auto _ : state) {
        mp_build_package_send_res(out.data(), MP_MAX_PACKAGE_LEN, 200, 131, data.data(), PACKAGE_DATA, &package);
        benchmark::ClobberMemory();
    }
}

static void build_peer(benchmark::State &state)
{
    const std::vector<uint8_t> data = random_bytes(PACKAGE_DATA);
    std::vector<uint8_t> out(MP_MAX_PACKAGE_LEN);
    for (auto _ : state) {
        std::memcpy(out.data() + 16, data.data(), PACKAGE_DATA);
        benchmark::ClobberMemory();
    }
    state.SetLabel("to copy the data");
}

// ---- Absolute time --------------------------------------------------------------------------------------------------

static const uint8_t SEI_FLAG[] = {0, 0, 0, 1, 6, 0xF0};

static void find_flag(benchmark::State &state)
{
    const std::vector<uint8_t> frame = random_bytes(PACKAGE_DATA);
    for (auto _ : state) {
        int at = find_pos_by_flag(frame.data(), PACKAGE_DATA, SEI_FLAG, sizeof SEI_FLAG);
        benchmark::DoNotOptimize(at);
    }
}

static void find_flag_peer(benchmark::State &state)
{
    const std::vector<uint8_t> frame = random_bytes(PACKAGE_DATA);
    const std::string_view text(reinterpret_cast<const char *>(frame.data()), frame.size());
    const std::string_view flag(reinterpret_cast<const char *>(SEI_FLAG), sizeof SEI_FLAG);
    for (auto _ : state) {
        size_t at = text.find(flag);
        benchmark::DoNotOptimize(at);
    }
    state.SetLabel("for string_view::find");
}

static std::vector<uint8_t> frame_with_time()
{
    std::vector<uint8_t> frame = random_bytes(AVFILTER_FRAME_HEAD_SIZE + PACKAGE_DATA / 2), out(2 * PACKAGE_DATA);
    int size = add_new_abstime_sei(AVMODE_H264, frame.data(), static_cast<int>(frame.size()), out.data(),
                                   static_cast<int>(out.size()), 1'700'000'000);
    out.resize(static_cast<size_t>(size));
    return out;
}

static void check_time(benchmark::State &state)
{
    const std::vector<uint8_t> frame = frame_with_time();
    uint32_t seconds = 0;
    for (auto _ : state) {
        int is_there = get_abstime_from_sei(AVMODE_H264, frame.data(), static_cast<int>(frame.size()), &seconds);
        benchmark::DoNotOptimize(is_there);
    }
    bench_require(seconds == 1'700'000'000, "the time was not found");
}

// ---- Link table -----------------------------------------------------------------------------------------------------

static void link_life(benchmark::State &state)
{
    for (auto _ : state) {
        VodLink *link = vodlink_create();
        link->type = VOD_LINK_TYPE_LOGIN;
        benchmark::DoNotOptimize(link);
        vodlink_destroy(link);
    }
}

static void link_life_peer(benchmark::State &state)
{
    static std::mutex s_mutex;
    for (auto _ : state) {
        VodLink *link = nullptr;
        {
            std::lock_guard held(s_mutex);
            link = new VodLink{};
        }
        benchmark::DoNotOptimize(link);
        std::lock_guard held(s_mutex);
        delete link;
    }
    state.SetLabel("for new and delete under a lock");
}

static void fill_links(int count)
{
    for (int i = 0; i < count; i++)
        vodlink_create()->type = VOD_LINK_TYPE_LOGIN;
}

// ---- Reading --------------------------------------------------------------------------------------------------------

static std::string s_recording;

static void read_frames(benchmark::State &state)
{
    const AVOrbFileFilter filter = sample_filter(s_recording);
    std::vector<char> buffer(3 << 20);
    int64_t frames = 0;
    for (auto _ : state) {
        void *handle = AVFilterCreate(0, &filter, sizeof filter);
        bench_require(handle != nullptr, "the recording does not open");
        AVFrameInfo frame = {};
        frame.iSize = sizeof frame;
        while (AVFilterGetData(handle, AVFILTER_DATA_FRAMES, buffer.data(), static_cast<int>(buffer.size()), &frame) >
               0)
            continue;
        AVFileInfo info = {};
        info.iSise = sizeof info;
        AVFilterGetInfo(handle, AVFILTER_INFO_FILE, &info, sizeof info);
        frames += info.iTotalFrame;
        AVFilterDestroy(handle);
    }
    state.SetItemsProcessed(frames);
}

static void read_frames_peer(benchmark::State &state)
{
    std::vector<char> buffer(PACKAGE_DATA);
    for (auto _ : state) {
        std::filebuf file;
        file.pubsetbuf(nullptr, 0);
        bench_require(file.open(s_recording, std::ios::in | std::ios::binary) != nullptr, "no recording");
        while (file.sgetn(buffer.data(), PACKAGE_DATA) > 0)
            continue;
    }
    state.SetLabel("to read the file in blocks of a package");
}

// ---- All of them ----------------------------------------------------------------------------------------------------

static void register_all()
{
    using benchmark::RegisterBenchmark;
    RegisterBenchmark("parse a data package/ours", parse,
                      raw_package(MP_CODE_SEND_RES, {{MP_ATTR_DATA, random_bytes(PACKAGE_DATA)}}));
    RegisterBenchmark("parse a data package/peer", parse_peer, std::vector<uint8_t>(PACKAGE_DATA));
    RegisterBenchmark("parse a request/ours", parse, request_bytes());
    RegisterBenchmark("parse a request/peer", parse_peer, request_bytes());
    RegisterBenchmark("build a data package/ours", build);
    RegisterBenchmark("build a data package/peer", build_peer);
    RegisterBenchmark("search 48 KiB for absolute time/ours", find_flag);
    RegisterBenchmark("search 48 KiB for absolute time/peer", find_flag_peer);
    RegisterBenchmark("read the absolute time of a frame/ours", check_time);
    RegisterBenchmark("create and destroy a link/ours", link_life);
    RegisterBenchmark("create and destroy a link/peer", link_life_peer);
    RegisterBenchmark("read a recording frame by frame/ours", read_frames);
    RegisterBenchmark("read a recording frame by frame/peer", read_frames_peer);
}

int main(int argc, char **argv)
{
    load_options options = load_options_read(argc, argv, "The small steps");
    data_folder data(options);
    s_recording = data.file("usual_small.rec");
    sample_recording(s_recording, usual_frames(4 << 20));
    bench_require(vodlinks_lock_init() != 0, "no lock");
    vodlinks_clear();
    vodlinks_set_max_num(VOD_LINK_SLOTS);
    fill_links(VOD_LINK_SLOTS / 2);

    register_all();
    std::string program = argv[0], time = options.quick ? "--benchmark_min_time=0.001" : "--benchmark_min_time=0.2";
    std::string repeats = options.quick ? "--benchmark_repetitions=1" : "--benchmark_repetitions=3";
    char *arguments[] = {program.data(), time.data(), repeats.data(), nullptr};
    int count = 3;
    benchmark::Initialize(&count, arguments);
    pair_reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
