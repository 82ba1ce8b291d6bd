// POSIX only: limits on the size of files stand for a full disk, and files are as long as what was written to them.
#include "tests/integration/store_service.h"

#include "platform/json/json.h"
#include "platform/os/os.h"

#include <filesystem>

#include <sys/resource.h>

namespace fs = std::filesystem;

namespace {

class StoreRoom : public StoreServiceTest {
protected:
    // The words of a program that may make no file longer than this.
    static std::vector<std::string> limited(uint64_t bytes, std::vector<std::string> words)
    {
        words.insert(words.begin(), {"/usr/bin/prlimit", "--fsize=" + std::to_string(bytes) + ":unlimited"});
        return words;
    }
    void make_many(int from, int to) const
    {
        fs::create_directory(service->folder().path() / "many");
        recording_plan plan;
        plan.frames = 2;
        plan.key_bytes = plan.delta_bytes = 100;
        for (int i = from; i < to; i++) {
            char name[64];
            std::snprintf(name, sizeof name, "many/door_%02d_1_202601010800%02d_1.rec", i / 60 + 1, i % 60);
            make_recording(service->folder().file(name), plan);
        }
    }
    uint64_t file_bytes() const { return fs::file_size(service->folder().path() / "index/data.mdb"); }
    child_result index_all(uint64_t limit = UINT64_MAX) const
    {
        std::vector<std::string> words = {program_beside("orbrec"), "-v", "reindex", "--scan", "many", "--store", "lmdb:index"};
        return child_run(limit == UINT64_MAX ? words : limited(limit, words));
    }
    // How many the index has; nothing of it is half.
    static int entries()
    {
        child_result checked = child_run({program_beside("orbrec"), "check", "--json", "--store", "lmdb:index"});
        EXPECT_EQ(checked.status, 0) << checked.out << checked.err;
        json_ref told(json_tokener_parse(checked.out.c_str()));
        return json_object_get_field_int(told.get(), "entries", -1);
    }
};

} // namespace

TEST_F(StoreRoom, AWriterWithoutRoomLosesNothingThatWasCommittedAndGoesOnLater)
{
    serve("lmdb:index");
    make_many(0, 60);
    ASSERT_TRUE(service->start());
    ASSERT_EQ(index_all().status, 0);
    int known = entries();
    ASSERT_GE(known, 60);
    make_many(60, 400);
    child_result full = index_all(file_bytes() + 16'384);
    EXPECT_EQ(full.status, 3) << full.out << full.err;
    EXPECT_NE(full.err.find("the index cannot be written"), std::string::npos) << full.err;
    EXPECT_NE(full.err.find("limit on the size of files"), std::string::npos) << full.err;
    int left = entries();
    EXPECT_GE(left, known);
    EXPECT_LT(left, 400);
    raw_search search;
    ASSERT_TRUE(search.login(service->port()));
    EXPECT_GT(find_answer(search), 0);
    expect_plays("beside a full disk");
    EXPECT_EQ(index_all().status, 0);
    EXPECT_GE(entries(), 400);
}

TEST_F(StoreRoom, AServiceWithoutRoomForItsIndexPlaysAndFindsOnceThereIsRoom)
{
    service_settings settings = store_settings("lmdb:index");
    settings.program = limited(12'288, {program_beside("vod_svr")});
    service = std::make_unique<service_process>(settings);
    made = make_recording(service->folder().file("rec/a.rec"));
    ASSERT_TRUE(service->start());
    EXPECT_GE(said("the file may not grow further: raise the limit on the size of files"), 1u) << service->log();
    raw_search search;
    ASSERT_TRUE(search.login(service->port()));
    EXPECT_EQ(find_answer(search), 0);
    expect_plays("without room for its index");
    rlimit unlimited = {RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(prlimit(service->pid(), RLIMIT_FSIZE, &unlimited, nullptr), 0);
    ASSERT_TRUE(index_fill("index", numbered_records(3)));
    EXPECT_EQ(read_on(search, find_answer(search), 10).names.size(), 3u);
}

// Pages that a search may still read are not used again: the file grows with every change until the search is closed.
TEST_F(StoreRoom, AForgottenSearchLetsTheFileGrowUntilItIsClosed)
{
    serve("lmdb:index");
    ASSERT_TRUE(index_fill("index", {}));
    ASSERT_TRUE(service->start());
    auto rewrite = [&](int commits) {
        uint64_t before = file_bytes();
        child_result result = child_run({program_beside("index_append_program"), "lmdb:index?sync=0", "=",
                                         std::to_string(commits)});
        EXPECT_EQ(result.status, 0) << result.err;
        return file_bytes() - before;
    };
    rewrite(1000);
    uint64_t without = rewrite(1000);
    raw_search search;
    ASSERT_TRUE(search.login(service->port()));
    int session = find_answer(search, "writer");
    uint64_t with = rewrite(1000);
    search.close_search(session);
    EXPECT_GT(find_answer(search, "nobody"), 0); // the close is done
    search.close_search(session + 1);
    EXPECT_GT(find_answer(search, "nobody"), 0);
    search.close_search(session + 2);
    uint64_t afterwards = rewrite(1000);
    std::printf("1000 changes let the file grow by %llu KiB, with a forgotten search by %llu KiB, after its end by %llu "
                "KiB\n",
                static_cast<unsigned long long>(without >> 10), static_cast<unsigned long long>(with >> 10),
                static_cast<unsigned long long>(afterwards >> 10));
    EXPECT_GT(with, 1000u * 4096);
    EXPECT_LT(without, with / 10);
    EXPECT_LT(afterwards, with / 10);
}
