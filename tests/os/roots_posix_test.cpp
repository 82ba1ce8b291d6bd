// POSIX only: links that anybody may make, pipes, and kernels of several ages.
#include "tests/os/roots_fixture.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <functional>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

TEST_F(OsRoots, LinksCountAsWhatTheyLeadTo)
{
    fs::create_symlink(folder_.file("secret/s.rec"), storage_ + "/to_secret");
    fs::create_symlink("../secret", storage_ + "/to_folder");
    fs::create_symlink("sub/b.rec", storage_ + "/to_inside");
    fs::create_symlink(second_ + "/c.rec", storage_ + "/to_second");
    fs::create_symlink(folder_.file("secret/made"), storage_ + "/dangling");
    fs::create_symlink("loop", storage_ + "/loop");
    fs::create_symlink("storage", folder_.file("door"));
    EXPECT_FALSE(opens(storage_ + "/to_secret"));
    EXPECT_FALSE(opens(storage_ + "/to_secret", OS_FILE_WRITE));
    EXPECT_FALSE(opens(storage_ + "/to_folder/s.rec"));
    EXPECT_FALSE(opens(storage_ + "/to_folder/new.rec", OS_FILE_WRITE));
    EXPECT_FALSE(opens(storage_ + "/dangling", OS_FILE_WRITE));
    EXPECT_FALSE(opens(storage_ + "/loop"));
    EXPECT_TRUE(opens(storage_ + "/to_inside"));
    EXPECT_TRUE(opens(storage_ + "/to_second"));
    EXPECT_FALSE(opens(folder_.file("door/a.rec"))) << "the link itself lies elsewhere";
    EXPECT_EQ(text("secret/s.rec"), "secret");
    EXPECT_FALSE(fs::exists(folder_.file("secret/made")));
}

TEST_F(OsRoots, ARootThatIsALinkIsNamedEitherWay)
{
    fs::create_symlink("storage", folder_.file("door"));
    roots_set({folder_.file("door")});
    EXPECT_TRUE(opens(folder_.file("door/a.rec")));
    EXPECT_TRUE(opens(storage_ + "/a.rec"));
    EXPECT_TRUE(opens(folder_.file("door") + "/new.rec", OS_FILE_WRITE));
    EXPECT_FALSE(opens(folder_.file("door/../secret/s.rec")));
    EXPECT_FALSE(opens(second_ + "/c.rec"));
}

TEST_F(OsRoots, PipesAndDevicesInsideAreStillRefused)
{
    ASSERT_EQ(mkfifo((storage_ + "/fifo").c_str(), 0600), 0);
    fs::create_symlink("/dev/zero", storage_ + "/zero");
    for (int flags : {OS_FILE_READ, OS_FILE_WRITE, OS_FILE_UPDATE}) {
        EXPECT_FALSE(opens(storage_ + "/fifo", flags));
        EXPECT_FALSE(opens(storage_ + "/zero", flags));
        EXPECT_FALSE(opens(storage_ + "/sub", flags));
        EXPECT_FALSE(opens(storage_, flags));
    }
}

TEST_F(OsRoots, RootsAreUtf8TextsOfEitherSeparator)
{
    const std::string on_disk = "\xCD\xA8\xB5\xC0";
    folder_.write(on_disk + "/d.rec", "x");
    roots_set({folder_.path().string() + "\\通道"});
    EXPECT_TRUE(opens(folder_.file(on_disk) + "/d.rec"));
    EXPECT_FALSE(opens(storage_ + "/a.rec"));
}

TEST_F(OsRoots, RootOfTheFileSystemAllowsAll)
{
    roots_set({"/"});
    EXPECT_TRUE(opens(folder_.file("secret/s.rec")));
    EXPECT_FALSE(opens("/"));
}

// Somebody exchanges a folder for a link while files are opened: a foreign file must never come out.
int OsRoots::foreign_files_opened()
{
    const std::string part = storage_ + "/swap", aside = storage_ + "/aside", link = storage_ + "/link";
    folder_.write("storage/swap/s.rec", "inside");
    fs::create_symlink(folder_.file("secret"), link);
    std::atomic<bool> is_over = false;
    std::thread exchanger([&] {
        while (!is_over) {
            rename(part.c_str(), aside.c_str());
            rename(link.c_str(), part.c_str());
            rename(part.c_str(), link.c_str());
            rename(aside.c_str(), part.c_str());
        }
    });
    int foreign = 0;
    for (int i = 0; i < 20000; i++) {
        os_file *opened = nullptr;
        if (!os_file_open((part + "/s.rec").c_str(), OS_FILE_READ | OS_FILE_CLIENT, &opened))
            continue;
        os_file_ptr file(opened);
        char read[7] = {};
        foreign += os_file_pread(file.get(), read, 6, 0) != 6 || std::strcmp(read, "inside") != 0;
    }
    is_over = true;
    exchanger.join();
    return foreign;
}

TEST_F(OsRoots, ExchangeDuringTheOpeningDoesNotLeadOutside)
{
    EXPECT_EQ(foreign_files_opened(), 0);
}

// Makes the kernel of this process one that does not know openat2.
static bool forget_openat2()
{
    sock_filter steps[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program = {static_cast<unsigned short>(std::size(steps)), steps};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_TSYNC, &program) == 0;
}

// In a process of its own, because the filter cannot be taken off again.
using OsRootsDeathTest = OsRoots;

TEST_F(OsRootsDeathTest, OldKernelsRefuseTheSame)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto is_the_same = [&] {
        fs::create_symlink("../secret", storage_ + "/to_folder");
        fs::create_symlink("sub/b.rec", storage_ + "/to_inside");
        os_file_info info = {};
        return forget_openat2() && syscall(SYS_openat2, 0, nullptr, nullptr, 0) == -1 && errno == ENOSYS &&
               opens(storage_ + "/a.rec") && opens(storage_ + "/sub/../a.rec") && opens(storage_ + "/to_inside") &&
               opens(storage_ + "/new.rec", OS_FILE_WRITE) && !opens(storage_ + "/to_folder/s.rec") &&
               !opens(storage_ + "/../secret/s.rec") && !opens("/etc/passwd") &&
               os_file_stat(storage_.c_str(), OS_FILE_CLIENT, &info) && info.is_directory &&
               os_file_replace((storage_ + "/a.rec").c_str(), OS_FILE_CLIENT, "new", 3) &&
               !os_file_replace((storage_ + "/to_folder/s.rec").c_str(), OS_FILE_CLIENT, "x", 1);
    };
    EXPECT_EXIT(quit(is_the_same()), testing::ExitedWithCode(0), "");
}

TEST_F(OsRootsDeathTest, OldKernelsAreNotLedOutsideEither)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(quit(forget_openat2() && foreign_files_opened() == 0), testing::ExitedWithCode(0), "");
}

// From here on the kernel ends this process at the first call that names a file.
static bool forbid_names_of_files()
{
    static constexpr unsigned int CALLS[] = {
        SYS_openat, SYS_openat2, SYS_newfstatat, SYS_statx, SYS_readlinkat, SYS_faccessat, SYS_faccessat2, SYS_mkdirat,
        SYS_unlinkat, SYS_renameat2, SYS_statfs,
#if defined(SYS_open)
        SYS_open, SYS_stat, SYS_lstat, SYS_readlink, SYS_access, SYS_mkdir, SYS_unlink, SYS_rename, SYS_chdir,
#endif
    };
    std::vector<sock_filter> steps = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (unsigned int call : CALLS) {
        steps.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
        steps.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS));
    }
    steps.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    sock_fprog program = {static_cast<unsigned short>(steps.size()), steps.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_TSYNC, &program) == 0;
}

// What `body` answers in a process of its own, or 128 and the signal that ended it. That process must not clean up: it
// may have lost the right to.
static int answer_of_child(const std::function<int()> &body)
{
    pid_t child = fork();
    if (child == 0)
        _exit(body());
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

TEST_F(OsRoots, NamesOutsideAreRefusedWithoutAskingTheKernelForThem)
{
    fs::path before = fs::current_path();
    fs::current_path(storage_);
    roots_set({".", second_});
    const std::string names[] = {
        folder_.file("secret/s.rec"), storage_ + "/../secret/s.rec", "../secret/s.rec", "sub/../../secret/s.rec",
        "none/../../secret/s.rec", "/net/host/share/a.rec", "//net/host/a.rec", "/", "..", "/etc/passwd",
        "\\etc\\passwd", storage_ + "2/t.rec", "./.././storage2/t.rec"};
    os_log_set_level(LOG_FATAL);
    for (const std::string &name : names) {
        int answer = answer_of_child([&] {
            os_file_info info;
            return forbid_names_of_files() && !opens(name) && !opens(name, OS_FILE_WRITE) &&
                   !opens(name, OS_FILE_UPDATE) && !os_file_stat(name.c_str(), OS_FILE_CLIENT, &info) &&
                   !os_file_replace((name + "/a.rec").c_str(), OS_FILE_CLIENT, "x", 1);
        });
        EXPECT_EQ(answer, 1) << name;
    }
    EXPECT_EQ(answer_of_child([&] { return forbid_names_of_files() && opens("a.rec"); }), 128 + SIGSYS)
        << "the kernel is asked for names inside";
    os_log_set_level(LOG_REFUSE);
    fs::current_path(before);
}

TEST_F(OsRoots, ReplaceDoesNotFollowLinks)
{
    fs::create_symlink("../secret", storage_ + "/to_folder");
    fs::create_symlink("a.rec", storage_ + "/link");
    EXPECT_EQ(os_file_replace((storage_ + "/to_folder/s.rec").c_str(), OS_FILE_CLIENT, "x", 1), 0);
    EXPECT_EQ(os_file_replace((storage_ + "/link").c_str(), OS_FILE_CLIENT, "x", 1), 0);
    EXPECT_EQ(text("storage/a.rec"), "inside");
    EXPECT_EQ(text("secret/s.rec"), "secret");
}

TEST_F(OsRoots, LinksIntoAProtectedFolderAreShutToo)
{
    folder_.write("storage/db3/data.mdb", "store");
    fs::create_symlink("db3/data.mdb", storage_ + "/to_store");
    ASSERT_EQ(os_access_protect((storage_ + "/db3").c_str()), 1);
    EXPECT_FALSE(opens(storage_ + "/to_store"));
}
