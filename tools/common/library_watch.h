// Ends the process when a library of others does not come back.
//
// The media libraries work for as long as their input makes them and cannot be called off. While a thread is inside one,
// another looks on: no return and no byte written for too long, or for a few seconds after a request to end, and the
// process ends with its status, having said where its unfinished output lies.
#pragma once

#include <cstdint>
#include <string>

struct library_watch_settings {
    std::string program;  // in front of the message
    int status = 1;       // the process ends with it
    int stopped_status = 130;
    bool (*is_stopped)() = nullptr;
    uint32_t limit_ms = 60'000, stopped_limit_ms = 5'000;
};

// Once, before the first library_work; without it nobody looks on.
void library_watch_install(const library_watch_settings &settings);
// The name under which the output stays when the process is ended; empty: there is none.
void library_watch_output(const std::string &name);

// The calling thread is inside a library for the life of this object. One thread of the process at a time; may be nested.
class library_work {
public:
    library_work();
    ~library_work();
    library_work(const library_work &) = delete;
    library_work &operator=(const library_work &) = delete;
};

// The library waits for this program, or for whom it writes to: not its fault.
class library_pause {
public:
    library_pause();
    ~library_pause();
    library_pause(const library_pause &) = delete;
    library_pause &operator=(const library_pause &) = delete;
};
