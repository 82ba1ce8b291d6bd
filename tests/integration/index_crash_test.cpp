// A writer of the record index is killed at random moments: what it had committed stays, the rest leaves nothing
// behind.
#include "platform/os/os.h"
#include "silo_pool/silo_check.h"
#include "silo_pool/silo_record.h"
#include "tests/integration/service_process.h"
#include "tests/silo/silo_handles.h"
#include "tests/silo/store_fixture.h"

#include <fstream>
#include <map>
#include <random>
#include <sstream>

namespace {

constexpr int KILLS = 200;
constexpr uint32_t START_MS = 60'000, LIFE_MS = 15;

struct crash_record {
    std::string path;
    uint64_t size;
    bool operator==(const crash_record &) const = default;
};
using crash_index = std::map<uint64_t, crash_record>;

void PrintTo(const crash_record &record, std::ostream *out)
{
    *out << record.path << " " << record.size;
}

class IndexCrash : public StoreTest {
protected:
    // Starts the writer and kills it some milliseconds after its first word.
    void live_and_die(int round)
    {
        child_process writer;
        uintmax_t before = log_size();
        ASSERT_TRUE(writer.start({program_beside("index_crash_program"), uri(), log_, std::to_string(round)}));
        for (uint32_t waited = 0; log_size() == before && writer.is_running() && waited < START_MS; waited++)
            os_sleep(1);
        os_sleep(static_cast<uint32_t>(random_() % LIFE_MS));
        ASSERT_TRUE(writer.is_running()) << "round " << round << ": the writer gave up";
        writer.end_now();
        EXPECT_EQ(writer.wait(START_MS), CHILD_ENDED_BY_FORCE);
    }
    // What it said since the last time: all of it was committed but the last, of which nobody knows.
    void hear()
    {
        std::ifstream log(log_, std::ios::binary);
        log.seekg(heard_);
        pending_ = committed_;
        for (std::string line; std::getline(log, line) && !log.eof(); heard_ = log.tellg()) {
            if (line == "committed") {
                committed_ = pending_;
                commits_++;
            } else {
                take_word(line);
            }
        }
    }
    void take_word(const std::string &line)
    {
        std::istringstream words(line);
        std::string what;
        uint64_t id = 0;
        crash_record record = {};
        words >> what >> id >> record.size >> record.path;
        pending_ = committed_;
        if (what == "delete") {
            pending_.erase(id);
            return;
        }
        if (what == "add") {
            EXPECT_GT(id, last_id_) << "an id is given again: " << line;
        }
        pending_[id] = record;
        for (const auto &each : committed_)
            last_id_ = std::max(last_id_, each.first);
    }
    void expect_whole(int round)
    {
        silo_ptr db = silo_opened(uri());
        // A writing one waits until a server is through with what the dead one had sent.
        trans_ptr trans = writing(db);
        ASSERT_NE(trans, nullptr) << "round " << round;
        silo_check_counts counts;
        auto tell = [](void *, silo_problem problem, uint64_t id, std::string_view key) {
            ADD_FAILURE() << silo_problem_text(problem) << ", record " << id << ", key " << key;
            return 1;
        };
        ASSERT_EQ(silo_index_check(trans.get(), tell, nullptr, &counts), 1) << "round " << round;
        crash_index found;
        auto take = [](void *user, const silo_record *record) {
            (*static_cast<crash_index *>(user))[record->ino] = {record->path, record->size};
            return 1;
        };
        ASSERT_EQ(silo_record_walk(trans.get(), take, &found), 1);
        EXPECT_TRUE(found == committed_ || found == pending_)
            << "round " << round << ": found " << testing::PrintToString(found) << "\ncommitted "
            << testing::PrintToString(committed_) << "\nor " << testing::PrintToString(pending_);
        committed_ = found;
        uint64_t ino = 0;
        EXPECT_EQ(silo_read_number(trans.get(), silo_key_text(SILO_KEY_INO), &ino), 1);
        for (const auto &each : found)
            last_id_ = std::max(last_id_, each.first);
        EXPECT_GE(ino, last_id_);
    }
    uintmax_t log_size() const
    {
        std::error_code missing;
        uintmax_t size = std::filesystem::file_size(folder_.path() / "log", missing);
        return missing ? 0 : size;
    }

    temp_folder folder_;
    std::string log_ = folder_.file("log");
    std::streamoff heard_ = 0;
    std::mt19937 random_{20260101};
    crash_index committed_, pending_;
    uint64_t last_id_ = 0;
    int commits_ = 0;
};

} // namespace

TEST_P(IndexCrash, KilledWriterLosesNothingAndLeavesNothingHalf)
{
    for (int round = 1; round <= rounds(KILLS) && !HasFailure(); round++) {
        live_and_die(round);
        hear();
        expect_whole(round);
    }
    // It did get to work in between; how often depends on what else the machine has to do.
    EXPECT_GT(commits_, rounds(KILLS) / 20);
}

INSTANTIATE_FOR_EACH_STORE(IndexCrash);
