// The index on every real store: random work of all kinds, each search held against the plain one over what the
// store then holds.
#include "silo_pool/silo_channels.h"
#include "silo_pool/silo_check.h"
#include "silo_pool/silo_owners.h"
#include "tests/silo/store_fixture.h"
#include "tests/silo_pool/found_records.h"
#include "tests/silo_pool/unruly_writer.h"

#include <algorithm>
#include <atomic>
#include <thread>

class IndexStoreTest : public StoreTest {
protected:
    void SetUp() override
    {
        StoreTest::SetUp();
        if (store_ == nullptr)
            return;
        silo_pool_close();
        // Crashes of the machine are no part of these tests.
        silo_pool_set_db_uri((uri() + (kind() == "lmdb" ? "?sync=0" : "")).c_str());
        ASSERT_EQ(silo_orb_initialize(), 0);
    }
    void TearDown() override { silo_pool_close(); }

    static int note_pair(void *user, const silo_kv *kv)
    {
        static_cast<index_pairs *>(user)->emplace(std::string(kv->key, kv->key_len), std::string(kv->val, kv->val_len));
        return 1;
    }
    static index_pairs pairs_of(silo_transaction_t *trans)
    {
        index_pairs pairs;
        EXPECT_EQ(silo_key_walk(trans, {}, note_pair, &pairs), 1);
        return pairs;
    }
    // What the store holds now.
    static index_pairs pairs()
    {
        silo_connection_ptr conn(silo_pool_get_connection());
        silo_transaction_ptr trans(silo_begin_transaction(conn->db, SILO_READ));
        return pairs_of(trans.get());
    }
    template <class F> static void change(F write)
    {
        silo_connection_ptr conn(silo_pool_get_connection());
        silo_transaction_ptr trans(silo_begin_transaction(conn->db, SILO_WRITE));
        ASSERT_NE(trans, nullptr);
        if (write(trans.get())) {
            EXPECT_EQ(silo_commit(trans.get()), 0);
        }
    }
    static bool upload(silo_transaction_t *trans, index_writer *work, const std::string &path, uint64_t *id)
    {
        std::string bt = work->time(), et = work->time(), host = work->host();
        silo_record_values values = {.path = path,
                                     .bt = bt,
                                     .host = host,
                                     .ch = static_cast<uint32_t>(work->below(4)),
                                     .et = et,
                                     .size = work->below(1000000),
                                     .rt = static_cast<uint32_t>(1 + work->below(15)),
                                     .md5 = "0123456789abcdef0123456789abcdef",
                                     .lock_time = "0-00-00 00:00:00",
                                     .left_out = 0};
        uint64_t known;
        std::string expected = work->below(2) && silo_record_find(trans, path, &known) ? std::to_string(known) : "";
        return silo_record_put(trans, values, expected, id) <= SILO_PUT_CONTINUED;
    }
    static bool apply(silo_transaction_t *trans, const index_change &change)
    {
        return change.value ? silo_set_kv(trans, change.key.data(), change.key.size(), change.value->data(),
                                          change.value->size()) == 0
                            : silo_delete(trans, change.key.data(), change.key.size()) == 0;
    }
    void random_change(index_writer *work)
    {
        uint64_t id = work->below(last_id + 1) + 1;
        std::string path = work->path();
        change([&](silo_transaction_t *trans) {
            switch (work->below(8)) {
            case 0:
                return silo_orb_delete_path(trans, work->below(2) ? path.c_str() : nullptr, id) == 0;
            case 1:
                for (const index_change &one : work->foreign_values(id))
                    apply(trans, one);
                return true;
            default:
                bool done = upload(trans, work, path, &id) && work->below(10) != 0;
                last_id = done ? std::max(last_id, id) : last_id;
                return done;
            }
        });
    }
    uint64_t last_id = 0;
};

TEST_P(IndexStoreTest, RandomWorkAndSearchesAreAsLaidDown)
{
    index_writer work(17);
    for (int i = 0; i < 400 && !HasFailure(); i++) {
        random_change(&work);
        search_wish wish = work.wish();
        if (i % 2 == 0) {
            EXPECT_EQ(finish_search(begin_search(wish)), reference_search(pairs())(wish))
                << testing::PrintToString(wish);
        }
    }
    EXPECT_GT(last_id, 100u);
}

TEST_P(IndexStoreTest, DamagedPairsArePassedBy)
{
    index_writer work(23);
    for (int i = 0; i < 40; i++)
        random_change(&work);
    for (int i = 0; i < 200 && !HasFailure(); i++) {
        index_change damage = work.damage(last_id);
        change([&](silo_transaction_t *trans) { return apply(trans, damage); });
        silo_channels_forget();
        search_wish wish = work.wish();
        EXPECT_EQ(finish_search(begin_search(wish)), reference_search(pairs())(wish)) << testing::PrintToString(wish);
    }
}

TEST_P(IndexStoreTest, SearchesFindWhatIsThereWhateverOthersDo)
{
    unruly_writer work(41);
    auto apply_all = [&](const std::vector<index_change> &changes) {
        change([&](silo_transaction_t *trans) {
            return std::ranges::all_of(changes, [&](const index_change &one) { return apply(trans, one); });
        });
    };
    apply_all(work.first_values());
    for (int i = 0; i < 200 && !HasFailure(); i++) {
        apply_all(work.changes(pairs()));
        search_wish wish = work.wish();
        EXPECT_EQ(finish_search(begin_search(wish)), reference_search(pairs())(wish)) << testing::PrintToString(wish);
    }
}

TEST_P(IndexStoreTest, AHundredOpenSearchesKeepTheirViewWhileWritersGoOn)
{
    struct open_search {
        silo_orb_iterator *it;
        search_wish wish;
    };
    std::vector<open_search> open;
    index_writer work(5);
    auto open_one = [&] {
        search_wish wish = work.wish();
        open.push_back({begin_search(wish), wish});
        EXPECT_NE(open.back().it, nullptr);
    };
    open_one();
    std::atomic<bool> is_over = false;
    std::atomic<int> written = 0;
    std::vector<std::thread> writers;
    for (uint32_t n = 0; n < 2; n++)
        writers.emplace_back([&, n] {
            index_writer writer(100 + n);
            for (int i = 0; !is_over && i < 3000; i++, written++)
                change([&](silo_transaction_t *trans) {
                    uint64_t id = 0;
                    return upload(trans, &writer, std::to_string(n) + writer.path(), &id);
                });
        });
    for (int i = 1; i < 100; i++) {
        while (written < i)
            std::this_thread::yield();
        open_one();
    }
    std::vector<size_t> sizes;
    for (auto &[it, wish] : open) {
        if (it == nullptr)
            continue;
        index_pairs seen = pairs_of(it->trans); // in the search's own snapshot
        sizes.push_back(seen.size());
        EXPECT_EQ(finish_search(it), reference_search(seen)(wish));
    }
    is_over = true;
    for (std::thread &writer : writers)
        writer.join();
    EXPECT_LT(sizes.front(), sizes.back());
    EXPECT_TRUE(std::ranges::is_sorted(sizes));
}

TEST_P(IndexStoreTest, AThousandRecordsCostFewRoundTrips)
{
    index_writer work(3);
    change([&](silo_transaction_t *trans) {
        for (uint64_t i = 0, id = 0; i < 1000; i++)
            if (!upload(trans, &work, "D:\\" + std::to_string(i), &id))
                return false;
        return true;
    });
    struct search_case {
        const char *host;
        uint64_t trips;
    };
    // The first search for a host learns the channels of all records.
    for (auto [host, trips] : {search_case{nullptr, 20}, {"dev1", 30}, {"dev1", 20}}) {
        search_wish wish;
        if (host != nullptr)
            wish.host = host;
        silo_connection *conn = silo_pool_get_connection(); // the one that the search will take
        uint64_t before = silo_round_trips(conn->db);
        silo_t *db = conn->db;
        silo_pool_release_connection(conn);
        std::vector<found_record> found = finish_search(begin_search(wish));
        EXPECT_GT(found.size(), 100u);
        conn = silo_pool_get_connection();
        ASSERT_EQ(conn->db, db);
        EXPECT_LT(silo_round_trips(db) - before, trips) << (host ? host : "any");
        silo_pool_release_connection(conn);
    }
}

TEST_P(IndexStoreTest, WhatIsWrittenPassesTheCheck)
{
    index_writer work(9);
    for (int i = 0; i < 60; i++)
        change([&](silo_transaction_t *trans) {
            uint64_t id = 0;
            return work.below(5) ? upload(trans, &work, work.path(), &id)
                                 : silo_orb_delete_path(trans, work.path().c_str(), 0) == 0;
        });
    silo_connection_ptr conn(silo_pool_get_connection());
    silo_transaction_ptr trans(silo_begin_transaction(conn->db, SILO_READ));
    silo_check_counts counts;
    EXPECT_EQ(silo_index_check(trans.get(), nullptr, nullptr, &counts), 1);
    EXPECT_EQ(counts.problems, 0u);
    EXPECT_GT(counts.records, 30u);
}
INSTANTIATE_FOR_EACH_STORE(IndexStoreTest);
