#include "bench/service_process.h"

#include "bench/figure.h"

#include <filesystem>
#include <fstream>

static void write_settings(const std::string &root, const service_settings &settings)
{
    std::filesystem::create_directories(root + "/etc/conf");
    std::ofstream(root + "/etc/conf/ms_config.json") << R"({"port": 0})";
    const std::string store = settings.store.empty() ? "" : R"("store": ")" + settings.store + R"(", )";
    std::ofstream(root + "/etc/conf/vod_svr.json") << "{" << store << R"("fs_charset": "UTF-8", "log": {"level": 5}})";
    std::ofstream(root + "/etc/conf/vod_config.json")
        << R"({"sleep_interval": )" << settings.sleep_interval << R"(, "max_num": )" << settings.max_num << "}";
}

// Of the line that says that the service is ready.
static int port_in(const std::string &line)
{
    static const std::string key = "\"port\":";
    size_t at = line.find(key);
    return at == std::string::npos ? 0 : std::atoi(line.c_str() + at + key.size());
}

service_process::service_process(const load_options &options, const service_settings &settings) : root_(new_folder())
{
    write_settings(root_, settings);
    process_ = std::make_unique<child_process>(std::vector<std::string>{options.server, "--root", root_, "--json"});
    port_ = static_cast<uint16_t>(port_in(process_->read_line()));
    bench_require(port_ != 0, options.server + " did not start");
}

service_process::~service_process()
{
    process_.reset();
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}
