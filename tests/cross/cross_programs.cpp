#include "tests/cross/cross_programs.h"

#include "tests/support/environment.h"

#include <filesystem>

static std::string windows_path(const std::string &name)
{
    return std::string(VOD_WINDOWS_PROGRAMS) + "/" + name + ".exe";
}

std::vector<std::string> program_of(program_host host, const std::string &name)
{
    if (host == program_host::posix)
        return {program_beside(name)};
    return {VOD_WINE, windows_path(name)};
}

child_result run_program(program_host host, const std::string &name, const std::vector<std::string> &arguments)
{
    std::vector<std::string> words = program_of(host, name);
    words.insert(words.end(), arguments.begin(), arguments.end());
    return child_run(words);
}

service_settings settings_of(program_host host)
{
    service_settings settings;
    settings.program = program_of(host, "vod_svr");
    return settings;
}

const char *name_of(program_host host)
{
    return host == program_host::posix ? "posix" : "windows";
}

void CrossTest::SetUp()
{
    for (const char *name : {"vod_svr", "vodctl", "orbrec"})
        if (!std::filesystem::exists(windows_path(name)))
            GTEST_SKIP() << "no " << windows_path(name) << ": build the preset mingw, or set VOD_WINDOWS_PROGRAMS";
    environment_set("WINEPREFIX", VOD_WINE_FOLDER);
    // Names of files reach Wine in the character set of the locale.
    environment_set("LC_ALL", "C.UTF-8");
    environment_zone("UTC0");
}

void cross_service::end()
{
    EXPECT_TRUE(press_ctrl_c());
    EXPECT_EQ(wait_for_end(30'000), 0) << log();
}
