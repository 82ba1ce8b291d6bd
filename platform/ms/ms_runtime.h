// Threads, timers and the list of connections of one side: the service has one runtime, the connections that this
// process makes to others have another. Runtimes are never destroyed, a stopped one can be started again.
#pragma once

#include "platform/ms/ms.h"
#include "platform/ms/ms_settings.h"
#include "platform/os/os.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

#include <array>
#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

class ms_connection;

struct ms_counters {
    std::atomic<uint64_t> accepted, refused, packages_in, packages_out, framing_errors, bytes_queued;
};

class ms_runtime {
public:
    ms_runtime();
    // Starts the threads; connections follow `settings` from now on. False when not one thread could be started.
    bool start(const ms_settings &settings);
    // Closes all connections, waits until their ends have been reported, and joins the threads.
    void stop();

    // False when a limit is reached or the runtime stops; `why` then says which.
    bool add(const std::shared_ptr<ms_connection> &connection, const char **why);
    // The connection has ended and been reported.
    void forget(const std::shared_ptr<ms_connection> &connection);
    size_t connection_count();
    // A connection has something that may come to its deadline: the sweep runs until none has.
    void want_sweep();

    asio::io_context io;
    ms_settings settings; // set by start, while no other thread uses it
    ms_counters counters{};
    // Who takes the packages of a module; unused on the client side.
    std::array<std::atomic<ms_event_func>, 256> handlers{};

private:
    static int thread_main(void *arg);
    void sweep();
    std::vector<std::shared_ptr<ms_connection>> connections();

    std::vector<LThread> threads_; // start and stop only, one after the other
    std::optional<asio::executor_work_guard<asio::io_context::executor_type>> work_;

    // Guards what follows.
    std::mutex mutex_;
    std::set<std::shared_ptr<ms_connection>> connections_;
    std::map<std::string, uint32_t> per_address_;
    std::condition_variable all_forgotten_;
    bool stopping_ = false;

    // Guards the timer.
    std::mutex sweep_mutex_;
    asio::steady_timer sweep_timer_;
    bool sweep_wanted_ = false;
};

// 1 on a thread of any runtime: such a thread must not wait for its runtime's end.
bool ms_on_runtime_thread();
