// The command lines of the commands that work on the record index.
#pragma once

#include "tools/orbrec/check.h"
#include "tools/orbrec/index.h"

#include <CLI/CLI.hpp>

struct index_settings {
    index_command index, unindex, reindex;
    check_command check;
};

// --store and --root.
void index_store_options(CLI::App *command, store_settings *store);
void index_commands(CLI::App *app, index_settings *settings, const std::string &exit_statuses);
// Runs the one of them that was named.
int index_commands_run(const CLI::App &app, const index_settings &settings);
