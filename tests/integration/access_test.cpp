// What clients may name: with roots set nothing outside them, ever, and no answer that takes long.
#include "tests/integration/service_fixture.h"

#include "platform/os/os.h"
#include "tests/support/host.h"

#include <filesystem>

class AccessTest : public ServiceTest {
protected:
    AccessTest()
        : ServiceTest(
              {.vod_config = R"({"sleep_interval": 0, "access": {"roots": ["rec"], "state_dir": "var\\state"}})"})
    {}
    void SetUp() override
    {
        ServiceTest::SetUp();
        made = make("inside.rec", even_plan());
    }
    void expect_refused(const std::string &name) const
    {
        raw_session session;
        uint64_t begin = os_tick();
        EXPECT_EQ(session.request(service.port(), name), 11) << name;
        EXPECT_EQ(session.reject_code(), 0x1000028u) << name;
        EXPECT_LT(os_tick() - begin, 5000u) << name;
    }
    void expect_played(const std::string &name) const
    {
        play_result played = play_all(service.server(), name);
        EXPECT_TRUE(played.result) << name << ": " << played.result.text;
        EXPECT_TRUE(played.bytes == file_of(made.path)) << name;
    }
    made_recording made;
};

TEST_F(AccessTest, NamesInsideTheRootsPlayHoweverTheyAreWritten)
{
    std::filesystem::create_directory(service.folder().file("rec/sub"));
    std::filesystem::copy_file(made.path, service.folder().file("rec/sub/below.rec"));
    for (std::string name : {"rec/inside.rec", "rec\\inside.rec", "rec\\sub\\below.rec", "rec/sub/../inside.rec",
                             "./rec/inside.rec", "rec//inside.rec"})
        expect_played(name);
    if (host_link("../inside.rec", service.folder().file("rec/sub/link.rec")))
        expect_played("rec/sub/link.rec");
    expect_played(service.folder().file("rec/inside.rec"));
}

TEST_F(AccessTest, NamesOutsideTheRootsAreRefused)
{
    std::filesystem::copy_file(made.path, service.folder().file("outside.rec"));
    std::filesystem::create_directory(service.folder().file("recordings"));
    std::filesystem::copy_file(made.path, service.folder().file("recordings/neighbour.rec"));
    // Where links cannot be made the names are of nothing.
    host_link("../outside.rec", service.folder().file("rec/link.rec"));
    host_link("..", service.folder().file("rec/up"));
    for (std::string name :
         {"outside.rec", "rec/../outside.rec", "rec\\..\\outside.rec", "rec/link.rec", "rec/up/outside.rec",
          "recordings/neighbour.rec", "../outside.rec", "/etc/passwd", "\\etc\\passwd", "rec/../../../../etc/passwd",
          "etc/conf/vod_config.json", "rec/none.rec", "rec/inside.rec/x", "rec", "rec/", "/", "."})
        expect_refused(name);
    expect_refused(service.folder().file("outside.rec"));
    expect_played("rec/inside.rec");
}

TEST_F(AccessTest, ThingsThatAreNoFilesAreRefusedWithoutWaiting)
{
    host_link("/dev/zero", service.folder().file("rec/zero.rec"));
    host_link("loop.rec", service.folder().file("rec/loop.rec"));
    for (std::string name : {"rec/zero.rec", "rec/loop.rec", "/proc/self/mem", "/proc/self/fd/0", "/dev/zero",
                             "/dev/stdin", "/dev/tty", "/proc/kmsg", "NUL", "rec\\NUL", "CON", "rec\\COM1.rec"})
        expect_refused(name);
    std::string special = host_special_file(service.folder());
    expect_refused(special);
    if (std::filesystem::is_fifo(special)) {
        std::filesystem::rename(special, service.folder().file("rec/pipe.rec"));
        expect_refused("rec/pipe.rec");
    }
}

TEST_F(AccessTest, OddNamesAreRefused)
{
    for (std::string name : {std::string("rec/\n.rec"), std::string("rec/%s%n%x.rec"), std::string("rec/\xFF\xFE.rec"),
                             std::string("rec/\xE4\xB8"), std::string(259, '/'), "rec/" + std::string(250, 'a')})
        expect_refused(name);
}

TEST_F(AccessTest, AChineseNameIsFoundInAFileSystemOfUtf8)
{
    for (std::string name : {"rec/\xE5\xBD\x95\xE5\x83\x8F_1_20260101080000_x.rec",
                             "rec/\xE9\x80\x9A\xE9\x81\x93 1.rec", "rec/\xC3\xA4\xE2\x82\xAC.rec"}) {
        std::filesystem::copy_file(made.path, host_path(service.folder().file(name)));
        expect_played(name);
    }
}

TEST_F(AccessTest, StateDocumentsGoIntoTheStateFolderOnly)
{
    std::string text;
    vodclient_result result = vodclient_link_state(service.server(), "state.xml", &text);
    EXPECT_TRUE(result) << result.text;
    EXPECT_EQ(text, "state.xml");
    std::string document = file_of(service.folder().file("var/state/state.xml"));
    EXPECT_TRUE(document.starts_with("<?xml version=\"1.0\" encoding=\"GB2312\"?>\n<vod>")) << document;
    EXPECT_FALSE(std::filesystem::exists(service.folder().file("state.xml")));
    for (std::string name : {"../state.xml", "/tmp/vod_state.xml", "rec\\inside.rec", "etc/conf/vod_config.json",
                             ".hidden", "C:state.xml"}) {
        raw_client client;
        ASSERT_TRUE(client.connect(service.port()));
        client.send(raw_request(0x8003, 0, raw_text(name)));
        EXPECT_TRUE(client.receive(100).empty()) << name;
    }
    EXPECT_FALSE(std::filesystem::exists(service.folder().file("var/state.xml")));
    expect_played("rec/inside.rec");
}

// ---- Without roots --------------------------------------------------------------------------------------------------

using OpenAccessTest = ServiceTest;

TEST_F(OpenAccessTest, WithoutRootsEveryRegularFileMayBeNamedButNothingElse)
{
    made_recording made = make("a.rec", even_plan());
    std::filesystem::copy_file(made.path, service.folder().file("b.rec"));
    EXPECT_TRUE(play_all(service.server(), "b.rec").bytes == file_of(made.path));
    EXPECT_TRUE(play_all(service.server(), "rec/../b.rec").bytes == file_of(made.path));
    for (std::string name :
         {host_special_file(service.folder()), std::string("/dev/zero"), std::string("/proc/self/mem"),
          std::string("rec"), std::string("etc/conf/vod_config.json")}) {
        raw_session session;
        EXPECT_EQ(session.request(service.port(), name), 11) << name;
        EXPECT_EQ(session.reject_code(), 0x1000028u) << name;
    }
}
