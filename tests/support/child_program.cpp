// The program that the test of child processes starts: does the one thing that its first word names.
#include "platform/os/os.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

static int say_words(int argc, char **argv)
{
    for (int i = 2; i < argc; i++)
        std::printf("%s\n", argv[i]);
    return 0;
}

static int copy_input(int, char **)
{
    for (int letter = std::getchar(); letter != EOF; letter = std::getchar())
        std::putchar(letter);
    std::fputs("copied\n", stderr);
    return 0;
}

static int write_on(int, char **)
{
    while (std::puts("0123456789") >= 0 && std::fflush(stdout) == 0) {
    }
    return 3;
}

static int serve(int, char **)
{
    if (!os_end_take())
        return 1;
    std::puts("serves");
    std::fflush(stdout);
    return os_end_wait() ? 4 : 1;
}

// Has been asked and does not get done.
static int linger(int, char **)
{
    if (!os_end_take())
        return 1;
    std::puts("lingers");
    std::fflush(stdout);
    if (!os_end_wait())
        return 1;
    std::puts("asked");
    std::fflush(stdout);
    os_sleep(60'000);
    return 6;
}

// Has not got so far as to wait when it is asked.
static int start_up(int, char **)
{
    if (!os_end_take())
        return 1;
    std::puts("starts");
    std::fflush(stdout);
    os_sleep(300);
    return os_end_wait() ? 7 : 1;
}

static std::atomic<bool> s_is_interrupted;

static int work(int, char **)
{
    os_interrupt_install([] { s_is_interrupted = true; });
    std::puts("works");
    std::fflush(stdout);
    while (!s_is_interrupted)
        os_sleep(10);
    return 5;
}

static int end_by_itself(int argc, char **argv)
{
    return argc > 2 ? std::atoi(argv[2]) : 0;
}

static int say_variable(int argc, char **argv)
{
    const char *value = argc > 2 ? std::getenv(argv[2]) : nullptr;
    std::printf("%s\n", value == nullptr ? "none" : value);
    return 0;
}

static int say_folder(int, char **)
{
    std::printf("%s\n", std::filesystem::current_path().filename().string().c_str());
    return 0;
}

int main(int argc, char **argv)
{
    static constexpr struct {
        const char *name;
        int (*run)(int argc, char **argv);
    } deeds[] = {
        {"words", say_words},       {"copy", copy_input},   {"write", write_on}, {"serve", serve},
        {"linger", linger},         {"start", start_up},    {"work", work},      {"end", end_by_itself},
        {"variable", say_variable}, {"folder", say_folder},
    };
    argv = os_program_start(argc, argv);
    for (const auto &deed : deeds)
        if (argc > 1 && std::strcmp(deed.name, argv[1]) == 0)
            return deed.run(argc, argv);
    return 64;
}
