#include "tests/tools/vodctl_process.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

static std::string quoted(const std::string &text)
{
    std::string result = "'";
    for (char letter : text)
        result += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    return result + "'";
}

static std::string command_of(const std::vector<std::string> &arguments)
{
    std::string command = quoted(VODCTL_PATH);
    for (const std::string &argument : arguments)
        command += " " + quoted(argument);
    return command;
}

std::string file_text(const std::string &name)
{
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

static process_result run_script(const std::string &script)
{
    process_result result;
    if (std::system(script.c_str()) == -1)
        return result;
    std::string status = file_text("run.status");
    result.status = status.empty() ? -1 : std::atoi(status.c_str());
    result.out = file_text("run.out");
    result.err = file_text("run.err");
    return result;
}

process_result run_vodctl(const std::vector<std::string> &arguments, const std::string &environment)
{
    return run_script(environment + " " + command_of(arguments) + " >run.out 2>run.err; echo $? >run.status");
}

process_result run_vodctl_into(const std::string &reader, const std::vector<std::string> &arguments)
{
    return run_script("{ " + command_of(arguments) + " 2>run.err; echo $? >run.status; } | " + reader + " >run.out");
}

process_result run_vodctl_and_stop(const std::string &file, const std::vector<std::string> &arguments)
{
    return run_script(command_of(arguments) + " >run.out 2>run.err & "
                      "for i in $(seq 500); do [ -s " + quoted(file) + " ] && break; sleep 0.01; done; "
                      "kill -TERM $!; wait $!; echo $? >run.status");
}
