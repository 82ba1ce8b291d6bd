// Every handler again with the n-th fallible call below it failing, n = 1, 2, ...: whatever fails is refused and leaves
// nothing behind once the connection has ended.
#include "tests/support/temp_folder.h"
#include "tests/vod/vod_fixture.h"

#include "vod/record_worker.h"
#include "vod/reply.h"
#include "win32_vod/vod.h"
#include "win32_vod/vod_analyze.h"

#include <libxml/xmlmemory.h>

#include <cstdlib>
#include <cstring>
#include <functional>

// The library loses its converter when memory ends while it writes in another encoding than its own.
static bool s_xml_may_fail = true;

// libxml2 allocates through these from its first use on.
static void *xml_malloc(size_t size)
{
    return s_xml_may_fail && os_fault_point("xml_malloc") ? nullptr : std::malloc(size);
}
static void *xml_realloc(void *memory, size_t size)
{
    return s_xml_may_fail && os_fault_point("xml_realloc") ? nullptr : std::realloc(memory, size);
}
static char *xml_strdup(const char *text)
{
    auto copy = static_cast<char *>(xml_malloc(std::strlen(text) + 1));
    return copy == nullptr ? nullptr : std::strcpy(copy, text);
}
static const int s_xml_memory_is_set = xmlMemSetup(std::free, xml_malloc, xml_realloc, xml_strdup);

struct PlatformFailureTest : VodEventTest {
    PlatformFailureTest() { s_exits = 0; }
    ~PlatformFailureTest() override
    {
        os_fault_disarm();
        os_exit_install(nullptr);
    }
    // Runs `session` for each n, until none of its calls failed any more. Returns how many calls there were.
    uint32_t sweep(const std::function<void(MsLink &)> &session, int exits_max = 0)
    {
        os_exit_install([](int) { s_exits++; });
        for (uint32_t n = 1; n < 2000; n++) {
            MsLink link;
            s_exits = 0;
            os_fault_arm(n);
            session(link);
            uint32_t calls = os_fault_calls();
            os_fault_disarm();
            EXPECT_LE(s_exits, exits_max) << n;
            if (link.udata != nullptr)
                disconnect(link);
            EXPECT_EQ(taken_slots(), 0u) << n;
            for (int position = 0; position < VOD_LINK_COUNTERS; position++)
                EXPECT_EQ(count(static_cast<VOD_LINK_TYPE>(position)), 0u) << n << ": " << position;
            EXPECT_EQ(s_facade.opens, s_facade.closes) << n;
            if (testing::Test::HasFailure() || calls < n)
                return calls;
        }
        ADD_FAILURE() << "no end";
        return 0;
    }
    // Made before anything may fail.
    static client_package made(client_package package)
    {
        package.get();
        return package;
    }
    void playback(MsLink &link, client_package request)
    {
        read(link, std::move(request));
        if (link.udata == nullptr)
            return;
        deliver_head(link_of(link));
        read(link, get_);
        for (int type : {2, 102, 205, 103, 101})
            deliver(link_of(link), type, "data");
    }
    static int s_exits;
    client_package get_ = made(get_package());
};
int PlatformFailureTest::s_exits;

TEST_F(PlatformFailureTest, OfAPlaybackByName)
{
    client_package request = made(hardplay_package({}));
    s_facade.opens = s_facade.closes = 0;
    // A failed open never reaches a player: the fake counts opens by their results.
    EXPECT_GE(sweep([&](MsLink &link) { playback(link, request); }), 10u);
    for (const char *text : {"!mp_build_package_accept_res", "attr_info == NULL", "attr_data == NULL", "playerfd == -1",
                             "!mp_build_package_send_res"})
        EXPECT_GE(log.count(text, LOG_REFUSE), 1u) << text;
}

TEST_F(PlatformFailureTest, OfAPlaybackByTimeThatIsRejected)
{
    client_package request = made(hardplay_package(PlaybackRequestTest::by_time()));
    EXPECT_GE(sweep([&](MsLink &link) {
                  s_facade.open_result = INVALID_HANDLE_ORB;
                  playback(link, request);
              }),
              3u);
    EXPECT_GE(log.count("!ms_get_local_devid", LOG_REFUSE), 1u);
    EXPECT_GE(log.count("!mp_build_package_reject_res", LOG_REFUSE), 1u);
    EXPECT_GE(log.count("!ms_send_package", LOG_REFUSE), 1u);
}

TEST_F(PlatformFailureTest, OfAPlaybackOfADevice)
{
    hardplay_wish wish;
    wish.filename = "dvc_info";
    wish.data = std::string(251, 'j');
    client_package request = made(hardplay_package(wish));
    sweep([&](MsLink &link) { playback(link, request); }, 1);
    EXPECT_EQ(log.count("json_info == NULL", LOG_FATAL), 1u) << "the one place where a request may end the process";
}

TEST_F(PlatformFailureTest, OfALogin)
{
    for (uint16_t kind : std::initializer_list<uint16_t>{0x8012, 0x8006}) {
        client_package request = made(res_package(kind, ""));
        log.clear();
        EXPECT_GE(sweep([&](MsLink &link) {
                      read(link, request);
                      if (link.udata != nullptr)
                          read(link, get_);
                  }),
                  4u);
        EXPECT_EQ(log.count("!mp_build_package_accept_res", LOG_REFUSE), 1u);
    }
}

TEST_F(PlatformFailureTest, OfAStateRequest)
{
    ASSERT_EQ(s_xml_memory_is_set, 0);
    client_package request = made(res_package(0x8003, "from_net.xml"));
    EXPECT_GE(sweep([&](MsLink &link) { read(link, request); }), 10u);
    EXPECT_GE(log.count("doc == NULL", LOG_REFUSE), 1u);
    EXPECT_EQ(log.count("!mp_build_package_accept_res", LOG_REFUSE), 1u);
}

TEST_F(PlatformFailureTest, OfAStateRequestForAFile)
{
    temp_folder folder(temp_folder::working_directory::enter);
    client_package request = made(res_package(0x8003, "state.xml"));
    s_xml_may_fail = false;
    EXPECT_GE(sweep([&](MsLink &link) { read(link, request); }), 4u);
    s_xml_may_fail = true;
    EXPECT_GE(log.count("os_code_convert <= 0", LOG_REFUSE), 1u);
    EXPECT_GE(log.count_containing("state file not written: state.xml: "), 1u);
    EXPECT_EQ(log.count("!mp_build_package_accept_res", LOG_REFUSE), 1u);
}

TEST_F(PlatformFailureTest, OfACommand)
{
    client_package login = made(res_package(0x8012, "")), play = made(hardplay_package({}));
    client_package ask = made(command_package("<command name=\"get_vod_link_num\"><type>1</type></command>"));
    client_package seek = made(command_package(control_xml(12, 50)));
    client_package stop = made(command_package("<command name=\"stop_playback\"/>"));
    EXPECT_GE(sweep([&](MsLink &link) {
                  read(link, login);
                  read(link, ask);
              }),
              10u);
    EXPECT_EQ(log.count("!mp_build_package_ret_cmd_chs", LOG_PACKAGE), 1u);
    sweep([&](MsLink &link) {
        read(link, play);
        read(link, seek);
        read(link, stop);
    });
}

TEST_F(PlatformFailureTest, OfRefusedKinds)
{
    for (uint16_t kind : std::initializer_list<uint16_t>{0x8002, 0x8005}) {
        hardplay_wish wish;
        wish.kind = kind;
        client_package request = made(hardplay_package(wish));
        sweep([&](MsLink &link) { read(link, request); });
        EXPECT_GE(log.count("!vod_reject_req_res", LOG_REFUSE), 3u);
    }
}
