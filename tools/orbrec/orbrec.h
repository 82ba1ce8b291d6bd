// What the commands of orbrec share: exit statuses, messages, paths, the wish to stop, JSON on standard output.
#pragma once

#include "platform/os/os_guard.h"
#include "tools/common/tool_report.h"

#include <cstdint>
#include <string>
#include <vector>

enum orbrec_exit {
    ORBREC_OK = 0,
    ORBREC_FAULTS = 1,
    ORBREC_UNREADABLE = 2,
    ORBREC_UNWRITABLE = 3,
    ORBREC_MEDIA = 4,
    ORBREC_USAGE = 64,
    ORBREC_INTERRUPTED = 130
};

// Paths as the system's records hold them.
constexpr size_t SYSTEM_PATH_BYTES = 256;

// Which record index is meant.
struct store_settings {
    std::string store; // an address; empty: what the service of `root` uses
    std::string root;  // the service's folder; empty: the working directory, where that is one
    // What relative names in the index are relative to.
    std::string folder() const { return root.empty() ? "." : root; }
};

struct import_settings {
    std::vector<std::string> inputs;
    std::string output, codec = "auto", size, start, split, host = "local";
    double gop_seconds = 0, fps = 0; // 0: not said
    int crf = -1;                    // -1: the encoder's usual one
    int channel = 0;
    bool no_audio = false, force = false, json = false, wants_index = false;
    store_settings index;
};

struct export_settings {
    std::string input, output, format = "mp4";
    bool no_audio = false, force = false, json = false;
};

struct info_settings {
    std::string input;
    bool json = false, frames = false, keys = false;
};

struct verify_settings {
    std::vector<std::string> inputs;
    bool decode = false, json = false;
    uint32_t faults_printed_max = 100;
};

int orbrec_import(const import_settings &settings);
int orbrec_export(const export_settings &settings);
int orbrec_info(const info_settings &settings);
int orbrec_verify(const verify_settings &settings);

// Says on standard error what went wrong and what to do, and yields `status`.
int orbrec_fail(int status, const std::string &text);
void orbrec_warn(const std::string &text);

// Ctrl-C and a polite request to end make this true; a second one ends the process at once.
void orbrec_stop_install();
bool orbrec_is_stopped();

// False, with the reason, when the name cannot be held by the system's records.
bool system_path(const std::string &host, std::string *path, std::string *error);
bool path_is_folder(const std::string &host);
bool path_exists(const std::string &host);

std::string local_time_text(int64_t seconds);
bool local_time_parse(const std::string &text, int64_t *seconds);
// "90", "1:30" or "00:01:30"; false for anything else and for nothing.
bool duration_parse(const std::string &text, int64_t *seconds);
bool size_parse(const std::string &text, int *width, int *height);

void json_print(json_object *object);
