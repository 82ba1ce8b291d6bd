#include "tests/os/log_fixture.h"
#include "tests/support/environment.h"
#include "tests/support/host.h"
#include "tests/support/log_capture.h"
#include "tests/support/manual_clock.h"

#include <array>
#include <filesystem>
#include <gmock/gmock.h>
#include <thread>

using testing::ElementsAre;
using testing::EndsWith;
using testing::MatchesRegex;

TEST_F(OsLog, LineHasDateLevelPlaceAndText)
{
    environment_zone("CST-8");
    manual_clock clock(1704067200);
    clock.advance(123);
    open(LOG_TRACE);
    log_debug_ex(LOG_REFUSE, "link_table.cpp", 42, "vodlink == %s", "NULL");
    os_log_flush();
    std::ifstream in(folder_.path() / "log.txt");
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "2024-01-01 08:00:00.123 [2] link_table.cpp:42 vodlink == NULL");
}

TEST_F(OsLog, BytesOfTheFileAreTheSameOnEveryHost)
{
    environment_zone("CST-8");
    manual_clock clock(1704067200);
    open(LOG_TRACE);
    log_debug_ex(LOG_TRACE, "vod.cpp", 7, "%s", "通道\r\n\t%d\\");
    log_debug_ex(LOG_FATAL, "vod.cpp", 65535, "len = %d, %llu", -1, 18446744073709551615ull);
    log_buf_lock();
    log_buf_date();
    log_buf_msg("[info] file: %s line: %d ", "vod.cpp", 9);
    log_buf_msg_unlock("s_lst_findfds == NULL");
    os_log_flush();
    std::ifstream in(folder_.path() / "log.txt", std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    EXPECT_EQ(bytes, "2024-01-01 08:00:00.000 [1] vod.cpp:7 通道\\x0d\\x0a\\x09%d\\\n"
                     "2024-01-01 08:00:00.000 [5] vod.cpp:65535 len = -1, 18446744073709551615\n"
                     "2024-01-01 08:00:00.000 [2] [info] file: vod.cpp line: 9 s_lst_findfds == NULL\n");
}

TEST_F(OsLog, LevelsBelowAreNotWritten)
{
    open(LOG_PACKAGE);
    for (int level = LOG_TRACE; level <= LOG_FATAL; level++) {
        EXPECT_EQ(os_log_enabled(level), level >= LOG_PACKAGE);
        log_debug_ex(level, "u", level, "level %d", level);
    }
    EXPECT_THAT(lines(), ElementsAre("[3] u:3 level 3", "[4] u:4 level 4", "[5] u:5 level 5"));
}

TEST_F(OsLog, LevelStartsAtTwo)
{
    EXPECT_EQ(os_log_enabled(LOG_TRACE), 0);
    EXPECT_EQ(os_log_enabled(LOG_REFUSE), 1);
}

TEST_F(OsLog, ControlBytesAreEscaped)
{
    open(LOG_REFUSE);
    log_debug_ex(LOG_REFUSE, "u", 1, "%s", "a\nb\r\tc\x1b[31m\x7f %d 通");
    log_debug_ex(LOG_REFUSE, "bad\nunit", 2, "x");
    EXPECT_THAT(lines(), ElementsAre("[2] u:1 a\\x0ab\\x0d\\x09c\\x1b[31m\\x7f %d 通", "[2] bad\\x0aunit:2 x"));
}

TEST_F(OsLog, CharactersThatSteerOrTurnTheLineRoundAreEscaped)
{
    struct row {
        const char *text, *written;
    };
    const row rows[] = {
        {"\xC2\x80 \xC2\x9B" "31m \xC2\x9F", "\\xc2\\x80 \\xc2\\x9b31m \\xc2\\x9f"},
        {"\xC2\xA0 \xC3\x9B", "\xC2\xA0 \xC3\x9B"}, // beside them
        {"\u061C", "\\xd8\\x9c"},
        {"\u200E\u200F", "\\xe2\\x80\\x8e\\xe2\\x80\\x8f"},
        {"\u200D\u2010", "\u200D\u2010"},
        {"\u2028\u2029", "\\xe2\\x80\\xa8\\xe2\\x80\\xa9"},
        {"\u202A\u202B\u202C", "\\xe2\\x80\\xaa\\xe2\\x80\\xab\\xe2\\x80\\xac"},
        {"\u202D\u202E", "\\xe2\\x80\\xad\\xe2\\x80\\xae"},
        {"\u2027\u202F", "\u2027\u202F"},
        {"\u2066\u2067", "\\xe2\\x81\\xa6\\xe2\\x81\\xa7"},
        {"\u2068\u2069", "\\xe2\\x81\\xa8\\xe2\\x81\\xa9"},
        {"\u2065\u206A", "\u2065\u206A"},
        {"D:\\rec\\x0a.rec", "D:\\rec\\x0a.rec"},
        {"\u901A\u9053 \U0001F3A5", "\u901A\u9053 \U0001F3A5"},
        // No UTF-8: bytes that 8-bit terminals obey, alone, cut off and spelt too long; and GB18030.
        {"a\x9B" "31m\x85", "a\\x9b31m\\x85"},
        {"\xE2\x80", "\xE2\\x80"},
        {"\xE0\x82\x9B", "\xE0\\x82\\x9b"},
        {"\xCD\xA8\xB5\xC0", "\xCD\xA8\xB5\xC0"},
    };
    open(LOG_REFUSE);
    for (const row &one : rows) {
        log_debug_ex(LOG_REFUSE, "u", 1, "%s", one.text);
        EXPECT_EQ(lines().back(), std::string("[2] u:1 ") + one.written);
    }
}

TEST_F(OsLog, LongTextsAreWhole)
{
    open(LOG_REFUSE);
    for (size_t size : {1023u, 1024u, 1025u, 70000u})
        log_debug_ex(LOG_REFUSE, "u", static_cast<int>(size), "%s", std::string(size, 'x').c_str());
    std::vector<std::string> found = lines();
    ASSERT_EQ(found.size(), 4u);
    EXPECT_EQ(found[3], "[2] u:70000 " + std::string(70000, 'x'));
    EXPECT_EQ(found[1], "[2] u:1024 " + std::string(1024, 'x'));
}

TEST_F(OsLog, UnitsLoseTheirFolders)
{
    open(LOG_REFUSE);
    log_debug_ex(LOG_REFUSE, "vod/link_table.cpp", 1, "a");
    log_debug_ex(LOG_REFUSE, "vod\\link_table.cpp", 2, "b");
    log_debug_ex(LOG_REFUSE, nullptr, 3, "c");
    log_debug_ex(LOG_REFUSE, "u", 4, nullptr);
    EXPECT_THAT(lines(), ElementsAre("[2] link_table.cpp:1 a", "[2] link_table.cpp:2 b", "[2] c"));
}

TEST_F(OsLog, PlaceThatRepeatsIsCutDownAndReported)
{
    manual_clock clock;
    open(LOG_REFUSE, 3);
    for (int i = 0; i < 10; i++)
        log_debug_ex(LOG_SYSTEM, "u", 1, "line %d", i);
    log_debug_ex(LOG_REFUSE, "u", 2, "another place");
    EXPECT_EQ(os_tick(), 1000u);
    clock.advance(999);
    log_debug_ex(LOG_REFUSE, "u", 2, "not yet");
    clock.advance(1);
    log_debug_ex(LOG_REFUSE, "u", 1, "next second");
    EXPECT_THAT(lines(),
                ElementsAre("[4] u:1 line 0", "[4] u:1 line 1", "[4] u:1 line 2", "[2] u:2 another place",
                            "[2] u:2 not yet", "[4] u:1 ... 7 lines like this left out", "[2] u:1 next second"));
}

TEST_F(OsLog, AnyLineBringsTheReportOnceTheSecondHasPassed)
{
    manual_clock clock;
    open(LOG_REFUSE, 1);
    log_debug_ex(LOG_REFUSE, "u", 1, "a");
    log_debug_ex(LOG_REFUSE, "u", 1, "b");
    clock.advance(5000);
    log_debug_ex(LOG_REFUSE, "v", 9, "c");
    log_debug_ex(LOG_REFUSE, "v", 10, "d");
    EXPECT_THAT(lines(), ElementsAre("[2] u:1 a", "[2] u:1 ... 1 lines like this left out", "[2] v:9 c", "[2] v:10 d"));
}

TEST_F(OsLog, FlushBringsTheReportAtOnce)
{
    manual_clock clock;
    open(LOG_REFUSE, 1);
    for (int i = 0; i < 5; i++)
        log_debug_ex(LOG_REFUSE, "u", 1, "a");
    os_log_flush();
    EXPECT_THAT(lines(), ElementsAre("[2] u:1 a", "[2] u:1 ... 4 lines like this left out"));
}

TEST_F(OsLog, SameLineOfAnotherUnitIsAnotherPlace)
{
    manual_clock clock;
    open(LOG_REFUSE, 1);
    for (const char *unit : {"u", "v", "u", "v"})
        log_debug_ex(LOG_REFUSE, unit, 1, "a");
    EXPECT_THAT(lines(), ElementsAre("[2] u:1 a", "[2] v:1 a", "[2] u:1 ... 1 lines like this left out",
                                     "[2] v:1 ... 1 lines like this left out"));
}

TEST_F(OsLog, FloodTakesBoundedRoom)
{
    manual_clock clock;
    open(LOG_TRACE, 0, 8192, 2);
    for (int second = 0; second < 20; second++) {
        for (int i = 0; i < 2000; i++)
            log_debug_ex(LOG_TRACE, "u", i % 7, "a client repeats a bad package %d", i);
        clock.advance(1000);
    }
    os_log_flush();
    uintmax_t bytes = 0;
    size_t files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(folder_.path())) {
        bytes += entry.file_size();
        files++;
    }
    EXPECT_EQ(files, 3u);
    EXPECT_LE(bytes, 3u * 8192);
}

TEST_F(OsLog, LevelsOutsideTheScaleAreDrawnIn)
{
    os_log_settings settings = {0, 0, nullptr, 0, 0, 0, 0, 0};
    ASSERT_EQ(os_log_open(&settings), 1);
    EXPECT_EQ(os_log_enabled(LOG_TRACE), 1);
    settings.level = 99;
    ASSERT_EQ(os_log_open(&settings), 1);
    EXPECT_EQ(os_log_enabled(LOG_SYSTEM), 0);
    EXPECT_EQ(os_log_enabled(LOG_FATAL), 1);
}

TEST_F(OsLog, StandardErrorIsWrittenTo)
{
    testing::internal::CaptureStderr();
    ASSERT_EQ(os_log_open(&s_start_settings), 1);
    log_debug_ex(LOG_REFUSE, "u", 7, "to the terminal");
    os_log_flush();
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                MatchesRegex("....-..-.. ..:..:..\\.... \\[2\\] u:7 to the terminal\n"));
}

TEST_F(OsLog, SinkGetsEveryLineUncutAndUnescaped)
{
    manual_clock clock;
    open(LOG_REFUSE, 1);
    {
        log_capture log;
        for (int i = 0; i < 20; i++)
            log_debug_ex(LOG_TRACE, "u", 1, "a\nb");
        EXPECT_EQ(log.count("a\nb", LOG_TRACE), 20u);
        EXPECT_EQ(log.lines()[0], (log_line{LOG_TRACE, "u", "a\nb"}));
    }
    EXPECT_TRUE(lines().empty());
    log_debug_ex(LOG_REFUSE, "u", 1, "outputs are back");
    EXPECT_THAT(lines(), ElementsAre("[2] u:1 outputs are back"));
}

TEST_F(OsLog, SinkMayLog)
{
    static std::vector<std::string> s_texts;
    os_log_set_sink(
        [](void *, int, const char *, int, const char *text) {
            s_texts.push_back(text);
            if (s_texts.size() == 1)
                log_debug_ex(LOG_REFUSE, "sink", 1, "inner");
        },
        nullptr);
    log_debug_ex(LOG_REFUSE, "u", 1, "outer");
    os_log_set_sink(nullptr, nullptr);
    EXPECT_THAT(s_texts, ElementsAre("outer", "inner"));
}

TEST_F(OsLog, BufferedLogMakesOneLine)
{
    log_capture log;
    log_buf_lock();
    log_buf_date();
    log_buf_msg("[info] ");
    log_buf_msg("file: %s line: %d ", "vod.cpp", 12);
    log_buf_msg_unlock("%s == NULL", "s_lst_findfds");
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].text, "[info] file: vod.cpp line: 12 s_lst_findfds == NULL");
    EXPECT_EQ(log.lines()[0].level, LOG_REFUSE);
}

TEST_F(OsLog, BufferedLinesOfThreadsDoNotMix)
{
    log_capture log;
    auto write = [](const char *text) {
        for (int i = 0; i < 100; i++) {
            log_buf_lock();
            log_buf_date();
            log_buf_msg("%s", text);
            log_buf_msg_unlock("%s", text);
        }
    };
    std::thread first(write, "a"), second(write, "b");
    first.join();
    second.join();
    EXPECT_EQ(log.count("aa"), 100u);
    EXPECT_EQ(log.count("bb"), 100u);
}

TEST_F(OsLog, BufferedLineInTheFileHasItsDateInFront)
{
    open(LOG_REFUSE);
    log_buf_lock();
    log_buf_date();
    log_buf_msg_unlock("[info] up\n");
    EXPECT_THAT(lines(), ElementsAre("[2] [info] up\\x0a"));
}

static int s_status;

TEST_F(OsLog, QuitWritesTheLineThenEndsTheProcess)
{
    log_capture log;
    os_exit_install([](int status) { s_status = status; });
    log_buf_lock();
    log_buf_date();
    log_buf_msg("[fatal] ");
    err_buf_quit_unlock("out of %s", "memory");
    os_exit_install(nullptr);
    EXPECT_EQ(s_status, 1);
    EXPECT_EQ(log.count("[fatal] out of memory", LOG_FATAL), 1u);
    // The lock was given back: another thread can log.
    std::thread([] { log_debug_ex(LOG_REFUSE, "u", 1, "after"); }).join();
    EXPECT_EQ(log.count("after"), 1u);
}

TEST_F(OsLog, ThreadsLogSideBySide)
{
    open(LOG_REFUSE, 100000);
    std::array<std::thread, 4> threads;
    for (std::thread &thread : threads)
        thread = std::thread([] {
            for (int i = 0; i < 200; i++)
                log_debug_ex(LOG_REFUSE, "u", 1, "a line of some length, whole or not at all");
        });
    for (std::thread &thread : threads)
        thread.join();
    std::vector<std::string> found = lines();
    EXPECT_EQ(found.size(), 800u);
    for (const std::string &line : found)
        EXPECT_EQ(line, "[2] u:1 a line of some length, whole or not at all");
}

TEST_F(OsLog, MacrosLogAtTheirPlaceAndYieldTheValue)
{
    log_capture log(LOG_REFUSE);
    auto refuse = [] { return LOGGED(-1, LOG_REFUSE, "playerfd == %d", -1); };
    EXPECT_EQ(refuse(), -1);
    LOG(LOG_TRACE, "below the level");
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0], (log_line{LOG_REFUSE, "log_test.cpp", "playerfd == -1"}));
}

TEST(OsLogDeathTest, ExitEndsTheProcessWithItsStatus)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(os_exit(3), testing::ExitedWithCode(3), "");
    EXPECT_EXIT(
        {
            log_buf_lock();
            err_buf_quit_unlock("[fatal] %s", "the last words");
        },
        testing::ExitedWithCode(1), "\\[5\\] \\[fatal\\] the last words");
}

TEST(OsLogDeathTest, ExitReportsWhatWasLeftOut)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            for (int i = 0; i < 60; i++)
                log_debug_ex(LOG_REFUSE, "u", 1, "again");
            os_exit(0);
        },
        testing::ExitedWithCode(0), "\\.\\.\\. .+ lines like this left out");
}

TEST_F(OsLog, FileThatCannotBeOpenedLeavesTheOutputs)
{
    open(LOG_REFUSE);
    folder_.write("file", "");
    for (const std::string &path : {host_special_file(folder_), folder_.path().string(), folder_.file("file/log.txt")}) {
        const os_log_settings wrong = {LOG_TRACE, 0, path.c_str(), 0, 0, 0, 0, 0};
        EXPECT_EQ(os_log_open(&wrong), 0) << path;
    }
    EXPECT_EQ(os_log_open(nullptr), 0);
    EXPECT_EQ(os_log_enabled(LOG_TRACE), 0);
    log_debug_ex(LOG_REFUSE, "u", 1, "still here");
    EXPECT_THAT(lines(), ElementsAre("[2] u:1 still here"));
}

static std::string bytes_of(const std::filesystem::path &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST_F(OsLog, TheLastLineBeforeTheEndIsWrittenWhenTheCallReturns)
{
    open(LOG_REFUSE);
    for (int i = 0; i < 1000; i++)
        log_debug_ex(LOG_REFUSE, "u", i, "before");
    log_debug_ex(LOG_FATAL, "u", 1, "the last words");
    EXPECT_THAT(bytes_of(folder_.path() / "log.txt"), EndsWith(" [5] u:1 the last words\n"));
}

TEST_F(OsLog, FileThatFailsIsCountedAndSaysNothingElsewhere)
{
    // In the way of the older file.
    folder_.write("log.1.txt/file", "");
    testing::internal::CaptureStderr();
    open(LOG_REFUSE, 0, 4096, 1);
    for (int i = 0; i < 2; i++)
        log_debug_ex(LOG_REFUSE, "u", i, "%s", std::string(4000, 'x').c_str());
    log_debug_ex(LOG_REFUSE, "u", 3, "goes on");
    EXPECT_THAT(lines(), ElementsAre("[2] ... 1 lines were not written", "[2] u:3 goes on"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(OsLog, WithoutAJournalTheTerminalIsUsed)
{
    for (const char *stream : {"", "1:2", "nonsense"}) {
        testing::internal::CaptureStderr();
        environment_set("JOURNAL_STREAM", stream);
        const os_log_settings settings = {LOG_TRACE, 1, nullptr, 0, 0, 1, 0, 0};
        EXPECT_EQ(os_log_open(&settings), 1);
        log_debug_ex(LOG_REFUSE, "u", 1, "x");
        os_log_flush();
        environment_set("JOURNAL_STREAM", nullptr);
        EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith(" [2] u:1 x\n")) << stream;
    }
}
