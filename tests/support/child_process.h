// A program as a process of its own, alike on every host. It ends with the test, however the test ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct child_options {
    std::string folder{};                   // it works in; empty: where the test works
    std::vector<std::string> environment{}; // "NAME=value", beside what the test itself has
    std::string in{}, out{}, err{};         // files of its standard streams; empty: nothing to read, the test's own
    bool out_is_pipe = false;               // `read` takes what it writes to standard output
    bool err_is_pipe = false;               // or, instead, to standard error
};

struct child_figures {
    uint64_t resident_bytes = 0, cpu_ms = 0;
    uint64_t read_bytes = 0; // of files, wherever the host had them
    int threads = 0, descriptors = 0; // handles, where the host calls them so
    // How many of them the host may add by itself: for a lock, say, when it is waited for the first time.
    int host_descriptors = 0;
};

enum child_status { CHILD_RUNS = -1, CHILD_ENDED_BY_FORCE = -2 };

struct child_state;

class child_process {
public:
    child_process();
    // Ends it at once if it still runs.
    ~child_process();
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;

    // `words`: the program's path and its arguments in UTF-8, which no shell sees. The thread that calls this must live
    // as long as the process. False when the host does not even make a process.
    bool start(const std::vector<std::string> &words, const child_options &options = {});
    // Its exit status, or one of child_status. 127 where the host starts a process before it misses the program.
    int wait(uint32_t ms);
    bool is_running() { return wait(0) == CHILD_RUNS; }
    // The polite request: what the program must answer with an orderly end.
    bool ask_to_end();
    // The same from the keyboard, where the host makes a difference.
    bool press_ctrl_c();
    void end_now();
    int pid() const;
    child_figures figures() const;
    // Waits until each of its threads of that name has nothing to do; where the host does not tell, for a moment.
    void wait_for_rest(const std::string &thread_name) const;

    // What comes out of the pipe, `limit` bytes if there are so many before its end.
    std::string read(size_t limit = SIZE_MAX);
    // The program's next write finds nobody to read it.
    void close_pipe();

private:
    std::unique_ptr<child_state> state_;
};

struct child_result {
    int status = CHILD_RUNS;
    std::string out, err;
};
// Runs it until it ends, at most for two minutes. Its output goes through files beside `folder`, which it works in; a
// process that takes longer is ended.
child_result child_run(const std::vector<std::string> &words, const child_options &options = {});

// The path of a program that is built beside the test itself.
std::string program_beside(const std::string &name);
