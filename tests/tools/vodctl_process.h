// Runs vodctl as a process of its own.
#pragma once

#include <string>
#include <vector>

struct process_result {
    int status = -1;
    std::string out, err;
};

// `environment`: "NAME=value" assignments before the command. The files of the run go into the working directory.
process_result run_vodctl(const std::vector<std::string> &arguments, const std::string &environment = "");
// As above with the output going into a pipe to `reader`, whose output is `out`.
process_result run_vodctl_into(const std::string &reader, const std::vector<std::string> &arguments);
// Sends a polite request to end as soon as `file` holds something.
process_result run_vodctl_and_stop(const std::string &file, const std::vector<std::string> &arguments);
std::string file_text(const std::string &name);
