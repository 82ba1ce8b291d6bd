// What the record worker does with a command: sessions, filtering, completing, and its thread.
#include "tests/vod/record_fixture.h"

#include "tests/support/host.h"

#include "tests/support/manual_clock.h"
#include "tests/support/temp_folder.h"
#include "vod/record_limits.h"
#include "vod/record_text.h"

#include <chrono>
#include <thread>

class RecordWorkerTest : public RecordTest {
protected:
    // What one read of session 1 delivers.
    std::string read_all(int count = 100, const std::string &more = "")
    {
        command(next("<session>1</session><count>" + std::to_string(count) + "</count>" + more));
        work();
        return reply_text();
    }
    static std::string head(const char *result, int count)
    {
        return std::string("<?xml version=\"1.0\"?>\n<command_return name=\"find_next_file\" result=\"") + result +
               "\" count=\"" + std::to_string(count) + "\"";
    }
    static bool starts_with(const std::string &text, const std::string &with) { return text.rfind(with, 0) == 0; }
    static RecordFileInfo sized(int64_t size, int32_t filetype, bool is_finished)
    {
        RecordFileInfo record = fake_record("a.rec");
        record.size = size;
        record.filetype = filetype;
        if (!is_finished)
            record.endtime = {};
        return record;
    }
    static bool soon(const std::function<bool()> &happened)
    {
        for (int i = 0; i < 4000 && !happened(); i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return happened();
    }
};

// ---- Opening --------------------------------------------------------------------------------------------------------

TEST_F(RecordWorkerTest, AnOpenedSearchIsAnsweredWithItsNumber)
{
    command(whole_find_file(), 77);
    work();
    EXPECT_EQ(mslink.last().attr(7), std::string("<?xml version=\"1.0\"?>\n<command_return name=\"find_file\" "
                                                 "result=\"ok\">\n\t<session_id>1</session_id>\n</command_return>") +
                                         '\0');
    std::vector<asked_search> asked = s_fake_index.searches();
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].host_id, "h");
    EXPECT_EQ(asked[0].ch, 1);
    EXPECT_EQ(asked[0].filetype, 255);
    EXPECT_EQ(asked[0].start.second, 5);
    EXPECT_EQ(asked[0].end.second, 59);
    EXPECT_EQ(log.count("command => 101", LOG_TRACE), 1u);
}

TEST_F(RecordWorkerTest, ASearchThatCannotBeOpenedIsAnsweredWithError)
{
    s_fake_index.find_result = 0;
    command(whole_find_file());
    work();
    EXPECT_EQ(reply_text(), "<?xml version=\"1.0\"?>\n<command_return name=\"find_file\" result=\"error\">\n"
                            "\t<session_id>0</session_id>\n</command_return>");
    EXPECT_EQ(log.count("!opit->success", LOG_SYSTEM), 1u);
}

TEST_F(RecordWorkerTest, AReplyGoesBackAsTheCommandCame)
{
    command(whole_find_file(), 0x01020304);
    work();
    sent_package reply = mslink.last();
    EXPECT_EQ(reply.code(), MP_CODE_RET_CMD_CHS);
    for (uint32_t i = 0; i < 4; i++)
        EXPECT_EQ(reply.attr(i), std::string(60, static_cast<char>('3' - i)));
    EXPECT_EQ(reply.attr(6), u32(0x01020304));
    EXPECT_EQ(reply.parsed().head->module_des, CLIENT_MODULE);
    EXPECT_EQ(reply.parsed().head->module_src, 131);
    auto length = static_cast<uint32_t>(reply.attr(7).size());
    EXPECT_EQ(reply.attr(5), u32(0) + u32(1) + u32(0) + u32(length));
}

TEST_F(RecordWorkerTest, WhoWantsNoReplyToASearchGetsItAllTheSame)
{
    read(mslink, command_package(whole_find_file(), 0));
    work();
    EXPECT_EQ(replies(), 1u);
}

// ---- Sessions -------------------------------------------------------------------------------------------------------

TEST_F(RecordWorkerTest, UnknownSessionsGetNoReply)
{
    command(next(1, 5));
    command(close(1));
    work();
    EXPECT_EQ(log.count("node == NULL", LOG_SYSTEM), 2u);
    open_search();
    command(close(1));
    command(close(1));
    command(next(1, 5));
    work();
    EXPECT_EQ(log.count("node == NULL", LOG_SYSTEM), 2u);
    EXPECT_EQ(replies(), 0u);
    EXPECT_EQ(s_fake_index.closed_ones(), std::vector<int32_t>{1});
}

TEST_F(RecordWorkerTest, ASessionCanBeReadAgainAfterItsEnd)
{
    open_search();
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(read_all(), head("end", 0) + "/>\n");
}

TEST_F(RecordWorkerTest, SessionsOutliveTheirLinkAndBelongToAll)
{
    s_fake_index.records = {fake_record("a.rec"), fake_record("b.rec")};
    open_search();
    command(next(1, 1));
    work();
    disconnect(mslink);
    MsLink other;
    read(other, res_package(0x8006, ""));
    read(other, command_package(next(1, 1)));
    work();
    EXPECT_NE(other.last().attr(7).find("<filename>b.rec</filename>"), std::string::npos);
    read(other, command_package(close(1)));
    work();
    EXPECT_EQ(s_fake_index.open_count(), 0u);
}

TEST_F(RecordWorkerTest, WhoReadsOrClosesTheSessionOfAnotherIsTold)
{
    s_fake_index.records = {fake_record("a.rec"), fake_record("b.rec"), fake_record("c.rec")};
    mslink.peer_name = "10.0.0.1:1000";
    open_search();
    command(next(1, 1));
    work();
    EXPECT_EQ(log.count_containing("the session 1 of"), 0u);
    MsLink other;
    other.peer_name = "10.0.0.2:2000";
    read(other, res_package(0x8006, ""));
    read(other, command_package(next(1, 1)));
    read(other, command_package(next(1, 1)));
    work();
    EXPECT_EQ(log.count("the session 1 of 10.0.0.1:1000 is read by 10.0.0.2:2000", LOG_REFUSE), 1u);
    read(other, command_package(close(1)));
    work();
    EXPECT_EQ(log.count("the session 1 of 10.0.0.1:1000 is closed by 10.0.0.2:2000", LOG_REFUSE), 1u);
    EXPECT_EQ(s_fake_index.open_count(), 0u);
}

TEST_F(RecordWorkerTest, ItsOwnerClosesASessionWithoutAWord)
{
    open_search();
    command(close(1));
    work();
    EXPECT_EQ(log.count_containing("the session 1 of"), 0u);
}

TEST_F(RecordWorkerTest, ASessionCannotBeClosedWhileItIsRead)
{
    s_fake_index.records = {fake_record("a.rec")};
    open_search();
    size_t open_while_read = 0;
    s_fake_index.on_next = [&] {
        dlist_guard held(s_lst_findfds);
        open_while_read += adt_dlist_size(s_lst_findfds);
    };
    read_all();
    EXPECT_EQ(open_while_read, 0u);
    dlist_guard held(s_lst_findfds);
    EXPECT_EQ(adt_dlist_size(s_lst_findfds), 1u);
}

TEST_F(RecordWorkerTest, ASessionThatWasReadIsFreshAndStandsLast)
{
    open_search();
    open_search();
    auto sessions = [] {
        dlist_guard held(s_lst_findfds);
        std::vector<VodRecFindfd *> found;
        for (DListNode *node = adt_dlist_head(s_lst_findfds); node != nullptr; node = adt_dlist_next(node))
            found.push_back(*static_cast<VodRecFindfd **>(adt_dlist_data(node)));
        return found;
    };
    ASSERT_EQ(sessions().size(), 2u);
    for (VodRecFindfd *session : sessions()) {
        EXPECT_EQ(session->time, 0);
        session->time = 77;
    }
    command(next(1, 1));
    work();
    ASSERT_EQ(sessions().size(), 2u);
    EXPECT_EQ(sessions()[0]->findfd, 2);
    EXPECT_EQ(sessions()[0]->time, 77);
    EXPECT_EQ(sessions()[1]->findfd, 1);
    EXPECT_EQ(sessions()[1]->time, 0);
}

TEST_F(RecordWorkerTest, ASessionThatCannotBeKeptIsClosedAgain)
{
    DList *sessions = s_lst_findfds.exchange(nullptr);
    command(whole_find_file());
    work();
    EXPECT_NE(reply_text().find("result=\"error\""), std::string::npos);
    EXPECT_EQ(s_fake_index.open_count(), 0u);
    command(next(1, 1));
    work();
    EXPECT_EQ(log.count("node == NULL", LOG_SYSTEM), 1u);
    s_lst_findfds = sessions;
}

// ---- Counts ---------------------------------------------------------------------------------------------------------

TEST_F(RecordWorkerTest, CountDecidesHowManyComeAndWhetherTheWalkIsOver)
{
    for (const char *name : {"a.rec", "b.rec"})
        s_fake_index.records.push_back(fake_record(name));
    open_search();
    EXPECT_TRUE(starts_with(read_all(1), head("ok", 1) + "><file>"));
    EXPECT_TRUE(starts_with(read_all(1), head("ok", 1) + "><file>"));
    EXPECT_EQ(read_all(1), head("end", 0) + "/>\n");
    open_search();
    command(next(2, 3));
    work();
    EXPECT_TRUE(starts_with(reply_text(), head("end", 2) + "><file>"));
}

TEST_F(RecordWorkerTest, NoneWantedAreNoneDelivered)
{
    s_fake_index.records = {fake_record("a.rec")};
    open_search();
    for (int count : {0, -1, -2147483647})
        EXPECT_EQ(read_all(count), head("ok", 0) + "/>\n") << count;
    EXPECT_TRUE(starts_with(read_all(5), head("end", 1))) << "none was passed over";
}

TEST_F(RecordWorkerTest, OneCommandDeliversNoMoreThanItsLimit)
{
    s_fake_index.records.assign(RECORD_COUNT_MAX + 5, fake_record("a.rec"));
    open_search();
    command(next(1, 2147483647));
    record_item item = take();
    deal_with_asyn_rec_operate(item.get());
    auto opit = static_cast<VodAsynRec_GetFile *>(item->param);
    EXPECT_EQ(opit->count, RECORD_COUNT_MAX);
    EXPECT_EQ(opit->ret, 0);
    EXPECT_EQ(opit->file_info, nullptr) << "freed once it was answered";
    EXPECT_EQ(log.count("opit->count:2147483647, at most 10000 are delivered at once", LOG_SYSTEM), 1u);
    EXPECT_TRUE(starts_with(read_all(2147483647), head("end", 5)));
}

TEST_F(RecordWorkerTest, WithoutMemoryWhatWasFoundIsDelivered)
{
    s_fake_index.records.assign(3, fake_record("a.rec"));
    open_search();
    command(next(1, 3));
    record_item item = take();
    os_fault_arm(2); // the room for a second record
    deal_with_asyn_rec_operate(item.get());
    os_fault_disarm();
    EXPECT_TRUE(starts_with(reply_text(), head("ok", 1)));
    EXPECT_EQ(log.count("no memory for 2 records", LOG_SYSTEM), 1u);
}

TEST_F(RecordWorkerTest, WithoutACountOneRecordStandsUnderTheRoot)
{
    s_fake_index.records = {fake_record("a.rec"), fake_record("b.rec")};
    open_search();
    command(next("<session>1</session>"));
    work();
    EXPECT_TRUE(starts_with(reply_text(), head("ok", 1) + "><ch>3</ch><filename>a.rec</filename>")) << reply_text();
    EXPECT_EQ(reply_text().find("b.rec"), std::string::npos);
}

TEST_F(RecordWorkerTest, EachRecordIsTraced)
{
    s_fake_index.records = {fake_record("a.rec"), sized(5, 1, true), fake_record("b.rec")};
    open_search();
    read_all();
    EXPECT_EQ(log.count("REC_ASYN_OP_GET_FILE opit->count:0 size:1000000", LOG_TRACE), 1u);
    EXPECT_EQ(log.count("REC_ASYN_OP_GET_FILE opit->count:1 size:5", LOG_TRACE), 1u);
    EXPECT_EQ(log.count("REC_ASYN_OP_GET_FILE opit->count:1 size:1000000", LOG_TRACE), 1u);
}

// ---- Filter ---------------------------------------------------------------------------------------------------------

TEST_F(RecordWorkerTest, SmallRecordsAreLeftOut)
{
    struct row {
        RecordFileInfo record;
        bool is_kept;
    };
    RecordFileInfo no_year = sized(0, 1, true), no_month = no_year, no_day = no_year, no_time = no_year;
    no_year.endtime.year = no_month.endtime.month = no_day.endtime.day = 0;
    no_time.endtime.hour = no_time.endtime.minute = no_time.endtime.second = 0;
    for (const row &of :
         {row{sized(300000, 1, true), false}, row{sized(300000, 8, true), true}, row{sized(512000, 1, true), false},
          row{sized(512001, 1, true), true}, row{sized(300000, 1, false), false}, row{sized(0, 1, true), false},
          row{sized(0, 1, false), true}, row{sized(0, 8, true), true}, row{sized(0, 8, false), true},
          row{sized(-1, 1, false), false}, row{sized(1, 9, true), false}, row{no_year, true}, row{no_month, true},
          row{no_day, true}, row{no_time, false}}) {
        s_fake_index.records = {of.record};
        command(whole_find_file());
        work();
        command(next(s_fake_index.last_id, 10));
        work();
        EXPECT_TRUE(starts_with(reply_text(), head("end", of.is_kept ? 1 : 0)))
            << of.record.size << " type " << of.record.filetype << "\n"
            << reply_text();
    }
}

TEST_F(RecordWorkerTest, ADroppedRecordLeavesNothingOfItself)
{
    RecordFileInfo dropped = sized(5, 1, true), kept = fake_record("kept.rec");
    text_copy(dropped.md5, "0123456789abcdef0123456789abcdef");
    s_fake_index.records = {dropped, kept};
    open_search();
    EXPECT_NE(read_all().find("<filename>kept.rec</filename>"), std::string::npos);
    EXPECT_NE(reply_text().find("<md5></md5>"), std::string::npos) << reply_text();
}

// ---- Files that are still being written -----------------------------------------------------------------------------

class RecordAttrTest : public RecordWorkerTest {
protected:
    static constexpr char WANTED[] = "<get_recording_file_attr>1</get_recording_file_attr>";
    RecordAttrTest() : folder(temp_folder::working_directory::enter)
    {
        s_fake_index.records = {writing("rec\\a.rec")};
        folder.write("rec\\a.rec", std::string(1234, 'x'));
        struct tm parts = {};
        parts.tm_year = 126;
        parts.tm_mon = 4;
        parts.tm_mday = 6;
        parts.tm_hour = 7;
        parts.tm_min = 8;
        parts.tm_sec = 9;
        parts.tm_isdst = -1;
        EXPECT_EQ(os_file_set_modified("rec\\a.rec", os_mktime(&parts)), 1);
        open_search();
    }
    ~RecordAttrTest() override { s_storage_type = 0; }
    static RecordFileInfo writing(const std::string &name)
    {
        RecordFileInfo record = sized(0, 1, false);
        text_copy(record.filename, name);
        return record;
    }
    bool says(const std::string &part) { return reply_text().find(part) != std::string::npos; }
    static constexpr char END[] = "<end_time><year>2026</year><month>05</month><day>06</day><hour>07</hour>"
                                  "<minute>08</minute><second>09</second></end_time>";
    static constexpr char NO_END[] = "<end_time><year>0000</year><month>00</month>";
    temp_folder folder;
};

TEST_F(RecordAttrTest, SizeAndEndComeFromTheFileOnDemand)
{
    read_all(10, WANTED);
    EXPECT_TRUE(says("<size>1234</size>")) << reply_text();
    EXPECT_TRUE(says(END)) << reply_text();
    EXPECT_EQ(log.count("is writing filename:rec\\a.rec, size:1234, endtime:2026-05-06 07:08:09", LOG_REFUSE), 1u);
}

TEST_F(RecordAttrTest, WithoutTheDemandOrWithAnotherValueTheyStay)
{
    for (const char *more : {"", "<get_recording_file_attr>0</get_recording_file_attr>",
                             "<get_recording_file_attr>2</get_recording_file_attr>"}) {
        open_search();
        command(next("<session>" + std::to_string(s_fake_index.last_id) + "</session><count>1</count>" + more));
        work();
        EXPECT_TRUE(says("<size>0</size>")) << reply_text();
        EXPECT_TRUE(says(NO_END)) << reply_text();
    }
    EXPECT_EQ(log.count_containing("is writing"), 0u);
}

TEST_F(RecordAttrTest, AFinishedRecordIsLeftAsItIs)
{
    RecordFileInfo finished = writing("rec\\a.rec");
    finished.filetype = 8;
    finished.endtime = {2026, 1, 2, 3, 4, 5};
    s_fake_index.records = {finished};
    read_all(10, WANTED);
    EXPECT_TRUE(says("<size>0</size>"));
    EXPECT_TRUE(says("<end_time><year>2026</year><month>01</month>"));
}

TEST_F(RecordAttrTest, HalfADateIsNoEnd)
{
    for (auto field : {&DVR_TIME::year, &DVR_TIME::month, &DVR_TIME::day}) {
        RecordFileInfo half = writing("rec\\a.rec");
        half.endtime = {2025, 1, 2, 3, 4, 5};
        half.endtime.*field = 0;
        s_fake_index.records = {half};
        open_search();
        command(next("<session>" + std::to_string(s_fake_index.last_id) + "</session>" + WANTED));
        work();
        EXPECT_TRUE(says("<size>1234</size>")) << reply_text();
        EXPECT_TRUE(says(END)) << reply_text();
    }
}

TEST_F(RecordAttrTest, AFileThatIsNotThereIsDeliveredAsItIs)
{
    s_fake_index.records = {writing("rec\\none.rec")};
    read_all(10, WANTED);
    EXPECT_TRUE(says("count=\"1\""));
    EXPECT_TRUE(says(NO_END));
    EXPECT_EQ(log.count("!stat64, filename:rec\\none.rec", LOG_SYSTEM), 1u);
}

TEST_F(RecordAttrTest, OtherStorageIsLeftAlone)
{
    s_storage_type = 2;
    read_all(10, WANTED);
    EXPECT_TRUE(says("<size>0</size>"));
    EXPECT_EQ(log.count("default s_storage_type；2, filename:rec\\a.rec", LOG_REFUSE), 1u);
}

TEST_F(RecordAttrTest, PathsOfEitherCharacterSetFindTheirFile)
{
    const std::string gb = "rec\\\xD6\xD0.rec", utf8 = "rec\\\xE4\xB8\xAD.rec";
    folder.write(host_name(gb), "12345");
    s_fake_index.records = {writing(gb), writing(utf8)};
    read_all(10, WANTED);
    EXPECT_EQ(log.count_containing("!stat64"), 0u);
    EXPECT_EQ(log.count_containing("size:5,"), 2u);
}

// ---- Items that are none --------------------------------------------------------------------------------------------

TEST_F(RecordWorkerTest, ItemsOfAnotherSizeAreLogged)
{
    struct row {
        int32_t command, size;
        const char *text;
    };
    for (const row &of : {row{101, 99, "item->size != sizeof(AsynRec_FindFile)"},
                          row{102, 31, "item->size != sizeof(VodAsynRec_GetFile)"},
                          row{103, 9, "item->size != sizeof(AsynRec_FindClose)"}, row{104, 8, "default"}}) {
        record_item item = record_item_create(of.command, of.size);
        EXPECT_EQ(deal_with_asyn_rec_operate(item.get()), 0);
        EXPECT_EQ(log.count(of.text, LOG_SYSTEM), 1u) << of.text;
    }
    EXPECT_EQ(deal_with_asyn_rec_operate(nullptr), 0);
    EXPECT_EQ(log.count("item == NULL", LOG_SYSTEM), 1u);
    EXPECT_EQ(replies(), 0u);
}

TEST_F(RecordWorkerTest, CompletionsCheckTheirRecords)
{
    VodAsynRecUdata udata = {};
    char param[100] = {};
    for (int command : {101, 102, 103})
        on_rec_operate_complete(command, nullptr, &udata, nullptr, 1);
    EXPECT_EQ(log.count("param == NULL", LOG_SYSTEM), 3u);
    for (int command : {101, 102, 103, 104})
        on_rec_operate_complete(command, nullptr, &udata, param, 1);
    for (const char *text : {"size != sizeof(VodAsynRec_FindFile)", "size != sizeof(VodAsynRec_GetFile)",
                             "size != sizeof(VodAsynRec_FindClose)"})
        EXPECT_EQ(log.count(text, LOG_SYSTEM), 1u) << text;
}

// ---- The thread -----------------------------------------------------------------------------------------------------

TEST_F(RecordWorkerTest, TheThreadAnswersAtOnceAndInOrder)
{
    ASSERT_EQ(record_worker_start(), 1);
    for (int i = 0; i < 50; i++)
        command(whole_find_file(), static_cast<uint32_t>(i));
    ASSERT_TRUE(soon([&] { return replies() == 50; }));
    std::lock_guard held(mslink.mutex);
    for (size_t i = 0; i < 50; i++)
        EXPECT_EQ(mslink.sent[before + i].attr(6), u32(static_cast<uint32_t>(i)));
}

TEST_F(RecordWorkerTest, ACommandIsNotAnsweredASecondLate)
{
    ASSERT_EQ(record_worker_start(), 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // it is idle by now
    auto begun = std::chrono::steady_clock::now();
    for (size_t i = 1; i <= 10; i++) {
        command(whole_find_file());
        ASSERT_TRUE(soon([&] { return replies() == i; }));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(8)) << "ten of them, polled each second";
}

TEST_F(RecordWorkerTest, TheIdleThreadIsWokenAndDoesNotLookFromTimeToTime)
{
    manual_clock clock; // each sleep is noted and over at once
    ASSERT_EQ(record_worker_start(), 1);
    for (size_t i = 1; i <= 5; i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10)); // it is idle by now
        command(whole_find_file());
        ASSERT_TRUE(soon([&] { return replies() == i; }));
    }
    record_worker_stop();
    EXPECT_TRUE(clock.sleeps().empty());
}

TEST_F(RecordWorkerTest, CommandsFromManyLinksAllArrive)
{
    ASSERT_EQ(record_worker_start(), 1);
    constexpr size_t CLIENTS = 6, COMMANDS = 200;
    std::vector<std::unique_ptr<MsLink>> links;
    for (size_t i = 0; i < CLIENTS; i++) {
        links.push_back(std::make_unique<MsLink>());
        read(*links.back(), res_package(0x8006, ""));
    }
    std::vector<std::thread> clients;
    for (auto &link : links)
        clients.emplace_back([&, of = link.get()] {
            for (size_t i = 0; i < COMMANDS; i++)
                read(*of, command_package(whole_find_file()));
        });
    for (std::thread &client : clients)
        client.join();
    for (auto &link : links) {
        EXPECT_TRUE(soon([&] { return link->sent_count() == COMMANDS + 1; }));
        EXPECT_TRUE(soon([&] { return link->holds == 0; }));
    }
}

TEST_F(RecordWorkerTest, ACommandOfASecondIsNotTold)
{
    manual_clock clock;
    open_search();
    s_fake_index.on_next = [&] { clock.advance(1000); };
    ASSERT_EQ(record_worker_start(), 1);
    command(next(1, 1));
    ASSERT_TRUE(soon([&] { return replies() == 1; }));
    record_worker_stop();
    EXPECT_EQ(log.count_containing("the others had to wait"), 0u);
}

TEST_F(RecordWorkerTest, AStalledCommandIsToldOnce)
{
    manual_clock clock;
    open_search();
    s_fake_index.on_next = [&] { clock.advance(1001); };
    ASSERT_EQ(record_worker_start(), 1);
    command(next(1, 1));
    EXPECT_TRUE(soon([&] { return log.count_containing("command => 102 took 1001 ms, the others had to wait") == 1; }));
    record_worker_stop();
}

TEST_F(RecordWorkerTest, TheThreadOutlivesACommandThatCannotBePutAway)
{
    size_t failed = 0;
    for (uint32_t n = 1; n < 40 && failed == 0; n++) {
        for (uint32_t i = 0; i < record_waiting_max(); i++)
            command(close(99));
        ASSERT_EQ(mslink.holds, 1);
        os_fault_arm(n);
        int started = record_worker_start();
        EXPECT_TRUE(!started || soon([this] { return mslink.holds == 0; }));
        os_fault_disarm();
        failed = log.count_containing("std::bad_alloc");
        size_t answered = replies();
        command(whole_find_file());
        EXPECT_TRUE(!started || soon([&] { return replies() == answered + 1; })) << n;
        record_worker_stop();
        EXPECT_EQ(mslink.holds, 0) << "the next command lets it go on";
    }
    EXPECT_EQ(failed, 1u);
}

TEST_F(RecordWorkerTest, TheThreadTellsItsStart)
{
    ASSERT_EQ(record_worker_start(), 1);
    EXPECT_TRUE(
        soon([&] { return log.count("rec_asyn_op_thread_start: s_asyn_thread_is_terminate = 0", LOG_TRACE) == 1; }));
}
