// The bytes that a client receives do not depend on the service's host.
#include "tests/cross/cross_programs.h"
#include "tests/integration/play_session.h"

#include "platform/ms/ms.h"

#include <algorithm>

class CrossWireTest : public CrossTest {
protected:
    using packages = std::vector<std::vector<uint8_t>>;
    // Everything that `talk` makes a service of this host say, in its order.
    template <class Talk> static packages said_by(program_host host, Talk talk)
    {
        cross_service service(host);
        packages said;
        if (!service.start())
            return said;
        recording_plan plan;
        plan.frames = 110;
        make_recording(service.folder().file("rec/even.rec"), plan);
        talk(service.port(), &said);
        service.end();
        return said;
    }
    // `count`: how many packages there must be at least.
    template <class Talk> static void expect_the_same(size_t count, Talk talk)
    {
        packages ours = said_by(program_host::posix, talk), theirs = said_by(program_host::windows, talk);
        // A reply overtakes the data that is on its way, or does not.
        for (packages *said : {&ours, &theirs})
            std::ranges::stable_partition(*said, is_reply);
        EXPECT_GE(ours.size(), count);
        ASSERT_EQ(ours.size(), theirs.size());
        for (size_t i = 0; i < ours.size(); i++)
            EXPECT_TRUE(ours[i] == theirs[i])
                << "package " << i << ": " << testing::PrintToString(ours[i]) << testing::PrintToString(theirs[i]);
    }
    static bool is_reply(const std::vector<uint8_t> &package)
    {
        return package.size() > offsetof(MpPackHead, code) &&
               package[offsetof(MpPackHead, code)] == MP_CODE_RET_CMD_CHS;
    }
    static bool is_end(const std::vector<uint8_t> &package)
    {
        return package[offsetof(MpPackHead, code)] == MP_CODE_SEND_RES &&
               package.size() == sizeof(MpPackHead) + sizeof(MpAttrHead) && package[sizeof(MpPackHead) + 1] == 0;
    }
    // What comes until the end of the recording, the end included.
    static void hear_to_end(raw_client *client, packages *said)
    {
        do
            said->push_back(client->receive(20'000));
        while (!said->back().empty() && !is_end(said->back()));
    }
    static void ask(uint16_t port, const std::vector<uint8_t> &request, packages *said)
    {
        raw_client client;
        ASSERT_TRUE(client.connect(port) && client.send(request));
        said->push_back(client.receive(10'000));
    }
};

TEST_F(CrossWireTest, APlaybackWithSeeksAndQuestions)
{
    expect_the_same(20, [](uint16_t port, packages *said) {
        raw_client client;
        ASSERT_TRUE(client.connect(port) && client.send(play_request("rec\\even.rec")));
        said->push_back(client.receive(10'000));
        client.send(raw_get());
        hear_to_end(&client, said);
        for (auto [code, value] : {std::pair{13, 0}, {16, 0}, {17, 0}, {99, 1}}) {
            client.send(raw_command(7, control_xml(code, value)));
            said->push_back(client.receive(10'000));
        }
        for (auto [code, value] : {std::pair{12, 50}, {25, 1999}, {30, 300}, {36, 3000}}) {
            client.send(raw_command(7, control_xml(code, value)));
            hear_to_end(&client, said);
        }
    });
}

TEST_F(CrossWireTest, LoginsCountersAndState)
{
    expect_the_same(5, [](uint16_t port, packages *said) {
        raw_client client;
        ASSERT_TRUE(client.connect(port) && client.send(raw_request(0x8012, 0, {})));
        said->push_back(client.receive(10'000));
        client.send(raw_get());
        said->push_back(client.receive(10'000));
        for (int type = 0; type < 5; type++) {
            client.send(raw_command(77, "<?xml version=\"1.0\"?><command name=\"get_vod_link_num\"><type>" +
                                            std::to_string(type) + "</type></command>"));
            said->push_back(client.receive(10'000));
        }
        ask(port, raw_request(0x8003, 0, raw_text("from_net.xml")), said);
        ask(port, raw_request(0x8003, 0, raw_text("rec\\state.xml")), said);
    });
}

TEST_F(CrossWireTest, RefusalsOfEveryKind)
{
    expect_the_same(6, [](uint16_t port, packages *said) {
        for (std::string name :
             {std::string("rec/none.rec"), std::string("rec"), std::string("none/x/y.rec"),
              std::string("etc/conf/vod_config.json"), std::string("rec/%s%n.rec"), "rec/" + std::string(250, 'a')})
            ask(port, play_request(name), said);
    });
}
