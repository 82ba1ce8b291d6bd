// What the words around the table of control codes say.
#include "tests/integration/service_fixture.h"

class ControlOrderTest : public ServiceTest {};

TEST_F(ControlOrderTest, AStopWhileDataFlowsIsFollowedByOneEmptyPackage)
{
    make("long.rec", package_plan(200));
    raw_session session;
    ASSERT_EQ(session.request(service.port(), "rec/long.rec"), 10);
    session.get();
    ASSERT_TRUE(session.data()); // it flows
    session.send(raw_stop());
    session.get(0); // not looked at any more
    std::optional<data_package> package;
    do
        package = session.data();
    while (package && package->is_stream());
    EXPECT_TRUE(package && package->is_end());
    EXPECT_FALSE(session.data(100));
}

TEST_F(ControlOrderTest, PlayAtTheEndGoesOnWhereTheRecordingHasGrown)
{
    recording_plan plan;
    plan.gop = 1;
    recording_grower grower(service.folder().file("rec/live.rec"), plan);
    grower.add_frames(3);
    raw_session session;
    ASSERT_EQ(session.request(service.port(), "rec/live.rec"), 10);
    session.get();
    while (std::optional<data_package> package = session.data())
        if (package->is_end())
            break;
    grower.add_frames(1);
    EXPECT_FALSE(session.data(100));
    EXPECT_NE(session.control(1, 0).find("\"ok\""), std::string::npos);
    std::optional<data_package> package = session.data();
    ASSERT_TRUE(package && package->is_stream());
    EXPECT_EQ(package->bytes, grower.made().frames[3].bytes);
    package = session.data();
    EXPECT_TRUE(package && package->is_end());
}
