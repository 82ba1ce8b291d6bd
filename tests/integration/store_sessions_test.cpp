// Searches that clients open and forget, from many links, against a running service.
#include "tests/integration/store_service.h"

#include "platform/os/os.h"
#include "silo_pool/silo_pool.h"

#include <deque>

namespace {

constexpr int FORGOTTEN = 5000, LINKS = 10, OPEN_MAX = 1024;

class StoreSessions : public StoreServiceTest {
protected:
    void SetUp() override
    {
        // One address stands for all clients.
        vod_config = R"({"sleep_interval": 0, "search": {"max_per_address": 1024}})";
        serve("lmdb:index");
        ASSERT_TRUE(index_fill("index", numbered_records(300)));
        ASSERT_TRUE(service->start());
    }
    // So many sessions, one link after the other in turn, each read a little; how many could be opened.
    int forget(std::deque<raw_search> &links, int count)
    {
        int opened = 0;
        for (int i = 0; i < count; i++) {
            raw_search &search = links[static_cast<size_t>(i) % links.size()];
            int session = find_answer(search);
            if (session > 0 && ++opened % 2 == 0) {
                EXPECT_EQ(names_in(search.next(session, 1)).size(), 1u);
            }
        }
        return opened;
    }
    void connect(std::deque<raw_search> &links, size_t count)
    {
        for (size_t i = 0; i < count; i++)
            ASSERT_TRUE(links.emplace_back().login(service->port()));
    }
};

} // namespace

TEST_F(StoreSessions, FiveThousandForgottenOnesAreBoundedAndCostLittle)
{
    std::deque<raw_search> links;
    connect(links, LINKS);
    uint64_t before = service->figures().resident_bytes;
    const int forgotten = rounds(FORGOTTEN);
    EXPECT_EQ(forget(links, forgotten), std::min(forgotten, OPEN_MAX));
    uint64_t after = service->figures().resident_bytes, grown = after > before ? after - before : 0;
    RecordProperty("grown_bytes", std::to_string(grown));
    std::printf("%d searches opened and forgotten: resident memory %llu KiB, before %llu KiB\n", forgotten,
                static_cast<unsigned long long>(after >> 10), static_cast<unsigned long long>(before >> 10));
    if (!MEMORY_IS_SANITIZED && !THREADS_ARE_SANITIZED) {
        EXPECT_LT(grown, 48u << 20);
    }
    if (forgotten > OPEN_MAX) {
        EXPECT_GE(said("silo_db_find_file: 1024 searches are open"), 1u);
    }
    expect_plays("with all those searches open");

    // They stay when their links go, and so does the limit.
    links.clear();
    connect(links, 2);
    if (forgotten > OPEN_MAX) {
        EXPECT_EQ(find_answer(links[0]), 0);
    }
    EXPECT_EQ(read_on(links[1], 1, 500).names.size(), 300u) << "whoever knows its number reads it on";
    links[1].close_search(1);
    int session = find_answer(links[1]);
    EXPECT_GT(session, 0);
    EXPECT_EQ(read_on(links[0], session, 500).names.size(), 300u);

    // Whoever wants to end them all, can.
    for (int number = 2; number <= session; number++)
        links[0].close_search(number);
    EXPECT_EQ(forget(links, 20), 20);
}

TEST_F(StoreSessions, UnknownOnesGetNoReplyInBulkAndHarmNobody)
{
    std::deque<raw_search> links;
    connect(links, 3);
    int session = find_answer(links[0]);
    uint64_t before = service->figures().resident_bytes;
    for (int i = 0; i < rounds(4000); i++)
        for (int unknown : {0, -1, 2147483647, -2147483647 - 1, session + 1 + i}) {
            links[1].command(find_next_xml(unknown, 10));
            links[2].close_search(unknown);
        }
    EXPECT_EQ(names_in(links[1].next(session, 5)).size(), 5u) << "the first answer is that of the known one";
    EXPECT_EQ(names_in(links[2].next(session, 5)).size(), 5u);
    EXPECT_GE(said("node == NULL"), 1u);
    if (!MEMORY_IS_SANITIZED && !THREADS_ARE_SANITIZED) {
        EXPECT_LT(service->figures().resident_bytes, before + (16u << 20)) << "40,000 commands do not pile up";
    }
}

TEST_F(StoreSessions, CountsBeyondReasonDeliverWhatIsThere)
{
    std::deque<raw_search> links;
    connect(links, 4);
    int session = find_answer(links[0]);
    for (size_t i = 0; i < 200; i++) {
        raw_search &search = links[i % links.size()];
        for (long long count : {0LL, -1LL, -2147483648LL})
            EXPECT_NE(search.next(session, count).find("result=\"ok\" count=\"0\""), std::string::npos) << count;
    }
    std::string text = links[3].next(session, 2147483647);
    EXPECT_EQ(names_in(text).size(), 300u);
    EXPECT_NE(text.find("result=\"end\" count=\"300\""), std::string::npos);
    EXPECT_EQ(said("opit->count:2147483647, at most 10000 are delivered at once"), 1u);
}

// Several links open, read, share and close the same sessions at the same time, and some of them just go.
TEST_F(StoreSessions, LinksThatReadAndCloseEachOthersLeaveNothingBehind)
{
    child_figures before = {};
    for (int round = 0; round < rounds(80); round++) {
        // A host may keep something for each lock that was ever waited for.
        if (round == rounds(80) / 2) {
            before = service->figures();
        }
        std::deque<raw_search> links;
        connect(links, 4);
        std::vector<int> sessions;
        for (raw_search &search : links)
            sessions.push_back(find_answer(search));
        for (raw_search &search : links)
            for (int session : sessions)
                search.command(find_next_xml(session, 100));
        for (size_t i = 0; i < links.size(); i++)
            links[i].close_search(sessions[links.size() - 1 - i]);
        if (round % 2 == 0)
            links[0].client().reset();
    }
    raw_search search;
    ASSERT_TRUE(search.login(service->port()));
    EXPECT_EQ(read_on(search, find_answer(search), 100).names.size(), 300u);
    search.disconnect();
    EXPECT_TRUE(service->settles(before));
}

// Places of readers outlive a process that is killed; there are 8192 in all.
TEST_F(StoreSessions, ThoseOfKilledServicesTakeNoPlaceFromLaterOnes)
{
    const int kills = rounds(10);
    for (int i = 0; i < kills; i++) {
        std::deque<raw_search> links;
        connect(links, 1);
        ASSERT_EQ(forget(links, OPEN_MAX), OPEN_MAX) << i;
        service->end_now();
        ASSERT_TRUE(service->start()) << i;
    }
    raw_search search;
    ASSERT_TRUE(search.login(service->port()));
    EXPECT_EQ(read_on(search, find_answer(search), 100).names.size(), 300u);
    EXPECT_EQ(said("every place for a reader is taken"), 0u);
}

TEST_F(StoreSessions, ManyOpenOnesAreToldAsTheyBecomeMore)
{
    std::deque<raw_search> links;
    connect(links, 2);
    ASSERT_EQ(forget(links, 63), 63);
    EXPECT_EQ(said("searches are open"), 0u);
    ASSERT_EQ(forget(links, 200), 200);
    for (int count : {64, 128, 256})
        EXPECT_EQ(said("silo_db_find_file: " + std::to_string(count) + " searches are open"), 1u) << count;
    EXPECT_EQ(said("searches are open"), 3u);
}
