// A service whose embedded store cannot be opened, or is damaged under it.
#include "tests/integration/store_service.h"

#include "platform/os/os.h"

#include <filesystem>
#include <fstream>
#include <random>

namespace fs = std::filesystem;

// ---- What stands in the way at the start ----------------------------------------------------------------------------

namespace {

struct obstacle {
    const char *name;
    const char *store;
    void (*put)(const fs::path &root);
    void (*take_away)(const fs::path &root);
    const char *advice; // in the log
};

void write_file(const fs::path &path, const std::string &text)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

constexpr obstacle OBSTACLES[] = {
    {"AFileForItsFolder", "lmdb:rec/a.txt/index", [](const fs::path &root) { write_file(root / "rec/a.txt", "text"); },
     [](const fs::path &root) { fs::remove(root / "rec/a.txt"); }, "lmdb:rec/a.txt/index: "},
    {"AForeignFile", "lmdb:index",
     [](const fs::path &root) { write_file(root / "index/data.mdb", std::string(20'000, 'x')); },
     [](const fs::path &root) { fs::remove(root / "index/data.mdb"); },
     "data.mdb there is no store's file: move it away, or name another folder"},
    {"AFolderForItsFile", "lmdb:index", [](const fs::path &root) { fs::create_directories(root / "index/data.mdb"); },
     [](const fs::path &root) { fs::remove(root / "index/data.mdb"); }, "lmdb:index: opening: "},
    {"AHalfFile", "lmdb:index",
     [](const fs::path &root) {
         ASSERT_TRUE(index_fill((root / "index").string(), numbered_records(100)));
         fs::resize_file(root / "index/data.mdb", 5000);
     },
     [](const fs::path &root) { fs::remove_all(root / "index"); }, "the file is damaged: stop every program"},
};

class StoreObstacle : public StoreServiceTest, public testing::WithParamInterface<obstacle> {};

} // namespace

TEST_P(StoreObstacle, IsToldAndPlaysAndIsGoneOnceTakenAway)
{
    serve(GetParam().store);
    fs::path root = service->folder().path();
    GetParam().put(root);
    ASSERT_TRUE(service->start());
    EXPECT_GE(said(GetParam().advice), 10u) << service->log();
    EXPECT_EQ(said("silo_connect_fd failed, uri:") + said("silo_proxy_select_db failed, db: db"), 10u);
    raw_search search;
    ASSERT_TRUE(search.login(service->port()));
    EXPECT_EQ(find_answer(search), 0);
    expect_plays("without a store");
    GetParam().take_away(root);
    ASSERT_TRUE(index_fill_store(GetParam().store, numbered_records(3)));
    EXPECT_EQ(read_on(search, find_answer(search), 10).names.size(), 3u);
}

INSTANTIATE_TEST_SUITE_P(AtTheStart, StoreObstacle, testing::ValuesIn(OBSTACLES),
                         [](const auto &one) { return std::string(one.param.name); });

namespace {
class StoreLmdb : public StoreServiceTest {};
} // namespace

TEST_F(StoreLmdb, AMissingFolderIsMadeWithThoseAboveIt)
{
    serve("lmdb:deep/down/index");
    ASSERT_TRUE(service->start());
    EXPECT_TRUE(fs::exists(service->folder().path() / "deep/down/index/data.mdb"));
    raw_search search;
    ASSERT_TRUE(search.login(service->port()));
    found_names found = read_on(search, find_answer(search), 10);
    EXPECT_EQ(found.result, "end");
    EXPECT_TRUE(found.names.empty());
}

// ---- Damage ---------------------------------------------------------------------------------------------------------

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

class StoreDamage : public StoreLmdb, public testing::WithParamInterface<uint32_t> {
protected:
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
