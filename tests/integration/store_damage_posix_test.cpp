// POSIX only: a service whose embedded store is damaged under it. Faults inside the store's library are told from others
// there alone.
#include "tests/integration/store_service.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>

namespace fs = std::filesystem;

namespace {

constexpr size_t PAGE = 4096;

// Pages as a broken disk or a foreign program would leave them. The first two say what the store is; they are looked at
// before it is opened.
class page_damage {
public:
    page_damage(const fs::path &file, uint32_t seed) : file_(file), whole_(file_of(file.string())), random_(seed) {}
    size_t pages() const { return whole_.size() / PAGE; }
    void damage()
    {
        std::string bytes = whole_;
        for (size_t i = 0, count = 1 + below(6); i < count; i++)
            damage_page(&bytes, 2 + below(pages() - 2));
        put(bytes);
    }
    void mend() { put(whole_); }

private:
    size_t below(size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(random_); }
    void fill_random(char *bytes, size_t count)
    {
        for (size_t i = 0; i < count; i++)
            bytes[i] = static_cast<char>(below(256));
    }
    void damage_page(std::string *bytes, size_t page)
    {
        char *at = bytes->data() + page * PAGE;
        switch (below(6)) {
        case 0:
            return fill_random(at, PAGE);
        case 1:
            return std::fill_n(at, PAGE, '\0'), void();
        case 2: // another page is found in its place
            return std::copy_n(whole_.data() + (2 + below(pages() - 2)) * PAGE, PAGE, at), void();
        case 3: // its head
            return fill_random(at + 8, 8);
        case 4: // where its pairs stand
            return fill_random(at + 16, 64);
        default: // single bytes
            for (int i = 0; i < 8; i++)
                fill_random(at + below(PAGE), 1);
        }
    }
    // In place: the service has the file open.
    void put(const std::string &bytes)
    {
        std::fstream out(file_, std::ios::binary | std::ios::in | std::ios::out);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    fs::path file_;
    std::string whole_;
    std::mt19937 random_;
};

class StoreDamage : public StoreServiceTest, public testing::WithParamInterface<uint32_t> {
protected:
    void SetUp() override
    {
        if (THREADS_ARE_SANITIZED)
            GTEST_SKIP() << "the runtime of the thread checker stands between a fault and its handler";
    }
    // Whatever is found: there is an answer, and an end.
    void search_all(int round)
    {
        raw_search search;
        ASSERT_TRUE(search.login(service->port())) << round;
        for (const char *host : {"recorder-1", "nobody", ""}) {
            int session = find_answer(search, host);
            ASSERT_GE(session, 0) << "round " << round << ": no answer for " << host;
            opened_ += session > 0;
            if (session == 0)
                continue;
            ASSERT_NE(read_on(search, session, 500).result, "") << "round " << round << ", host " << host;
            search.close_search(session);
        }
    }
    int opened_ = 0;
};

} // namespace

TEST_P(StoreDamage, UnderARunningServiceNeverEndsItAndNeverHoldsItUp)
{
    serve("lmdb:index");
    ASSERT_TRUE(index_fill("index", numbered_records(1000)));
    ASSERT_TRUE(service->start());
    page_damage damage("index/data.mdb", GetParam());
    for (int round = 0; round < rounds(500) && !HasFailure(); round++) {
        damage.damage();
        search_all(round);
        damage.mend();
    }
    ASSERT_TRUE(service->is_running()) << service->log();
    EXPECT_GE(said("the file is damaged"), 1u);
    EXPECT_GT(opened_, rounds(500) / 2) << "most were read far enough to meet it";
    expect_plays("after all that");
}

TEST_P(StoreDamage, AtTheStartLeavesTheRestOfTheServiceWhole)
{
    serve("lmdb:index");
    ASSERT_TRUE(index_fill("index", numbered_records(1000)));
    page_damage damage("index/data.mdb", GetParam());
    damage.damage();
    ASSERT_TRUE(service->start());
    search_all(0);
    expect_plays("over a damaged store");
    service->stop();
    damage.mend();
    ASSERT_TRUE(service->start());
    raw_search search;
    ASSERT_TRUE(search.login(service->port()));
    EXPECT_EQ(read_on(search, find_answer(search), 500).names.size(), 1000u);
}

INSTANTIATE_TEST_SUITE_P(Seed, StoreDamage, testing::Range(1u, 5u));
