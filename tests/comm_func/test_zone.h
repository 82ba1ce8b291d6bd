// Puts the test program into a time zone of its own before the first test. The zones are written out as rules, so that
// they need no zone files on the host.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

class test_zone : public testing::Environment {
public:
    // `assignment` is "TZ=<rule>" and stays in the environment, so it must be a static array.
    explicit test_zone(char *assignment) : assignment_(assignment) {}
    void SetUp() override
    {
        putenv(assignment_);
        tzset();
    }

private:
    char *assignment_;
};
