// Runs vodctl as a process of its own.
#pragma once

#include "tests/support/child_process.h"

#include <string>
#include <vector>

// `environment`: "NAME=value" beside what the test has.
child_result run_vodctl(const std::vector<std::string> &arguments, const std::vector<std::string> &environment = {});
// As above with the output going into a pipe, whose reader takes so many bytes and goes.
child_result run_vodctl_into_pipe(size_t read_bytes, const std::vector<std::string> &arguments);
// Asks it to end as soon as a file whose name begins with `file` holds something.
child_result run_vodctl_and_stop(const std::string &file, const std::vector<std::string> &arguments);
std::string file_text(const std::string &name);
