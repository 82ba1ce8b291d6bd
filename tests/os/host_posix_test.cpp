// POSIX only: what the host itself says about the process.
#include "platform/os/os.h"

#include "platform/os/os_standard.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

TEST(OsHost, ModuleFilenameIsTheExecutable)
{
    char name[4096];
    std::string expected = std::filesystem::read_symlink("/proc/self/exe");
    EXPECT_EQ(os_module_filename(name, sizeof name), expected.size());
    EXPECT_EQ(name, expected);
}

TEST(OsHost, ProcessId)
{
    EXPECT_EQ(os_process_id(), static_cast<int>(getpid()));
}

TEST(OsHost, SystemVersionIsKnownOnWindowsOnly)
{
    os_system_version version = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(os_system_version_get(&version), OS_NO_SYSTEM_VERSION);
    EXPECT_EQ(version.major, 1u);
}

// What a process of its own answers; nothing of the test's may be used in it.
template <class Body> static int status_of_child(Body body)
{
    int pid = fork();
    if (pid == 0)
        _exit(body());
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST(OsHost, ASecondRequestToEndEndsTheProcessOfWhicheverKindTheTwoAre)
{
    for (int first : {SIGINT, SIGTERM})
        for (int second : {SIGINT, SIGTERM})
            EXPECT_EQ(status_of_child([&] {
                          os_interrupt_install([] {});
                          raise(first);
                          raise(second);
                          return 0;
                      }),
                      130)
                << first << " " << second;
    EXPECT_EQ(status_of_child([] {
                  os_interrupt_install([] {});
                  return raise(SIGINT);
              }),
              0);
}

TEST(OsHost, ClosedStandardStreamsBecomeTheNullDeviceAndOpenOnesStay)
{
    EXPECT_EQ(status_of_child([] {
                  struct stat null = {}, found = {};
                  stat("/dev/null", &null);
                  for (int stream : {0, 1, 2})
                      close(stream);
                  if (!os_standard_streams_open())
                      return 1;
                  for (int stream : {0, 1, 2})
                      if (fstat(stream, &found) != 0 || found.st_rdev != null.st_rdev)
                          return 2;
                  char byte = 'x';
                  return read(0, &byte, 1) == 0 && write(1, &byte, 1) == 1 && write(2, &byte, 1) == 1 ? 0 : 3;
              }),
              0);
    EXPECT_EQ(status_of_child([] {
                  int ends[2];
                  if (pipe(ends) != 0 || dup2(ends[1], 1) != 1 || !os_standard_streams_open())
                      return 1;
                  char byte = 'x';
                  return write(1, &byte, 1) == 1 && read(ends[0], &byte, 1) == 1 ? 0 : 2;
              }),
              0);
}
