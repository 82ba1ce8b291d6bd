// A progress bar on standard error, only where somebody looks on; at most ten times a second.
#pragma once

#include <cstdint>
#include <string>

class progress_bar {
public:
    progress_bar(const std::string &title, int64_t total);
    ~progress_bar();
    progress_bar(const progress_bar &) = delete;
    progress_bar &operator=(const progress_bar &) = delete;
    void show(int64_t done);
    // Takes the line away for something else; the next call draws it again.
    void hide();

private:
    std::string title_;
    int64_t total_;
    bool visible_, drawn_ = false;
    uint64_t drawn_at_ = 0;
};
