// vod_svr as a process of its own: on a free port, in a folder of its own, which is also the test's working directory.
#pragma once

#include "client/vodclient.h"
#include "tests/support/child_process.h"
#include "tests/support/temp_folder.h"

#include <cstdint>
#include <string>
#include <vector>

#if defined(__has_feature)
#define VOD_TEST_HAS_FEATURE(name) __has_feature(name)
#else
#define VOD_TEST_HAS_FEATURE(name) 0
#endif
#if defined(__SANITIZE_THREAD__) || VOD_TEST_HAS_FEATURE(thread_sanitizer)
constexpr bool THREADS_ARE_SANITIZED = true;
#else
constexpr bool THREADS_ARE_SANITIZED = false;
#endif
#if defined(__SANITIZE_ADDRESS__) || VOD_TEST_HAS_FEATURE(address_sanitizer)
constexpr bool MEMORY_IS_SANITIZED = true;
#else
constexpr bool MEMORY_IS_SANITIZED = false;
#endif

// How often something is tried: as often as said where the program runs at full speed.
constexpr int rounds(int wanted)
{
    int slowness = THREADS_ARE_SANITIZED ? 5 : MEMORY_IS_SANITIZED ? 2 : 1;
    return wanted / slowness > 0 ? wanted / slowness : 1;
}

struct service_settings {
    std::string vod_config = R"({"sleep_interval": 0})";
    std::string ms_config = R"({"port": 0})";
    std::string svr_config = R"({"fs_charset": "UTF-8", "log": {"level": 1, "stderr": 1}})";
    // The words that start it; none: the program that is built beside the test.
    std::vector<std::string> program = {};
};

class service_process {
public:
    explicit service_process(const service_settings &settings = {});
    // Ends the process if it still runs. A report of a sanitizer in its log fails the test.
    ~service_process();
    service_process(const service_process &) = delete;
    service_process &operator=(const service_process &) = delete;

    // True when it says that it takes requests.
    bool start(const std::vector<std::string> &arguments = {});
    // Runs it until it ends by itself; its exit status, or -1 when that takes longer than 20 s.
    int run(const std::vector<std::string> &arguments = {});
    // Asks it to end, which it must do in order: with exit status 0.
    void stop();
    // Its exit status, or one of child_status.
    int wait_for_end(uint32_t ms) { return process_.wait(ms); }
    bool ask_to_end() { return process_.ask_to_end(); }
    bool press_ctrl_c() { return process_.press_ctrl_c(); }
    void end_now() { process_.end_now(); }
    bool is_running() { return process_.is_running(); }

    const temp_folder &folder() const { return folder_; }
    vodclient_server server() const;
    uint16_t port() const { return port_; }
    int pid() const { return process_.pid(); }
    std::string log() const; // standard error
    std::string out() const; // standard output
    child_figures figures() const { return process_.figures(); }
    // True once all links are gone and threads and descriptors are no more than in `before`.
    bool settles(const child_figures &before) const;

private:
    bool launch(const std::vector<std::string> &arguments);
    temp_folder folder_{temp_folder::working_directory::enter};
    child_process process_;
    std::vector<std::string> program_;
    uint16_t port_ = 0;
};

// The counters of all kinds of links, in the order of vodclient_link_kind; empty when they cannot be had.
std::vector<int32_t> link_counters(const vodclient_server &server);
std::string file_of(const std::string &path);
