// Searches that stay open while other processes write: each sees the index as it was, and none of them stops anybody.
#include "tests/integration/store_service.h"

#include "platform/os/os.h"
#include "tests/silo/store_fixture.h"

#include <algorithm>
#include <deque>
#include <map>

namespace {

constexpr int WRITERS = 4, SEARCHES = 100;

// Each writer numbers what it enters, and enters one record after the other.
using seen_numbers = std::map<std::string, std::vector<int>>;

class StoreWriters : public StoreTest {
protected:
    void SetUp() override
    {
        StoreTest::SetUp();
        if (store_ == nullptr)
            return;
        service_settings settings = store_settings(uri());
        // All searches are of one address here, and of a server half as many would be allowed as this says.
        settings.vod_config = R"({"sleep_interval": 0, "search": {"max_per_address": 1024, "max_on_server": 1024}})";
        service_ = std::make_unique<service_process>(settings);
        ASSERT_TRUE(index_fill_store(uri(), {}));
        ASSERT_TRUE(service_->start());
        made_ = make_recording(service_->folder().file("rec/a.rec"));
    }
    void TearDown() override
    {
        if (service_ != nullptr)
            service_->stop();
        service_.reset();
    }
    void start_writers(int uploads)
    {
        for (size_t i = 0; i < WRITERS; i++) {
            std::string prefix = std::string(1, static_cast<char>('a' + i)) + "_";
            ASSERT_TRUE(writers_[i].start(
                {program_beside("index_append_program"), uri(), prefix, std::to_string(uploads)}));
        }
    }
    bool writers_run()
    {
        return std::ranges::any_of(writers_, [](child_process &writer) { return writer.is_running(); });
    }
    static seen_numbers numbers(const std::vector<std::string> &names)
    {
        seen_numbers seen;
        for (const std::string &name : names)
            seen[name.substr(0, 2)].push_back(std::atoi(name.c_str() + 2));
        return seen;
    }
    // Of one moment: what a writer entered up to then, without a gap. How much that is.
    static size_t expect_whole(const std::vector<std::string> &names)
    {
        for (auto &[writer, entered] : numbers(names))
            for (size_t i = 0; i < entered.size(); i++)
                EXPECT_EQ(entered[i], static_cast<int>(i)) << writer;
        return names.size();
    }
    std::unique_ptr<service_process> service_;
    made_recording made_;
    child_process writers_[WRITERS];
};

} // namespace

TEST_P(StoreWriters, AHundredOpenSearchesKeepTheirViewWhileFourProcessesWrite)
{
    const int uploads = rounds(kind() == "lmdb" ? 1000 : 200);
    start_writers(uploads);
    std::deque<raw_search> links;
    for (int i = 0; i < 5; i++)
        ASSERT_TRUE(links.emplace_back().login(service_->port()));
    std::vector<int> sessions;
    std::vector<std::vector<std::string>> first_halves;
    for (size_t i = 0; i < SEARCHES; i++) {
        raw_search &search = links[i % links.size()];
        sessions.push_back(find_answer(search, "writer"));
        ASSERT_GT(sessions.back(), 0) << i;
        first_halves.push_back(names_in(search.next(sessions.back(), 7)));
    }
    EXPECT_TRUE(play_all(service_->server(), "rec\\a.rec").bytes == made_.bytes()) << "meanwhile";
    for (child_process &writer : writers_)
        EXPECT_EQ(writer.wait(100'000), 0) << "no writer is stopped by the searches";
    size_t before = 0;
    for (size_t i = 0; i < SEARCHES && !HasFailure(); i++) {
        std::vector<std::string> names = first_halves[i];
        for (const std::string &name : read_on(links[(i + 1) % links.size()], sessions[i], 500).names)
            names.push_back(name);
        size_t seen = expect_whole(names);
        EXPECT_GE(seen, before) << "a later search sees no less";
        before = seen;
    }
    EXPECT_EQ(read_on(links[0], find_answer(links[0], "writer"), 500).names.size(),
              static_cast<size_t>(WRITERS * uploads));
}

INSTANTIATE_FOR_EACH_STORE(StoreWriters);
