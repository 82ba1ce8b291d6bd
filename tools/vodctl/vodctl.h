// What the commands of vodctl share: exit statuses, settings, how they report.
#pragma once

#include "client/vodclient.h"
#include "tools/common/tool_report.h"

#include <cstdint>
#include <optional>
#include <string>

// Told by --help; scripts rely on them.
enum vodctl_exit {
    VODCTL_OK = 0,
    VODCTL_REFUSED = 1,
    VODCTL_CANNOT_CONNECT = 2,
    VODCTL_INCOMPLETE = 3,
    VODCTL_LOCAL_FILE = 4,
    VODCTL_USAGE = 64,
    VODCTL_INTERRUPTED = 130
};

struct vodctl_settings {
    vodclient_server server;
    bool json = false, quiet = false;
};

enum class play_format { rec, annexb, mp4 };

struct play_settings {
    std::string file;   // as the service sees it
    std::string output; // host path, "-" is standard output
    play_format format = play_format::rec;
    std::optional<int32_t> seek_percent, seek_ms, seek_kilobyte; // at most one
    bool reverse = false, insert_abstime = false;
    bool force = false; // an output that is already there may be replaced
    uint64_t frames_max = 0;  // 0: no limit
    int64_t duration_ms = 0;  // 0: no limit
};

int vodctl_play(const vodctl_settings &settings, const play_settings &play);
int vodctl_state(const vodctl_settings &settings, const std::string &name);
int vodctl_links(const vodctl_settings &settings);

// Says what went wrong and what to do; yields the exit status.
int vodctl_fail(int status, const std::string &text, uint32_t error_code = 0);
int vodctl_fail(const vodclient_result &result);

// Ctrl-C and a polite request to end make vodctl_is_stopped true; a second one ends the process at once. A reader that
// closes its end of a pipe is told by failing writes, not by a signal.
void vodctl_signals_install();
bool vodctl_is_stopped();
