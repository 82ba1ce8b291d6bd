// Stores on a PostgreSQL server: each a schema of the shared server.
#include "tests/silo/pg_server.h"
#include "tests/silo/store_fixture.h"

#include <atomic>

#include <unistd.h>

class pg_test_store : public test_store {
public:
    explicit pg_test_store(const std::string &server) : server_(server)
    {
        static std::atomic<int> s_count;
        schema_ = "t_" + std::to_string(getpid()) + "_" + std::to_string(++s_count);
        ask("DROP SCHEMA IF EXISTS " + schema_ + " CASCADE");
        ask("CREATE SCHEMA " + schema_);
    }
    ~pg_test_store() override { ask("SET lock_timeout = 2000; DROP SCHEMA " + schema_ + " CASCADE"); }
    // Machines that build and test at the same time are slow: the times of the product would fail tests that have
    // nothing to do with them.
    std::string uri() const override
    {
        return server_ + "?options=-csearch_path%3D" + schema_ + "&connect_ms=30000&statement_ms=20000";
    }

private:
    void ask(const std::string &sql) const { pg_ask_server(server_ + "?options=-cclient_min_messages%3Derror", sql); }
    std::string server_, schema_;
};

static std::unique_ptr<test_store> make_store()
{
    std::string server = pg_shared_server_uri();
    return server.empty() ? nullptr : std::make_unique<pg_test_store>(server);
}

static store_registration s_kind{{"postgresql", make_store, pg_programs_are_there}};
