#include "platform/silo/pg_resolve.h"

#include "platform/os/os.h"

#include <atomic>
#include <gtest/gtest.h>

using texts = std::vector<std::string>;

TEST(PgResolve, LooksUpNamesOnly)
{
    for (const char *name : {"localhost", "db.example", "a", "1a", "10.0.0.x"})
        EXPECT_TRUE(pg_is_name(name)) << name;
    for (const char *other : {"", "127.0.0.1", "::1", "fe80::1", "/run/postgresql", "@socket"})
        EXPECT_FALSE(pg_is_name(other)) << other;
}

TEST(PgResolve, GivesWhatTheLookUpFinds)
{
    texts found;
    EXPECT_TRUE(pg_resolve(
        "good", 10'000,
        [](const std::string &name, texts *to) {
            *to = {name, "2"};
            return true;
        },
        &found));
    EXPECT_EQ(found, (texts{"good", "2"}));
    EXPECT_FALSE(pg_resolve(
        "bad", 10'000, [](const std::string &, texts *) { return false; }, &found));
    EXPECT_FALSE(pg_resolve(
        "empty", 10'000, [](const std::string &, texts *) { return true; }, &found));
}

static std::atomic<bool> s_is_silent;
static std::atomic<int> s_lookups;

static bool slow_lookup(const std::string &, texts *addresses)
{
    s_lookups++;
    while (s_is_silent)
        os_sleep(5);
    *addresses = {"1.2.3.4"};
    return true;
}

TEST(PgResolve, ASilentNameServerCostsNoMoreThanTheTime)
{
    s_is_silent = true;
    texts found;
    uint64_t start = os_tick();
    EXPECT_FALSE(pg_resolve("slow", 100, slow_lookup, &found));
    EXPECT_FALSE(pg_resolve("slow", 100, slow_lookup, &found));
    EXPECT_GE(os_tick() - start, 190u);
    EXPECT_LE(os_tick() - start, 1000u);
    EXPECT_EQ(s_lookups, 1); // one thread waits, not one for each call
    s_is_silent = false;
    EXPECT_TRUE(pg_resolve("slow", 10'000, slow_lookup, &found));
    EXPECT_EQ(found, texts{"1.2.3.4"});
}

TEST(PgResolve, WhatWasKnownServesWhileTheNameServerIsSilent)
{
    s_is_silent = false;
    texts found;
    ASSERT_TRUE(pg_resolve("known", 10'000, slow_lookup, &found));
    s_is_silent = true;
    found.clear();
    EXPECT_TRUE(pg_resolve("known", 50, slow_lookup, &found));
    EXPECT_EQ(found, texts{"1.2.3.4"});
    s_is_silent = false;
    EXPECT_TRUE(pg_resolve("known", 10'000, slow_lookup, &found));
}
