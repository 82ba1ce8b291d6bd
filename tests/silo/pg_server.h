// PostgreSQL servers of the tests' own, out of Debian's package, on a free port of 127.0.0.1.
#pragma once

#include "tests/support/child_process.h"
#include "tests/support/temp_folder.h"

#include <cstdint>
#include <string>
#include <vector>

// Whether there is a server's program to start, and what to install where there is none.
bool pg_programs_are_there(std::string *why);

// One that ends with the test. It refuses to run as root, so there it runs as another user.
class pg_server {
public:
    ~pg_server();
    // A new, empty one with these settings ("name=value").
    bool start(const std::vector<std::string> &settings = {});
    // One that follows another, as `name`, until it is promoted.
    bool start_standby_of(const pg_server &primary, const std::string &name);
    bool promote();
    bool restart();

    // Its processes all at once: as power would go, as a host that hangs, and on again.
    void kill_now();
    void stop_answering();
    void go_on();

    uint16_t port() const { return port_; }
    std::string uri(const std::string &parameters = "") const;
    bool is_ready() const;

private:
    bool run();
    void signal_all(int signal) const;
    std::string data() const;

    temp_folder folder_;
    child_process process_;
    uint16_t port_ = 0;
    std::vector<std::string> settings_;
};

// The address of a server that all tests of this build share; made by the first that wants it, ended soon after the
// last. Empty when it cannot be started.
std::string pg_shared_server_uri();

// Over a connection of the test's own: asks, and gives the first cell of the last answer; "ERROR ..." when it fails.
std::string pg_ask_server(const std::string &uri, const std::string &sql);
// Parts of a command that starts a program as the user that servers run as.
std::vector<std::string> pg_command(const std::string &program, const std::vector<std::string> &words);
bool pg_give_folder(const std::string &folder);
// A port that nobody listens on.
uint16_t pg_free_port();
