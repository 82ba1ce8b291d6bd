// Prints Google Benchmark's results as the other benches print theirs: a benchmark named "x/ours" beside "x/peer".
#pragma once

#include "bench/figure.h"

#include <benchmark/benchmark.h>

#include <map>

class pair_reporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context &) override { return true; }
    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

private:
    struct pair {
        double ours_ns = 0, peer_ns = 0, items_a_second = 0;
        std::string peer_name;
    };
    std::map<std::string, pair> pairs_;
    std::vector<std::string> order_;
};
