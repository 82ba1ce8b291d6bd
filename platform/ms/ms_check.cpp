#include "platform/ms/ms_check.h"

#include "platform/ms/ms_listener.h"
#include "platform/ms/ms_settings.h"
#include "platform/os/os_guard.h"

#include <exception>

static int settings_check()
{
    ms_settings settings = ms_settings_read();
    ms_runtime runtime;
    auto listener = std::make_shared<ms_listener>(&runtime);
    bool is_taken = false;
    std::string why = listener->bind(settings.listen, settings.port, &is_taken);
    if (is_taken)
        return LOGGED(1, LOG_REFUSE, "port %u of %s is taken, by the running service or by another program",
                      settings.port, settings.listen.c_str());
    if (!why.empty())
        return LOGGED(0, LOG_SYSTEM, "cannot listen on %s port %u: %s", settings.listen.c_str(), settings.port,
                      why.c_str());
    return 1;
}

int ms_settings_check(void)
{
    try {
        return settings_check();
    } catch (const std::exception &failure) {
        return LOGGED(0, LOG_SYSTEM, "message service: %s", failure.what());
    }
}
