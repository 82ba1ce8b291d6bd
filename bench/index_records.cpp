#include "bench/index_records.h"

#include "platform/os/os.h"

#include <cstdio>
#include <ctime>

static constexpr int64_t FIRST_SECOND = 1704067200; // 2024-01-01 00:00:00 UTC
static constexpr int64_t SECONDS = 30 * 86400;

static void write_time(char (&text)[20], int64_t seconds)
{
    struct tm parts = {};
    os_gmtime(seconds, &parts);
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
}

bench_record bench_record_of(uint64_t id, uint64_t total)
{
    bench_record record = {};
    int group = static_cast<int>((id - 1) % 64);
    auto begin = FIRST_SECOND + static_cast<int64_t>(static_cast<double>(id - 1) *
                                                     (static_cast<double>(SECONDS) / static_cast<double>(total)));
    record.id = id;
    record.host = group / 16;
    record.ch = group % 16;
    write_time(record.bt, begin);
    write_time(record.et, begin + 166);
    std::snprintf(record.host_id, sizeof record.host_id, "dev-%02d-0123456789ab", record.host);
    std::snprintf(record.path, sizeof record.path, "D:\\rec\\disk%d\\%s\\ch%02d\\%.10s\\%02d_%llu.orb", record.host,
                  record.host_id, record.ch, record.bt, record.ch, static_cast<unsigned long long>(id));
    std::snprintf(record.md5, sizeof record.md5, "%016llx%016llx",
                  static_cast<unsigned long long>(id * 0x9E3779B97F4A7C15u),
                  static_cast<unsigned long long>(id * 0xC2B2AE3D27D4EB4Fu));
    record.size = 40000000 + id % 1000003;
    record.rt = id % 7 != 0 ? 1 : 4;
    return record;
}
