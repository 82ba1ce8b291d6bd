#include "vod/vod_interface.h"

#include "platform/os/os.h"
#include "tests/comm_func/said.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"
#include "tests/vod_player/fake_player.h"

#include <functional>

class Facade : public fake_player_test {
protected:
    Facade()
    {
        vodplay_set_save_mp4_enabled(0);
        os_set_errno(0);
    }
    ~Facade() override { vodplay_set_save_mp4_enabled(0); }
    void enrol_all()
    {
        for (int type = 0; type < VOD_PLAYER_MAX_LIB_NUM; type++)
            enrol(type);
    }
    // Closes what was opened and says which type it was; -1 when nothing was.
    int type_and_close(handle_orb playerfd)
    {
        if (playerfd == INVALID_HANDLE_ORB)
            return -1;
        int type = reinterpret_cast<VODPlayer *>(playerfd)->type;
        vodplay_close(playerfd);
        return type;
    }
};

static const VOD_TIME s_start = {2024, 1, 2, 3, 4, 5}, s_end = {2025, 11, 12, 13, 14, 15};
static const std::string s_range_line = "vod_player_open_file_by_time: host_id:host, ch:4, file_type:5, "
                                        "start_time:2024-01-02 03:04:05, end_time:2025-11-12 13:14:15";

static said_lines missing_type_lines(int type)
{
    return {{2, "s_vodplayer_interfaces[" + std::to_string(type) + "].func_create == NULL"}};
}

static said_lines join(std::initializer_list<said_lines> parts)
{
    said_lines all;
    for (const said_lines &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// ---- Opening by file ------------------------------------------------------------------------------------------------

TEST_F(Facade, AFileIsOfferedToTheGenericPlayerAndThenToEachTypeUpToTheOneThatOpensIt)
{
    temp_folder folder;
    folder.write("a.rec", "no film");
    log_capture logs(LOG_REFUSE);
    handle_orb playerfd = vodplay_open_file(folder.file("a.rec").c_str(), receive_nothing, 7);
    EXPECT_EQ(type_and_close(playerfd), VOD_ORBPLAYER_TYPE);
    EXPECT_EQ(said(logs),
              join({missing_type_lines(51), missing_type_lines(0), missing_type_lines(1), missing_type_lines(2)}));
    EXPECT_EQ(library.calls,
              (std::vector<std::string>{"3 open_file " + folder.file("a.rec") + " 1 7", "3 close", "3 destroy"}));
    EXPECT_EQ(library.players_left(), 0);
}

TEST_F(Facade, AFileThatNobodyReadsIsOfferedToEveryTypeOnce)
{
    temp_folder folder;
    folder.write("a.rec", "no film");
    std::string name = folder.file("a.rec");
    enrol_all();
    library.opens_all = false;
    EXPECT_EQ(vodplay_open_file(name.c_str(), receive_nothing, 7), INVALID_HANDLE_ORB);
    std::vector<std::string> expected;
    auto tried = [&](int type) {
        expected.push_back(std::to_string(type) + " open_file " + name + " 1 7");
        expected.push_back(std::to_string(type) + " destroy");
    };
    tried(51);
    for (int type = 0; type < 60; type++)
        if (type != 51)
            tried(type);
    EXPECT_EQ(library.calls, expected);
    EXPECT_EQ(library.players_left(), 0);
}

TEST_F(Facade, AFileThatNobodyReadsCostsALineForEachMissingType)
{
    temp_folder folder;
    folder.write("a.rec", "no film");
    library.opens_all = false;
    log_capture logs(LOG_REFUSE);
    EXPECT_EQ(vodplay_open_file(folder.file("a.rec").c_str(), receive_nothing, 7), INVALID_HANDLE_ORB);
    said_lines expected = missing_type_lines(51);
    for (int type = 0; type < 60; type++)
        if (type != 3 && type != 51)
            expected.push_back(missing_type_lines(type)[0]);
    EXPECT_EQ(said(logs), expected);
    EXPECT_EQ(library.players_left(), 0);
}

TEST_F(Facade, AnMp4FileIsOfferedToItsPlayerFirstAndOnceMoreAmongTheOthers)
{
    temp_folder folder;
    folder.write("a.mp4", "....ftyp");
    std::string name = folder.file("a.mp4");
    enrol_all();
    library.opens_all = false;
    log_capture logs;
    EXPECT_EQ(vodplay_open_file(name.c_str(), receive_nothing, 7), INVALID_HANDLE_ORB);
    EXPECT_EQ(library.calls[0], "56 open_file " + name + " 1 7");
    EXPECT_EQ(library.calls[1], "56 destroy");
    EXPECT_EQ(library.calls[2], "51 open_file " + name + " 1 7");
    for (int type = 0; type < 60; type++)
        EXPECT_EQ(library.count(std::to_string(type) + " open_file " + name + " 1 7"), type == 56 ? 2 : 1) << type;
    EXPECT_EQ(library.players_left(), 0);
    EXPECT_EQ(said(logs), (said_lines{{4, "!vod_player_open_file, filename:" + name}}))
        << "only the first try is reported";
}

TEST_F(Facade, AnMp4FileIsRecognisedByItsNameInUtf8)
{
    temp_folder folder;
    folder.write(host_name("\xC2\xBC.mp4"), "....ftyp");
    std::string name = folder.file("\xE5\xBD\x95.mp4");
    enrol_all();
    EXPECT_EQ(type_and_close(vodplay_open_file(name.c_str(), receive_nothing, 7)), VOD_MP4PLAYER_TYPE);
    EXPECT_EQ(library.calls[0], "56 open_file " + name + " 1 7") << "the player converts it by itself";
}

TEST_F(Facade, TheFirstPlayerThatOpensAFileKeepsIt)
{
    temp_folder folder;
    folder.write("a.mp4", "....ftyp");
    folder.write("a.rec", "no film");
    std::string mp4 = folder.file("a.mp4"), rec = folder.file("a.rec");
    enrol_all();
    EXPECT_EQ(type_and_close(vodplay_open_file(mp4.c_str(), receive_nothing, 7)), VOD_MP4PLAYER_TYPE);
    EXPECT_EQ(type_and_close(vodplay_open_file(rec.c_str(), receive_nothing, 7)), VOD_FILEPLAYER_TYPE);
    library.opens_all = false;
    library.opening_types = {3, 51};
    EXPECT_EQ(type_and_close(vodplay_open_file(mp4.c_str(), receive_nothing, 7)), VOD_FILEPLAYER_TYPE);
    library.opening_types = {58, 59};
    EXPECT_EQ(type_and_close(vodplay_open_file(rec.c_str(), receive_nothing, 7)), 58);
    EXPECT_EQ(library.players_left(), 0);
}

TEST_F(Facade, AMissingMp4PlayerIsOnlyReportedByTheRegistry)
{
    temp_folder folder;
    folder.write("a.mp4", "....ftyp");
    log_capture logs(LOG_REFUSE);
    EXPECT_EQ(type_and_close(vodplay_open_file(folder.file("a.mp4").c_str(), receive_nothing, 7)), 3);
    EXPECT_EQ(said(logs), join({missing_type_lines(56), missing_type_lines(51), missing_type_lines(0),
                                missing_type_lines(1), missing_type_lines(2)}));
}

TEST_F(Facade, OtherStorageHasOnePlayerForFiles)
{
    struct row {
        int32_t storage_type;
        int type;
    };
    enrol_all();
    for (const row &r : {row{1, 35}, row{2, 37}, row{3, 53}, row{4, 54}}) {
        vod_player_set_storage_type(r.storage_type);
        library.opens_all = true;
        EXPECT_EQ(type_and_close(vodplay_open_file("a.mp4", receive_nothing, 7)), r.type) << r.storage_type;
        library.opens_all = false;
        library.calls.clear();
        log_capture logs;
        EXPECT_EQ(vodplay_open_file("a.mp4", receive_nothing, 7), INVALID_HANDLE_ORB) << r.storage_type;
        std::string type = std::to_string(r.type);
        EXPECT_EQ(library.calls, (std::vector<std::string>{type + " open_file a.mp4 1 7", type + " destroy"}));
        EXPECT_EQ(said(logs), said_lines{});
    }
    EXPECT_EQ(library.players_left(), 0);
}

TEST_F(Facade, AMissingNameOrReceiverOpensNothing)
{
    EXPECT_EQ(vodplay_open_file(nullptr, receive_nothing, 7), INVALID_HANDLE_ORB);
    EXPECT_EQ(vodplay_open_file("a.rec", nullptr, 7), INVALID_HANDLE_ORB);
    EXPECT_EQ(library.players_left(), 0);
    EXPECT_EQ(library.creates, 2) << "only the recording player's type exists";
}

// ---- The other openings, one table ----------------------------------------------------------------------------------

static constexpr int CHOSEN = -1; // no explicit type: the facade chooses

struct opening {
    const char *name;
    // `start` may be NULL; `type` is used by the _ex forms.
    std::function<handle_orb(const VOD_TIME *start, int type)> open;
    bool by_file;
    const char *setting; // what is set before the open, as the player records it; NULL for nothing
    const char *setting_text;
    void (*empty_setting)(VODPlayerFunc &ops);
    const char *mp4_text; // NULL: MP4 storage is served
    uint32_t mp4_errno;
    bool is_ex;
};

static QueryRule *const s_rules = reinterpret_cast<QueryRule *>(8);
static char s_info[9];

static const opening s_openings[] = {
    {"vodplay_open_file_by_time",
     [](const VOD_TIME *start, int) {
         return vodplay_open_file_by_time("host", 4, 5, start, &s_end, receive_nothing, 7);
     },
     false, nullptr, nullptr, nullptr, nullptr, 0, false},
    {"vodplay_open_file_by_time_ex",
     [](const VOD_TIME *start, int type) {
         return vodplay_open_file_by_time_ex("host", 4, 5, start, &s_end, receive_nothing, 7, type);
     },
     false, nullptr, nullptr, nullptr, nullptr, 0, true},
    {"vod_deal_with_slice_by_time",
     [](const VOD_TIME *start, int) {
         return vod_deal_with_slice_by_time("host", 4, 5, 6, start, &s_end, receive_nothing, 7);
     },
     false, "set_slice_iframetimes 6", "!vod_player_set_slice_iframetimes",
     [](VODPlayerFunc &ops) { ops.vod_player_set_slice_iframetimes = nullptr; },
     "s_save_mp4_enabled:1, slice_by_time not support", 0x1000007, false},
    {"vod_deal_with_slice_by_time_ex",
     [](const VOD_TIME *start, int type) {
         return vod_deal_with_slice_by_time_ex("host", 4, 5, 6, start, &s_end, receive_nothing, 7, type);
     },
     false, "set_slice_iframetimes 6", "!vod_player_set_slice_iframetimes",
     [](VODPlayerFunc &ops) { ops.vod_player_set_slice_iframetimes = nullptr; }, nullptr, 0, true},
    {"vod_deal_with_analyze_by_time",
     [](const VOD_TIME *start, int) {
         return vod_deal_with_analyze_by_time("host", 4, 5, s_rules, 2, start, &s_end, receive_nothing, 7);
     },
     false, "set_analyze_info 1 2", "!vod_player_set_analyze_info",
     [](VODPlayerFunc &ops) { ops.vod_player_set_analyze_info = nullptr; },
     "s_save_mp4_enabled:1, analyze_by_time not support", 0, false},
    {"vod_deal_with_analyze_by_time_ex",
     [](const VOD_TIME *start, int type) {
         return vod_deal_with_analyze_by_time_ex("host", 4, 5, s_rules, 2, start, &s_end, receive_nothing, 7, type);
     },
     false, "set_analyze_info 1 2", "!vod_player_set_analyze_info",
     [](VODPlayerFunc &ops) { ops.vod_player_set_analyze_info = nullptr; }, nullptr, 0, true},
    {"vod_deal_with_analyze_by_time_new_rule",
     [](const VOD_TIME *start, int) {
         return vod_deal_with_analyze_by_time_new_rule("host", 4, 5, start, &s_end, receive_nothing, 7, 3, s_info, 9);
     },
     false, "set_analyze_info_ex 3 1 9", "!vod_player_set_analyze_info_ex",
     [](VODPlayerFunc &ops) { ops.vod_player_set_analyze_info_ex = nullptr; },
     "s_save_mp4_enabled:1, analyze_by_time_new_rule not support", 0, false},
    {"vod_deal_with_analyze_by_time_new_rule_ex",
     [](const VOD_TIME *start, int type) {
         return vod_deal_with_analyze_by_time_new_rule_ex("host", 4, 5, start, &s_end, receive_nothing, 7, type, 3,
                                                          s_info, 9);
     },
     false, "set_analyze_info_ex 3 1 9", "!vod_player_set_analyze_info_ex",
     [](VODPlayerFunc &ops) { ops.vod_player_set_analyze_info_ex = nullptr; }, nullptr, 0, true},
    {"vod_deal_with_analyze_by_file",
     [](const VOD_TIME *, int) {
         return vod_deal_with_analyze_by_file("host", 4, 5, s_rules, 2, "a.rec", receive_nothing, 7);
     },
     true, "set_analyze_info 1 2", "!vod_player_set_analyze_info",
     [](VODPlayerFunc &ops) { ops.vod_player_set_analyze_info = nullptr; },
     "s_save_mp4_enabled:1, analyze_by_file not support", 0, false},
    {"vod_deal_with_analyze_by_file_ex",
     [](const VOD_TIME *, int type) {
         return vod_deal_with_analyze_by_file_ex("host", 4, 5, s_rules, 2, "a.rec", receive_nothing, 7, type);
     },
     true, "set_analyze_info 1 2", "!vod_player_set_analyze_info",
     [](VODPlayerFunc &ops) { ops.vod_player_set_analyze_info = nullptr; }, nullptr, 0, true},
    {"vod_deal_with_analyze_by_file_new_rule",
     [](const VOD_TIME *, int) {
         return vod_deal_with_analyze_by_file_new_rule("host", 4, 5, "a.rec", receive_nothing, 7, 3, s_info, 9);
     },
     true, "set_analyze_info_ex 3 1 9", "!vod_player_set_analyze_info_ex",
     [](VODPlayerFunc &ops) { ops.vod_player_set_analyze_info_ex = nullptr; },
     "s_save_mp4_enabled:1, analyze_by_file_new_rule not support", 0, false},
    {"vod_deal_with_analyze_by_file_new_rule_ex",
     [](const VOD_TIME *, int type) {
         return vod_deal_with_analyze_by_file_new_rule_ex("host", 4, 5, "a.rec", receive_nothing, 7, type, 3, s_info,
                                                          9);
     },
     true, "set_analyze_info_ex 3 1 9", "!vod_player_set_analyze_info_ex",
     [](VODPlayerFunc &ops) { ops.vod_player_set_analyze_info_ex = nullptr; }, nullptr, 0, true},
};

// What a player of this type records of the whole opening.
static std::vector<std::string> calls_of(const opening &op, int type, const char *start)
{
    std::string number = std::to_string(type) + " ";
    std::vector<std::string> calls;
    if (op.setting != nullptr)
        calls.push_back(number + op.setting);
    if (op.by_file)
        calls.push_back(number + "open_file a.rec 1 7");
    else
        calls.push_back(number + "open_file_by_time host 4 5 " + start + " 2025/15 1 7");
    return calls;
}

TEST_F(Facade, EachOpeningChoosesThePlayerOfTheStorageAndPreparesIt)
{
    struct row {
        int32_t storage_type;
        int type;
    };
    enrol_all();
    for (const opening &op : s_openings)
        for (const row &r : {row{0, 3}, row{1, 35}, row{2, 37}, row{3, 53}, row{4, 54}}) {
            vod_player_set_storage_type(r.storage_type);
            library.calls.clear();
            log_capture logs;
            handle_orb playerfd = op.open(&s_start, r.type);
            EXPECT_EQ(library.calls, calls_of(op, r.type, "2024/5")) << op.name << ' ' << r.storage_type;
            EXPECT_EQ(said(logs), (op.by_file ? said_lines{} : said_lines{{2, s_range_line}})) << op.name;
            EXPECT_EQ(type_and_close(playerfd), r.type) << op.name << ' ' << r.storage_type;
        }
    EXPECT_EQ(library.players_left(), 0);
}

TEST_F(Facade, UnknownStorageIsRefusedByEachChoice)
{
    enrol_all();
    for (int32_t storage_type : {7, 5, -5}) {
        vod_player_set_storage_type(storage_type);
        std::string number = std::to_string(storage_type);
        for (const opening &op : s_openings) {
            if (op.is_ex)
                continue;
            log_capture logs;
            EXPECT_EQ(op.open(&s_start, CHOSEN), INVALID_HANDLE_ORB) << op.name;
            EXPECT_EQ(said(logs), (op.by_file ? said_lines{{4, "not suport storage type storage_type= " + number}}
                                              : said_lines{{2, "not suport storage type str_type= " + number}}))
                << op.name;
        }
        log_capture logs;
        EXPECT_EQ(vodplay_open_file("a.rec", receive_nothing, 7), INVALID_HANDLE_ORB);
        EXPECT_EQ(vodplay_download_file_by_time("h", 1, 1, &s_start, &s_end, receive_nothing, 7), INVALID_HANDLE_ORB);
        EXPECT_EQ(said(logs), said_lines(2, {2, "not suport storage type str_type= " + number}));
    }
    EXPECT_EQ(library.creates, 0);
}

TEST_F(Facade, ARangeWithoutAStartIsTheClouds)
{
    enrol_all();
    for (int mp4_enabled : {0, 1})
        for (int32_t storage_type : {0, 1, 2, 3, 4, 7})
            for (const opening &op : s_openings) {
                if (op.by_file || op.is_ex)
                    continue;
                vod_player_set_storage_type(storage_type);
                vodplay_set_save_mp4_enabled(mp4_enabled);
                library.calls.clear();
                handle_orb playerfd = op.open(nullptr, CHOSEN);
                EXPECT_EQ(library.calls, calls_of(op, VOD_CLOUDPLAYER_TYPE, "none")) << op.name << storage_type;
                EXPECT_EQ(type_and_close(playerfd), VOD_CLOUDPLAYER_TYPE) << op.name << storage_type;
            }
    EXPECT_EQ(os_get_errno(), 0u);
}

TEST_F(Facade, AMissingPlayerIsReportedByTheRegistryAndTheOpening)
{
    for (const opening &op : s_openings) {
        vod_player_set_storage_type(1);
        log_capture logs(LOG_REFUSE);
        EXPECT_EQ(op.open(&s_start, 35), INVALID_HANDLE_ORB) << op.name;
        EXPECT_EQ(said(logs), join({missing_type_lines(35), {{2, "vod_player_create failed!"}}})) << op.name;
    }
    EXPECT_EQ(library.creates, 0);
}

TEST_F(Facade, AFailingStepLeavesNoPlayerBehind)
{
    enrol_all();
    for (const opening &op : s_openings) {
        library.opens_all = false;
        log_capture logs;
        EXPECT_EQ(op.open(&s_start, 3), INVALID_HANDLE_ORB) << op.name;
        said_lines expected = {{2, "!vod_player_open_file_by_time"}};
        EXPECT_EQ(said(logs), join({op.by_file ? said_lines{} : said_lines{{2, s_range_line}}, expected})) << op.name;
        EXPECT_EQ(library.players_left(), 0) << op.name;
        library.opens_all = true;
        if (op.setting == nullptr)
            continue;
        // The setting refused, then its slot missing: neither goes on to the opening.
        for (bool slot_is_there : {true, false}) {
            VODPlayerFunc whole = library.ops;
            library.result = 0;
            if (!slot_is_there)
                op.empty_setting(library.ops);
            library.calls.clear();
            logs.clear();
            EXPECT_EQ(op.open(&s_start, 3), INVALID_HANDLE_ORB) << op.name;
            EXPECT_EQ(said(logs), (said_lines{{2, op.setting_text}})) << op.name;
            EXPECT_EQ(library.calls.size(), slot_is_there ? 2u : 1u) << "set (if it can be) and destroyed";
            EXPECT_EQ(library.calls.back(), "3 destroy");
            library.ops = whole;
            library.result = 1;
        }
        EXPECT_EQ(library.players_left(), 0) << op.name;
    }
}

TEST_F(Facade, Mp4StorageRefusesSlicesAndAnalysisAndPlaysRanges)
{
    enrol_all();
    vodplay_set_save_mp4_enabled(1);
    for (const opening &op : s_openings) {
        if (op.is_ex)
            continue;
        os_set_errno(0);
        log_capture logs;
        handle_orb playerfd = op.open(&s_start, CHOSEN);
        EXPECT_EQ(type_and_close(playerfd), op.mp4_text == nullptr ? VOD_MP4PLAYER_TYPE : -1) << op.name;
        if (op.mp4_text != nullptr) {
            EXPECT_EQ(said(logs), (said_lines{{1, op.mp4_text}})) << op.name;
        }
        EXPECT_EQ(os_get_errno(), op.mp4_errno) << op.name;
    }
    EXPECT_EQ(library.players_left(), 0);
}

TEST_F(Facade, Mp4StorageIsAMatterOfStorageTypeZero)
{
    enrol_all();
    vodplay_set_save_mp4_enabled(1);
    vod_player_set_storage_type(2);
    for (const opening &op : s_openings)
        EXPECT_EQ(type_and_close(op.open(&s_start, VOD_STORAGE2PLAYER_TYPE)), VOD_STORAGE2PLAYER_TYPE) << op.name;
}
