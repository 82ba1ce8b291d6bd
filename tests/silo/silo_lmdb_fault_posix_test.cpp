// A store in a process whose host looks after crashes itself.
#include "tests/silo/silo_handles.h"
#include "tests/support/temp_folder.h"

#include <array>
#include <csignal>
#include <gtest/gtest.h>
#include <unistd.h>

static constexpr int REPORTED = 42;

static void crash_reported(int)
{
    _exit(REPORTED);
}

// On a stack of its own, because the ordinary one may be what is used up.
static void crash_reporter_install()
{
    static std::array<char, 512 * 1024> s_stack;
    stack_t stack = {};
    stack.ss_sp = s_stack.data();
    stack.ss_size = s_stack.size();
    sigaltstack(&stack, nullptr);
    struct sigaction action = {};
    action.sa_handler = crash_reported;
    action.sa_flags = SA_ONSTACK;
    for (int signal : {SIGSEGV, SIGBUS})
        sigaction(signal, &action, nullptr);
}

static volatile bool s_goes_deeper = true;

[[gnu::noinline]] static int overflow(int depth)
{
    volatile char bytes[4096];
    bytes[0] = static_cast<char>(depth);
    return s_goes_deeper ? overflow(depth + 1) + bytes[0] : depth;
}

// Its folder is gone again, because this process will not get to that.
static silo_ptr store_opened()
{
    temp_folder folder;
    return silo_opened("lmdb:" + folder.file("store"));
}

TEST(SiloLmdbFaultDeathTest, AStackOverflowReachesTheHostsCrashReporter)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            crash_reporter_install();
            silo_ptr db = store_opened();
            if (db != nullptr)
                overflow(0);
        },
        testing::ExitedWithCode(REPORTED), "");
}
