// A schema of the shared server for each test of the driver.
#pragma once

#include "tests/silo/pg_handle.h"
#include "tests/silo/pg_server.h"

#include <gtest/gtest.h>

#include <unistd.h>

class PgDriverTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::string why;
        if (!pg_programs_are_there(&why))
            GTEST_SKIP() << why;
        server_ = pg_shared_server_uri();
        ASSERT_FALSE(server_.empty());
        schema_ = "d_" + std::to_string(getpid());
        ask("CREATE SCHEMA " + schema_);
    }
    void TearDown() override
    {
        if (!schema_.empty())
            ask("SET lock_timeout = 2000; DROP SCHEMA " + schema_ + " CASCADE");
    }
    std::string uri(const std::string &parameters = "") const
    {
        return server_ + "?options=-csearch_path%3D" + schema_ + "&connect_ms=30000" +
               (parameters.empty() ? "&statement_ms=20000" : "&" + parameters);
    }
    std::string ask(const std::string &sql) const
    {
        return pg_ask_server(server_ + "?options=-csearch_path%3D" + schema_ + "%20-cclient_min_messages%3Derror", sql);
    }
    std::string server_, schema_;
};
