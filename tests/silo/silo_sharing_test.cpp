// Several handles, threads and processes at one store.
#include "tests/silo/silo_handles.h"
#include "tests/silo/store_fixture.h"
#include "tests/support/child_process.h"

#include <atomic>
#include <thread>

class SiloSharing : public StoreTest {
protected:
    std::vector<std::string> program(const std::vector<std::string> &words) const
    {
        std::vector<std::string> all = {program_beside("silo_program"), words[0], uri()};
        all.insert(all.end(), words.begin() + 1, words.end());
        return all;
    }
    // A program that does it and says so; it lives as long as the result.
    std::unique_ptr<child_process> start(const std::vector<std::string> &words) const
    {
        auto child = std::make_unique<child_process>();
        child_options options;
        options.out_is_pipe = true;
        EXPECT_TRUE(child->start(program(words), options));
        EXPECT_EQ(child->read(4), "held");
        return child;
    }
};

static void add_one(const silo_ptr &db, const char *key)
{
    trans_ptr trans = writing(db);
    EXPECT_EQ(silo_plock_acquire(trans.get(), "ino", 3, 1), 0);
    int next = std::stoi(get(trans, key)) + 1;
    EXPECT_EQ(put(trans, key, std::to_string(next)), 0);
    EXPECT_EQ(silo_commit(trans.get()), 0);
}

TEST_P(SiloSharing, WritersOfSeveralThreadsFollowEachOther)
{
    constexpr int THREADS = 8, ROUNDS = 40;
    silo_ptr db = silo_opened(uri());
    ASSERT_EQ(write_all(db, {{"n", "0"}}), 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; i++)
        threads.emplace_back([this] {
            silo_ptr own = silo_opened(uri());
            for (int round = 0; round < ROUNDS; round++)
                add_one(own, "n");
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(get(reading(db), "n"), std::to_string(THREADS * ROUNDS));
}

TEST_P(SiloSharing, ReadersSeeWholeTransactionsWhileOthersWrite)
{
    silo_ptr db = silo_opened(uri());
    ASSERT_EQ(write_all(db, {{"x", "0"}, {"y", "0"}}), 0);
    std::atomic<bool> is_over = false;
    std::atomic<int> torn = 0;
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; i++)
        readers.emplace_back([&] {
            silo_ptr own = silo_opened(uri());
            while (!is_over) {
                trans_ptr trans = reading(own);
                std::string x = get(trans, "x");
                iter_ptr iter = walking(trans);
                silo_pairs both = walk(iter, "x");
                torn += x != get(trans, "y") || both.size() != 2 || both[0].second != both[1].second ? 1 : 0;
            }
        });
    for (int i = 1; i <= 150; i++)
        EXPECT_EQ(write_all(db, {{"x", std::to_string(i)}, {"y", std::to_string(i)}}), 0);
    is_over = true;
    for (std::thread &thread : readers)
        thread.join();
    EXPECT_EQ(torn, 0);
}

TEST_P(SiloSharing, ReaderMayChangeItsThread)
{
    silo_ptr db = silo_opened(uri());
    ASSERT_EQ(write_all(db, {{"a", "1"}}), 0);
    trans_ptr trans = reading(db);
    std::thread([&] { EXPECT_EQ(get(trans, "a"), "1"); }).join();
    std::thread([&] { EXPECT_EQ(everything(trans).size(), 1u); }).join();
    EXPECT_EQ(get(trans, "a"), "1");
    std::thread([&] { trans.reset(); }).join();
    EXPECT_EQ(write_all(db, {{"a", "2"}}), 0);
}

TEST_P(SiloSharing, OneThreadHoldsManyReaders)
{
    silo_ptr db = silo_opened(uri());
    std::vector<silo_ptr> handles;
    std::vector<trans_ptr> readers;
    int count = kind() == "lmdb" ? 1000 : 20;
    for (int i = 0; i < count; i++) {
        ASSERT_EQ(write_all(db, {{"n", std::to_string(i)}}), 0);
        handles.push_back(silo_opened(uri()));
        readers.push_back(reading(handles.back()));
        ASSERT_NE(readers.back(), nullptr) << i;
    }
    for (int i = 0; i < count; i++)
        ASSERT_EQ(get(readers[static_cast<size_t>(i)], "n"), std::to_string(i));
}

TEST_P(SiloSharing, OtherProcessesSeeWhatIsCommitted)
{
    silo_ptr db = silo_opened(uri());
    ASSERT_EQ(write_all(db, {{"a", "from here"}}), 0);
    trans_ptr before = reading(db);
    EXPECT_EQ(child_run(program({"get", "a", "-"})).out, "from here\n");
    EXPECT_EQ(child_run(program({"put", "a", "from there"})).status, 0);
    EXPECT_EQ(get(before, "a"), "from here");
    before.reset();
    EXPECT_EQ(get(reading(db), "a"), "from there");
}

TEST_P(SiloSharing, WritersOfSeveralProcessesFollowEachOther)
{
    constexpr int PROCESSES = 4, ROUNDS = 50;
    silo_ptr db = silo_opened(uri());
    ASSERT_EQ(write_all(db, {{"n", "0"}}), 0);
    std::vector<std::unique_ptr<child_process>> children;
    for (int i = 0; i < PROCESSES; i++) {
        children.push_back(std::make_unique<child_process>());
        ASSERT_TRUE(children.back()->start(program({"count", "n", std::to_string(ROUNDS)})));
    }
    for (int i = 0; i < ROUNDS; i++)
        add_one(db, "n");
    for (auto &child : children)
        EXPECT_EQ(child->wait(60'000), 0);
    EXPECT_EQ(get(reading(db), "n"), std::to_string((PROCESSES + 1) * ROUNDS));
}

TEST_P(SiloSharing, WriterWaitsForTheOneOfAnotherProcess)
{
    silo_ptr db = silo_opened(uri());
    ASSERT_EQ(write_all(db, {{"a", "1"}}), 0);
    auto child = start({"slow", "300", "theirs"});
    trans_ptr trans = writing(db);
    ASSERT_NE(trans, nullptr);
    EXPECT_EQ(get(trans, "slow"), "theirs");
    EXPECT_EQ(silo_commit(trans.get()), 0);
    EXPECT_EQ(child->wait(10'000), 0);
}

TEST_P(SiloSharing, WriterThatIsKilledLeavesNothingAndBlocksNobody)
{
    silo_ptr db = silo_opened(uri());
    ASSERT_EQ(write_all(db, {{"a", "1"}}), 0);
    for (int i = 0; i < 3; i++) {
        auto child = start({"hold", "write", "half"});
        EXPECT_EQ(get(reading(db), "held"), ABSENT);
        child->end_now();
        child.reset();
        EXPECT_EQ(write_all(db, {{"a", std::to_string(i)}}), 0);
        EXPECT_EQ(everything(reading(db)), (silo_pairs{{"a", std::to_string(i)}}));
        EXPECT_EQ(silo_proxy_error(db.get()), 0);
    }
}

TEST_P(SiloSharing, ReaderThatIsKilledBlocksNobody)
{
    silo_ptr db = silo_opened(uri());
    ASSERT_EQ(write_all(db, {{"a", "1"}}), 0);
    auto child = start({"hold", "read", "-"});
    EXPECT_EQ(write_all(db, {{"a", "2"}}), 0);
    child->end_now();
    EXPECT_EQ(write_all(db, {{"a", "3"}}), 0);
    EXPECT_EQ(get(reading(db), "a"), "3");
}

INSTANTIATE_FOR_EACH_STORE(SiloSharing);
