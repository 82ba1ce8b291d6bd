// The store against a plain map, and against every failure that can be asked for.
#include "platform/os/os.h"
#include "tests/silo/silo_handles.h"
#include "tests/silo/store_fixture.h"
#include "tests/support/log_capture.h"

#include <map>
#include <random>

class SiloRandom : public StoreTest {};

using model = std::map<std::string, std::string>;

namespace {
struct dice {
    std::mt19937 generator;

    size_t below(size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(generator); }
    // Few letters, so that keys meet and are prefixes of each other.
    std::string key()
    {
        static constexpr std::string_view letters("a.\xFF\0z1", 6);
        std::string text;
        for (size_t length = 1 + below(5); length != 0; length--)
            text += letters[below(letters.size())];
        return text;
    }
    std::string value() { return std::string(below(20) == 0 ? below(9000) : below(30), static_cast<char>('a' + below(26))); }
};
} // namespace

static void model_drop_all(model *wanted, const std::string &prefix)
{
    for (auto at = wanted->lower_bound(prefix); at != wanted->end() && at->first.starts_with(prefix);)
        at = wanted->erase(at);
}

static void change_once(dice *random, const trans_ptr &trans, model *wanted)
{
    std::string key = random->key();
    switch (random->below(6)) {
    case 0:
        ASSERT_EQ(drop(trans, key), 0);
        wanted->erase(key);
        return;
    case 1:
        ASSERT_EQ(drop_all(trans, key), 0);
        model_drop_all(wanted, key);
        return;
    default: (*wanted)[key] = random->value();
    }
    ASSERT_EQ(put(trans, key, (*wanted)[key]), 0);
}

static silo_pairs model_walk(const model &wanted, const std::string &from, const std::string &prefix)
{
    silo_pairs pairs;
    for (auto at = wanted.lower_bound(from); at != wanted.end(); ++at)
        if (at->first.substr(0, prefix.size()) <= prefix)
            pairs.emplace_back(at->first, at->second);
    return pairs;
}

static void compare(dice *random, const trans_ptr &trans, const model &wanted)
{
    iter_ptr iter = walking(trans);
    ASSERT_EQ(walk(iter, ""), silo_pairs(wanted.begin(), wanted.end()));
    for (int i = 0; i < 3; i++) {
        std::string from = random->key(), prefix = random->key();
        ASSERT_EQ(bound(iter, prefix), 0);
        ASSERT_EQ(walk(iter, from), model_walk(wanted, from, prefix));
        if (prefix.find('\0') != std::string::npos)
            continue; // silo_get_vstr takes texts
        auto found = wanted.find(prefix);
        ASSERT_EQ(get(trans, prefix), found == wanted.end() ? ABSENT : found->second);
    }
}

static void transaction_once(dice *random, const silo_ptr &db, model *wanted)
{
    model changed = *wanted;
    trans_ptr trans = writing(db);
    ASSERT_NE(trans, nullptr);
    for (size_t count = random->below(12); count != 0; count--)
        ASSERT_NO_FATAL_FAILURE(change_once(random, trans, &changed));
    ASSERT_NO_FATAL_FAILURE(compare(random, trans, changed));
    if (random->below(4) == 0)
        return;
    ASSERT_EQ(silo_commit(trans.get()), 0);
    *wanted = changed;
}

TEST_P(SiloRandom, HoldsWhatAMapHolds)
{
    silo_ptr db = silo_opened(uri()), reader = silo_opened(uri());
    dice random = {std::mt19937(20240101)};
    model wanted;
    int rounds = kind() == "lmdb" ? 400 : 60;
    for (int i = 0; i < rounds; i++) {
        trans_ptr before = reading(reader);
        model wanted_before = wanted;
        ASSERT_NO_FATAL_FAILURE(transaction_once(&random, db, &wanted)) << i;
        ASSERT_NO_FATAL_FAILURE(compare(&random, before, wanted_before)) << i;
        before.reset();
        ASSERT_NO_FATAL_FAILURE(compare(&random, reading(reader), wanted)) << i;
    }
}

// A writing iterator that walks on while its transaction changes what is around it.
TEST_P(SiloRandom, WalksOnThroughItsOwnWrites)
{
    silo_ptr db = silo_opened(uri());
    dice random = {std::mt19937(7)};
    model wanted;
    for (int i = 0; i < (kind() == "lmdb" ? 60 : 8); i++) {
        trans_ptr trans = writing(db);
        for (int n = 0; n < 30; n++)
            ASSERT_NO_FATAL_FAILURE(change_once(&random, trans, &wanted));
        iter_ptr iter = walking(trans);
        std::string at;
        for (int result = seek(iter, ""); result == 0; result = silo_iterator_next(iter.get())) {
            auto expected = at.empty() ? wanted.begin() : wanted.upper_bound(at);
            ASSERT_NE(expected, wanted.end());
            ASSERT_EQ(pair_of(iter), silo_pair(expected->first, expected->second));
            at = expected->first;
            for (size_t changes = random.below(2); changes != 0; changes--)
                ASSERT_NO_FATAL_FAILURE(change_once(&random, trans, &wanted));
        }
        ASSERT_EQ(at.empty() ? wanted.begin() : wanted.upper_bound(at), wanted.end());
        iter.reset();
        ASSERT_EQ(silo_commit(trans.get()), 0);
    }
}

// Connects, writes, walks; every step may fail. Answers what the commit said.
static int use_store(const std::string &uri)
{
    silo_ptr db = silo_opened(uri);
    if (db == nullptr)
        return SILO_COMMIT_FAILED;
    trans_ptr trans = writing(db);
    if (trans == nullptr || silo_plock_acquire(trans.get(), "ino", 3, 1) != 0 || put(trans, "a", "2") != 0 ||
        put(trans, "b", "2") != 0 || drop_all(trans, "old.") != 0 || get(trans, "a") != "2")
        return SILO_COMMIT_FAILED;
    iter_ptr iter = walking(trans);
    if (iter == nullptr || walk(iter, "").size() != 2)
        return SILO_COMMIT_FAILED;
    iter.reset();
    return silo_commit(trans.get());
}

TEST_P(SiloRandom, EveryFailureLeavesAllOrNothing)
{
    const silo_pairs before = {{"a", "1"}, {"old.1", "1"}, {"old.2", "1"}}, after = {{"a", "2"}, {"b", "2"}};
    silo_ptr db = silo_opened(uri());
    uint32_t n = 1;
    for (bool was_reached = true; was_reached; n++) {
        {
            trans_ptr trans = writing(db);
            drop(trans, "b");
            for (const silo_pair &one : before)
                put(trans, one.first, one.second);
            ASSERT_EQ(silo_commit(trans.get()), 0);
        }
        log_capture log;
        os_fault_arm(n);
        int result = use_store(uri());
        was_reached = os_fault_calls() >= n;
        os_fault_disarm();
        ASSERT_EQ(everything(reading(db)), result == 0 ? after : before) << n;
        EXPECT_TRUE(result == 0 || !log.lines().empty()) << n; // it was said why
    }
    EXPECT_GT(n, 12u);
}

INSTANTIATE_FOR_EACH_STORE(SiloRandom);
