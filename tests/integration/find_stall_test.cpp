// Clients that ask and do not read what they are answered, beside one that does.
#include "tests/integration/find_fixture.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <deque>

class FindStallTest : public FindTest {
protected:
    static constexpr int RECORDS = 3000, SEARCHES = 100, PAGE = 50, PAGES_ASKED = 40, SEARCHES_ASKED = 60;
    // More than the queue of a connection holds.
    static constexpr int UNREAD_PAGE = 100;
    // Only to end what has failed already: each try of a reply that nobody takes used to hold up everybody for 300 ms.
    static constexpr double LONGEST_SECONDS = 4;

    FindStallTest() : FindTest(small_buffers()) {}
    // The host's own would hold all that a small index has.
    static service_settings small_buffers()
    {
        service_settings small = settings();
        small.ms_config = R"({"port": 0, "send_buffer_bytes": 16384, "max_queued_bytes": 65535})";
        return small;
    }
    std::vector<indexed_record> records() override
    {
        std::vector<indexed_record> made;
        for (int i = 0; i < RECORDS; i++)
            made.push_back({.path = "rec\\" + std::string(60, 'p') + std::to_string(i), .channel = 1});
        return made;
    }
    // Asks for many records and more, and takes nothing of it. The number of its search.
    void stall(raw_search &search, int *session)
    {
        ASSERT_TRUE(search.login(service.port()));
        *session = search.open();
        ASSERT_GT(*session, 0);
        for (int i = 0; i < PAGES_ASKED; i++)
            search.command(find_next_xml(*session, UNREAD_PAGE));
        for (int i = 0; i < SEARCHES_ASKED; i++)
            search.command(find_file_xml("recorder-1", -1, 0));
    }
    std::vector<double> seconds_of_searches(raw_search &search)
    {
        std::vector<double> seconds;
        for (int i = 0; i < SEARCHES; i++) {
            auto begun = std::chrono::steady_clock::now();
            int session = search.open();
            EXPECT_GT(session, 0) << i;
            EXPECT_EQ(names_in(search.next(session, PAGE)).size(), static_cast<size_t>(PAGE)) << i;
            seconds.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count());
            search.close_search(session);
            if (seconds.back() > LONGEST_SECONDS)
                break;
        }
        std::ranges::sort(seconds);
        return seconds;
    }
    void expect_others_are_answered_beside(size_t stalled)
    {
        std::deque<raw_search> hostile(stalled);
        int session = 0;
        for (raw_search &search : hostile)
            ASSERT_NO_FATAL_FAILURE(stall(search, &session));
        raw_search search;
        ASSERT_TRUE(search.login(service.port()));
        std::vector<double> seconds = seconds_of_searches(search);
        EXPECT_EQ(seconds.size(), static_cast<size_t>(SEARCHES));
        EXPECT_LT(seconds.back(), LONGEST_SECONDS);
        std::printf("beside %zu that do not read: median %.1f ms, 99 of 100 within %.1f ms, longest %.1f ms\n", stalled,
                    1000 * seconds[seconds.size() / 2], 1000 * seconds[seconds.size() - 1 - seconds.size() / 100], 1000 * seconds.back());
    }
};

TEST_F(FindStallTest, OneClientThatDoesNotReadHoldsUpNobody)
{
    expect_others_are_answered_beside(1);
}

TEST_F(FindStallTest, NorDoTen)
{
    expect_others_are_answered_beside(10);
}

TEST_F(FindStallTest, WhoReadsLateGetsEveryReplyWhole)
{
    raw_search late;
    int session = 0;
    ASSERT_NO_FATAL_FAILURE(stall(late, &session));
    raw_search other;
    ASSERT_TRUE(other.login(service.port()));
    seconds_of_searches(other);
    size_t found = 0;
    for (int i = 0; i < PAGES_ASKED; i++)
        found += names_in(late.reply()).size();
    EXPECT_GT(found, static_cast<size_t>(PAGE));
    for (int i = 0; i < SEARCHES_ASKED; i++)
        EXPECT_NE(late.reply().find("name=\"find_file\" result=\"ok\""), std::string::npos) << i;
    for (bool is_over = false; !is_over;) {
        std::string page = late.next(session, RECORDS);
        found += names_in(page).size();
        is_over = page.find("result=\"ok\"") == std::string::npos;
    }
    EXPECT_EQ(found, static_cast<size_t>(RECORDS));
}
