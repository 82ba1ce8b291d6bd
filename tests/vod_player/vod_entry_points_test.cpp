// The entry points of downloads and uploads: what they check and what they refuse.
#include "platform/os/os.h"
#include "tests/comm_func/said.h"
#include "tests/support/temp_folder.h"
#include "tests/vod_player/fake_player.h"
#include "vod_player/save_queue.h"
#include "win32_vod/vod_download.h"
#include "win32_vod/vod_upload.h"

using DownloadEntry = fake_player_test;
using UploadEntry = fake_player_test;

static void no_progress(handle_orb, int, uint64_t, int, handle_orb)
{
    ADD_FAILURE() << "no upload is open";
}

static const std::string s_unconvertible[] = {"", "\xFF\xFE", "\xE4\xB8", std::string(260, 'a'),
                                              std::string(1000, 'a')};

TEST_F(DownloadEntry, OpeningChecksNameThenReceiverThenConversion)
{
    log_capture logs;
    EXPECT_EQ(vod_download_open_file(nullptr, nullptr, 1), INVALID_HANDLE_ORB);
    EXPECT_EQ(vod_download_open_file("a", nullptr, 1), INVALID_HANDLE_ORB);
    EXPECT_EQ(said(logs), (said_lines{{2, "vod_download_open_file  filename == NULL"},
                                      {2, "vod_download_open_file   func == NULL"}}));
    for (const std::string &name : s_unconvertible) {
        logs.clear();
        EXPECT_EQ(vod_download_open_file(name.c_str(), receive_nothing, 1), INVALID_HANDLE_ORB);
        EXPECT_EQ(said(logs), (said_lines{{2, "os_code_convert <= 0"}})) << name;
    }
}

TEST_F(DownloadEntry, OpeningARangeRefusesUnknownStorage)
{
    const VOD_TIME start = {2024, 1, 1, 0, 0, 0};
    for (int32_t storage_type : {5, 7, -5}) {
        vod_player_set_storage_type(storage_type);
        log_capture logs;
        EXPECT_EQ(vod_download_open_file_by_time("h", 1, 1, &start, &start, receive_nothing, 1), INVALID_HANDLE_ORB);
        EXPECT_EQ(said(logs), (said_lines{{2, "not suport storage type str_type= " + std::to_string(storage_type)}}));
    }
}

TEST_F(DownloadEntry, TheInvalidHandleIsRefusedByEachInItsOwnWords)
{
    log_capture logs;
    EXPECT_EQ(vod_download_start(INVALID_HANDLE_ORB), 0);
    EXPECT_EQ(vod_download_get_pos(INVALID_HANDLE_ORB), -1);
    EXPECT_EQ(vod_download_set_pos(INVALID_HANDLE_ORB, 1), 0);
    EXPECT_EQ(vod_download_close(INVALID_HANDLE_ORB), 0);
    EXPECT_EQ(vod_download_get_filetype(INVALID_HANDLE_ORB), -1);
    EXPECT_EQ(vod_download_get_filetype(0), -1);
    EXPECT_EQ(said(logs), (said_lines{{2, "vod_download_start  downfd == -1"},
                                      {2, "vod_download_get_pos  downfd == -1"},
                                      {2, "vod_download_set_pos  downfd == -1"},
                                      {2, "vod_download_close  downfd == -1"},
                                      {4, "fd == (handle_orb)-1"},
                                      {2, "down == NULL || down->fd == NULL"}}));
}

TEST_F(UploadEntry, OpeningChecksNameThenReceiverThenConversion)
{
    log_capture logs;
    EXPECT_EQ(vod_upload_open_file(nullptr, 0, nullptr, 1), INVALID_HANDLE_ORB);
    EXPECT_EQ(vod_upload_open_file("a", 0, nullptr, 1), INVALID_HANDLE_ORB);
    EXPECT_EQ(said(logs),
              (said_lines{{2, "vod_upload_open_file  filename == NULL"}, {2, "vod_upload_open_file   func == NULL"}}));
    for (const std::string &name : s_unconvertible) {
        logs.clear();
        EXPECT_EQ(vod_upload_open_file(name.c_str(), 0, no_progress, 1), INVALID_HANDLE_ORB);
        EXPECT_EQ(said(logs), (said_lines{{2, "os_code_convert <= 0"}})) << name;
    }
}

TEST_F(UploadEntry, TheInvalidHandleIsRefusedByEachInItsOwnWords)
{
    char data[4] = {};
    log_capture logs;
    EXPECT_EQ(vod_upload_write_data(INVALID_HANDLE_ORB, data, 4), 0);
    EXPECT_EQ(vod_upload_close(INVALID_HANDLE_ORB, 5), 0);
    EXPECT_EQ(vod_upload_get_recv_size(INVALID_HANDLE_ORB), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "vod_upload_write_data   upfd == -1"},
                                      {2, "vod_upload_close  upfd == -1"},
                                      {2, "vod_upload_get_recv_size   upfd == -1"}}));
}

TEST_F(UploadEntry, RemovingNeedsANameAndAFile)
{
    temp_folder folder;
    std::string missing = folder.file("missing");
    log_capture logs;
    EXPECT_EQ(vod_upload_remove(nullptr), 0);
    EXPECT_EQ(vod_upload_remove(missing.c_str()), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "filename == NULL"}, {3, "file not existence filename:" + missing}}));
}

TEST_F(UploadEntry, StorageTypeThreeRemovesWithoutLooking)
{
    ASSERT_EQ(vod_player_init(), 1);
    vod_player_set_storage_type(3);
    temp_folder folder;
    log_capture logs;
    EXPECT_EQ(vod_upload_remove(folder.file("missing").c_str()), 1);
    while (logs.count("fremove") == 0)
        os_sleep(1);
    EXPECT_EQ(logs.count_containing("file not existence"), 0u);
}

TEST_F(UploadEntry, AFileThatNobodyQueuedIsReceived)
{
    EXPECT_EQ(vod_upload_is_recv_by_filename("never queued"), 1);
    EXPECT_EQ(vod_upload_is_recv_by_filename(nullptr), 1);
}
