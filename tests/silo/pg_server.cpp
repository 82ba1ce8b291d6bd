#include "tests/silo/pg_server.h"

#include "platform/os/os.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace fs = std::filesystem;

static constexpr uint32_t START_MS = 60'000, LOOK_MS = 20;
static constexpr int START_ATTEMPTS = 5;

static bool runs_well(const std::string &program, const std::vector<std::string> &words)
{
    child_result result = child_run(pg_command(program, words), {.folder = "/tmp"});
    if (result.status != 0)
        std::fprintf(stderr, "%s: %s%s\n", program.c_str(), result.out.c_str(), result.err.c_str());
    return result.status == 0;
}

pg_server::~pg_server()
{
    kill_now();
}

std::string pg_server::data() const
{
    return folder_.file("data");
}

std::string pg_server::uri(const std::string &parameters) const
{
    return "postgresql://silo@127.0.0.1:" + std::to_string(port_) + "/postgres" + (parameters.empty() ? "" : "?") +
           parameters;
}

bool pg_server::is_ready() const
{
    return pg_ask_server(uri("connect_timeout=2"), "SELECT 1") == "1";
}

bool pg_server::start(const std::vector<std::string> &settings)
{
    settings_ = {"fsync=off", "listen_addresses=127.0.0.1", "unix_socket_directories=", "shared_buffers=16MB",
                 "autovacuum=off"};
    settings_.insert(settings_.end(), settings.begin(), settings.end());
    return pg_give_folder(folder_.path().string()) &&
           runs_well("initdb", {"-D", data(), "-U", "silo", "-A", "trust", "-E", "UTF8", "--no-locale", "-N"}) &&
           restart();
}

bool pg_server::start_standby_of(const pg_server &primary, const std::string &name)
{
    settings_ = primary.settings_;
    // Once promoted it has no standby of its own to wait for.
    std::erase_if(settings_, [](const std::string &one) { return one.starts_with("synchronous_standby_names"); });
    std::string source = "host=127.0.0.1 user=silo port=" + std::to_string(primary.port_) + " application_name=" + name;
    settings_.push_back("primary_conninfo=" + source);
    return pg_give_folder(folder_.path().string()) &&
           runs_well("pg_basebackup", {"-D", data(), "-d", source, "-c", "fast", "-X", "stream", "-N"}) &&
           (std::ofstream(data() + "/standby.signal"), restart());
}

bool pg_server::promote()
{
    if (pg_ask_server(uri(), "SELECT pg_promote(true, 60)") != "t")
        return false;
    for (uint32_t waited = 0; waited < START_MS; waited += LOOK_MS, os_sleep(LOOK_MS))
        if (pg_ask_server(uri(), "SHOW transaction_read_only") == "off")
            return true;
    return false;
}

bool pg_server::restart()
{
    for (int attempt = 0; attempt < START_ATTEMPTS; attempt++) {
        if (port_ == 0 || attempt > 0)
            port_ = pg_free_port();
        if (run())
            return true;
    }
    std::ifstream log(folder_.file("err"));
    std::fprintf(stderr, "%s\n", std::string(std::istreambuf_iterator<char>(log), {}).c_str());
    return false;
}

// The port may have been taken meanwhile, with which the server ends at once.
bool pg_server::run()
{
    std::vector<std::string> words = {"-D", data(), "-p", std::to_string(port_)};
    for (const std::string &setting : settings_)
        words.insert(words.end(), {"-c", setting});
    if (!process_.start(
            pg_command("postgres", words),
            {.folder = "/tmp", .environment = {}, .in = {}, .out = folder_.file("out"), .err = folder_.file("err")}))
        return false;
    for (uint32_t waited = 0; waited < START_MS && process_.is_running(); waited += LOOK_MS, os_sleep(LOOK_MS))
        if (is_ready())
            return true;
    process_.end_now();
    return false;
}

// ---- Signals -------------------------------------------------------------------------------------------------------

// The parent's id, from /proc/<pid>/stat; behind the name, which may hold anything, stand the state and this.
static int parent_of(const fs::path &process)
{
    std::ifstream file(process / "stat");
    std::string stat(std::istreambuf_iterator<char>(file), {});
    std::istringstream fields(stat.substr(std::min(stat.size(), stat.rfind(')') + 1)));
    std::string state;
    int parent = -1;
    fields >> state >> parent;
    return parent;
}

void pg_server::signal_all(int signal) const
{
    std::vector<int> all = {process_.pid()};
    for (const auto &entry : fs::directory_iterator("/proc")) {
        int pid = std::atoi(entry.path().filename().c_str());
        if (pid > 0 && parent_of(entry.path()) == process_.pid())
            all.push_back(pid);
    }
    for (int pid : all)
        kill(pid, signal);
}

void pg_server::kill_now()
{
    if (!process_.is_running())
        return;
    signal_all(SIGKILL);
    process_.end_now();
}

void pg_server::stop_answering()
{
    signal_all(SIGSTOP);
}

void pg_server::go_on()
{
    signal_all(SIGCONT);
}
