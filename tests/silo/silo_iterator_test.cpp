// Walking in key order.
#include "tests/silo/silo_handles.h"
#include "tests/silo/store_fixture.h"
#include "tests/support/log_capture.h"

#include <algorithm>

class SiloIterator : public StoreTest {
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
    void store(const std::vector<std::string> &keys)
    {
        silo_pairs pairs;
        for (const std::string &key : keys)
            pairs.emplace_back(key, "v" + key);
        ASSERT_EQ(write_all(db_, pairs), 0);
    }

    silo_ptr db_;
};

using names = std::vector<std::string>;

TEST_P(SiloIterator, OrderIsByByteAndShorterKeysComeFirst)
{
    const names ordered = {std::string("\0", 1), std::string("\0\0", 2), std::string("\0\x01", 2), std::string("\0\xFF", 2),
                           "\x01", "A", "Z", "a", std::string("a\0", 2), std::string("a\0b", 3), "a\x01", "aa", "ab",
                           "a\x7F", "a\x80", "a\xFF", "a\xFF\xFF", "b", "\x7F", "\x80", "\xC3\xA4", "\xFE", "\xFF",
                           std::string("\xFF\0", 2), "\xFF\xFF"};
    names shuffled = ordered;
    std::ranges::reverse(shuffled);
    std::swap(shuffled[3], shuffled[15]);
    store(shuffled);
    EXPECT_EQ(keys_of(everything(reading(db_))), ordered);
    for (size_t i = 0; i + 1 < ordered.size(); i++) {
        const std::string &one = ordered[i], &next = ordered[i + 1];
        EXPECT_LT(silo_compare_key(one.data(), one.size(), next.data(), next.size()), 0) << i;
        EXPECT_GT(silo_compare_key(next.data(), next.size(), one.data(), one.size()), 0) << i;
        EXPECT_EQ(silo_compare_key(one.data(), one.size(), one.data(), one.size()), 0) << i;
    }
}

TEST_P(SiloIterator, NewOneStandsAtTheEnd)
{
    store({"a"});
    trans_ptr trans = reading(db_);
    iter_ptr iter = walking(trans);
    ASSERT_NE(silo_iterator_kv(iter.get()), nullptr);
    EXPECT_EQ(silo_iterator_kv(iter.get())->key_len, 0u);
    EXPECT_LT(silo_iterator_next(iter.get()), 0);
}

TEST_P(SiloIterator, SeekFindsTheFirstKeyThatIsNotBelow)
{
    store({"b", "bb", "d"});
    trans_ptr trans = reading(db_);
    iter_ptr iter = walking(trans);
    static constexpr struct {
        const char *from, *found;
    } rows[] = {{"", "b"}, {"a", "b"}, {"b", "b"}, {"ba", "bb"}, {"bb", "bb"}, {"bbb", "d"}, {"c", "d"}, {"d", "d"}};
    for (const auto &row : rows) {
        EXPECT_EQ(seek(iter, row.from), 0) << row.from;
        EXPECT_EQ(pair_of(iter), silo_pair(row.found, std::string("v") + row.found)) << row.from;
    }
    for (const char *beyond : {"da", "e", "\xFF"}) {
        EXPECT_LT(seek(iter, beyond), 0) << beyond;
        EXPECT_EQ(silo_iterator_kv(iter.get())->key_len, 0u);
        EXPECT_LT(silo_iterator_next(iter.get()), 0);
    }
}

TEST_P(SiloIterator, EndStaysTheEndUntilTheNextSeek)
{
    store({"a", "b"});
    trans_ptr trans = reading(db_);
    iter_ptr iter = walking(trans);
    ASSERT_EQ(seek(iter, "b"), 0);
    for (int i = 0; i < 3; i++) {
        EXPECT_LT(silo_iterator_next(iter.get()), 0);
        EXPECT_EQ(silo_iterator_kv(iter.get())->key_len, 0u);
    }
    EXPECT_EQ(keys_of(walk(iter, "a")), (names{"a", "b"}));
}

TEST_P(SiloIterator, EmptyDatabaseHasOnlyItsEnd)
{
    trans_ptr trans = reading(db_);
    iter_ptr iter = walking(trans);
    EXPECT_LT(seek(iter, ""), 0);
    EXPECT_LT(seek(iter, "a"), 0);
    EXPECT_LT(silo_iterator_next(iter.get()), 0);
}

TEST_P(SiloIterator, BoundEndsTheWalkWithThePrefix)
{
    store({"e", "f.1", "f.1.", "f.1.a", "f.1.b", "f.10.a", "f.2.a", "g"});
    trans_ptr trans = reading(db_);
    iter_ptr iter = walking(trans);
    EXPECT_EQ(bound(iter, "f.1."), 0);
    EXPECT_EQ(keys_of(walk(iter, "f.1.")), (names{"f.1.", "f.1.a", "f.1.b"}));
    EXPECT_EQ(keys_of(walk(iter, "f.1.b")), (names{"f.1.b"}));
    EXPECT_EQ(keys_of(walk(iter, "f.1.c")), names{});
    EXPECT_EQ(keys_of(walk(iter, "f.2")), names{});
    EXPECT_EQ(keys_of(walk(iter, "")), (names{"e", "f.1", "f.1.", "f.1.a", "f.1.b"})); // from before it
    EXPECT_EQ(bound(iter, "none"), 0);
    EXPECT_EQ(keys_of(walk(iter, "none")), names{});
    EXPECT_EQ(bound(iter, ""), 0);
    EXPECT_EQ(keys_of(walk(iter, "f.2")), (names{"f.2.a", "g"}));
}

TEST_P(SiloIterator, BoundTakesEffectWithTheNextSeek)
{
    store({"a1", "a2", "b1", "b2"});
    trans_ptr trans = reading(db_);
    iter_ptr iter = walking(trans);
    EXPECT_EQ(bound(iter, "a"), 0);
    ASSERT_EQ(seek(iter, "a"), 0);
    EXPECT_EQ(bound(iter, "b"), 0);
    EXPECT_EQ(silo_iterator_next(iter.get()), 0);
    EXPECT_EQ(pair_of(iter).first, "a2");
    EXPECT_LT(silo_iterator_next(iter.get()), 0);
    EXPECT_EQ(keys_of(walk(iter, "b")), (names{"b1", "b2"}));
}

TEST_P(SiloIterator, BoundOfTheLastBytes)
{
    std::string last("\xFF"), two("\xFF\xFF");
    store({"\xFE", last, last + "a", two, two + "a"});
    trans_ptr trans = reading(db_);
    iter_ptr iter = walking(trans);
    EXPECT_EQ(bound(iter, last), 0);
    EXPECT_EQ(keys_of(walk(iter, last)), (names{last, last + "a", two, two + "a"}));
    EXPECT_EQ(bound(iter, two), 0);
    EXPECT_EQ(keys_of(walk(iter, two)), (names{two, two + "a"}));
    EXPECT_EQ(bound(iter, std::string(SILO_KEY_MAX, '\xFF')), 0);
    EXPECT_EQ(keys_of(walk(iter, two + "b")), names{});
}

TEST_P(SiloIterator, SeveralOfOneTransactionWalkByThemselves)
{
    store({"a1", "a2", "a3", "b1", "b2"});
    trans_ptr trans = reading(db_);
    iter_ptr one = walking(trans), two = walking(trans), three = walking(trans);
    bound(two, "b");
    ASSERT_EQ(seek(one, "a1"), 0);
    ASSERT_EQ(seek(two, "b"), 0);
    ASSERT_EQ(silo_iterator_next(one.get()), 0);
    EXPECT_EQ(get(trans, "a3"), "va3");
    EXPECT_EQ(keys_of(walk(three, "")).size(), 5u);
    EXPECT_EQ(pair_of(one).first, "a2");
    EXPECT_EQ(pair_of(two).first, "b1");
    two.reset();
    ASSERT_EQ(silo_iterator_next(one.get()), 0);
    EXPECT_EQ(pair_of(one), silo_pair("a3", "va3"));
}

TEST_P(SiloIterator, LongWalkSeesEachKeyOnce)
{
    names keys;
    for (int i = 0; i < 5000; i++)
        keys.push_back("k" + std::to_string(100000 + i));
    store(keys);
    trans_ptr trans = reading(db_);
    EXPECT_EQ(keys_of(everything(trans)), keys);
    iter_ptr iter = walking(trans);
    bound(iter, "k1025");
    names part = keys_of(walk(iter, "k1025"));
    EXPECT_EQ(part, names(keys.begin() + 2500, keys.begin() + 2600));
}

TEST_P(SiloIterator, LargeValuesAreWalkedOver)
{
    silo_pairs pairs;
    for (int i = 0; i < 12; i++)
        pairs.emplace_back("k" + std::to_string(10 + i), std::string(700'000, static_cast<char>('a' + i)));
    ASSERT_EQ(write_all(db_, pairs), 0);
    EXPECT_TRUE(everything(reading(db_)) == pairs);
}

struct seen_keys {
    names keys;
    size_t wanted;
};

static int see_key(void *user, const silo_kv *kv)
{
    auto seen = static_cast<seen_keys *>(user);
    seen->keys.emplace_back(kv->key, kv->key_len);
    return seen->keys.size() < seen->wanted;
}

TEST_P(SiloIterator, WalkShowsWhatNextWouldFindUntilItIsEnough)
{
    store({"a1", "a2", "a3", "a4", "b1"});
    for (bool is_write : {false, true}) {
        trans_ptr trans = is_write ? writing(db_) : reading(db_);
        iter_ptr iter = walking(trans);
        seen_keys seen = {{}, 2};
        EXPECT_LT(silo_iterator_walk(iter.get(), see_key, &seen), 0) << "it stands at the end";
        bound(iter, "a");
        ASSERT_EQ(seek(iter, "a"), 0);
        EXPECT_EQ(silo_iterator_walk(iter.get(), see_key, &seen), 0);
        EXPECT_EQ(seen.keys, (names{"a2", "a3"}));
        EXPECT_EQ(pair_of(iter), silo_pair("a3", "va3"));
        seen.wanted = 10;
        EXPECT_LT(silo_iterator_walk(iter.get(), see_key, &seen), 0);
        EXPECT_EQ(seen.keys, (names{"a2", "a3", "a4"})) << "not beyond the bound";
        EXPECT_EQ(silo_iterator_kv(iter.get())->key_len, 0u);
        EXPECT_LT(silo_iterator_walk(iter.get(), see_key, &seen), 0);
        bound(iter, "");
        ASSERT_EQ(seek(iter, "a4"), 0);
        EXPECT_LT(silo_iterator_walk(iter.get(), see_key, &seen), 0);
        EXPECT_EQ(seen.keys.back(), "b1");
        EXPECT_LT(silo_iterator_walk(iter.get(), nullptr, nullptr), 0);
    }
    EXPECT_LT(silo_iterator_walk(nullptr, see_key, nullptr), 0);
}

TEST_P(SiloIterator, WalkSeesWhatItsTransactionWroteMeanwhile)
{
    store({"a", "c", "e"});
    trans_ptr trans = writing(db_);
    iter_ptr iter = walking(trans);
    ASSERT_EQ(seek(iter, "a"), 0);
    put(trans, "b", "new");
    drop(trans, "c");
    seen_keys seen = {{}, 10};
    EXPECT_LT(silo_iterator_walk(iter.get(), see_key, &seen), 0);
    EXPECT_EQ(seen.keys, (names{"b", "e"}));
}

TEST_P(SiloIterator, NextGoesToTheFirstKeyAboveWhateverWasWritten)
{
    store({"b", "d", "f", "h"});
    trans_ptr trans = writing(db_);
    iter_ptr iter = walking(trans);
    ASSERT_EQ(seek(iter, "b"), 0);
    put(trans, "a", "before");
    put(trans, "c", "after");
    EXPECT_EQ(pair_of(iter), silo_pair("b", "vb")); // still good
    ASSERT_EQ(silo_iterator_next(iter.get()), 0);
    EXPECT_EQ(pair_of(iter), silo_pair("c", "after"));
    drop(trans, "c"); // the one it stands on
    EXPECT_EQ(pair_of(iter), silo_pair("c", "after"));
    drop(trans, "d");
    ASSERT_EQ(silo_iterator_next(iter.get()), 0);
    EXPECT_EQ(pair_of(iter), silo_pair("f", "vf"));
    put(trans, "f", "changed");
    put(trans, "h", "changed");
    EXPECT_EQ(pair_of(iter), silo_pair("f", "vf"));
    ASSERT_EQ(silo_iterator_next(iter.get()), 0);
    EXPECT_EQ(pair_of(iter), silo_pair("h", "changed"));
    put(trans, "i", "new");
    drop_all(trans, "h");
    ASSERT_EQ(silo_iterator_next(iter.get()), 0);
    EXPECT_EQ(pair_of(iter), silo_pair("i", "new"));
    drop_all(trans, "i");
    EXPECT_LT(silo_iterator_next(iter.get()), 0);
}

TEST_P(SiloIterator, PairsStayGoodWhileManyOthersAreWritten)
{
    store({"m"});
    trans_ptr trans = writing(db_);
    iter_ptr iter = walking(trans);
    ASSERT_EQ(seek(iter, "m"), 0);
    for (int i = 0; i < 500; i++)
        put(trans, "k" + std::to_string(i), std::string(500, 'x'));
    EXPECT_EQ(pair_of(iter), silo_pair("m", "vm"));
    EXPECT_LT(silo_iterator_next(iter.get()), 0);
}

TEST_P(SiloIterator, BoundHoldsInWritingTransactionsToo)
{
    store({"a1", "a3", "b1"});
    trans_ptr trans = writing(db_);
    iter_ptr iter = walking(trans);
    bound(iter, "a");
    ASSERT_EQ(seek(iter, "a"), 0);
    put(trans, "a2", "x");
    put(trans, "a4", "x");
    put(trans, "b0", "x");
    names found;
    do
        found.push_back(pair_of(iter).first);
    while (silo_iterator_next(iter.get()) == 0);
    EXPECT_EQ(found, (names{"a1", "a2", "a3", "a4"}));
}

TEST_P(SiloIterator, WrongArgumentsAreRefused)
{
    store({"a"});
    trans_ptr trans = reading(db_);
    iter_ptr iter = walking(trans);
    std::string too_long(SILO_KEY_MAX + 1, 'k');
    log_capture log;
    EXPECT_LT(silo_iterator_seek(nullptr, "a", 1, 0), 0);
    EXPECT_LT(silo_iterator_seek(iter.get(), "a", 1, 1), 0);
    EXPECT_LT(silo_iterator_seek(iter.get(), nullptr, 1, 0), 0);
    EXPECT_LT(seek(iter, too_long), 0);
    EXPECT_LT(silo_iterator_bound(nullptr, "a", 1), 0);
    EXPECT_LT(silo_iterator_bound(iter.get(), nullptr, 1), 0);
    EXPECT_LT(bound(iter, too_long), 0);
    EXPECT_EQ(log.lines().size(), 7u);
    EXPECT_LT(silo_iterator_next(nullptr), 0);
    ASSERT_NE(silo_iterator_kv(nullptr), nullptr);
    EXPECT_EQ(silo_iterator_kv(nullptr)->key_len, 0u);
    EXPECT_EQ(silo_iterator_seek(iter.get(), nullptr, 0, 0), 0);
    EXPECT_EQ(pair_of(iter).first, "a");
}

TEST(SiloKeys, PairsStartWithTheirPrefixes)
{
    silo_kv kv = {"f.1.bt", "v", 6, 1, nullptr}, end = {"", "", 0, 0, nullptr};
    EXPECT_NE(silo_if_prefix(&kv, "f.1.", 4), 0);
    EXPECT_NE(silo_if_prefix(&kv, "f.1.bt", 6), 0);
    EXPECT_NE(silo_if_prefix(&kv, "", 0), 0);
    EXPECT_NE(silo_if_prefix(&kv, nullptr, 0), 0);
    EXPECT_EQ(silo_if_prefix(&kv, "f.1.bt.", 7), 0);
    EXPECT_EQ(silo_if_prefix(&kv, "f.10", 4), 0);
    EXPECT_EQ(silo_if_prefix(&kv, nullptr, 3), 0);
    EXPECT_EQ(silo_if_prefix(&end, "f", 1), 0);
    EXPECT_EQ(silo_if_prefix(&end, "", 0), 0);
    EXPECT_EQ(silo_if_prefix(nullptr, "f", 1), 0);
}

TEST(SiloKeys, OrderOfEmptyKeys)
{
    EXPECT_EQ(silo_compare_key("", 0, "", 0), 0);
    EXPECT_EQ(silo_compare_key(nullptr, 0, nullptr, 0), 0);
    EXPECT_LT(silo_compare_key(nullptr, 0, "a", 1), 0);
    EXPECT_GT(silo_compare_key("a", 1, nullptr, 0), 0);
    EXPECT_LT(silo_compare_key("bt.2024", 7, "bt.Z", 4), 0);
}

INSTANTIATE_FOR_EACH_STORE(SiloIterator);
