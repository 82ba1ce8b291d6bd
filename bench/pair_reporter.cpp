#include "bench/pair_reporter.h"

// "x/ours", or "x/peer" with the peer's description as the label.
void pair_reporter::ReportRuns(const std::vector<Run> &runs)
{
    for (const Run &run : runs) {
        bench_require(!run.error_occurred, run.benchmark_name() + ": " + run.error_message);
        const std::string full = run.run_name.function_name;
        if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median")
            continue;
        const size_t slash = full.rfind('/');
        const std::string name = full.substr(0, slash);
        if (!pairs_.contains(name))
            order_.push_back(name);
        pair &found = pairs_[name];
        const bool is_peer = full.substr(slash + 1) == "peer";
        (is_peer ? found.peer_ns : found.ours_ns) = run.GetAdjustedRealTime();
        if (is_peer)
            found.peer_name = run.report_label;
        else if (auto rate = run.counters.find("items_per_second"); rate != run.counters.end())
            found.items_a_second = rate->second;
    }
}

void pair_reporter::Finalize()
{
    for (const std::string &name : order_) {
        const pair &found = pairs_[name];
        figure_print({"micro: " + name, "ns", found.ours_ns, found.peer_name, found.peer_ns});
        if (found.items_a_second != 0)
            figure_print({"micro: " + name + ", a second", "frames", found.items_a_second});
    }
}
