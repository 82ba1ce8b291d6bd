// Stores for tests, one kind for each driver, each test with a fresh one of its own. A kind registers itself from a file
// of its own (store_lmdb.cpp), which is linked into every test program that wants it.
#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

// One store. Ends, with what it holds, when it is destroyed.
class test_store {
public:
    virtual ~test_store() = default;
    // The address that silo_connect_fd takes. The same in every process of the test.
    virtual std::string uri() const = 0;
};

struct store_kind {
    std::string name; // "lmdb"
    std::unique_ptr<test_store> (*make)();
    // Whether it can be used here; where not, `why` says what is missing and tests over it are skipped.
    bool (*is_there)(std::string *why);
};

// In order of their names.
std::vector<store_kind> &store_kinds();

// At file scope: `static store_registration s_kind{{"lmdb", make_lmdb_store, lmdb_is_there}};`
struct store_registration {
    explicit store_registration(const store_kind &kind);
};

// The base of suites that run over every kind: TEST_P(StoreTest, ...) with uri() of a fresh store.
class StoreTest : public testing::TestWithParam<store_kind> {
protected:
    void SetUp() override
    {
        std::string why;
        if (!GetParam().is_there(&why))
            GTEST_SKIP() << why;
        store_ = GetParam().make();
        ASSERT_NE(store_, nullptr);
    }
    std::string uri() const { return store_->uri(); }
    const std::string &kind() const { return GetParam().name; }

    std::unique_ptr<test_store> store_;
};

inline void PrintTo(const store_kind &kind, std::ostream *out)
{
    *out << kind.name;
}

inline std::string store_kind_name(const testing::TestParamInfo<store_kind> &info)
{
    return info.param.name;
}

// At the end of each file of tests over StoreTest or a suite derived from it.
#define INSTANTIATE_FOR_EACH_STORE(suite)                                                                              \
    INSTANTIATE_TEST_SUITE_P(Store, suite, testing::ValuesIn(store_kinds()), store_kind_name)
