// What only the embedded store does: its folder, its file, its map, its readers.
#include "platform/os/os.h"
#include "tests/silo/silo_handles.h"
#include "tests/support/child_process.h"
#include "tests/support/host.h"
#include "tests/support/log_capture.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_folder.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <thread>

class SiloLmdb : public testing::Test {
protected:
    std::string uri(const std::string &parameters = "", const std::string &name = "store") const
    {
        return "lmdb:" + folder_.file(name) + parameters;
    }
    std::filesystem::path data_file(const std::string &name = "store") const
    {
        return host_path(folder_.file(name)) / "data.mdb";
    }
    std::vector<std::string> program(const std::vector<std::string> &words) const
    {
        std::vector<std::string> all = {program_beside("silo_program"), words[0], uri()};
        all.insert(all.end(), words.begin() + 1, words.end());
        return all;
    }
    bool start(child_process *child, const std::vector<std::string> &words) const
    {
        child_options options;
        options.out_is_pipe = true;
        return child->start(program(words), options) && child->read(4) == "held";
    }

    temp_folder folder_;
};

static const std::string LARGE(100'000, 'x');

// Writes large values until one is refused: how many were taken.
static int fill(const silo_ptr &db, const std::string &name)
{
    for (int i = 0; i < 100; i++)
        if (write_all(db, {{name + std::to_string(i), LARGE}}) != 0)
            return i;
    return 100;
}

// ---- Addresses ------------------------------------------------------------------------------------------------------------

TEST_F(SiloLmdb, FolderIsMadeWithThoseAboveIt)
{
    silo_ptr db = silo_opened(uri("", "a/b/c"));
    ASSERT_NE(db, nullptr);
    EXPECT_TRUE(std::filesystem::exists(host_path(folder_.file("a")) / "b" / "c" / "data.mdb"));
}

TEST_F(SiloLmdb, NamesAreUtf8)
{
    std::string name = "index \xE8\xAE\xB0\xE5\xBD\x95 \xC3\xA4";
    ASSERT_TRUE(os_fs_charset_set("UTF-8"));
    silo_ptr db = silo_opened(uri("", name));
    os_fs_charset_set("GB18030");
    ASSERT_NE(db, nullptr);
    ASSERT_EQ(write_all(db, {{"a", "1"}}), 0);
    EXPECT_TRUE(std::filesystem::exists(folder_.path() / std::u8string(name.begin(), name.end()) / "data.mdb"));
}

TEST_F(SiloLmdb, FolderIsOneHoweverItIsSpelled)
{
    std::filesystem::create_directory(folder_.file("other"));
    silo_ptr one = silo_opened(uri()), two = silo_opened(uri("/")), three = silo_opened(uri("", "./other/../store"));
    ASSERT_NE(three, nullptr);
    ASSERT_EQ(write_all(one, {{"a", "1"}}), 0);
    EXPECT_EQ(get(reading(two), "a"), "1");
    EXPECT_EQ(get(reading(three), "a"), "1");
    // One environment: a thread that writes in it is known there, and would otherwise wait for itself.
    trans_ptr trans = writing(one);
    log_capture log;
    EXPECT_EQ(writing(two), nullptr);
    EXPECT_EQ(writing(three), nullptr);
    EXPECT_EQ(log.count_containing("this thread writes already"), 2u);
}

TEST_F(SiloLmdb, LinkedFolderIsTheSame)
{
    silo_ptr one = silo_opened(uri());
    if (!host_link(folder_.file("store"), folder_.file("link")))
        GTEST_SKIP() << "no links here";
    silo_ptr two = silo_opened(uri("", "link"));
    ASSERT_NE(two, nullptr);
    trans_ptr trans = writing(one);
    EXPECT_EQ(writing(two), nullptr);
}

TEST_F(SiloLmdb, FolderThatCameAnewIsAnother)
{
    silo_ptr db = silo_opened(uri());
    ASSERT_EQ(write_all(db, {{"a", "1"}}), 0);
    db.reset();
    std::filesystem::remove_all(host_path(folder_.file("store")));
    db = silo_opened(uri());
    ASSERT_NE(db, nullptr);
    EXPECT_EQ(get(reading(db), "a"), ABSENT);
}

TEST_F(SiloLmdb, FolderThatCameAnewHasOtherNumbersOfSnapshots)
{
    std::vector<uint64_t> numbers;
    for (const char *value : {"1", "2"}) {
        silo_ptr db = silo_opened(uri());
        ASSERT_EQ(write_all(db, {{"a", value}}), 0);
        numbers.push_back(silo_snapshot_id(reading(db).get()));
        db.reset();
        std::filesystem::remove_all(host_path(folder_.file("store")));
    }
    EXPECT_NE(numbers[0], numbers[1]);
}

TEST_F(SiloLmdb, WrongAddressesAreRefused)
{
    const std::string bad[] = {
        "lmdb:", "lmdb:?map_mb=1", uri("?"  "x=1"), uri("?map_mb=0"), uri("?map_mb=16777217"), uri("?map_mb="),
        uri("?map_mb"), uri("?map_mb=-1"), uri("?map_mb=1x"), uri("?sync=2"), uri("?sync=yes"), uri("?map_mb=1&x"),
        uri("?map_mb=99999999999999999999999"), "lmdb:\xFF\xFE",
    };
    for (const std::string &one : bad) {
        log_capture log;
        EXPECT_EQ(silo_connect_fd(one.c_str()), -1) << one;
        EXPECT_EQ(log.lines().size(), 1u) << one;
        EXPECT_TRUE(log.lines().empty() || log.lines()[0].level == 4) << one;
    }
    EXPECT_FALSE(std::filesystem::exists(folder_.file("store")));
}

TEST_F(SiloLmdb, ParametersAreTold)
{
    for (const char *good : {"?map_mb=1", "?sync=0", "?sync=1&map_mb=20", "?map_mb=16777216&sync=0"}) {
        silo_ptr db = silo_opened(uri(good, std::string("s") + std::to_string(good[1] + good[3])));
        bool is_widest = std::string(good).find("16777216") != std::string::npos; // not every host has so much
        EXPECT_TRUE(db != nullptr || is_widest) << good;
        EXPECT_TRUE(db == nullptr || write_all(db, {{"a", "1"}}) == 0) << good;
    }
}

TEST_F(SiloLmdb, FileWhereTheFolderShouldBeIsRefused)
{
    folder_.write("store", "text");
    log_capture log;
    EXPECT_EQ(silo_connect_fd(uri().c_str()), -1);
    EXPECT_EQ(silo_connect_fd(uri("", "store/below").c_str()), -1);
    EXPECT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.count_containing("the folder cannot be made"), 2u);
}

// ---- Files that are not what they should be -----------------------------------------------------------------------------

static void write_bytes(const std::filesystem::path &path, uint64_t offset, const std::string &bytes)
{
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(offset));
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

TEST_F(SiloLmdb, ForeignFilesAreRefusedAndLeftAsTheyAre)
{
    const std::string foreign[] = {"x", std::string(100, '\0'), std::string(10'000, '\0'), std::string(10'000, 'x'),
                                   "SQLite format 3" + std::string(8192, '\0')};
    int number = 0;
    for (const std::string &bytes : foreign) {
        std::string name = "s" + std::to_string(number++);
        folder_.write(name + "\\data.mdb", bytes);
        log_capture log;
        EXPECT_EQ(silo_connect_fd(uri("", name).c_str()), -1) << name;
        EXPECT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(log.count_containing("move it away, or name another folder"), 1u);
        std::ifstream file(data_file(name), std::ios::binary);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), bytes) << name;
    }
}

TEST_F(SiloLmdb, FolderInPlaceOfTheFileIsRefused)
{
    std::filesystem::create_directories(data_file());
    log_capture log;
    EXPECT_EQ(silo_connect_fd(uri().c_str()), -1);
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(SiloLmdb, DamagedHeadsAreRefused)
{
    ASSERT_EQ(write_all(silo_opened(uri()), {{"a", "1"}}), 0);
    static constexpr struct {
        uint64_t offset;
        std::string_view bytes;
        const char *said;
    } rows[] = {
        {20, {"\x02\0\0\0", 4}, "another version"},          {40, {"\0\0\0\0", 4}, "damaged"},
        {40, {"\xFF\xFF\xFF\xFF", 4}, "damaged"},            {40, {"\x00\x30\0\0", 4}, "damaged"},
        {136, {"\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 8}, "damaged"}, {16, {"\0\0\0\0", 4}, "no store's file"},
        {4096 + 16, {"\0\0\0\0", 4}, "no store's file"},     {4096 + 40, {"\0\x20\0\0", 4}, "damaged"},
    };
    std::ifstream whole(data_file(), std::ios::binary);
    std::string before(5 * 4096, '\0'); // the file may be as long as its map
    whole.read(before.data(), static_cast<std::streamsize>(before.size()));
    whole.close();
    for (const auto &row : rows) {
        folder_.write("d" + std::to_string(row.offset) + "\\data.mdb", before);
        std::string name = "d" + std::to_string(row.offset);
        write_bytes(data_file(name), row.offset, std::string(row.bytes));
        log_capture log;
        EXPECT_EQ(silo_connect_fd(uri("", name).c_str()), -1) << row.offset;
        EXPECT_EQ(log.lines().size(), 1u) << row.offset;
        EXPECT_EQ(log.count_containing(row.said), 1u) << row.offset << log.lines()[0].text;
    }
}

// Opens, reads and writes whatever is there: nothing of it may end the process.
static bool use_damaged(const std::string &uri)
{
    silo_ptr db = silo_opened(uri);
    if (db == nullptr)
        return false;
    if (trans_ptr trans = reading(db); trans != nullptr) {
        everything(trans);
        get(trans, "k5");
    }
    trans_ptr trans = writing(db);
    return trans != nullptr && put(trans, "k77", LARGE) == 0 && drop_all(trans, "k1") == 0 && silo_commit(trans.get()) == 0;
}

TEST_F(SiloLmdb, FileThatWasCutIsFoundOut)
{
    {
        silo_ptr db = silo_opened(uri());
        for (int i = 0; i < 20; i++)
            ASSERT_EQ(write_all(db, {{"k" + std::to_string(i), std::string(3000, 'x')}}), 0);
    }
    std::filesystem::resize_file(data_file(), 3 * 4096);
    log_capture log;
    {
        silo_ptr db = silo_opened(uri());
        if (db != nullptr) {
            trans_ptr trans = reading(db);
            ASSERT_NE(trans, nullptr);
            EXPECT_TRUE(everything(trans).size() < 20);
            EXPECT_NE(silo_proxy_error(db.get()), 0);
            trans.reset();
            EXPECT_EQ(writing(db), nullptr);
            EXPECT_NE(silo_proxy_error(db.get()), 0); // for ever after
        }
    }
    EXPECT_GE(log.count_containing("the file is damaged"), 1u);
}

TEST_F(SiloLmdb, PagesFullOfNonsenseAreFoundOut)
{
    {
        silo_ptr db = silo_opened(uri());
        for (int i = 0; i < 60; i++)
            ASSERT_EQ(write_all(db, {{"k" + std::to_string(i), std::string(500, 'x')}}), 0);
    }
    for (uint64_t page = 2; page < 12; page++)
        write_bytes(data_file(), page * 4096 + 10, std::string(6, '\0')); // what kind of page it is, and its bounds
    log_capture log;
    EXPECT_FALSE(use_damaged(uri()));
    EXPECT_GE(log.count_containing("the file is damaged"), 1u);
}

// ---- The map --------------------------------------------------------------------------------------------------------------

TEST_F(SiloLmdb, FullMapFailsTheTransactionAndGrows)
{
    silo_ptr db = silo_opened(uri("?map_mb=1"));
    log_capture log;
    int taken = fill(db, "a");
    EXPECT_GT(taken, 2);
    EXPECT_LT(taken, 11);
    EXPECT_EQ(log.count_containing("the space for the file is full"), 1u);
    EXPECT_EQ(silo_proxy_error(db.get()), 0); // only the transaction failed
    EXPECT_EQ(get(reading(db), "a" + std::to_string(taken)), ABSENT);
    EXPECT_EQ(log.count_containing("has room for 65 MiB now"), 1u);
    EXPECT_EQ(fill(db, "b"), 100);
    EXPECT_EQ(everything(reading(db)).size(), static_cast<size_t>(taken) + 100);
}

TEST_F(SiloLmdb, TransactionThatMetTheEndOfTheMapIsOver)
{
    silo_ptr db = silo_opened(uri("?map_mb=1"));
    trans_ptr trans = writing(db);
    int result = 0;
    for (int i = 0; i < 30 && result == 0; i++)
        result = put(trans, "k" + std::to_string(i), LARGE);
    EXPECT_LT(result, 0);
    EXPECT_LT(put(trans, "small", "1"), 0);
    EXPECT_EQ(get(trans, "k0"), ABSENT);
    EXPECT_EQ(silo_commit(trans.get()), SILO_COMMIT_FAILED);
    EXPECT_EQ(silo_transaction_conflict(trans.get()), 0);
    trans.reset();
    EXPECT_TRUE(everything(reading(db)).empty());
}

TEST_F(SiloLmdb, MapGrowsAgainAndAgain)
{
    silo_ptr db = silo_opened(uri("?map_mb=1&sync=0"));
    for (int step = 0; step < 3; step++) {
        std::string value(1 << 20, 'v');
        for (int i = 0; i < 60; i++) {
            silo_pairs pairs = {{std::to_string(step) + "." + std::to_string(i), value}};
            bool is_written = write_all(db, pairs) == 0 || write_all(db, pairs) == 0;
            ASSERT_TRUE(is_written) << step << i;
        }
    }
    EXPECT_EQ(everything(reading(db)).size(), 180u);
}

TEST_F(SiloLmdb, MapDoesNotGrowUnderOpenTransactions)
{
    silo_ptr db = silo_opened(uri("?map_mb=1")), reader = silo_opened(uri());
    ASSERT_EQ(write_all(db, {{"before", "1"}}), 0);
    manual_clock clock; // waits end at once
    trans_ptr trans = reading(reader);
    int taken = fill(db, "a");
    ASSERT_LT(taken, 11);
    log_capture log;
    EXPECT_NE(write_all(db, {{"b", LARGE}}), 0); // still full
    EXPECT_GE(clock.sleeps().size(), 1u);        // it was waited for
    EXPECT_EQ(log.count_containing("has room for"), 0u);
    EXPECT_EQ(get(trans, "before"), "1"); // and the map is where it was
    clock.clear_sleeps();
    EXPECT_NE(write_all(db, {{"b", LARGE}}), 0);
    EXPECT_EQ(clock.sleeps().size(), 0u); // not each time anew
    trans.reset();
    EXPECT_EQ(write_all(db, {{"b", LARGE}}), 0);
    EXPECT_EQ(log.count_containing("has room for"), 1u);
}

TEST_F(SiloLmdb, MapGrowsWhileManyThreadsReadAndWrite)
{
    silo_ptr db = silo_opened(uri("?map_mb=1"));
    ASSERT_EQ(write_all(db, {{"n", "0"}}), 0);
    std::atomic<bool> is_over = false;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; i++)
        readers.emplace_back([&] {
            silo_ptr own = silo_opened(uri());
            while (!is_over) {
                trans_ptr trans = reading(own);
                wrong += trans == nullptr || everything(trans).empty() ? 1 : 0;
            }
        });
    int taken = 0, refused = 0;
    for (int i = 0; i < 60; i++)
        (write_all(db, {{"k" + std::to_string(i), LARGE}}) == 0 ? taken : refused)++;
    is_over = true;
    for (std::thread &thread : readers)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GE(refused, 1);
    EXPECT_GE(taken, 50);
}

TEST_F(SiloLmdb, StoreThatAnotherProcessEnlargedIsFollowed)
{
    silo_ptr db = silo_opened(uri("?map_mb=1"));
    ASSERT_EQ(write_all(db, {{"a", "1"}}), 0);
    ASSERT_EQ(child_run(program({"fill", "theirs", "3000"})).status, 0); // with the usual room
    EXPECT_EQ(everything(reading(db)).size(), 3001u);
    EXPECT_EQ(write_all(db, {{"b", "1"}}), 0);
}

TEST_F(SiloLmdb, StoreThatAnotherProcessEnlargedUnderAnOpenReaderIsFollowedLater)
{
    silo_ptr db = silo_opened(uri("?map_mb=1")), other = silo_opened(uri());
    ASSERT_EQ(write_all(db, {{"a", "1"}}), 0);
    trans_ptr before = reading(db);
    ASSERT_EQ(child_run(program({"fill", "theirs", "3000"})).status, 0);
    manual_clock clock;
    log_capture log;
    EXPECT_EQ(reading(other), nullptr);
    EXPECT_EQ(log.count_containing("another program enlarged it"), 1u);
    EXPECT_EQ(everything(before), (silo_pairs{{"a", "1"}}));
    EXPECT_EQ(silo_proxy_error(other.get()), 0);
    before.reset();
    EXPECT_EQ(everything(reading(other)).size(), 3001u);
}

// ---- Readers ----------------------------------------------------------------------------------------------------------------

TEST_F(SiloLmdb, ReadersThatWereKilledAreLetGoOnceAMinute)
{
    silo_ptr db = silo_opened(uri());
    ASSERT_EQ(write_all(db, {{"a", "1"}}), 0);
    child_process child;
    ASSERT_TRUE(start(&child, {"hold_many", uri(), "20"}));
    child.end_now();
    child.wait(10'000);
    manual_clock clock;
    log_capture log;
    reading(db).reset(); // its time counts from now on
    clock.advance(61'000);
    reading(db).reset();
    EXPECT_EQ(log.count_containing("20 readers of ended programs let go"), 1u);
    clock.advance(30'000);
    reading(db).reset();
    EXPECT_EQ(log.count_containing("readers of ended programs"), 1u);
}

TEST_F(SiloLmdb, MoreReadersThanThereIsRoomForAreRefused)
{
    std::vector<silo_ptr> handles;
    std::vector<trans_ptr> readers;
    silo_ptr db = silo_opened(uri());
    ASSERT_EQ(write_all(db, {{"a", "1"}}), 0);
    log_capture log;
    for (int i = 0; i < 10'000; i++) {
        handles.push_back(silo_opened(uri()));
        if (handles.back() == nullptr)
            break;
        readers.push_back(reading(handles.back()));
        if (readers.back() == nullptr)
            break;
    }
    EXPECT_GE(readers.size(), 4097u);
    EXPECT_LT(readers.size(), 9'000u);
    EXPECT_EQ(log.count_containing("every place for a reader is taken"), 1u);
    EXPECT_EQ(write_all(db, {{"a", "2"}}), 0); // writers need no place
    readers.clear();
    EXPECT_EQ(get(reading(db), "a"), "2");
}

// ---- Clients ------------------------------------------------------------------------------------------------------------------

TEST_F(SiloLmdb, ClientsCannotNameItsFiles)
{
    silo_ptr db = silo_opened(uri());
    ASSERT_EQ(write_all(db, {{"a", "1"}}), 0);
    folder_.write("beside", "text");
    for (const char *name : {"store\\data.mdb", "store\\lock.mdb", ".\\store\\data.mdb"}) {
        os_file *file = nullptr;
        EXPECT_FALSE(os_file_open(folder_.file(name).c_str(), OS_FILE_READ | OS_FILE_CLIENT, &file)) << name;
    }
    os_file *file = nullptr;
    EXPECT_TRUE(os_file_open(folder_.file("beside").c_str(), OS_FILE_READ | OS_FILE_CLIENT, &file));
    os_file_close(file);
}

TEST_F(SiloLmdb, DiskThatIsFullFailsTheCommit)
{
    silo_ptr db = silo_opened(uri());
    ASSERT_EQ(write_all(db, {{"a", "1"}}), 0);
    trans_ptr trans = writing(db);
    ASSERT_EQ(put(trans, "a", "2"), 0);
    log_capture log;
    os_fault_arm(2); // the library's own commit, behind ours
    EXPECT_EQ(silo_commit(trans.get()), SILO_COMMIT_FAILED);
    os_fault_disarm();
    EXPECT_EQ(log.count_containing("the disk is full: make room there"), 1u);
    trans.reset();
    EXPECT_EQ(silo_proxy_error(db.get()), 0);
    EXPECT_EQ(get(reading(db), "a"), "1");
    EXPECT_EQ(write_all(db, {{"a", "3"}}), 0);
}
