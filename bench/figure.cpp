#include "bench/figure.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

static bool is_met(const bench_figure &figure)
{
    switch (figure.wanted) {
    case WANTED_BELOW:
        return figure.value < figure.limit;
    case WANTED_AT_LEAST:
        return figure.value >= figure.limit;
    case WANTED_RATIO_AT_LEAST:
        return figure.value >= figure.limit * figure.peer;
    case WANTED_RATIO_AT_MOST:
        return figure.value <= figure.limit * figure.peer;
    default:
        return true;
    }
}

static void print_wanted(const bench_figure &figure)
{
    static constexpr const char *texts[] = {"", "wanted below", "wanted at least", "wanted ratio at least",
                                            "wanted ratio at most"};
    if (figure.wanted != WANTED_NOTHING)
        std::printf(" | %s %.4g: %s", texts[figure.wanted], figure.limit, is_met(figure) ? "met" : "MISSED");
}

void figure_print(const bench_figure &figure)
{
    std::printf("%-52s | %10.4g %-14s", figure.name.c_str(), figure.value, figure.unit.c_str());
    if (!figure.peer_name.empty())
        std::printf(" | %10.4g %s, ratio %.2f", figure.peer, figure.peer_name.c_str(),
                    figure.peer == 0 ? 0 : figure.value / figure.peer);
    print_wanted(figure);
    std::printf("\n");
    std::fflush(stdout);
}

double median_of(std::vector<double> values)
{
    bench_require(!values.empty(), "no runs");
    std::ranges::sort(values);
    size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

void bench_require(bool holds, const std::string &what)
{
    if (holds)
        return;
    std::fprintf(stderr, "bench: %s\n", what.c_str());
    std::exit(1);
}
