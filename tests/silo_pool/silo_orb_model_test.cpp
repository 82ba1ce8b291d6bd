// Searches over thousands of changes, each held against the plain search over the same pairs.
#include "tests/silo_pool/found_records.h"
#include "tests/silo_pool/index_fixture.h"
#include "tests/silo_pool/index_writer.h"

class ModelTest : public IndexTest, public testing::WithParamInterface<uint32_t> {
protected:
    void upload()
    {
        silo_connection_ptr conn(silo_pool_get_connection());
        silo_transaction_ptr trans(silo_begin_transaction(conn->db, SILO_WRITE));
        std::string path = work.path(), bt = work.time(), et = work.time(), host = work.host();
        uint64_t id = 0;
        silo_record_values values = {.path = path,
                                     .bt = bt,
                                     .host = host,
                                     .ch = static_cast<uint32_t>(work.below(4)),
                                     .et = et,
                                     .size = work.below(1000000),
                                     .rt = static_cast<uint32_t>(work.below(16)),
                                     .md5 = "",
                                     .lock_time = "0-00-00 00:00:00",
                                     .left_out = 0};
        uint64_t known;
        std::string expected =
            work.below(2) && silo_record_find(trans.get(), path, &known) ? std::to_string(known) : "";
        if (silo_record_put(trans.get(), values, expected, &id) <= SILO_PUT_CONTINUED && work.below(10)) {
            EXPECT_EQ(silo_commit(trans.get()), 0);
            last_id = std::max(last_id, id);
        }
    }
    void remove()
    {
        silo_connection_ptr conn(silo_pool_get_connection());
        silo_transaction_ptr trans(silo_begin_transaction(conn->db, SILO_WRITE));
        bool by_path = work.below(2) != 0;
        if (silo_orb_delete_path(trans.get(), by_path ? work.path().c_str() : nullptr, work.below(last_id + 1) + 1) ==
            0) {
            EXPECT_EQ(silo_commit(trans.get()), 0);
        }
    }
    static void apply(const std::vector<index_change> &changes)
    {
        for (const index_change &change : changes)
            change.value ? fake_silo_put(change.key, *change.value) : fake_silo_erase(change.key);
    }
    void change()
    {
        switch (work.below(8)) {
        case 0:
            return remove();
        case 1:
            return apply(work.foreign_values(work.below(last_id + 1) + 1));
        case 2:
            return apply({{"rev.hi", std::to_string(1 + work.below(4))}, {"rev.lo", std::to_string(work.below(3))}});
        default:
            return upload();
        }
    }
    void compare(const search_wish &wish)
    {
        auto pairs = fake_silo_snapshot();
        EXPECT_EQ(finish_search(begin_search(wish)), reference_search(*pairs)(wish)) << testing::PrintToString(wish);
    }
    index_writer work{GetParam()};
    uint64_t last_id = 0;
};

TEST_P(ModelTest, EachSearchFindsWhatTheLaidDownOneFinds)
{
    fake_silo_set_server(GetParam() % 2 == 0);
    for (int i = 0; i < 900 && !HasFailure(); i++) {
        change();
        if (i % 3 == 0)
            compare(work.wish());
        fake_silo_clear_calls();
    }
}

TEST_P(ModelTest, OpenSearchesFindWhatWasThereAtTheirBeginning)
{
    struct open_search {
        silo_orb_iterator *it;
        std::vector<found_record> wanted;
    };
    std::vector<open_search> open;
    for (int i = 0; i < 600 && !HasFailure(); i++) {
        change();
        search_wish wish = work.wish();
        auto pairs = fake_silo_snapshot();
        open.push_back({begin_search(wish), reference_search(*pairs)(wish)});
        if (open.size() > 20) {
            size_t chosen = work.below(open.size());
            EXPECT_EQ(finish_search(open[chosen].it), open[chosen].wanted);
            open.erase(open.begin() + static_cast<ptrdiff_t>(chosen));
        }
    }
    for (auto &[it, wanted] : open)
        EXPECT_EQ(finish_search(it), wanted);
}

TEST_P(ModelTest, DamagedPairsArePassedByAndTheSearchGoesOn)
{
    for (int i = 0; i < 60; i++)
        upload();
    fake_content whole = fake_silo_content();
    for (int i = 0; i < 600 && !HasFailure(); i++) {
        if (i % 60 == 0)
            fake_silo_set_content(whole);
        fake_silo_set_server(i % 2 == 0);
        index_change damage = work.damage(last_id);
        apply({damage});
        silo_channels_forget(); // what is written once was written again
        compare({});
        compare(work.wish());
        fake_silo_clear_calls();
    }
}
INSTANTIATE_TEST_SUITE_P(Seeds, ModelTest, testing::Range(1u, 7u));
