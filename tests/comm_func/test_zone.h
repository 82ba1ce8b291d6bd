// Puts the test program into a time zone of its own before the first test. The zones are written out as rules, so that
// they need no zone files on the host.
#pragma once

#include "tests/support/environment.h"

#include <gtest/gtest.h>

class test_zone : public testing::Environment {
public:
    explicit test_zone(const char *rule) : rule_(rule) {}
    void SetUp() override { environment_zone(rule_); }

private:
    const char *rule_;
};
