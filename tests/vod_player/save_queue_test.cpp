#include "vod_player/save_queue.h"

#include "tests/comm_func/said.h"
#include "tests/support/temp_folder.h"
#include "tests/vod_player/fake_player.h"
#include "win32_vod/vod_upload.h"

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

namespace fs = std::filesystem;

// The queue's thread, once started, lives as long as the program.
using SaveQueue = fake_player_test;

// Waits for something that the queue's thread does; the limit only keeps a broken build from hanging.
static bool comes_true(const std::function<bool()> &condition)
{
    for (int i = 0; i < 10000 && !condition(); i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return condition();
}

static std::string text_of(const std::string &name)
{
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

static VodSaveFileInfo *write_of(os_file *file, const char *filename, const std::string &text)
{
    VodSaveFileInfo *info = save_file_info_create(SAVE_WRITE, filename, static_cast<int>(text.size()));
    info->fp = file;
    std::memcpy(save_file_info_data(info), text.data(), text.size());
    return info;
}

static VodSaveFileInfo *close_of(os_file *file, const char *filename, time_t tm)
{
    VodSaveFileInfo *info = save_file_info_create(SAVE_CLOSE, filename, 0);
    info->fp = file;
    info->file_property.tm = tm;
    return info;
}

TEST_F(SaveQueue, LevelRisesWithTheBytesThatWait)
{
    struct row {
        uint64_t bytes;
        int level;
    };
    for (const row &r : {row{0, 0}, row{52428800, 0}, row{52428801, 1}, row{104857600, 1}, row{104857601, 2},
                         row{209715200, 2}, row{209715201, 3}, row{UINT64_MAX, 3}})
        EXPECT_EQ(calc_ability_level(r.bytes), r.level) << r.bytes;
}

// ---- Carrying out ---------------------------------------------------------------------------------------------------

TEST_F(SaveQueue, WritesGoToTheEndOfTheFileAndACloseEndsThem)
{
    temp_folder folder;
    folder.write("up", "12345");
    std::string name = folder.file("up");
    os_file *file = nullptr;
    ASSERT_EQ(os_file_open(name.c_str(), OS_FILE_UPDATE, &file), 1);
    log_capture logs;
    save_file_info_carry_out(write_of(file, name.c_str(), "67"), 0);
    save_file_info_carry_out(write_of(file, name.c_str(), "89"), 0);
    EXPECT_EQ(said(logs), said_lines{});
    save_file_info_carry_out(close_of(file, name.c_str(), 0), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "fclose"}}));
    EXPECT_EQ(text_of(name), "123456789");
}

TEST_F(SaveQueue, ACloseWithATimeSaysSoAndLeavesTheFilesTime)
{
    temp_folder folder;
    folder.write("up", "1");
    std::string name = folder.file("up");
    auto before = fs::last_write_time(name);
    os_file *file = nullptr;
    ASSERT_EQ(os_file_open(name.c_str(), OS_FILE_UPDATE, &file), 1);
    log_capture logs;
    save_file_info_carry_out(close_of(file, name.c_str(), 1000), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "fclose"}, {2, "fproperty"}}));
    EXPECT_EQ(fs::last_write_time(name), before);
}

TEST_F(SaveQueue, RemovesFilesAndReportsThoseThatStay)
{
    temp_folder folder;
    folder.write("up", "1");
    std::string name = folder.file("up");
    log_capture logs;
    save_file_info_carry_out(save_file_info_create(SAVE_REMOVE, name.c_str(), 0), 0);
    EXPECT_FALSE(fs::exists(name));
    EXPECT_EQ(said(logs), (said_lines{{2, "fremove"}}));
    logs.clear();
    save_file_info_carry_out(save_file_info_create(SAVE_REMOVE, name.c_str(), 0), 0);
    EXPECT_EQ(said(logs), (said_lines{{3, "remove faild file:" + name}, {2, "fremove"}}));
}

TEST_F(SaveQueue, StorageTypeThreeLeavesTheDiskAlone)
{
    temp_folder folder;
    folder.write("up", "1");
    std::string name = folder.file("up");
    os_file *file = nullptr;
    ASSERT_EQ(os_file_open(name.c_str(), OS_FILE_UPDATE, &file), 1);
    log_capture logs;
    save_file_info_carry_out(write_of(file, name.c_str(), "67"), 3);
    save_file_info_carry_out(close_of(file, name.c_str(), 0), 3);
    save_file_info_carry_out(save_file_info_create(SAVE_REMOVE, name.c_str(), 0), 3);
    EXPECT_EQ(said(logs), (said_lines{{2, "fclose"}, {2, "fremove"}}));
    EXPECT_EQ(fs::file_size(name), 1u);
    os_file_close(file); // nobody else has
}

TEST_F(SaveQueue, UnknownOperationsAreReported)
{
    log_capture logs;
    save_file_info_carry_out(save_file_info_create(3, "up", 0), 0);
    save_file_info_carry_out(save_file_info_create(-1, "up", 0), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "type：3 not define"}, {2, "type：-1 not define"}}));
}

TEST_F(SaveQueue, NamesAreCutToTheirPlace)
{
    VodSaveFileInfo *info = save_file_info_create(SAVE_REMOVE, std::string(400, 'n').c_str(), 0);
    EXPECT_EQ(std::strlen(info->file_property.filename), 259u);
    std::free(info);
}

// ---- Queue ----------------------------------------------------------------------------------------------------------

// Each test waits for the last line of what it queued, so that none reaches the next test.
TEST_F(SaveQueue, CarriesOutInOrderAndCountsWhatWaits)
{
    ASSERT_EQ(vod_player_init(), 1);
    log_capture logs;
    temp_folder folder;
    std::string name = folder.file("up");
    os_file *file = nullptr;
    ASSERT_EQ(os_file_open(name.c_str(), OS_FILE_WRITE, &file), 1);
    std::string expected;
    for (int i = 0; i < 200; i++) {
        std::string text = std::to_string(i) + "\n";
        expected += text;
        ASSERT_EQ(save_queue_push(write_of(file, name.c_str(), text)), 1);
    }
    ASSERT_EQ(save_queue_push(close_of(file, name.c_str(), 0)), 1);
    ASSERT_TRUE(comes_true([&] { return logs.count("fclose", LOG_REFUSE) == 1; }));
    EXPECT_EQ(vod_upload_is_recv_by_filename(name.c_str()), 1);
    EXPECT_EQ(save_queue_bytes(), 0u);
    EXPECT_EQ(text_of(name), expected);
    EXPECT_EQ(vod_upload_remove(name.c_str()), 1);
    EXPECT_TRUE(comes_true([&] { return logs.count("fremove", LOG_REFUSE) == 1; }));
    EXPECT_FALSE(fs::exists(name));
}

TEST_F(SaveQueue, EntriesFromManyThreadsAllArrive)
{
    ASSERT_EQ(vod_player_init(), 1);
    log_capture logs;
    temp_folder folder;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([&folder, i] {
            for (int k = 0; k < 25; k++) {
                std::string name = std::to_string(i) + "_" + std::to_string(k);
                folder.write(name, "x");
                EXPECT_EQ(fremove_thr(folder.file(name).c_str()), 1);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_TRUE(comes_true([&] { return logs.count("fremove") == 100; }));
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

// Holds the queue's thread at the line that ends its first removal.
struct removal_gate {
    std::atomic<bool> is_open = false;
    std::atomic<int> removals = 0;
    removal_gate() { os_log_set_sink(pass, this); }
    ~removal_gate() { os_log_set_sink(nullptr, nullptr); }
    static void pass(void *user, int, const char *, int, const char *text)
    {
        auto self = static_cast<removal_gate *>(user);
        if (std::strcmp(text, "fremove") != 0)
            return;
        self->is_open.wait(false);
        self->removals++;
    }
};

TEST_F(SaveQueue, AFileIsNotReceivedWhileSomethingOfItWaits)
{
    ASSERT_EQ(vod_player_init(), 1);
    temp_folder folder;
    std::string other = folder.file("other"), mine = folder.file("mine");
    removal_gate gate;
    ASSERT_EQ(fremove_thr(other.c_str()), 1);
    ASSERT_EQ(fremove_thr(mine.c_str()), 1);
    EXPECT_EQ(vod_upload_is_recv_by_filename(mine.c_str()), 0);
    EXPECT_EQ(vod_upload_is_recv_by_filename((mine + "x").c_str()), 1) << "names are compared whole";
    gate.is_open = true;
    gate.is_open.notify_all();
    EXPECT_TRUE(comes_true([&] { return gate.removals == 2; }));
    EXPECT_EQ(vod_upload_is_recv_by_filename(mine.c_str()), 1);
}

TEST_F(SaveQueue, RemovalNeedsAName)
{
    log_capture logs;
    EXPECT_EQ(fremove_thr(nullptr), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "fremove_thr filename == NULL"}}));
}

TEST(SaveQueueDeathTest, EndsTheProcessWithoutMemory)
{
    EXPECT_EXIT(
        {
            os_fault_arm(1);
            save_file_info_create(SAVE_WRITE, "up", 10);
        },
        testing::ExitedWithCode(1), "info == NULL");
}
