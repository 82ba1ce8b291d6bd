#include "tests/integration/service_process.h"

#include "platform/json/json.h"
#include "platform/os/os.h"
#include "tests/support/environment.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

static constexpr uint32_t START_MS = 60'000, LOOK_MS = 5;
static constexpr char LOG_FILE[] = "svr.err", OUT_FILE[] = "svr.out";

std::string file_of(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

service_process::service_process(const service_settings &settings)
    : program_(settings.program.empty() ? std::vector{program_beside("vod_svr")} : settings.program)
{
    // Times in names and headers are local.
    environment_set("TZ", "UTC");
    folder_.write("etc/conf/vod_config.json", settings.vod_config);
    folder_.write("etc/conf/ms_config.json", settings.ms_config);
    folder_.write("etc/conf/vod_svr.json", settings.svr_config);
    std::filesystem::create_directory(folder_.path() / "rec");
}

service_process::~service_process()
{
    end_now();
    std::string text = log();
    for (const char *report : {"Sanitizer:", "runtime error:", "lock order", "lock lent"})
        if (size_t at = text.find(report); at != std::string::npos)
            ADD_FAILURE() << text.substr(at > 200 ? at - 200 : 0, 8000);
}

// ---- Life -----------------------------------------------------------------------------------------------------------

bool service_process::launch(const std::vector<std::string> &arguments)
{
    std::vector<std::string> words = program_;
    words.insert(words.end(), {"--root", folder_.path().string(), "--json"});
    words.insert(words.end(), arguments.begin(), arguments.end());
    child_options options;
    options.out = folder_.file(OUT_FILE);
    options.err = folder_.file(LOG_FILE);
    // What an earlier process said must not be taken for this one's.
    std::filesystem::remove(options.out);
    std::filesystem::remove(options.err);
    return process_.start(words, options);
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
    bool is_launched = launch(arguments);
    uint64_t deadline = os_tick() + START_MS;
    while (is_launched && is_running() && os_tick() < deadline) {
        if (port_ = port_of_ready_line(out()); port_ != 0)
            return true;
        os_sleep(LOOK_MS);
    }
    ADD_FAILURE() << "vod_svr did not start: " << log();
    return false;
}

int service_process::run(const std::vector<std::string> &arguments)
{
    return launch(arguments) ? wait_for_end(20'000) : int{CHILD_ENDED_BY_FORCE};
}

void service_process::stop()
{
    EXPECT_TRUE(ask_to_end());
    EXPECT_EQ(wait_for_end(30'000), 0) << log().substr(log().size() > 4000 ? log().size() - 4000 : 0);
}

// ---- What it says and costs -----------------------------------------------------------------------------------------

vodclient_server service_process::server() const
{
    return {"127.0.0.1", port_, 20'000};
}

std::string service_process::log() const
{
    process_.wait_for_rest("vod-log");
    return file_of(folder_.file(LOG_FILE));
}

std::string service_process::out() const
{
    return file_of(folder_.file(OUT_FILE));
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

bool service_process::settles(const child_figures &before) const
{
    for (uint64_t deadline = os_tick() + 20'000; os_tick() < deadline; os_sleep(20)) {
        if (link_counters(server()) != std::vector<int32_t>(5, 0))
            continue;
        child_figures now = figures();
        // The question itself has just ended and may still hold its descriptor.
        if (now.threads <= before.threads && now.descriptors <= before.descriptors + now.host_descriptors)
            return true;
    }
    child_figures now = figures();
    ADD_FAILURE() << "threads " << before.threads << " -> " << now.threads << ", descriptors " << before.descriptors
                  << " -> " << now.descriptors << ", counters " << testing::PrintToString(link_counters(server()));
    return false;
}
