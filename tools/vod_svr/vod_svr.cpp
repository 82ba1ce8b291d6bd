// The host process: configures the platform libraries, starts the service, runs until it is told to stop.
#include "tools/vod_svr/svr_check.h"
#include "tools/vod_svr/svr_settings.h"

#include "platform/ms/ms.h"
#include "platform/os/os.h"
#include "win32_vod/vod.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <string>

enum exit_code { EXIT_STOPPED = 0, EXIT_NOT_STARTED = 1, EXIT_USAGE = 64 };

static constexpr char DESCRIPTION[] =
    "Serves recordings to remote clients until it is told to stop (Ctrl-C or SIGTERM).\n"
    "\n"
    "Everything is read from the folder given with --root (the working directory by default):\n"
    "  etc/conf/vod_svr.json     this process: logging, character set of file names\n"
    "  etc/conf/ms_config.json   the network: address, port, limits\n"
    "  etc/conf/vod_config.json  the service: sessions, pacing, folders that clients may name\n"
    "A file that is missing leaves the defaults. When the service takes requests, one line says so on standard "
    "output.\n"
    "\n"
    "Example:\n"
    "  vod_svr --root /var/lib/win32-vod\n"
    "\n"
    "Exit status: 0 stopped when told to, or the checked configuration can be used, 1 not started (the log says why), or it "
    "cannot, 64 wrong arguments.";

struct svr_arguments {
    std::string root;
    int log_level = 0;
    bool check = false, json = false;
};

static int complain(const std::string &error)
{
    std::fprintf(stderr, "vod_svr: %s\n", error.c_str());
    return EXIT_NOT_STARTED;
}

static void say_ready(bool json)
{
    unsigned port = ms_listen_port();
    if (json)
        std::printf("{\"event\":\"ready\",\"port\":%u,\"pid\":%d,\"version\":\"" VOD_VERSION "\"}\n", port,
                    os_process_id());
    else
        std::printf("vod_svr " VOD_VERSION " serves on port %u\n", port);
    std::fflush(stdout);
}

// What is found goes to standard error, the result to standard output.
static int check(bool json)
{
    check_result result = settings_check();
    for (const check_finding &found : result.findings)
        std::fprintf(stderr, "vod_svr: [%d] %s\n", found.level, found.text.c_str());
    if (json)
        std::puts(check_as_json(result).c_str());
    else if (result.is_usable)
        std::puts("the configuration can be used");
    return result.is_usable ? EXIT_STOPPED : EXIT_NOT_STARTED;
}

// Connections end first, so that every session closes its player while the service is still whole.
static void stop_service()
{
    ms_cleanup();
    vod_cleanup();
}

static int run(const svr_arguments &arguments)
{
    std::error_code failed;
    std::u8string root(arguments.root.begin(), arguments.root.end());
    if (!root.empty())
        std::filesystem::current_path(root, failed);
    if (failed)
        return complain("--root " + arguments.root + ": " + failed.message() + "; name an existing folder");
    if (arguments.check)
        return check(arguments.json);
    svr_settings settings;
    std::string error;
    if (!svr_settings_read(&settings, &error))
        return complain(error);
    if (arguments.log_level != 0)
        settings.log_level = arguments.log_level;
    if (!svr_settings_apply(settings, &error))
        return complain(error);
    svr_settings_tell(settings);
    // Before the start: a request that comes meanwhile is kept until it is waited for.
    if (!os_end_take())
        return complain("requests to end cannot be taken");
    if (!vod_startup()) {
        os_log_flush();
        return complain("the service did not start; the last lines of the log say why");
    }
    say_ready(arguments.json);
    os_end_wait();
    stop_service();
    return EXIT_STOPPED;
}

int main(int argc, char **argv)
{
    argv = os_program_start(argc, argv);
    CLI::App app(DESCRIPTION, "vod_svr");
    // A name that begins with a slash is a name on every host.
    app.allow_windows_style_options(false);
    svr_arguments arguments;
    app.add_option("--root", arguments.root, "Folder with etc/conf and var; becomes the working directory")
        ->type_name("DIR");
    app.add_option("--log-level", arguments.log_level, "1 writes every package and step, 2 is usual, 5 only ends")
        ->check(CLI::Range(1, 5));
    app.add_flag("--check", arguments.check, "Read the configuration as the start does, say whether it can be used, and end");
    app.add_flag("--json", arguments.json, "Say that the service is ready, or what --check found, as a JSON object");
    app.set_version_flag("--version", "vod_svr " VOD_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &wrong) {
        return app.exit(wrong) == 0 ? EXIT_STOPPED : EXIT_USAGE;
    }
    int status = run(arguments);
    os_log_flush();
    return status;
}
