#include "platform/silo/pg_range.h"

#include "platform/silo/silo.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <functional>

using pairs = std::vector<std::pair<std::string, std::string>>;

// Few letters, so that keys meet; among them the ends of the byte order.
static rc::Gen<std::string> keys()
{
    return rc::gen::resize(
        4, rc::gen::container<std::string>(rc::gen::element('\0', 'a', 'b', '\x7F', '\x80', '\xFE', '\xFF')));
}

TEST(PgRange, OfAPrefixHoldsExactlyTheKeysThatStartWithIt)
{
    EXPECT_TRUE(rc::check([] {
        std::string prefix = *keys(), key = *keys();
        pg_range range = pg_prefix_range(prefix);
        RC_ASSERT((key >= range.low && key < range.high) == key.starts_with(prefix));
    }));
}

TEST(PgRange, OfAKeyHoldsNothingElse)
{
    EXPECT_TRUE(rc::check([] {
        std::string one = *keys(), other = *keys();
        pg_range range = pg_key_range(one);
        RC_ASSERT((other >= range.low && other < range.high) == (one == other));
    }));
}

TEST(PgRange, EndsAboveTheLongestKey)
{
    EXPECT_GT(pg_range_end(), std::string(SILO_KEY_MAX, '\xFF'));
    EXPECT_EQ(pg_prefix_end("r.1"), "r.2");
    EXPECT_EQ(pg_prefix_end("a\xFF\xFF"), "b");
    EXPECT_EQ(pg_prefix_end("\xFF"), pg_range_end());
    EXPECT_EQ(pg_prefix_end(""), pg_range_end());
}

TEST(PgKnown, AnswersForItsRangesAlsoWhatIsAbsent)
{
    pg_known known(1000);
    EXPECT_TRUE(known.empty());
    EXPECT_TRUE(known.add(pg_prefix_range("f.1."), {{"f.1.bt", "x"}, {"f.1.path", ""}}));
    EXPECT_TRUE(known.add(pg_key_range("r.1"), {{"r.1", "2"}}));
    EXPECT_TRUE(known.knows("f.1.bt"));
    EXPECT_EQ(*known.value("f.1.bt"), "x");
    EXPECT_EQ(*known.value("f.1.path"), "");
    EXPECT_TRUE(known.knows("f.1.et"));
    EXPECT_EQ(known.value("f.1.et"), nullptr);
    EXPECT_TRUE(known.knows("r.1"));
    for (const char *key : {"f.1", "f.1/", "f.10.bt", "r.", "r.10", "s"})
        EXPECT_FALSE(known.knows(key)) << key;
    known.clear();
    EXPECT_FALSE(known.knows("f.1.bt"));
}

TEST(PgKnown, LeavesOutWhatDoesNotFit)
{
    pg_known known(20);
    EXPECT_TRUE(known.add({"a", "b"}, {{"a1", "0123456789"}})); // 14 bytes
    EXPECT_FALSE(known.add({"c", "d"}, {{"c1", "012"}}));       // 7
    EXPECT_FALSE(known.knows("c1"));
    EXPECT_TRUE(known.add({"c", "d"}, {{"c1", "01"}})); // 6
    EXPECT_FALSE(known.add({"e", "f"}, {}));
    EXPECT_TRUE(known.knows("a1") && known.knows("c1"));
}

TEST(PgKnown, IsWhatItsRangesAddUpTo)
{
    EXPECT_TRUE(rc::check([] {
        pg_known known(100'000);
        std::vector<pg_range> added;
        for (int i = *rc::gen::inRange(0, 8); i > 0; i--) {
            pg_range range = {*keys(), *keys()};
            bool took = known.add(range, {});
            RC_ASSERT(took == (range.low < range.high));
            if (took)
                added.push_back(range);
        }
        std::string key = *keys();
        bool covered = false;
        for (const pg_range &range : added)
            covered = covered || (key >= range.low && key < range.high);
        RC_ASSERT(known.knows(key) == covered);
        RC_ASSERT(known.knows_range(key, key + '\0') == covered);
    }));
}

TEST(PgKnown, KnowsARangeOnlyWhereNothingIsMissing)
{
    pg_known known(1000);
    known.add({"a", "c"}, {});
    known.add({"d", "f"}, {});
    EXPECT_TRUE(known.knows_range("a", "c"));
    EXPECT_FALSE(known.knows_range("a", "f"));
    known.add({"c", "d"}, {});
    EXPECT_TRUE(known.knows_range("a", "f"));
    EXPECT_FALSE(known.knows_range("a", "f1"));
    EXPECT_FALSE(known.knows_range("A", "b"));
    EXPECT_TRUE(known.knows_range("x", "x"));
}

TEST(PgPending, DecidesAsAStoreWouldThatHadSeenTheWrites)
{
    EXPECT_TRUE(rc::check([] {
        pg_pending pending;
        std::map<std::string, std::string> before, after;
        for (int i = 0; i < 6; i++)
            before[*keys()] = "old";
        after = before;
        for (int i = *rc::gen::inRange(0, 12); i > 0; i--) {
            std::string key = *keys(), value = *keys();
            switch (*rc::gen::inRange(0, 3)) {
            case 0:
                pending.set(key, value);
                after[key] = value;
                break;
            case 1:
                pending.remove(key);
                after.erase(key);
                break;
            default:
                pending.remove_prefix(key);
                std::erase_if(after, [&](const auto &pair) { return pair.first.starts_with(key); });
            }
        }
        // As the server carries it out: prefixes, then keys.
        auto sent = before;
        for (const std::string &prefix : pending.prefixes())
            std::erase_if(sent, [&](const auto &pair) { return pair.first.starts_with(prefix); });
        for (const auto &[key, value] : pending.keys())
            value ? static_cast<void>(sent[key] = *value) : static_cast<void>(sent.erase(key));
        RC_ASSERT(sent == after);
        std::string key = *keys();
        pg_pending::outcome look = pending.look(key);
        auto at = look.is_decided ? after.find(key) : before.find(key);
        RC_ASSERT((look.is_decided ? look.value != nullptr : at != before.end()) == after.contains(key));
        if (look.value != nullptr)
            RC_ASSERT(*look.value == after[key]);
    }));
}

TEST(PgPending, CountsItsBytes)
{
    EXPECT_TRUE(rc::check([] {
        pg_pending pending;
        for (int i = *rc::gen::inRange(0, 12); i > 0; i--) {
            std::string key = *keys(), value = *keys();
            std::function<void()> steps[] = {[&] { pending.set(key, value); }, [&] { pending.remove(key); },
                                             [&] { pending.remove_prefix(key); }};
            steps[*rc::gen::inRange(0, 3)]();
        }
        size_t bytes = 0;
        for (const std::string &prefix : pending.prefixes())
            bytes += prefix.size();
        for (const auto &[key, value] : pending.keys())
            bytes += key.size() + (value ? value->size() : 0);
        RC_ASSERT(pending.bytes() == bytes);
        pending.clear();
        RC_ASSERT(pending.empty() && pending.bytes() == 0);
    }));
}
