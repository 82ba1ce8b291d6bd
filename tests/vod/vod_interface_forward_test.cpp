#include "platform/os/os.h"
#include "tests/comm_func/said.h"
#include "tests/support/temp_folder.h"
#include "tests/vod_player/fake_player.h"
#include "vod/vod_interface.h"

#include <functional>

class FacadeForward : public fake_player_test {
protected:
    FacadeForward() : playerfd(vod_player_create(3)) {}
    ~FacadeForward() override
    {
        if (playerfd != INVALID_HANDLE_ORB)
            vod_player_destroy(playerfd);
    }
    handle_orb playerfd;
};

// ---- Closing and control --------------------------------------------------------------------------------------------

TEST_F(FacadeForward, ControlReachesThePlayerUnchanged)
{
    struct row {
        std::function<int(handle_orb)> call;
        const char *recorded;
    };
    for (const row &r :
         {row{[](handle_orb fd) { return vodplay_play(fd); }, "3 play"},
          row{[](handle_orb fd) { return vodplay_set_play_pos(fd, 42); }, "3 set_play_pos 42"},
          row{[](handle_orb fd) { return vodplay_set_pos(fd, UINT64_MAX); }, "3 set_play_bytes 18446744073709551615"},
          row{[](handle_orb fd) { return vodplay_set_play_time(fd, -7); }, "3 set_play_time -7"},
          row{[](handle_orb fd) { return vodplay_set_play_direction(fd, 900, 1); }, "3 set_play_direction 900 1"},
          row{[](handle_orb fd) { return vodplay_set_play_byte(fd, 1024); }, "3 set_play_byte 1024"},
          row{[](handle_orb fd) { return vodplay_set_play_absolute_time(fd, 5); }, "3 set_play_absolute_time 5"}})
        for (int answer : {1, 0, -12345}) {
            library.calls.clear();
            library.result = answer;
            EXPECT_EQ(r.call(playerfd), answer) << r.recorded;
            EXPECT_EQ(library.calls, std::vector<std::string>{r.recorded});
        }
    EXPECT_EQ(vodplay_get_file_type(playerfd), 3);
    EXPECT_EQ(vodplay_get_file_type(INVALID_HANDLE_ORB), -1);
}

TEST_F(FacadeForward, ClosingAlsoDestroysWhateverTheCloseAnswers)
{
    for (int answer : {1, 0, 5}) {
        library.calls.clear();
        library.close_result = answer;
        EXPECT_EQ(vodplay_close(vod_player_create(3)), answer);
        EXPECT_EQ(library.calls, (std::vector<std::string>{"3 close", "3 destroy"}));
    }
    log_capture logs;
    EXPECT_EQ(vodplay_close(INVALID_HANDLE_ORB), 0);
    EXPECT_EQ(said(logs),
              (said_lines{{2, "vod_player_close    playerfd == -1"}, {2, "vod_player_destroy  playerfd == -1"}}));
}

TEST_F(FacadeForward, StorageTypeAndHeadLengthAreTheRegistrys)
{
    EXPECT_EQ(vodplayer_get_head_length(3), 88);
    vod_player_set_storage_type(4);
    EXPECT_EQ(vodplayer_get_storage_type(), 4);
}

// ---- Queries --------------------------------------------------------------------------------------------------------

TEST_F(FacadeForward, QueriesDeliverTheValueAndWhetherItIsOne)
{
    struct row {
        int answer, found;
    };
    for (const row &r : {row{0, 1}, row{1, 1}, row{-2, 1}, row{INT32_MAX, 1}, row{-1, 0}}) {
        library.result = r.answer;
        int pos = 77, frames = 77, time = 77;
        EXPECT_EQ(vodplay_get_play_pos(playerfd, &pos), r.found) << r.answer;
        EXPECT_EQ(vodplay_get_file_total_frames(playerfd, &frames), r.found) << r.answer;
        EXPECT_EQ(vodplay_get_file_total_time(playerfd, &time), r.found) << r.answer;
        EXPECT_EQ(pos, r.answer) << "also the failure value";
        EXPECT_EQ(frames, r.answer);
        EXPECT_EQ(time, r.answer);
    }
    EXPECT_EQ(library.calls[0], "3 get_play_pos");
    EXPECT_EQ(library.calls[1], "3 get_file_total_frames");
    EXPECT_EQ(library.calls[2], "3 get_file_time");
}

TEST_F(FacadeForward, AFileOfNoBytesHasNoSizeAndABeginTimeOfAllOnesIsNone)
{
    uint64_t size = 77;
    unsigned int time = 77;
    library.total_size = 0;
    library.begin_time = 0xFFFFFFFF;
    EXPECT_EQ(vodplay_get_file_total_size(playerfd, &size), 0);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(vodplay_get_file_begin_time(playerfd, &time), 0);
    EXPECT_EQ(time, 0xFFFFFFFFu);
    library.total_size = UINT64_MAX;
    library.begin_time = 0;
    EXPECT_EQ(vodplay_get_file_total_size(playerfd, &size), 1);
    EXPECT_EQ(size, UINT64_MAX);
    EXPECT_EQ(vodplay_get_file_begin_time(playerfd, &time), 1);
    EXPECT_EQ(time, 0u);
}

TEST_F(FacadeForward, QueriesOfTheInvalidHandleDeliverTheFailureValue)
{
    int value = 77;
    uint64_t size = 77;
    unsigned int time = 77;
    EXPECT_EQ(vodplay_get_play_pos(INVALID_HANDLE_ORB, &value), 0);
    EXPECT_EQ(value, -1);
    EXPECT_EQ(vodplay_get_file_total_size(INVALID_HANDLE_ORB, &size), 0);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(vodplay_get_file_begin_time(INVALID_HANDLE_ORB, &time), 0);
    EXPECT_EQ(time, 0xFFFFFFFFu);
}

TEST_F(FacadeForward, QueriesNeedAPlaceForTheValue)
{
    log_capture logs;
    EXPECT_EQ(vodplay_get_play_pos(playerfd, nullptr), 0);
    EXPECT_EQ(said(logs), said_lines{});
    EXPECT_EQ(vodplay_get_file_total_frames(playerfd, nullptr), 0);
    EXPECT_EQ(vodplay_get_file_total_time(playerfd, nullptr), 0);
    EXPECT_EQ(vodplay_get_file_total_size(playerfd, nullptr), 0);
    EXPECT_EQ(vodplay_get_file_begin_time(playerfd, nullptr), 0);
    EXPECT_EQ(vodplay_get_filehead_len(3, nullptr), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "frames == NULL"},
                                      {2, "time == NULL"},
                                      {2, "size == NULL"},
                                      {2, "time == NULL"},
                                      {2, "head_len == NULL"}}));
    EXPECT_TRUE(library.calls.empty());
}

TEST_F(FacadeForward, PlayInfoIsReportedAsThereInEveryCase)
{
    for (int answer : {0, 1, -1}) {
        library.result = answer;
        char *info = nullptr;
        EXPECT_EQ(vodplay_get_hardplay_by_time_info(playerfd, &info), 1) << answer;
        EXPECT_EQ(info != nullptr, answer == 0) << "only the text tells";
        EXPECT_EQ(vodplay_release_hardplay_by_time_info(playerfd), 1) << answer;
    }
    char *info = nullptr;
    EXPECT_EQ(vodplay_get_hardplay_by_time_info(INVALID_HANDLE_ORB, &info), 1);
    EXPECT_EQ(vodplay_release_hardplay_by_time_info(INVALID_HANDLE_ORB), 1);
    EXPECT_EQ(info, nullptr);
}

TEST_F(FacadeForward, HeadLengthIsAskedThroughAPlayerOfItsOwn)
{
    int creates = library.creates, head_len = 77;
    EXPECT_EQ(vodplay_get_filehead_len(VOD_ORBPLAYER_TYPE, &head_len), 1);
    EXPECT_EQ(head_len, 88);
    EXPECT_EQ(library.creates, creates + 1);
    EXPECT_EQ(library.players_left(), 1) << "the test's own";
    head_len = 77;
    log_capture logs(LOG_REFUSE);
    for (int type : {35, 60, -1})
        EXPECT_EQ(vodplay_get_filehead_len(type, &head_len), 0) << type;
    EXPECT_EQ(head_len, 77);
    EXPECT_EQ(logs.lines().size(), 3u) << "the registry's lines";
}

// ---- Library and start-up -------------------------------------------------------------------------------------------

TEST_F(FacadeForward, LibraryCallsAreTheRegistrys)
{
    EXPECT_EQ(vodplay_load_player_lib(5, "x"), 0);
    int inits = library.inits;
    EXPECT_EQ(vodplay_load_player_lib(3, "x"), 1);
    EXPECT_EQ(library.inits, inits + 1);
    EXPECT_EQ(vodplay_free_player_lib(), 1);
    EXPECT_EQ(vodplay_player_init(), 1);
}

// ---- Downloads and uploads ------------------------------------------------------------------------------------------

TEST_F(FacadeForward, DownloadsOfTheInvalidHandleAreRefusedWithoutALine)
{
    int pos = 77;
    log_capture logs;
    EXPECT_EQ(vodplay_download_start(INVALID_HANDLE_ORB), 0);
    EXPECT_EQ(vodplay_download_close(INVALID_HANDLE_ORB), 0);
    EXPECT_EQ(vodplay_download_get_pos(INVALID_HANDLE_ORB, &pos), 0);
    EXPECT_EQ(vodplay_download_get_pos(1, nullptr), 0);
    EXPECT_EQ(vodplay_download_set_pos(INVALID_HANDLE_ORB, 1), 0);
    EXPECT_EQ(pos, 77);
    EXPECT_EQ(said(logs), said_lines{});
    EXPECT_EQ(vodplay_download_get_filetype(INVALID_HANDLE_ORB), -1);
    EXPECT_EQ(said(logs), (said_lines{{4, "fd == (handle_orb)-1"}})) << "the download layer's own refusal";
}

TEST_F(FacadeForward, OpeningsGoToTheDownloadAndUploadLayers)
{
    log_capture logs;
    EXPECT_EQ(vodplay_download_open_file(nullptr, receive_nothing, 7), INVALID_HANDLE_ORB);
    EXPECT_EQ(vodplay_upload_open_file(nullptr, 5, nullptr, 7), INVALID_HANDLE_ORB);
    EXPECT_EQ(vodplay_upload_write_data(INVALID_HANDLE_ORB, nullptr, 0), 0);
    EXPECT_EQ(vodplay_upload_close(INVALID_HANDLE_ORB, 0), 0);
    EXPECT_EQ(vodplay_upload_is_recv_by_filename("never queued"), 1);
    EXPECT_EQ(vodplayer_upload_remove(nullptr), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "vod_download_open_file  filename == NULL"},
                                      {2, "vod_upload_open_file  filename == NULL"},
                                      {2, "vod_upload_write_data   upfd == -1"},
                                      {2, "vod_upload_close  upfd == -1"},
                                      {2, "filename == NULL"}}));
}
