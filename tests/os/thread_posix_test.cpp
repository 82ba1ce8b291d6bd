// POSIX only: threads as the host sees them, and signals that cut a sleep short.
#include "platform/os/os.h"

#include <csignal>
#include <cstdint>
#include <gtest/gtest.h>
#include <pthread.h>

static int stack_size_of_this_thread(void *arg)
{
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, static_cast<size_t *>(arg));
    pthread_attr_destroy(&attributes);
    return 0;
}

static size_t stack_size_for(size_t wanted)
{
    LThread thread = {};
    size_t bytes = 0;
    EXPECT_EQ(os_thread_create(&thread, wanted, stack_size_of_this_thread, &bytes), 1);
    EXPECT_EQ(os_thread_join(&thread, nullptr), 1);
    return bytes;
}

TEST(OsThread, StackIsAtLeastWhatWasAskedFor)
{
    EXPECT_GE(stack_size_for(0), 512u << 10);
    // A tool may add to it, but the host's default of 8 MiB for each of hundreds of threads would be too much.
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
    EXPECT_LE(stack_size_for(0), 1u << 20);
#endif
    EXPECT_GE(stack_size_for(1), 16u << 10);
    EXPECT_GE(stack_size_for((3u << 20) + 1), (3u << 20) + 1);
}

static int name_and_read(void *arg)
{
    os_thread_name("a name longer than fifteen characters");
    return pthread_getname_np(pthread_self(), static_cast<char *>(arg), 32);
}

TEST(OsThread, NameKeepsFifteenCharacters)
{
    LThread thread = {};
    char name[32] = {};
    ASSERT_EQ(os_thread_create(&thread, 0, name_and_read, name), 1);
    os_thread_join(&thread, nullptr);
    EXPECT_STREQ(name, "a name longer t");
    os_thread_name(nullptr);
}

static void do_nothing(int) {}

static int sleep_measured(void *arg)
{
    uint64_t before = os_tick();
    os_sleep(120);
    *static_cast<uint64_t *>(arg) = os_tick() - before;
    return 0;
}

TEST(OsClock, SleepIsNotCutShortBySignals)
{
    struct sigaction action = {}, former = {};
    action.sa_handler = do_nothing;
    sigaction(SIGUSR1, &action, &former);
    pthread_t sleeper;
    static uint64_t s_slept;
    auto body = [](void *arg) -> void * {
        sleep_measured(arg);
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&sleeper, nullptr, body, &s_slept), 0);
    for (int i = 0; i < 5; i++) {
        os_sleep(10);
        pthread_kill(sleeper, SIGUSR1);
    }
    pthread_join(sleeper, nullptr);
    sigaction(SIGUSR1, &former, nullptr);
    EXPECT_GE(s_slept, 119u);
}
