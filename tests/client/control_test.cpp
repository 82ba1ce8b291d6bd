// The control commands of a running playback.
#include "tests/client/fake_service.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

static const std::vector<uint8_t> HEAD(88, 0x5A);

class ControlTest : public testing::Test {
  protected:
    void open(uint32_t timeout_ms = 5000, bool start = true)
    {
        service.on(MP_CODE_REQUEST_RES, [](fake_service &self, MsLink *link, const seen_package &) {
            self.accept_playback(link, HEAD, 1088);
        });
        vodclient_play_request request;
        request.file = "x";
        ASSERT_TRUE(playback.open(service.server(timeout_ms), request));
        vodclient_event head;
        ASSERT_TRUE(playback.next(&head, 0));
        if (start) {
            ASSERT_TRUE(playback.start());
        }
    }
    void on_command(fake_service::handler action) { service.on(MP_CODE_SEND_CMD_CHS, std::move(action)); }
    void answer_all(const char *result, int value)
    {
        on_command([=](fake_service &self, MsLink *link, const seen_package &command) {
            self.reply_control(link, command, result, value);
        });
    }
    std::pair<std::string, std::string> last_command()
    {
        std::vector<seen_package> commands = service.seen(MP_CODE_SEND_CMD_CHS);
        if (commands.empty())
            return {};
        return {commands.back().xml_value("control_code"), commands.back().xml_value("value")};
    }
    vodclient_event_type next_type()
    {
        vodclient_event event;
        vodclient_result result = playback.next(&event, 5000);
        EXPECT_TRUE(result) << result.text;
        return result ? event.type : vodclient_event_type{};
    }

    fake_service service;
    vodclient_playback playback;
};

TEST_F(ControlTest, EachCallSendsItsCodeAndValue)
{
    open();
    answer_all("ok", -1);
    struct row {
        std::function<vodclient_result()> call;
        const char *code, *value;
    };
    int32_t reply = 0;
    const row rows[] = {
        {[&] { return playback.play(); }, "1", "0"},
        {[&] { return playback.seek_percent(50); }, "12", "50"},
        {[&] { return playback.get_percent(&reply); }, "13", "0"},
        {[&] { return playback.get_total_frames(&reply); }, "16", "0"},
        {[&] { return playback.get_total_seconds(&reply); }, "17", "0"},
        {[&] { return playback.reverse_from_second(3); }, "24", "3"},
        {[&] { return playback.seek_ms(1500); }, "25", "1500"},
        {[&] { return playback.seek_kilobyte(64); }, "30", "64"},
        {[&] { return playback.forward_from_second(4); }, "31", "4"},
        {[&] { return playback.seek_absolute_time(1'700'000'001); }, "34", "1700000001"},
        {[&] { return playback.forward_from_ms(2500); }, "35", "2500"},
        {[&] { return playback.reverse_from_ms(3500); }, "36", "3500"},
        {[&] { return playback.control(2, -7, nullptr); }, "2", "-7"},
    };
    for (const row &of : rows) {
        vodclient_result result = of.call();
        EXPECT_TRUE(result) << of.code << ": " << result.text;
        EXPECT_EQ(last_command(), (std::pair<std::string, std::string>(of.code, of.value)));
    }
}

TEST_F(ControlTest, QuestionsGiveTheReplysValue)
{
    open();
    answer_all("ok", 1234);
    int32_t value = 0;
    ASSERT_TRUE(playback.get_total_frames(&value));
    EXPECT_EQ(value, 1234);
}

TEST_F(ControlTest, AnErrorReplyIsARefusalWithTheServicesNumber)
{
    open();
    answer_all("error", 0x1000028);
    int32_t value = 55;
    vodclient_result result = playback.control(12, 50, &value);
    EXPECT_EQ(result.status, VODCLIENT_REFUSED);
    EXPECT_EQ(result.error_code, 0x1000028u);
    EXPECT_NE(result.text.find("control code 12"), std::string::npos) << result.text;
    EXPECT_EQ(value, 55);
}

TEST_F(ControlTest, AnErrorReplyWithoutANumberStillSaysWhichCode)
{
    open();
    answer_all("error", 0);
    vodclient_result result = playback.control(99, 0, nullptr);
    EXPECT_EQ(result.status, VODCLIENT_REFUSED);
    EXPECT_EQ(result.error_code, 0u);
    EXPECT_EQ(result.text, "the service refused control code 99");
}

TEST_F(ControlTest, ActionsNeedTheDataToFlowQuestionsDoNot)
{
    open(5000, false);
    answer_all("ok", 9);
    EXPECT_EQ(playback.seek_percent(50).status, VODCLIENT_WRONG_STATE);
    EXPECT_EQ(playback.play().status, VODCLIENT_WRONG_STATE);
    EXPECT_EQ(playback.reverse_from_ms(1).status, VODCLIENT_WRONG_STATE);
    EXPECT_TRUE(service.seen(MP_CODE_SEND_CMD_CHS).empty());
    int32_t seconds = 0;
    EXPECT_TRUE(playback.get_total_seconds(&seconds));
    EXPECT_EQ(seconds, 9);
}

TEST_F(ControlTest, ALateReplyIsNotTakenForTheNextOne)
{
    open(300);
    std::atomic<int> commands{0};
    on_command([&](fake_service &self, MsLink *link, const seen_package &command) {
        static seen_package s_first;
        if (commands++ == 0) {
            s_first = command;
            return;
        }
        self.reply_control(link, s_first, "ok", 111);
        self.reply_control(link, command, "ok", 222);
    });
    int32_t value = 0;
    EXPECT_EQ(playback.get_percent(&value).status, VODCLIENT_TIMEOUT);
    ASSERT_TRUE(playback.get_percent(&value));
    EXPECT_EQ(value, 222);
}

TEST_F(ControlTest, UnreadableRepliesAreBadReplies)
{
    open();
    for (const char *text :
         {"", "not xml", "<command_return name=\"download_control\" result=\"ok\"><value>1</value></command_return>",
          "<command_return name=\"playback_control\" result=\"ok\"></command_return>"}) {
        on_command(
            [=](fake_service &self, MsLink *link, const seen_package &command) { self.reply(link, command, text); });
        EXPECT_EQ(playback.get_percent(nullptr).status, VODCLIENT_BAD_REPLY) << text;
    }
}

TEST_F(ControlTest, ASeekDropsOldDataAndTellsWhereNewDataBegins)
{
    open();
    on_command([](fake_service &self, MsLink *link, const seen_package &command) {
        self.data(link, {'o'});
        self.reply_control(link, command, "ok", -1);
        self.data(link, {'o'});
        self.data(link, {}, 0xEE);
        self.data(link, {'n'});
    });
    ASSERT_TRUE(playback.seek_percent(50));
    EXPECT_EQ(next_type(), VODCLIENT_EVENT_SEEK_DONE);
    vodclient_event event;
    ASSERT_TRUE(playback.next(&event, 5000));
    ASSERT_EQ(event.type, VODCLIENT_EVENT_STREAM);
    EXPECT_EQ(event.data[0], 'n');
}

TEST_F(ControlTest, ASeekWhoseMarkOvertakesTheReplyDropsOldDataToo)
{
    open();
    on_command([](fake_service &self, MsLink *link, const seen_package &command) {
        self.data(link, {'o'});
        self.data(link, {}, 0xEE);
        self.data(link, {'n'});
        self.reply_control(link, command, "ok", -1);
    });
    ASSERT_TRUE(playback.seek_ms(1000));
    EXPECT_EQ(next_type(), VODCLIENT_EVENT_SEEK_DONE);
    vodclient_event event;
    ASSERT_TRUE(playback.next(&event, 5000));
    EXPECT_EQ(event.data[0], 'n');
}

TEST_F(ControlTest, ARefusedSeekDropsNothing)
{
    open();
    on_command([](fake_service &self, MsLink *link, const seen_package &command) {
        self.data(link, {'o'});
        self.reply_control(link, command, "error", 0);
        self.data(link, {'o'});
    });
    EXPECT_EQ(playback.seek_percent(50).status, VODCLIENT_REFUSED);
    EXPECT_EQ(next_type(), VODCLIENT_EVENT_STREAM);
    EXPECT_EQ(next_type(), VODCLIENT_EVENT_STREAM);
}

TEST_F(ControlTest, AChangeOfDirectionKeepsOldDataAsItMayDoNothing)
{
    open();
    on_command([](fake_service &self, MsLink *link, const seen_package &command) {
        self.data(link, {'o'});
        self.reply_control(link, command, "ok", -1);
        self.data(link, {'o'});
    });
    ASSERT_TRUE(playback.forward_from_ms(0));
    EXPECT_EQ(next_type(), VODCLIENT_EVENT_STREAM);
    EXPECT_EQ(next_type(), VODCLIENT_EVENT_STREAM);
}

TEST_F(ControlTest, CommandsFromSeveralThreadsEachGetTheirOwnReply)
{
    open();
    on_command([](fake_service &self, MsLink *link, const seen_package &command) {
        self.reply_control(link, command, "ok", std::stoi(command.xml_value("value")) + 1000);
    });
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int thread = 0; thread < 4; thread++)
        threads.emplace_back([&, thread] {
            for (int round = 0; round < 25; round++) {
                int32_t asked = thread * 100 + round, value = 0;
                if (!playback.control(13, asked, &value) || value != asked + 1000)
                    wrong++;
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST_F(ControlTest, ClosingEndsACommandThatWaits)
{
    open(60'000);
    std::thread closer([&] {
        service.wait_for(MP_CODE_SEND_CMD_CHS, 1);
        playback.close();
    });
    EXPECT_EQ(playback.get_percent(nullptr).status, VODCLIENT_LOST);
    closer.join();
}
