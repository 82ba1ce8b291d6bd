#include "bench/load_options.h"

#include "bench/figure.h"
#include "platform/os/os.h"

#include <CLI/CLI.hpp>

#include <filesystem>
#include <random>

load_options load_options_read(int argc, char **argv, const char *description)
{
    CLI::App app(description);
    load_options options;
    app.add_flag("--quick", options.quick, "Once and small: shows that it works, the figures mean nothing");
    app.add_option("--data", options.data, "Folder in which recordings are made and found again")->type_name("DIR");
    std::string here = std::filesystem::path(argv[0]).parent_path().string();
    options.server = here + "/vod_svr";
    options.peer = here + "/bench_peer";
    app.add_option("--server", options.server, "The service's program")->type_name("FILE");
    app.add_option("--peer", options.peer, "The program to compare with")->type_name("FILE");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &wrong) {
        std::exit(app.exit(wrong));
    }
    os_log_settings quiet = {};
    quiet.level = LOG_FATAL;
    quiet.to_stderr = 1;
    bench_require(os_log_open(&quiet) != 0, "the log cannot be opened");
    return options;
}

std::string new_folder()
{
    std::random_device random;
    auto path = std::filesystem::temp_directory_path() / ("vod_bench_" + std::to_string(random()));
    bench_require(std::filesystem::create_directories(path), "cannot create " + path.string());
    return path.string();
}

data_folder::data_folder(const load_options &options)
    : path_(options.data.empty() ? new_folder() : options.data), is_own_(options.data.empty())
{
    std::filesystem::create_directories(path_);
    path_ = std::filesystem::absolute(path_).string();
}

data_folder::~data_folder()
{
    std::error_code ignored;
    if (is_own_)
        std::filesystem::remove_all(path_, ignored);
}
