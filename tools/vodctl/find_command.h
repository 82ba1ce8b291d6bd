// The command lines of vodctl find and vodctl timeline.
#pragma once

#include "tools/vodctl/find.h"

#include <CLI/CLI.hpp>

struct find_command {
    CLI::App *app = nullptr;
    find_settings find;
    std::string from = "today", to = "now";
    bool csv = false;
};

struct timeline_command {
    CLI::App *app = nullptr;
    timeline_settings timeline;
    std::string date = "today";
};

void find_command_declare(find_command *command, CLI::App *of);
int find_command_run(find_command *command, const vodctl_settings &settings);
void timeline_command_declare(timeline_command *command, CLI::App *of);
int timeline_command_run(timeline_command *command, const vodctl_settings &settings);
