#include "tests/integration/service_process.h"

#include "platform/json/json.h"
#include "platform/os/os.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

static constexpr uint32_t START_MS = 60'000, LOOK_MS = 5;
static constexpr char LOG_FILE[] = "svr.err", OUT_FILE[] = "svr.out";

std::string file_of(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

service_process::service_process(const service_settings &settings)
{
    // Times in names and headers are local.
    setenv("TZ", "UTC", 1);
    folder_.write("etc/conf/vod_config.json", settings.vod_config);
    folder_.write("etc/conf/ms_config.json", settings.ms_config);
    folder_.write("etc/conf/vod_svr.json", settings.svr_config);
    std::filesystem::create_directory(folder_.path() / "rec");
}

service_process::~service_process()
{
    if (is_running()) {
        signal(SIGKILL);
        wait_for_end(START_MS);
    }
    std::string text = log();
    for (const char *report : {"Sanitizer:", "runtime error:", "lock order"})
        if (size_t at = text.find(report); at != std::string::npos)
            ADD_FAILURE() << text.substr(at > 200 ? at - 200 : 0, 8000);
}

// ---- Life -----------------------------------------------------------------------------------------------------------

static void redirect(const std::string &file, int descriptor)
{
    int opened = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(opened, descriptor);
    close(opened);
}

void service_process::launch(const std::vector<std::string> &arguments)
{
    std::string out = folder_.file(OUT_FILE), log = folder_.file(LOG_FILE), root = folder_.path().string();
    std::vector<std::string> words{VOD_SVR_PATH, "--root", root, "--json"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    // What an earlier process said must not be taken for this one's.
    std::filesystem::remove(out);
    std::filesystem::remove(log);
    status_ = -1;
    pid_ = fork();
    if (pid_ != 0)
        return;
    prctl(PR_SET_PDEATHSIG, SIGKILL); // a test that is stopped from outside leaves nothing running
    redirect(out, STDOUT_FILENO);
    redirect(log, STDERR_FILENO);
    execv(argv[0], argv.data());
    _exit(127);
}

static uint16_t port_of_ready_line(const std::string &out)
{
    if (out.find('\n') == std::string::npos)
        return 0;
    json_ref ready(json_tokener_parse(out.c_str()));
    const char *event = json_object_get_field_string(ready.get(), "event");
    if (event == nullptr || std::string(event) != "ready")
        return 0;
    return static_cast<uint16_t>(json_object_get_field_int(ready.get(), "port", 0));
}

bool service_process::start(const std::vector<std::string> &arguments)
{
    launch(arguments);
    uint64_t deadline = os_tick() + START_MS;
    while (is_running() && os_tick() < deadline) {
        if (port_ = port_of_ready_line(out()); port_ != 0)
            return true;
        os_sleep(LOOK_MS);
    }
    ADD_FAILURE() << "vod_svr did not start: " << log();
    return false;
}

int service_process::run(const std::vector<std::string> &arguments)
{
    launch(arguments);
    return wait_for_end(20'000);
}

void service_process::stop()
{
    signal(SIGTERM);
    EXPECT_EQ(wait_for_end(30'000), 0) << log().substr(log().size() > 4000 ? log().size() - 4000 : 0);
}

int service_process::wait_for_end(uint32_t ms)
{
    uint64_t deadline = os_tick() + ms;
    while (is_running()) {
        if (os_tick() >= deadline)
            return -1;
        os_sleep(LOOK_MS);
    }
    return status_;
}

void service_process::signal(int number) const
{
    if (pid_ > 0)
        kill(pid_, number);
}

bool service_process::is_running()
{
    int status = 0;
    if (pid_ <= 0)
        return false;
    if (waitpid(pid_, &status, WNOHANG) != pid_)
        return true;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -2;
    pid_ = -1;
    return false;
}

// ---- What it says and costs -----------------------------------------------------------------------------------------

vodclient_server service_process::server() const
{
    return {"127.0.0.1", port_, 20'000};
}

std::string service_process::log() const
{
    return file_of(folder_.file(LOG_FILE));
}

std::string service_process::out() const
{
    return file_of(folder_.file(OUT_FILE));
}

static int entries_in(const std::string &folder)
{
    std::error_code gone;
    std::filesystem::directory_iterator entries(folder, gone);
    return gone ? 0 : static_cast<int>(std::distance(entries, {}));
}

// User and system time out of /proc/<pid>/stat.
static uint64_t cpu_ticks(const std::string &stat)
{
    // Behind the name, which may hold anything, stand the state and ten numbers.
    std::istringstream fields(stat.substr(std::min(stat.size(), stat.rfind(')') + 1)));
    std::string skipped;
    for (int i = 0; i < 11; i++)
        fields >> skipped;
    uint64_t user = 0, system = 0;
    fields >> user >> system;
    return user + system;
}

process_figures service_process::figures() const
{
    std::string proc = "/proc/" + std::to_string(pid_);
    process_figures figures;
    figures.threads = entries_in(proc + "/task");
    figures.descriptors = entries_in(proc + "/fd");
    uint64_t pages = 0;
    std::istringstream(file_of(proc + "/statm")) >> pages >> pages;
    figures.resident_bytes = pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    figures.cpu_ms = cpu_ticks(file_of(proc + "/stat")) * 1000 / static_cast<uint64_t>(sysconf(_SC_CLK_TCK));
    return figures;
}

std::vector<int32_t> link_counters(const vodclient_server &server)
{
    vodclient_login login;
    if (!login.open(server))
        return {};
    std::vector<int32_t> counters;
    for (int kind = VODCLIENT_LINKS_DOWNLOAD; kind <= VODCLIENT_LINKS_ACTIVE; kind++) {
        int32_t count = -1;
        if (!login.link_num(kind, &count))
            return {};
        counters.push_back(count);
    }
    return counters;
}

bool service_process::settles(const process_figures &before) const
{
    for (uint64_t deadline = os_tick() + 20'000; os_tick() < deadline; os_sleep(20)) {
        if (link_counters(server()) != std::vector<int32_t>(5, 0))
            continue;
        process_figures now = figures();
        // The question itself has just ended and may still hold its descriptor.
        if (now.threads <= before.threads && now.descriptors <= before.descriptors)
            return true;
    }
    process_figures now = figures();
    ADD_FAILURE() << "threads " << before.threads << " -> " << now.threads << ", descriptors " << before.descriptors
                  << " -> " << now.descriptors << ", counters " << testing::PrintToString(link_counters(server()));
    return false;
}
