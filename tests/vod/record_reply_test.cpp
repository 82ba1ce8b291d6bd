// The worker's answers: their texts, their pieces, and links that are busy, gone or another's.
#include "tests/vod/record_fixture.h"

#include "tests/support/manual_clock.h"
#include "vod/record_text.h"

#include <libxml/parser.h>
#include <rapidcheck.h>

#include <deque>

class RecordReplyTest : public RecordTest {
protected:
    // What a read of one record with this path answers.
    std::string reply_with_path(const std::string &path)
    {
        s_fake_index.records = {fake_record(path)};
        open_search();
        command(next(s_fake_index.last_id, 10));
        work();
        return reply_text();
    }
    // As an XML parser reads it back.
    static std::string filename_in(const std::string &xml)
    {
        xml_doc doc(xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr,
                                  XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
        if (doc == nullptr)
            return "no document";
        xmlNode *file = xmlDocGetRootElement(doc.get())->children;
        for (xmlNode *node = file == nullptr ? nullptr : file->children; node != nullptr; node = node->next)
            if (xml_name_is(node, "filename"))
                return reinterpret_cast<const char *>(xml_text(xmlNodeGetContent(node)).get());
        return "no name";
    }
    // The pieces of all replies since the commands before.
    std::vector<sent_package> pieces()
    {
        std::lock_guard held(mslink.mutex);
        return {mslink.sent.begin() + static_cast<ptrdiff_t>(before), mslink.sent.end()};
    }
};

// ---- Texts ----------------------------------------------------------------------------------------------------------

TEST_F(RecordReplyTest, ARecordIsWrittenElementByElement)
{
    RecordFileInfo record = fake_record("D:\\rec\\a&b.rec");
    record.ch = 4294967295u;
    record.size = 5'000'000'000;
    record.starttime = {26, 1, 2, 3, 4, 5};
    record.endtime = {};
    record.filetype = -8;
    record.ratio = 2;
    record.locktime = {2026, 11, 12, 13, 14, 15};
    record.lock_level = 3;
    text_copy(record.md5, "0123456789abcdef0123456789ABCDEF");
    text_copy(record.devid, "<host>");
    record.driveno = 4;
    record.startcluster = 4294967295u;
    text_copy(record.card_num, "card \"7\"");
    s_fake_index.records = {record};
    open_search();
    command(next(1, 10));
    work();
    EXPECT_EQ(reply_text(),
              "<?xml version=\"1.0\"?>\n<command_return name=\"find_next_file\" result=\"end\" count=\"1\"><file>"
              "<ch>-1</ch><filename>D:\\rec\\a&amp;b.rec</filename><size>5000000000</size>"
              "<start_time><year>0026</year><month>01</month><day>02</day><hour>03</hour><minute>04</minute>"
              "<second>05</second></start_time>"
              "<end_time><year>0000</year><month>00</month><day>00</day><hour>00</hour><minute>00</minute>"
              "<second>00</second></end_time>"
              "<driveno>4</driveno><startcluster>-1</startcluster><filetype>-8</filetype>"
              "<host_id>&lt;host&gt;</host_id>"
              "<lock_time><year>2026</year><month>11</month><day>12</day><hour>13</hour><minute>14</minute>"
              "<second>15</second></lock_time>"
              "<level>3</level><ratio>2</ratio><md5>0123456789abcdef0123456789ABCDEF</md5>"
              "<card_num>card \"7\"</card_num></file></command_return>\n");
}

TEST_F(RecordReplyTest, SeveralRecordsFollowEachOther)
{
    s_fake_index.records = {fake_record("a.rec"), fake_record("b.rec")};
    open_search();
    command(next(1, 2));
    work();
    std::string text = reply_text();
    EXPECT_NE(text.find("<card_num></card_num></file><file><ch>3</ch><filename>b.rec</filename>"), std::string::npos)
        << text;
}

TEST_F(RecordReplyTest, EveryResultHasItsName)
{
    VodAsynRec_GetFile opit = {};
    for (auto [ret, name] : {std::pair{0, "ok"}, {1, "end"}, {2, "searching"}, {3, "error"}, {-1, "error"}}) {
        opit.ret = ret;
        xml_doc doc = record_reply_document(opit);
        ASSERT_NE(doc, nullptr);
        EXPECT_EQ(xml_dump(doc.get(), nullptr, false),
                  std::string("<?xml version=\"1.0\"?>\n<command_return name=\"find_next_file\" result=\"") + name +
                      "\" count=\"0\"/>\n");
    }
}

TEST_F(RecordReplyTest, NamesComeBackAsTheyAreOrDecoded)
{
    const std::string utf8 = "rec\\\xE4\xB8\xAD\xE6\x96\x87.rec", gb18030 = "rec\\\xD6\xD0\xCE\xC4.rec";
    EXPECT_EQ(filename_in(reply_with_path(utf8)), utf8);
    EXPECT_EQ(filename_in(reply_with_path(gb18030)), utf8) << "as a client has to ask for it";
    EXPECT_EQ(filename_in(reply_with_path("plain.rec")), "plain.rec");
}

TEST_F(RecordReplyTest, BytesThatAreNoTextAreReplacedAndTheRecordDelivered)
{
    EXPECT_EQ(filename_in(reply_with_path("a\xFF.rec")), "a?.rec");
    EXPECT_EQ(filename_in(reply_with_path("a\x01\x1F\n.rec")), "a??\n.rec");
    EXPECT_EQ(filename_in(reply_with_path("\xC1\xBF\xFF.rec")), "???.rec") << "over-long, and no GB18030 either";
    EXPECT_EQ(filename_in(reply_with_path(std::string(259, '\xFF'))), std::string(259, '?'));
}

TEST_F(RecordReplyTest, AnyBytesMakeAReplyThatParses)
{
    EXPECT_TRUE(rc::check([](const std::vector<uint8_t> &bytes) {
        RecordFileInfo record = fake_record("");
        std::string text(bytes.begin(), bytes.end());
        text_copy(record.filename, text.c_str());
        std::memset(record.card_num, 0xFE, sizeof record.card_num); // without an end
        std::memset(record.devid, 'd', sizeof record.devid);
        VodAsynRec_GetFile opit = {
            .ret = 0, .findfd = 1, .version = 3, .count = 1, .file_info = &record, .get_recording_file_attr = 0};
        xml_doc doc = record_reply_document(opit);
        std::string xml = xml_dump(doc.get(), nullptr, false);
        RC_ASSERT(filename_in(xml) != "no document");
        RC_ASSERT(filename_in(xml) != "no name");
    }));
}

static void say_nothing(void *, const char *, ...) {}

TEST_F(RecordReplyTest, WithoutMemoryThereIsNoReply)
{
    VodAsynRec_GetFile opit = {};
    size_t failed = 0;
    xml_library_init();
    xmlFreeFunc before_free;
    xmlMallocFunc before_malloc;
    xmlReallocFunc before_realloc;
    xmlStrdupFunc before_strdup;
    xmlMemGet(&before_free, &before_malloc, &before_realloc, &before_strdup);
    for (int allowed = 0; allowed < 8; allowed++) {
        static int s_left;
        s_left = allowed;
        xmlSetGenericErrorFunc(nullptr, say_nothing);
        xmlMemSetup(
            std::free, [](size_t size) { return s_left-- > 0 ? std::malloc(size) : nullptr; }, std::realloc,
            [](const char *text) { return s_left-- > 0 ? strdup(text) : nullptr; });
        xml_doc doc = record_reply_document(opit);
        xmlMemSetup(before_free, before_malloc, before_realloc, before_strdup);
        xmlSetGenericErrorFunc(nullptr, nullptr);
        failed += doc == nullptr;
    }
    EXPECT_GE(failed, 2u);
    EXPECT_EQ(log.count("doc == NULL", LOG_SYSTEM) + log.count("command_node == NULL", LOG_SYSTEM), failed);
}

// ---- Pieces ---------------------------------------------------------------------------------------------------------

class RecordPieceTest : public RecordReplyTest {
protected:
    // Records whose reply has exactly so many characters.
    static std::vector<RecordFileInfo> records_of(size_t size)
    {
        RecordFileInfo bare = fake_record("");
        size_t one = text_size({bare}), each = text_size({bare, bare}) - one, around = one - each - 1;
        size_t count = (size - around) / (each + 150);
        size_t letters = size - around - std::to_string(count).size() - count * each;
        std::vector<RecordFileInfo> records;
        for (size_t i = 0; i < count; i++)
            records.push_back(fake_record(std::string(letters / count + (i < letters % count ? 1 : 0), 'p')));
        return records;
    }
    static size_t text_size(std::vector<RecordFileInfo> records)
    {
        VodAsynRec_GetFile opit = {.ret = 1,
                                   .findfd = 1,
                                   .version = 3,
                                   .count = static_cast<int32_t>(records.size()),
                                   .file_info = records.data(),
                                   .get_recording_file_attr = 0};
        xml_doc doc = record_reply_document(opit);
        return xml_dump(doc.get(), nullptr, false).size();
    }
    std::vector<sent_package> reply_of(size_t size)
    {
        s_fake_index.records = records_of(size);
        command(whole_find_file());
        work();
        before = mslink.sent_count();
        command(next(s_fake_index.last_id, 10000));
        work();
        return pieces();
    }
};

TEST_F(RecordPieceTest, LongTextsAreCutAndCarryOneZeroAtTheirEnd)
{
    struct row {
        size_t size;
        std::vector<size_t> pieces; // bytes
    };
    for (const row &of : {row{64511, {64512}}, row{64512, {64513}}, row{64513, {64512, 2}}, row{64514, {64512, 3}},
                          row{129024, {64512, 64513}}, row{129025, {64512, 64512, 2}}}) {
        std::vector<sent_package> sent = reply_of(of.size);
        ASSERT_EQ(sent.size(), of.pieces.size()) << of.size;
        std::string whole;
        for (size_t i = 0; i < sent.size(); i++) {
            EXPECT_EQ(sent[i].attr(7).size(), of.pieces[i]) << of.size;
            EXPECT_EQ(sent[i].attr(5), u32(0) + u32(static_cast<uint32_t>(sent.size())) +
                                           u32(static_cast<uint32_t>(i)) + u32(static_cast<uint32_t>(of.size + 1)))
                << of.size;
            EXPECT_EQ(sent[i].attr(6), u32(9));
            whole += sent[i].attr(7);
        }
        EXPECT_EQ(whole.size(), of.size + 1);
        EXPECT_EQ(whole.find('\0'), of.size);
        EXPECT_NE(filename_in(whole.substr(0, of.size)), "no document") << of.size;
    }
}

// ---- Sending --------------------------------------------------------------------------------------------------------

TEST_F(RecordReplyTest, ABusyLinkIsTriedThirtyTimes)
{
    manual_clock clock;
    mslink.failures.assign(29, ORB_ERROR_TRY_AGAIN);
    command(whole_find_file());
    work();
    EXPECT_EQ(replies(), 1u);
    EXPECT_EQ(log.count("try again!", LOG_SYSTEM), 29u);
    EXPECT_EQ(clock.sleeps(), std::vector<uint32_t>(29, 10));
    EXPECT_EQ(log.count("i == TRY_AGIAN_NUM"), 0u);

    clock.clear_sleeps();
    mslink.failures.assign(30, ORB_ERROR_TRY_AGAIN);
    command(whole_find_file());
    work();
    EXPECT_EQ(replies(), 1u);
    EXPECT_EQ(log.count("try again!", LOG_SYSTEM), 59u);
    EXPECT_EQ(log.count("i == TRY_AGIAN_NUM", LOG_SYSTEM), 1u);
    EXPECT_TRUE(mslink.failures.empty());
    EXPECT_EQ(clock.sleeps(), std::vector<uint32_t>(30, 10)) << "behind the last one too";
}

TEST_F(RecordReplyTest, ABrokenLinkIsGivenUpAtOnce)
{
    manual_clock clock;
    mslink.failures = {ORB_ERROR_TRY_AGAIN, ORB_ERROR_TCP_SEND_ERR};
    command(whole_find_file());
    work();
    EXPECT_EQ(replies(), 0u);
    EXPECT_EQ(log.count("try again!", LOG_SYSTEM), 1u);
    EXPECT_EQ(log.count("err", LOG_SYSTEM), 1u);
    EXPECT_EQ(clock.sleeps(), std::vector<uint32_t>{10});
    EXPECT_EQ(s_fake_index.open_count(), 1u) << "the session stays";
}

TEST_F(RecordReplyTest, RecordsForABusyLinkAreSilentUntilTheyAreGivenUp)
{
    manual_clock clock;
    s_fake_index.records = {fake_record("a.rec")};
    open_search();
    mslink.failures.assign(29, ORB_ERROR_TRY_AGAIN);
    command(next(1, 1));
    work();
    EXPECT_EQ(replies(), 1u);
    EXPECT_EQ(log.count("try again!"), 0u);
    EXPECT_EQ(clock.sleeps(), std::vector<uint32_t>(29, 10));
    mslink.failures.assign(30, ORB_ERROR_TRY_AGAIN);
    command(next(1, 1));
    work();
    EXPECT_EQ(log.count("TRY_AGIAN_NUM == j", LOG_SYSTEM), 1u);
    mslink.failures = {ORB_ERROR_TCP_SEND_ERR};
    command(next(1, 1));
    work();
    EXPECT_EQ(log.count("err"), 0u);
    EXPECT_EQ(replies(), 1u);
    for (const log_line &line : log.lines())
        EXPECT_TRUE(line.level != LOG_SYSTEM || line.text == "TRY_AGIAN_NUM == j") << line.text;
}

// Threads that ask for the link table's lock.
class table_probe {
public:
    ~table_probe()
    {
        for (std::thread &asker : askers_)
            asker.join();
    }
    bool is_free_within(int ms)
    {
        std::atomic<bool> *had = &had_.emplace_back(false);
        askers_.emplace_back([had] {
            vodlinks_guard held;
            *had = true;
        });
        for (int i = 0; i < ms && !*had; i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return *had;
    }

private:
    std::deque<std::atomic<bool>> had_;
    std::vector<std::thread> askers_;
};

TEST_F(RecordReplyTest, TheTableIsHeldForEachSendAndLetGoOfBetweenThem)
{
    struct seen {
        table_probe probe;
        int held_sends = 0, free_sleeps = 0;
        std::atomic<uint64_t> tick = 1;
    } seen;
    os_clock clock = {[](void *user) -> uint64_t { return static_cast<struct seen *>(user)->tick; },
                      [](void *) -> int64_t { return 1; },
                      [](void *user, uint32_t ms) {
                          auto of = static_cast<struct seen *>(user);
                          of->free_sleeps += of->probe.is_free_within(5000);
                          of->tick += ms;
                      },
                      &seen};
    mslink.on_send = [&] { seen.held_sends += !seen.probe.is_free_within(30); };
    os_clock_install(&clock);
    for (const std::string &xml : {whole_find_file(), next(1, 1)}) {
        mslink.failures = {ORB_ERROR_TRY_AGAIN, ORB_ERROR_TRY_AGAIN};
        command(xml);
        work();
    }
    os_clock_install(nullptr);
    EXPECT_EQ(replies(), 2u);
    EXPECT_EQ(seen.held_sends, 6);
    EXPECT_EQ(seen.free_sleeps, 4);
}

TEST_F(RecordPieceTest, APieceThatCannotBeSentEndsTheReply)
{
    std::vector<sent_package> whole = reply_of(129025);
    ASSERT_EQ(whole.size(), 3u);
    command(whole_find_file());
    work();
    before = mslink.sent_count();
    mslink.failures = {0, ORB_ERROR_TCP_SEND_ERR};
    command(next(s_fake_index.last_id, 10000));
    work();
    EXPECT_EQ(pieces().size(), 1u);
    EXPECT_EQ(s_fake_index.open_count(), 2u);
}

TEST_F(RecordReplyTest, ALinkThatHasGoneGetsNothing)
{
    command(whole_find_file());
    disconnect(mslink);
    work();
    EXPECT_EQ(replies(), 0u);
    EXPECT_EQ(log.count("err", LOG_SYSTEM), 1u);
    EXPECT_EQ(s_fake_index.open_count(), 1u);
}

TEST_F(RecordReplyTest, TheNextClientOfASlotGetsNothingOfTheOneBefore)
{
    s_fake_index.records = {fake_record("a.rec")};
    open_search();
    command(whole_find_file());
    command(next(1, 1));
    int32_t slot = link_of(mslink)->index;
    disconnect(mslink);
    MsLink successor;
    read(successor, res_package(0x8006, ""));
    ASSERT_EQ(link_of(successor)->index, slot);
    size_t answered = successor.sent_count();
    work();
    EXPECT_EQ(successor.sent_count(), answered);
    EXPECT_EQ(replies(), 0u);
    read(successor, command_package(next(1, 1)));
    work();
    EXPECT_EQ(successor.sent_count(), answered + 1) << "its own";
}

// ---- Packages that cannot be built ----------------------------------------------------------------------------------

TEST_F(RecordReplyTest, WithoutAPackageForASearchTheProcessEnds)
{
    static int s_status;
    s_status = -1;
    os_exit_install([](int status) { s_status = status; });
    VodAsynRecUdata udata = {};
    VodAsynRec_FindFile found = {};
    found.success = 1;
    os_fault_arm(1);
    on_rec_operate_complete_file_find(&udata, &found, sizeof found);
    os_fault_disarm();
    EXPECT_EQ(s_status, 1);
    EXPECT_EQ(log.count_containing("[fatal] file: record_reply.cpp line: "), 1u);
    EXPECT_EQ(log.count_containing("!mp_build_package_ret_cmd_chs"), 1u);

    s_status = -1;
    VodAsynRec_GetFile opit = {};
    xml_library_init();
    // The calls before it are those of the document; which one is the package's is no matter here.
    for (int call = 1; call < 200 && s_status == -1; call++) {
        os_fault_arm(call);
        on_rec_operate_complate_get_file(&udata, &opit, sizeof opit);
        os_fault_disarm();
    }
    os_exit_install(nullptr);
    EXPECT_EQ(s_status, 1);
    EXPECT_EQ(log.count("!mp_build_package_ret_cmd_chs", LOG_FATAL), 1u);
    EXPECT_EQ(replies(), 0u);
}
