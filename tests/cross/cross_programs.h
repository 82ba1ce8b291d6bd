// The programs of both hosts, for tests that set one against the other.
#pragma once

#include "tests/integration/service_process.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

enum class program_host { posix, windows };

// The words that start it: "vod_svr", "vodctl" or "orbrec".
std::vector<std::string> program_of(program_host host, const std::string &name);
// Runs it to its end in the test's folder.
child_result run_program(program_host host, const std::string &name, const std::vector<std::string> &arguments);
service_settings settings_of(program_host host);
// Which end is a Windows program; for the names of tests.
const char *name_of(program_host host);

// Skips the tests where the Windows programs have not been built.
class CrossTest : public testing::Test {
protected:
    void SetUp() override;
};

// A service of either host, whose end is checked.
class cross_service : public service_process {
public:
    explicit cross_service(program_host host) : service_process(settings_of(host)) {}
    // Ends it in order; the polite request of Wine's host is the keyboard's.
    void end();
    std::string address() const { return "127.0.0.1:" + std::to_string(port()); }
};
