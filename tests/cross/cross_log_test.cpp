// The log of the same sessions reads the same on every host.
#include "tests/cross/cross_programs.h"
#include "tests/integration/play_session.h"

#include <algorithm>
#include <regex>
#include <sstream>

class CrossLogTest : public CrossTest {
protected:
    // One session that plays, questions, and what is refused.
    static void talk(const vodclient_server &server)
    {
        EXPECT_TRUE(play_all(server, "rec\\even.rec").reached_end);
        EXPECT_FALSE(play_all(server, "rec\\none.rec").result);
        EXPECT_FALSE(play_all(server, "etc/conf/vod_config.json").result);
        EXPECT_EQ(link_counters(server).size(), 5u);
        std::string state;
        EXPECT_TRUE(vodclient_link_state(server, VODCLIENT_STATE_FROM_NET, &state));
    }
    // Lines without what differs from run to run: dates, numbers of threads, links and ports, folders.
    static std::vector<std::string> lines_of(const std::string &log)
    {
        static const std::regex date(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})"),
            address(R"(0x[0-9a-fA-F]+|\b[0-9a-fA-F]{16}\b)"), folder(R"([A-Z]?:?[/\\]+tmp[/\\]+vod_test_\d+)"),
            number(R"(\b\d+\b)");
        std::vector<std::string> lines;
        std::istringstream text(log);
        for (std::string line; std::getline(text, line);) {
            line = std::regex_replace(std::regex_replace(line, date, "DATE"), folder, "FOLDER");
            lines.push_back(std::regex_replace(std::regex_replace(line, address, "N"), number, "N"));
        }
        // What several threads say at once has no order.
        std::ranges::sort(lines);
        lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
        return lines;
    }
    static std::string log_of(program_host host)
    {
        cross_service service(host);
        if (!service.start())
            return {};
        recording_plan plan;
        plan.frames = 60;
        make_recording(service.folder().file("rec/even.rec"), plan);
        talk(service.server());
        service.end();
        return service.log();
    }
};

TEST_F(CrossLogTest, TheSameSessionsWriteTheSameLines)
{
    std::vector<std::string> ours = lines_of(log_of(program_host::posix)),
                             theirs = lines_of(log_of(program_host::windows));
    EXPECT_GT(ours.size(), 10u);
    EXPECT_EQ(ours, theirs);
}
