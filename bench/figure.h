// How benches report: one line for each figure, ours beside a peer measured in the same run, and what is wanted of it.
#pragma once

#include <chrono>
#include <string>
#include <vector>

enum wanted_of_figure {
    WANTED_NOTHING,
    WANTED_BELOW, // the figure itself
    WANTED_AT_LEAST,
    WANTED_RATIO_AT_LEAST, // of the figure to the peer's
    WANTED_RATIO_AT_MOST,
};

struct bench_figure {
    std::string name, unit;
    double value = 0;
    std::string peer_name = {}; // empty: there is none
    double peer = 0;
    wanted_of_figure wanted = WANTED_NOTHING;
    double limit = 0;
};

void figure_print(const bench_figure &figure);
double median_of(std::vector<double> values);

// Ends the program with a message when something that a bench rests on does not hold.
void bench_require(bool holds, const std::string &what);

class stopwatch {
public:
    double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};
