// The table of control codes in docs/protocol.md, cell by cell, against a running service: what a command does before
// the first get, while data flows, at the end and after a stop, forwards and backwards.
#include "tests/integration/service_fixture.h"
#include "tests/support/document.h"

#include "platform/os/os.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <map>

namespace {

constexpr int FRAMES = 20; // one a second, each a key frame and a package of its own
constexpr uint32_t WINDOW = 1000, LEFT_OPEN = 10;
constexpr char HEADER[] = "| code | count | before the first get | forwards | forwards, at the end | backwards | "
                          "backwards, at the end | stopped | closed |";
// Columns behind "code" and "count", in the document's order.
const char *const STATES[] = {"before the first get",  "forwards", "forwards, at the end", "backwards",
                              "backwards, at the end", "stopped",  "closed"};

// A command and where it leads: the frame that comes first.
struct wanted {
    int code, value;
    uint32_t frame;
};

using frame_numbers = std::vector<uint32_t>;

frame_numbers counted(uint32_t first, bool backwards)
{
    frame_numbers numbers;
    for (uint32_t number = first; number >= 1 && number <= FRAMES; backwards ? number-- : number++)
        numbers.push_back(number);
    return numbers;
}

} // namespace

class ControlTableTest : public ServiceTest, public testing::WithParamInterface<const char *> {
protected:
    void SetUp() override
    {
        ServiceTest::SetUp();
        recording_plan plan;
        plan.frames = FRAMES;
        plan.gop = plan.frame_rate = 1;
        plan.key_bytes = 25'000;
        made = make("table.rec", plan);
    }

    // ---- Into a state, with the window full wherever data could flow

    void accepted()
    {
        auto file_block = raw_join({raw_u16(2026), raw_u16(1), raw_u16(1), raw_u16(8), raw_u16(0), raw_u16(0),
                                    std::vector<uint8_t>(28), raw_text("rec/table.rec")});
        ASSERT_TRUE(session->client().connect(service.port()));
        ASSERT_TRUE(session->send(raw_request(0x8001, 0, file_block)));
        ASSERT_FALSE(session->client().receive_code(10).empty());
    }
    void forwards_at_the_end()
    {
        accepted();
        session->get();
        EXPECT_EQ(numbers_to_the_end(), counted(1, false));
        session->get(WINDOW);
    }
    void backwards_at_the_end()
    {
        forwards_at_the_end();
        session->get(0);
        EXPECT_NE(session->control(36, 0).find("\"ok\""), std::string::npos);
        expect_mark();
        EXPECT_EQ(numbers_to_the_end(), frame_numbers{1});
        session->get(WINDOW);
        is_backwards = true;
    }
    // The mark and the packages that fit into the window behind it.
    void running(int code, int value)
    {
        session->get(WINDOW - LEFT_OPEN);
        EXPECT_NE(session->control(code, value).find("\"ok\""), std::string::npos);
        expect_mark();
        for (uint32_t i = 1; i < LEFT_OPEN; i++)
            last_sent = number_of(session->data());
        is_running = true;
    }
    void enter(const std::string &state)
    {
        session.emplace();
        is_backwards = is_running = false;
        if (state == "before the first get")
            return accepted();
        if (state.starts_with("backwards, "))
            return backwards_at_the_end();
        if (state == "forwards") {
            backwards_at_the_end();
            running(35, 0);
            is_backwards = false;
            return;
        }
        forwards_at_the_end();
        if (state == "backwards") {
            running(36, 1000 * FRAMES);
            is_backwards = true;
        } else if (state == "stopped") {
            session->send(raw_stop());
        } else if (state == "closed") {
            session->send(raw_command(7, STOP_PLAYBACK_XML));
        }
    }

    // ---- What comes

    uint32_t number_of(const std::optional<data_package> &package) const
    {
        if (!package || !package->is_stream())
            return 0;
        std::vector<played_frame> frames = frames_of(package->bytes);
        return frames.size() == 1 ? frames[0].number : 0;
    }
    frame_numbers numbers_to_the_end()
    {
        frame_numbers numbers;
        for (;;) {
            std::optional<data_package> package = session->data();
            if (!package || package->is_end())
                return package ? numbers : frame_numbers{0};
            numbers.push_back(number_of(package));
        }
    }
    // Of what flowed before, one package may have been on its way.
    void expect_mark()
    {
        std::optional<data_package> package = session->data();
        if (is_running && package && package->is_stream())
            package = session->data();
        ASSERT_TRUE(package);
        EXPECT_EQ(package->marker, 0xEE);
        EXPECT_EQ(package->bytes, "");
    }
    void expect_silence()
    {
        std::optional<data_package> package = session->data(100);
        EXPECT_FALSE(package) << "marker " << int{package->marker} << ", " << package->bytes.size() << " bytes";
    }

    // ---- The words of the table

    void moves(const wanted &command)
    {
        expect_mark();
        EXPECT_EQ(numbers_to_the_end(), counted(command.frame, is_backwards));
    }
    void turns(const wanted &command)
    {
        expect_silence(); // the window is as full as before
        session->get(0);
        is_backwards = !is_backwards;
        moves(command);
    }
    void nothing(const wanted &)
    {
        expect_silence();
        session->get(0);
        if (is_running) {
            EXPECT_EQ(numbers_to_the_end(), counted(is_backwards ? last_sent - 1 : last_sent + 1, is_backwards));
        } else if (GetParam() == std::string("before the first get")) {
            EXPECT_EQ(numbers_to_the_end(), counted(1, false));
        }
        expect_silence();
    }
    void lost(const wanted &command)
    {
        std::optional<data_package> package = session->data();
        EXPECT_TRUE(package && package->is_end());
        session->get();
        expect_silence();
        is_backwards = command.code == 24 || command.code == 36;
        EXPECT_NE(session->control(25, 0).find("\"ok\""), std::string::npos);
        moves({25, 0, 1});
    }
    void silent(const wanted &)
    {
        expect_silence();
        session->get(0);
        expect_silence();
    }
    void check_cell(const std::string &word, const wanted &command)
    {
        bool is_question = command.code == 13 || command.code == 16 || command.code == 17;
        std::string reply = session->control(command.code, command.value);
        std::string value = std::to_string(is_question ? static_cast<int>(command.frame) : -1);
        EXPECT_NE(reply.find(word == "error" ? "\"error\"" : "\"ok\""), std::string::npos) << reply;
        EXPECT_TRUE(word == "error" || reply.find("<value>" + value + "</value>") != std::string::npos) << reply;
        const std::map<std::string, void (ControlTableTest::*)(const wanted &)> words = {
            {"moves", &ControlTableTest::moves},     {"turns", &ControlTableTest::turns},
            {"nothing", &ControlTableTest::nothing}, {"answer", &ControlTableTest::nothing},
            {"lost", &ControlTableTest::lost},       {"silent", &ControlTableTest::silent},
            {"error", &ControlTableTest::silent}};
        auto check = words.find(word);
        ASSERT_NE(check, words.end()) << word;
        // What fails and what is answered changes nothing: the same as "nothing", unless nothing can be sent any more.
        bool is_over = GetParam() == std::string("stopped") || GetParam() == std::string("closed");
        if ((word == "error" || word == "answer") && !is_over)
            return nothing(command);
        if (word == "answer" || word == "nothing")
            return is_over ? silent(command) : nothing(command);
        (this->*check->second)(command);
    }

    std::vector<wanted> commands_of(const std::string &codes) const
    {
        using namespace std::chrono;
        auto start = duration_cast<seconds>((sys_days{2026y / January / 1} + 8h).time_since_epoch()).count();
        const std::vector<wanted> known = {
            {1, 0, 0},
            {12, 50, made.key_at_byte(static_cast<int64_t>(made.bytes().size()) / 2).number},
            {13, 0, 0},
            {16, 0, FRAMES},
            {17, 0, FRAMES},
            {24, 5, 6},
            {25, 5500, 6},
            {30, 250, made.key_at_byte(250 * 1024).number},
            {31, 5, 6},
            {34, static_cast<int>(start) + 5, 6},
            {35, 5500, 6},
            {36, 5500, 6}};
        if (codes == "others")
            return {{0, 1, 0}, {2, 1, 0}, {5, 1, 0}, {8, 1, 0}, {14, 1, 0}, {37, 1, 0}, {-1, 1, 0}};
        std::vector<wanted> commands;
        for (const std::string &code : parts_of(codes, ","))
            for (const wanted &command : known)
                if (std::to_string(command.code) == code)
                    commands.push_back(command);
        return commands;
    }

    made_recording made;
    std::optional<raw_session> session;
    bool is_backwards = false, is_running = false;
    uint32_t last_sent = 0;
};

TEST_P(ControlTableTest, EachCodeDoesWhatTheDocumentSays)
{
    size_t column = 2 + static_cast<size_t>(std::ranges::find(STATES, std::string(GetParam())) - STATES);
    size_t commands = 0;
    for (const std::vector<std::string> &row : table_of(document("protocol.md"), HEADER)) {
        ASSERT_EQ(row.size(), 2 + std::size(STATES)) << row[0];
        for (const wanted &command : commands_of(row[0])) {
            SCOPED_TRACE(testing::Message() << "code " << command.code << ", " << GetParam() << ": " << row[column]);
            // What opens the window shows at once what it moved, what does not waits for an acknowledgement.
            if (row[column] == "moves" || row[column] == "turns") {
                EXPECT_EQ(row[1], row[column] == "moves" ? "0" : "stays");
            }
            commands++;
            enter(GetParam());
            check_cell(row[column], command);
        }
    }
    EXPECT_EQ(commands, 19u) << "twelve codes that are known and seven that are not";
}

INSTANTIATE_TEST_SUITE_P(States, ControlTableTest, testing::ValuesIn(STATES), [](const auto &state) {
    std::string name;
    for (char c : std::string(state.param))
        if (std::isalpha(static_cast<unsigned char>(c)))
            name += c;
    return name;
});
