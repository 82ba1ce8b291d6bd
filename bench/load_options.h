// What the load programs are told: where recordings may be kept, which programs to start, and how small to stay.
#pragma once

#include <string>

struct load_options {
    bool quick = false; // once and small: shows that the bench works, measures nothing
    std::string data; // folder for recordings, kept for the next bench; empty: a folder of its own, removed afterwards
    std::string server; // vod_svr
    std::string peer;   // bench_peer
};

// Ends the program after --help and for wrong arguments.
load_options load_options_read(int argc, char **argv, const char *description);

// The folder named by `data`, or a new one that goes with this object.
class data_folder {
public:
    explicit data_folder(const load_options &options);
    ~data_folder();
    data_folder(const data_folder &) = delete;
    data_folder &operator=(const data_folder &) = delete;
    std::string file(const std::string &name) const { return path_ + "/" + name; }

private:
    std::string path_;
    bool is_own_;
};

// A new folder for temporary files.
std::string new_folder();
