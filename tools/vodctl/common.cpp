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

int vodctl_fail(const vodctl_settings &settings, int status, const std::string &text, uint32_t error_code)
{
    std::string code = error_code == 0 ? "" : " (" + code_text(error_code) + ")";
    std::fputs(("vodctl: " + text + code + "\n").c_str(), stderr);
    if (!settings.json)
        return status;
    json_ref object(json_object_new_object());
    json_object *error = json_object_new_object();
    json_object_object_add(object.get(), "error", error);
    json_add(error, "exit", status);
    if (error_code != 0)
        json_add(error, "code", code_text(error_code));
    json_add(error, "text", text);
    json_print(object.get());
    return status;
}

int vodctl_fail(const vodctl_settings &settings, const vodclient_result &result)
{
    return vodctl_fail(settings, exit_of(result.status), result.text, result.error_code);
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

void json_add(json_object *object, const char *key, const std::string &text)
{
    json_object_object_add(object, key, json_object_new_string_len(text.data(), static_cast<int>(text.size())));
}

void json_add(json_object *object, const char *key, int64_t value)
{
    json_object_object_add(object, key, json_object_new_int64(value));
}

void json_add_flag(json_object *object, const char *key, bool value)
{
    json_object_object_add(object, key, json_object_new_boolean(value));
}

void json_print(json_object *object)
{
    std::printf("%s\n",
                json_object_to_json_string_ext(object, JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_NOSLASHESCAPE));
}
