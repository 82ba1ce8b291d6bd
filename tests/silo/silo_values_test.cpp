// Keys and values: their bytes, their limits, the buffers that they are copied into.
#include "tests/silo/silo_handles.h"
#include "tests/silo/store_fixture.h"
#include "tests/support/log_capture.h"

#include <cstring>

class SiloValues : public StoreTest {
protected:
    void SetUp() override
    {
        StoreTest::SetUp();
        if (IsSkipped())
            return;
        db_ = silo_opened(uri());
        ASSERT_NE(db_, nullptr);
    }
    void TearDown() override { db_.reset(); }

    silo_ptr db_;
};

TEST_P(SiloValues, BufferTakesWhatFitsWithItsZero)
{
    ASSERT_EQ(write_all(db_, {{"k", "12345"}, {"empty", ""}}), 0);
    static constexpr struct {
        const char *key;
        size_t size;
        int length;
        const char *text;
    } rows[] = {
        {"k", 1, 0, ""},      {"k", 2, 1, "1"},     {"k", 5, 4, "1234"},    {"k", 6, 5, "12345"},
        {"k", 7, 5, "12345"}, {"empty", 1, 0, ""}, {"empty", 100, 0, ""},
    };
    trans_ptr trans = reading(db_);
    for (const auto &row : rows) {
        char buffer[128];
        std::memset(buffer, '#', sizeof buffer);
        EXPECT_EQ(silo_get_vstr(trans.get(), row.key, buffer, row.size), row.length) << row.size;
        EXPECT_STREQ(buffer, row.text) << row.size;
        EXPECT_EQ(buffer[row.size], '#') << row.size;
    }
}

TEST_P(SiloValues, NoBufferAndAbsentKeysAreNegative)
{
    ASSERT_EQ(write_all(db_, {{"k", "12345"}}), 0);
    trans_ptr trans = reading(db_);
    char buffer[8] = "before";
    EXPECT_LT(silo_get_vstr(trans.get(), "none", buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "before");
    log_capture log;
    EXPECT_LT(silo_get_vstr(trans.get(), "k", buffer, 0), 0);
    EXPECT_LT(silo_get_vstr(trans.get(), "k", nullptr, 5), 0);
    EXPECT_LT(silo_get_vstr(trans.get(), nullptr, buffer, sizeof buffer), 0);
    EXPECT_LT(silo_get_vstr(trans.get(), "", buffer, sizeof buffer), 0);
    EXPECT_EQ(log.lines().size(), 4u);
    EXPECT_LT(silo_get_vstr(nullptr, "k", buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "before");
    EXPECT_EQ(get(trans, "k"), "12345");
}

TEST_P(SiloValues, AbsentKeyIsNoFailure)
{
    trans_ptr trans = writing(db_);
    log_capture log;
    EXPECT_EQ(get(trans, "none"), ABSENT);
    EXPECT_EQ(drop(trans, "none"), 0);
    EXPECT_EQ(drop_all(trans, "none"), 0);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(silo_commit(trans.get()), 0);
}

TEST_P(SiloValues, LaterValueReplacesTheEarlier)
{
    ASSERT_EQ(write_all(db_, {{"k", "long value"}}), 0);
    ASSERT_EQ(write_all(db_, {{"k", "short"}}), 0);
    EXPECT_EQ(get(reading(db_), "k"), "short");
    ASSERT_EQ(write_all(db_, {{"k", ""}}), 0);
    EXPECT_EQ(everything(reading(db_)), (silo_pairs{{"k", ""}}));
    ASSERT_EQ(write_all(db_, {{"k", std::string(5000, 'v')}}), 0);
    EXPECT_EQ(get(reading(db_), "k"), std::string(5000, 'v'));
}

TEST_P(SiloValues, KeysHaveOneTo511Bytes)
{
    std::string longest(SILO_KEY_MAX, 'k'), too_long(SILO_KEY_MAX + 1, 'k');
    {
        trans_ptr trans = writing(db_);
        log_capture log;
        EXPECT_EQ(put(trans, longest, "1"), 0);
        EXPECT_LT(put(trans, too_long, "1"), 0);
        EXPECT_LT(put(trans, "", "1"), 0);
        EXPECT_LT(silo_set_kv(trans.get(), nullptr, 3, "v", 1), 0);
        EXPECT_LT(drop(trans, too_long), 0);
        EXPECT_LT(drop(trans, ""), 0);
        EXPECT_LT(silo_delete(trans.get(), nullptr, 3), 0);
        EXPECT_LT(drop_all(trans, too_long), 0);
        EXPECT_LT(drop_all(trans, ""), 0);
        EXPECT_EQ(log.lines().size(), 8u);
        EXPECT_EQ(silo_commit(trans.get()), 0); // what was refused did no harm
    }
    trans_ptr trans = reading(db_);
    EXPECT_EQ(everything(trans), (silo_pairs{{longest, "1"}}));
    EXPECT_EQ(get(trans, longest), "1");
    EXPECT_EQ(get(trans, too_long), ABSENT);
}

TEST_P(SiloValues, ValuesHaveUpToAMebibyte)
{
    std::string longest(SILO_VALUE_MAX, 'v'), too_long(SILO_VALUE_MAX + 1, 'v');
    longest.front() = longest.back() = 'w';
    {
        trans_ptr trans = writing(db_);
        EXPECT_EQ(put(trans, "k", longest), 0);
        EXPECT_LT(put(trans, "l", too_long), 0);
        EXPECT_LT(silo_set_kv(trans.get(), "m", 1, nullptr, 3), 0);
        EXPECT_EQ(silo_set_kv(trans.get(), "n", 1, nullptr, 0), 0);
        EXPECT_EQ(get(trans, "k"), longest);
        EXPECT_EQ(silo_commit(trans.get()), 0);
    }
    EXPECT_TRUE(everything(reading(db_)) == (silo_pairs{{"k", longest}, {"n", ""}}));
}

TEST_P(SiloValues, EveryByteIsKept)
{
    std::string all;
    for (int i = 0; i < 256; i++)
        all += static_cast<char>(i);
    ASSERT_EQ(write_all(db_, {{all, all}, {std::string("\0", 1), std::string("\0\0", 2)}, {"nul", std::string("a\0b", 3)}}),
              0);
    trans_ptr trans = reading(db_);
    silo_pairs wanted = {{std::string("\0", 1), std::string("\0\0", 2)}, {all, all}, {"nul", std::string("a\0b", 3)}};
    EXPECT_EQ(everything(trans), wanted);
    char buffer[8];
    EXPECT_EQ(silo_get_vstr(trans.get(), "nul", buffer, sizeof buffer), 3);
    EXPECT_EQ(std::memcmp(buffer, "a\0b", 4), 0);
}

TEST_P(SiloValues, ManyLargeValuesInOneTransaction)
{
    silo_pairs pairs;
    for (int i = 0; i < 40; i++)
        pairs.emplace_back("k" + std::to_string(100 + i), std::string(100'000 + static_cast<size_t>(i), 'x'));
    ASSERT_EQ(write_all(db_, pairs), 0);
    EXPECT_TRUE(everything(reading(db_)) == pairs);
}

TEST_P(SiloValues, PrefixTakesItsKeysAndNoOthers)
{
    std::string ff("f.\xFF", 3), ffff("f.\xFF\xFF", 4);
    ASSERT_EQ(write_all(db_, {{"f.1.a", ""}, {"f.1.", ""}, {"f.1", ""}, {"f.10.a", ""}, {"f.11.a", ""}, {"f.2.a", ""},
                              {"f.0", ""}, {"e", ""}, {ff, ""}, {ffff, ""}, {ff + "a", ""}, {"f/", ""}, {"g", ""}}),
              0);
    trans_ptr trans = writing(db_);
    EXPECT_EQ(drop_all(trans, "f.1."), 0);
    EXPECT_EQ(keys_of(everything(trans)), (std::vector<std::string>{"e", "f.0", "f.1", "f.10.a", "f.11.a", "f.2.a", ff,
                                                                    ff + "a", ffff, "f/", "g"}));
    EXPECT_EQ(drop_all(trans, ff), 0);
    EXPECT_EQ(keys_of(everything(trans)),
              (std::vector<std::string>{"e", "f.0", "f.1", "f.10.a", "f.11.a", "f.2.a", "f/", "g"}));
    EXPECT_EQ(drop_all(trans, "f."), 0);
    EXPECT_EQ(keys_of(everything(trans)), (std::vector<std::string>{"e", "f/", "g"}));
    EXPECT_EQ(drop_all(trans, "g"), 0); // a key that is the prefix
    EXPECT_EQ(keys_of(everything(trans)), (std::vector<std::string>{"e", "f/"}));
    EXPECT_EQ(silo_commit(trans.get()), 0);
}

TEST_P(SiloValues, PrefixOfOnlyTheLastByte)
{
    std::string last("\xFF"), longest(SILO_KEY_MAX, '\xFF');
    ASSERT_EQ(write_all(db_, {{"\xFE", ""}, {last, ""}, {last + "a", ""}, {longest, ""}}), 0);
    trans_ptr trans = writing(db_);
    EXPECT_EQ(drop_all(trans, longest), 0);
    EXPECT_EQ(keys_of(everything(trans)), (std::vector<std::string>{"\xFE", last, last + "a"}));
    EXPECT_EQ(drop_all(trans, last), 0);
    EXPECT_EQ(keys_of(everything(trans)), (std::vector<std::string>{"\xFE"}));
}

TEST_P(SiloValues, PrefixOfThousandsOfKeys)
{
    silo_pairs pairs;
    for (int i = 0; i < 3000; i++)
        pairs.emplace_back("p." + std::to_string(i), std::string(static_cast<size_t>(i % 200), 'x'));
    pairs.emplace_back("q", "1");
    ASSERT_EQ(write_all(db_, pairs), 0);
    trans_ptr trans = writing(db_);
    EXPECT_EQ(drop_all(trans, "p."), 0);
    EXPECT_EQ(silo_commit(trans.get()), 0);
    trans.reset();
    EXPECT_EQ(everything(reading(db_)), (silo_pairs{{"q", "1"}}));
}

INSTANTIATE_FOR_EACH_STORE(SiloValues);
