// Two client addresses, of which one takes all the searches that it can get.
#include "tests/integration/find_fixture.h"

class FindShareTest : public FindTest {
protected:
    static constexpr char OTHER_ADDRESS[] = "127.0.0.2"; // of this machine as well
    std::vector<indexed_record> records() override { return {{.path = "rec\\a.rec"}}; }
    size_t said(const std::string &text) const
    {
        size_t count = 0;
        const std::string log = service.log();
        for (size_t at = 0; (at = log.find(text, at)) != std::string::npos; at += text.size())
            count++;
        return count;
    }
};

TEST_F(FindShareTest, OneAddressThatTakesAllItCanLeavesTheOtherItsSearches)
{
    raw_search hostile[4], other;
    for (raw_search &search : hostile)
        ASSERT_TRUE(search.login(service.port()));
    int opened = 0;
    for (int i = 0; i < 1200; i++)
        opened += hostile[i % 4].open() > 0;
    EXPECT_EQ(opened, 128);
    ASSERT_TRUE(other.login(service.port(), 0x8006, OTHER_ADDRESS));
    for (int i = 0; i < 20; i++) {
        int session = other.open();
        ASSERT_GT(session, 0) << i;
        EXPECT_EQ(names_in(other.next(session, 5)), std::vector<std::string>{"rec\\a.rec"});
    }
    EXPECT_EQ(hostile[0].open(), 0);
    EXPECT_GE(said("is refused: 128 of its address are open;"), 1u);
}
