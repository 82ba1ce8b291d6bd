// The client's window: 1000 packages that it has not acknowledged.
#include "tests/integration/service_fixture.h"

class WindowTest : public ServiceTest {
protected:
    static constexpr int PACKAGES = 1600, WINDOW = 1000;
    void SetUp() override
    {
        ServiceTest::SetUp();
        made = make("big.rec", package_plan(PACKAGES));
        ASSERT_EQ(session.request(service.port(), "rec/big.rec"), 10);
        ASSERT_TRUE(session.get());
    }
    // Takes exactly `count` stream packages and shows that no more come.
    void expect_exactly(int count)
    {
        for (int i = 0; i < count; i++) {
            std::optional<data_package> package = session.data();
            ASSERT_TRUE(package && package->is_stream()) << i << " of " << count;
            received += package->bytes;
        }
        std::optional<data_package> more = session.data(300);
        EXPECT_FALSE(more) << "more than " << count;
    }
    made_recording made;
    raw_session session;
    std::string received;
};

TEST_F(WindowTest, AClientThatNeverAcknowledgesGetsAThousandPackages)
{
    expect_exactly(WINDOW);
    ASSERT_TRUE(session.get(0));
    for (int i = WINDOW; i < PACKAGES; i++)
        received += session.data().value_or(data_package{}).bytes;
    std::optional<data_package> end = session.data();
    EXPECT_TRUE(end && end->is_end());
    EXPECT_TRUE(received == bytes_from(made, made.frames[0]));
}

TEST_F(WindowTest, AnAcknowledgementSaysHowManyAreStillHeld)
{
    expect_exactly(WINDOW);
    ASSERT_TRUE(session.get(600));
    expect_exactly(400);
    ASSERT_TRUE(session.get(999));
    expect_exactly(1);
    ASSERT_TRUE(session.get(1000));
    ASSERT_TRUE(session.get(0xFFFFFFFF));
    expect_exactly(0);
    EXPECT_TRUE(received == bytes_from(made, made.frames[0]).substr(0, received.size()));
}

TEST_F(WindowTest, AcknowledgementsWithoutAWholeSessionIdChangeNothing)
{
    expect_exactly(WINDOW);
    session.send(raw_package(12, {}));
    session.send(raw_package(12, {{2, {0, 0}}}));
    session.send(raw_package(12, {{8, raw_u32(0)}}));
    expect_exactly(0);
}

TEST_F(WindowTest, AFullWindowHoldsUpNoCommand)
{
    expect_exactly(WINDOW);
    EXPECT_NE(session.control(16, 0).find("<value>1600</value>"), std::string::npos);
    EXPECT_NE(session.control(12, 50).find("result=\"ok\""), std::string::npos);
    // The package that waited comes first: it belongs to the old position.
    std::optional<data_package> package = session.data();
    ASSERT_TRUE(package && package->is_stream());
    EXPECT_EQ(package->bytes, made.frames[WINDOW].bytes);
    package = session.data();
    ASSERT_TRUE(package);
    EXPECT_EQ(package->marker, 0xEE);
    package = session.data();
    ASSERT_TRUE(package);
    EXPECT_EQ(package->bytes, made.key_at_byte(static_cast<int64_t>(made.bytes().size()) / 2).bytes);
}

TEST_F(WindowTest, EveryCommandIsAnsweredWhileDataFlows)
{
    for (int i = 0; i < 200; i++) {
        if (i % 20 == 0)
            session.get(0);
        std::string reply = session.control(16, 0);
        ASSERT_NE(reply.find("<value>1600</value>"), std::string::npos) << i << ": " << reply;
    }
}

TEST_F(WindowTest, AClientThatReadsNothingAtAllLeavesOthersAlone)
{
    play_result played = play_all(service.server(), "rec/big.rec");
    EXPECT_TRUE(played.reached_end);
    EXPECT_TRUE(played.bytes == file_of(made.path));
}
