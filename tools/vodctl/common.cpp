#include "platform/os/os.h"
#include "tools/vodctl/vodctl.h"

#include <atomic>
#include <csignal>
#include <cstdio>

static int exit_of(vodclient_status status)
{
    switch (status) {
    case VODCLIENT_OK:
        return VODCTL_OK;
    case VODCLIENT_REFUSED:
        return VODCTL_REFUSED;
    case VODCLIENT_CANNOT_CONNECT:
        return VODCTL_CANNOT_CONNECT;
    case VODCLIENT_BAD_ARGUMENT:
        return VODCTL_USAGE;
    case VODCLIENT_LOST:
    case VODCLIENT_TIMEOUT:
    case VODCLIENT_BAD_REPLY:
    case VODCLIENT_WRONG_STATE:
    case VODCLIENT_NO_MEMORY:
        break;
    }
    return VODCTL_INCOMPLETE;
}

static std::string code_text(uint32_t error_code)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", error_code);
    return text;
}

int vodctl_fail(int status, const std::string &text, uint32_t error_code)
{
    return report_fail(status, text, error_code == 0 ? "" : code_text(error_code));
}

int vodctl_fail(const vodclient_result &result)
{
    return vodctl_fail(exit_of(result.status), result.text, result.error_code);
}

static std::atomic<bool> s_is_stopped;
static_assert(std::atomic<bool>::is_always_lock_free);

void vodctl_signals_install()
{
    os_interrupt_install([] { s_is_stopped = true; });
#ifdef SIGPIPE
    std::signal(SIGPIPE, SIG_IGN);
#endif
}

bool vodctl_is_stopped()
{
    return s_is_stopped;
}
