// Windows only: threads as the host sees them.
#include "platform/os/os.h"

#include <gtest/gtest.h>
#include <string>
#include <windows.h>

static int stack_size_of_this_thread(void *arg)
{
    ULONG_PTR low = 0, high = 0;
    GetCurrentThreadStackLimits(&low, &high);
    *static_cast<size_t *>(arg) = high - low;
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
    EXPECT_LE(stack_size_for(0), 1u << 20);
    EXPECT_GE(stack_size_for(1), 16u << 10);
    EXPECT_GE(stack_size_for((3u << 20) + 1), (3u << 20) + 1);
}

TEST(OsThread, NoThreadJoinsItself)
{
    static LThread s_thread;
    static int s_joined;
    s_joined = -1;
    auto join_self = [](void *) {
        while (s_thread.impl == nullptr)
            os_sleep(1);
        s_joined = os_thread_join(&s_thread, nullptr);
        return 0;
    };
    LThread thread = {};
    ASSERT_EQ(os_thread_create(&thread, 0, join_self, nullptr), 1);
    s_thread = thread;
    EXPECT_EQ(os_thread_join(&thread, nullptr), 1);
    EXPECT_EQ(s_joined, 0);
}

static int name_and_read(void *arg)
{
    os_thread_name("a name longer than fifteen characters");
    // Not in every edition of the headers.
    using read_func = HRESULT(WINAPI *)(HANDLE thread, wchar_t **description);
    auto read = reinterpret_cast<read_func>(reinterpret_cast<void *>(
        GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GetThreadDescription")));
    wchar_t *name = nullptr;
    if (read != nullptr && SUCCEEDED(read(GetCurrentThread(), &name)))
        *static_cast<std::wstring *>(arg) = name;
    LocalFree(name);
    return 0;
}

TEST(OsThread, NameKeepsFifteenCharacters)
{
    LThread thread = {};
    std::wstring name;
    ASSERT_EQ(os_thread_create(&thread, 0, name_and_read, &name), 1);
    os_thread_join(&thread, nullptr);
    EXPECT_EQ(name, L"a name longer t");
    os_thread_name(nullptr);
}
