// The recordings that the index benches work on: 64 channels of 4 devices, begin times spread over 30 days.
#pragma once

#include <cstdint>
#include <string>

struct bench_record {
    uint64_t id;
    int host, ch;
    char bt[20], et[20];
    char path[128], host_id[24], md5[33];
    uint64_t size;
    unsigned rt;
};

bench_record bench_record_of(uint64_t id, uint64_t total);

// What is asked: one day, one channel of it, one channel of all days.
struct bench_question {
    const char *name;
    bool is_one_channel;
    const char *from, *to;
};
inline constexpr const char *BENCH_HOST = "dev-01-0123456789ab";
inline constexpr int BENCH_CHANNEL = 7;
inline constexpr bench_question BENCH_QUESTIONS[] = {
    {"one day", false, "2024-01-15 00:00:00", "2024-01-15 23:59:59"},
    {"one channel of a day", true, "2024-01-15 00:00:00", "2024-01-15 23:59:59"},
    {"one channel of 30 days", true, "2024-01-01 00:00:00", "2024-01-30 23:59:59"},
};
