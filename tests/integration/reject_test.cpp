// What is left of a connection whose request was rejected, and how long a name may be.
#include "tests/integration/service_fixture.h"

#include "platform/ms/ms.h"

class RejectTest : public ServiceTest {
protected:
    // The block of a playback, download or upload: nothing but its mode, then the name.
    static std::vector<uint8_t> file_block(uint16_t mode, const std::string &name)
    {
        return raw_join({std::vector<uint8_t>(38), raw_u16(mode), raw_text(name)});
    }
    // The code of the reject, 0 when there is no answer, 1 for an accept.
    static uint32_t answer_to(raw_client *client, uint16_t kind, const std::vector<uint8_t> &block)
    {
        client->send(raw_request(kind, 0, block));
        std::vector<uint8_t> answer = client->receive(2000);
        if (answer.empty())
            return 0;
        return answer[offsetof(MpPackHead, code)] == MP_CODE_REJECT_RES ? reject_code_of(answer) : 1;
    }
};

TEST_F(RejectTest, AConnectionIsClosedWhereItsLinkIsAndStaysOpenWhereThereWasNone)
{
    make("a.rec");
    enum rest { CLOSED, OPEN, DEAF };
    const struct {
        uint16_t kind, mode;
        std::string name;
        uint32_t code;
        rest left;
    } rows[] = {
        {0x8001, 0, "rec/none.rec", 0x1000028, CLOSED},
        {0x8001, 0, "", 0x1000028, CLOSED}, // by time
        {0x8001, 5, "", 0x1000028, CLOSED}, // slices
        {0x8001, 65534, "rec/a.rec", 0x100003d, OPEN},
        {0x8001, 65535, "", 0x100003d, OPEN},
        {0x8001, 0, std::string(260, 'x'), 0x1000027, OPEN},
        {0x8002, 0, "rec/a.rec", 0x1000028, CLOSED},
        {0x8002, 0, "", 0x1000028, CLOSED},
        {0x8002, 0, std::string(260, 'x'), 0x1000027, OPEN},
        {0x8005, 0, "a.rec", 0x100002e, DEAF},
        {0x8005, 0, std::string(260, 'x'), 0x1000027, OPEN},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.kind << " mode " << row.mode << " " << row.name);
        raw_client client;
        ASSERT_TRUE(client.connect(service.port()));
        EXPECT_EQ(answer_to(&client, row.kind, file_block(row.mode, row.name)), row.code);
        if (row.left == CLOSED) {
            EXPECT_TRUE(client.is_closed_within());
            continue;
        }
        EXPECT_EQ(answer_to(&client, 0x8001, file_block(0, "rec/a.rec")), row.left == OPEN ? 1u : 0u);
    }
}

TEST_F(RejectTest, WithoutAFreeLinkTheConnectionMayAskAgain)
{
    make("a.rec");
    service_process small({.vod_config = R"({"max_num": 1})"});
    ASSERT_TRUE(small.start());
    make_recording(small.folder().file("rec/a.rec"));
    raw_session first;
    ASSERT_EQ(first.request(small.port(), "rec/a.rec"), 10);
    raw_client second;
    ASSERT_TRUE(second.connect(small.port()));
    EXPECT_EQ(answer_to(&second, 0x8001, file_block(0, "rec/a.rec")), 0x1000008u);
    first.client().close();
    uint32_t answer = 0;
    for (int i = 0; i < 200 && answer != 1; i++)
        answer = answer_to(&second, 0x8001, file_block(0, "rec/a.rec"));
    EXPECT_EQ(answer, 1u);
}

TEST_F(RejectTest, ANameHasUpTo259BytesAndIsOpenedUpTo255)
{
    make("a.rec");
    const struct {
        size_t bytes;
        uint32_t code;
    } rows[] = {{255, 1}, {256, 0x1000028}, {259, 0x1000028}, {260, 0x1000027}};
    for (const auto &row : rows) {
        std::string name = "rec/";
        while (name.size() + 6 < row.bytes) // "./" and "/a.rec", which differ by one where the length does
            name += "./";
        name += name.size() + 5 < row.bytes ? "/a.rec" : "a.rec";
        ASSERT_EQ(name.size(), row.bytes);
        raw_client client;
        ASSERT_TRUE(client.connect(service.port()));
        EXPECT_EQ(answer_to(&client, 0x8001, file_block(0, name)), row.code) << row.bytes;
    }
}
