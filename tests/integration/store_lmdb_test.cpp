// A service whose embedded store cannot be opened.
#include "tests/integration/store_service.h"

#include "platform/os/os.h"

#include <filesystem>
#include <fstream>

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
