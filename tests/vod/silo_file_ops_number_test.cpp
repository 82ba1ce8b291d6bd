// The numbers of searches at the end of their range, which only two thousand million searches would reach.
#include "vod/silo_file_ops.cpp"

#include "tests/silo_pool/index_fixture.h"

class SearchNumberTest : public IndexTest {
protected:
    static int32_t find()
    {
        int32_t number = 0;
        DVR_TIME time = {2024, 1, 1, 0, 0, 0};
        EXPECT_EQ(silo_db_find_file(nullptr, -1, 0, &time, &time, &number), 1);
        return number;
    }
};

TEST_F(SearchNumberTest, BehindTheGreatestNumberComesOneThatIsFree)
{
    int32_t one = find(), two = find();
    EXPECT_EQ(one, 1);
    EXPECT_EQ(two, 2);
    mod.id_hw = INT32_MAX - 1;
    EXPECT_EQ(find(), INT32_MAX);
    EXPECT_EQ(find(), 3);
    silo_db_find_close(1);
    mod.id_hw = INT32_MAX;
    EXPECT_EQ(find(), 1);
    mod.id_hw = -5;
    EXPECT_EQ(find(), 4) << "below 1 it starts at 1";
    for (int32_t number : {1, 2, 3, 4, INT32_MAX})
        EXPECT_EQ(silo_db_find_close(number), 1) << number;
}
