// Embedded stores: each in a folder of its own.
#include "tests/silo/store_fixture.h"
#include "tests/support/temp_folder.h"

class lmdb_test_store : public test_store {
public:
    std::string uri() const override { return "lmdb:" + folder_.file("store"); }

private:
    temp_folder folder_;
};

static std::unique_ptr<test_store> make_store()
{
    return std::make_unique<lmdb_test_store>();
}

static bool is_there(std::string *)
{
    return true;
}

static store_registration s_kind{{"lmdb", make_store, is_there}};
