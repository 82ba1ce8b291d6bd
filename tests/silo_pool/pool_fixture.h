// A fresh pool over a fresh fake store, with the clock and the log in the test's hands.
#pragma once

#include "silo_pool/silo_channels.h"
#include "silo_pool/silo_pool.h"
#include "tests/silo_pool/fake_silo.h"
#include "tests/support/environment.h"
#include "tests/support/log_capture.h"
#include "tests/support/manual_clock.h"

#include <gtest/gtest.h>

class PoolTest : public testing::Test {
protected:
    PoolTest()
    {
        environment_set("ZETA_DB_SOCK", nullptr);
        fake_silo_reset();
    }
    ~PoolTest() override
    {
        silo_pool_close();
        EXPECT_EQ(fake_silo_open_handles(), 0);
        EXPECT_EQ(fake_silo_open_descriptors(), 0);
    }
    log_capture log;
    manual_clock clock;
};
