// A recording that nobody takes is read at the player's own pace, not at that of the disk.
#include "tests/integration/service_fixture.h"

#include "platform/os/os.h"

#include <chrono>
#include <thread>

using namespace std::chrono_literals;

class RefusedDataTest : public ServiceTest {
protected:
    static constexpr uint64_t PACKAGE = 49152;
    void SetUp() override
    {
        ServiceTest::SetUp();
        made = make("big.rec", package_plan(1200)); // 30 MB
        ASSERT_EQ(session.request(service.port(), "rec/big.rec"), 10);
    }
    void measure_begin()
    {
        before = service.figures().read_bytes;
        started_at = os_tick();
    }
    // A package for each millisecond and each request, what seeks look at, and some more.
    void expect_paced(uint64_t requests) const
    {
        const uint64_t read = service.figures().read_bytes - before, ms = os_tick() - started_at;
        const uint64_t paced = (ms + requests + 10) * PACKAGE, sought = requests * (512 << 10);
        EXPECT_LT(read, paced + sought) << "in " << ms << " ms, of " << made.bytes().size() << " bytes";
    }
    raw_session session;
    made_recording made;
    uint64_t before = 0, started_at = 0;
};

TEST_F(RefusedDataTest, PlayBetweenAcceptAndGetLeavesTheRecording)
{
    measure_begin();
    session.control(25, 0);
    std::this_thread::sleep_for(5ms);
    expect_paced(1);
    ASSERT_TRUE(session.get());
    std::optional<data_package> package = session.data();
    ASSERT_TRUE(package);
    EXPECT_TRUE(package->is_stream()) << "not the end";
}

TEST_F(RefusedDataTest, SeeksBehindAStopDoNotReadTheRecordingAgainAndAgain)
{
    ASSERT_TRUE(session.get());
    ASSERT_TRUE(session.data());
    ASSERT_TRUE(session.send(raw_stop()));
    std::this_thread::sleep_for(100ms); // what is on its way by then is not looked at
    measure_begin();
    for (uint64_t i = 0; i < 50; i++) {
        session.control(12, 0);
        std::this_thread::sleep_for(10ms);
    }
    expect_paced(50);
}
