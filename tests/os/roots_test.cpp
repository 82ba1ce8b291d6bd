#include "platform/os/os_guard.h"
#include "tests/support/temp_folder.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

// storage/ and second/ are roots, secret/ lies beside them.
class OsRoots : public testing::Test {
protected:
    void SetUp() override
    {
        folder_.write("storage/a.rec", "inside");
        folder_.write("storage/sub/b.rec", "deeper");
        folder_.write("second/c.rec", "second");
        folder_.write("secret/s.rec", "secret");
        folder_.write("storage2/t.rec", "neighbour");
        storage_ = folder_.file("storage");
        second_ = folder_.file("second");
        roots_set({storage_, second_});
    }
    void TearDown() override { EXPECT_EQ(os_access_roots_set(nullptr, 0), 1); }

    static void roots_set(const std::vector<std::string> &roots)
    {
        std::vector<const char *> texts;
        for (const std::string &root : roots)
            texts.push_back(root.c_str());
        ASSERT_EQ(os_access_roots_set(texts.data(), texts.size()), 1);
    }
    static bool opens(const std::string &path, int flags = OS_FILE_READ)
    {
        os_file *opened = nullptr;
        int result = os_file_open(path.c_str(), flags | OS_FILE_CLIENT, &opened);
        os_file_ptr closed(opened);
        return result == 1;
    }
    std::string text(const std::string &name) const
    {
        std::ifstream in(folder_.path() / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    int foreign_files_opened();
    // Ends a process that a death test started, its folder removed.
    [[noreturn]] void quit(bool is_good) const
    {
        fs::remove_all(folder_.path());
        std::_Exit(is_good ? 0 : 1);
    }

    temp_folder folder_;
    std::string storage_, second_;
};

TEST_F(OsRoots, FilesBelowARootOpen)
{
    EXPECT_TRUE(opens(storage_ + "/a.rec"));
    EXPECT_TRUE(opens(storage_ + "/sub/b.rec"));
    EXPECT_TRUE(opens(storage_ + "\\sub\\b.rec"));
    EXPECT_TRUE(opens(storage_ + "/sub/../a.rec"));
    EXPECT_TRUE(opens(storage_ + "/./sub//b.rec"));
    EXPECT_TRUE(opens(second_ + "/c.rec"));
    EXPECT_TRUE(opens(storage_ + "/../second/c.rec"));
}

TEST_F(OsRoots, EverythingElseIsRefused)
{
    const std::string paths[] = {
        folder_.file("secret/s.rec"),
        folder_.file("storage2/t.rec"), // the root's name is only its beginning
        storage_ + "/../secret/s.rec",
        storage_ + "\\..\\secret\\s.rec",
        storage_ + "/sub/../../secret/s.rec",
        storage_ + "/none/../../secret/s.rec",
        "/etc/passwd",
        "/proc/self/environ",
        "/proc/self/root/etc/passwd",
        "../secret/s.rec",
        "",
        "..",
        "/",
    };
    for (const std::string &path : paths)
        EXPECT_FALSE(opens(path)) << path;
}

TEST_F(OsRoots, RefusalChangesNothing)
{
    for (int flags : {+OS_FILE_WRITE, +OS_FILE_UPDATE, OS_FILE_WRITE | OS_FILE_EXCLUSIVE}) {
        EXPECT_FALSE(opens(storage_ + "/../secret/s.rec", flags));
        EXPECT_FALSE(opens(storage_ + "/../secret/new.rec", flags));
        EXPECT_FALSE(opens(folder_.file("new.rec"), flags));
    }
    EXPECT_EQ(text("secret/s.rec"), "secret");
    EXPECT_FALSE(fs::exists(folder_.file("secret/new.rec")));
    EXPECT_FALSE(fs::exists(folder_.file("new.rec")));
}

TEST_F(OsRoots, NewFilesAreMadeInside)
{
    EXPECT_TRUE(opens(storage_ + "/new.rec", OS_FILE_WRITE));
    EXPECT_TRUE(opens(storage_ + "/sub/new.rec", OS_FILE_UPDATE));
    EXPECT_TRUE(opens(storage_ + "/sub/exclusive.rec", OS_FILE_WRITE | OS_FILE_EXCLUSIVE));
    EXPECT_TRUE(fs::exists(storage_ + "/sub/exclusive.rec"));
    EXPECT_FALSE(opens(storage_ + "/none/new.rec", OS_FILE_WRITE));
    EXPECT_FALSE(opens(storage_ + "/sub/..", OS_FILE_WRITE));
    EXPECT_FALSE(opens(storage_ + "/", OS_FILE_WRITE));
}

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
    EXPECT_TRUE(opens(folder_.file("door/a.rec")));
    EXPECT_EQ(text("secret/s.rec"), "secret");
    EXPECT_FALSE(fs::exists(folder_.file("secret/made")));
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

TEST_F(OsRoots, RelativeNamesCountFromTheWorkingFolder)
{
    fs::path before = fs::current_path();
    fs::current_path(folder_.path());
    EXPECT_TRUE(opens("storage\\a.rec"));
    EXPECT_TRUE(opens("storage/new.rec", OS_FILE_WRITE));
    EXPECT_FALSE(opens("secret\\s.rec"));
    fs::current_path(storage_);
    EXPECT_TRUE(opens("a.rec"));
    EXPECT_TRUE(opens("plain.rec", OS_FILE_WRITE));
    EXPECT_FALSE(opens("..\\secret\\s.rec"));
    fs::current_path(before);
}

TEST_F(OsRoots, OwnFilesOfTheSystemAreNotBound)
{
    os_file *opened = nullptr;
    EXPECT_EQ(os_file_open(folder_.file("secret/s.rec").c_str(), OS_FILE_READ, &opened), 1);
    os_file_ptr closed(opened);
    os_file_info info = {};
    EXPECT_EQ(os_file_stat(folder_.file("secret/s.rec").c_str(), 0, &info), 1);
}

TEST_F(OsRoots, StatIsBoundToo)
{
    os_file_info info = {};
    EXPECT_EQ(os_file_stat((storage_ + "/a.rec").c_str(), OS_FILE_CLIENT, &info), 1);
    EXPECT_EQ(info.size, 6u);
    EXPECT_EQ(os_file_stat(storage_.c_str(), OS_FILE_CLIENT, &info), 1);
    EXPECT_EQ(info.is_directory, 1);
    EXPECT_EQ(os_file_stat((storage_ + "/../secret/s.rec").c_str(), OS_FILE_CLIENT, &info), 0);
    EXPECT_EQ(os_file_stat("/etc/passwd", OS_FILE_CLIENT, &info), 0);
}

TEST_F(OsRoots, ReplaceIsBoundToo)
{
    fs::create_symlink("../secret", storage_ + "/to_folder");
    fs::create_symlink("a.rec", storage_ + "/link");
    EXPECT_EQ(os_file_replace((storage_ + "/a.rec").c_str(), OS_FILE_CLIENT, "new", 3), 1);
    EXPECT_EQ(os_file_replace((storage_ + "/fresh").c_str(), OS_FILE_CLIENT, "new", 3), 1);
    EXPECT_EQ(os_file_replace((storage_ + "/to_folder/s.rec").c_str(), OS_FILE_CLIENT, "x", 1), 0);
    EXPECT_EQ(os_file_replace((storage_ + "/../secret/s.rec").c_str(), OS_FILE_CLIENT, "x", 1), 0);
    EXPECT_EQ(os_file_replace((storage_ + "/link").c_str(), OS_FILE_CLIENT, "x", 1), 0);
    EXPECT_EQ(text("storage/a.rec"), "new");
    EXPECT_EQ(text("secret/s.rec"), "secret");
}

TEST_F(OsRoots, WithoutRootsEveryPathIsAllowed)
{
    ASSERT_EQ(os_access_roots_set(nullptr, 0), 1);
    EXPECT_TRUE(opens(folder_.file("secret/s.rec")));
    EXPECT_TRUE(opens(storage_ + "/../secret/s.rec"));
}

TEST_F(OsRoots, FailedSetLeavesTheEarlierRoots)
{
    const std::string none = folder_.file("none"), plain = storage_ + "/a.rec", secret = folder_.file("secret");
    for (const std::string &wrong : {none, plain, std::string(), std::string(5000, 'a'), std::string("\xFF")}) {
        const char *texts[] = {secret.c_str(), wrong.c_str()};
        EXPECT_EQ(os_access_roots_set(texts, 2), 0) << wrong;
    }
    const char *missing[] = {nullptr};
    EXPECT_EQ(os_access_roots_set(missing, 1), 0);
    EXPECT_EQ(os_access_roots_set(nullptr, 1), 0);
    EXPECT_TRUE(opens(storage_ + "/a.rec"));
    EXPECT_FALSE(opens(folder_.file("secret/s.rec")));
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

// Protection lasts as long as the process, so each of these shuts a folder of its own.
TEST_F(OsRoots, ProtectedFoldersAreShutToClients)
{
    folder_.write("storage/db/data.mdb", "store");
    folder_.write("storage/db2/data.mdb", "not the store");
    fs::create_symlink("db/data.mdb", storage_ + "/to_store");
    ASSERT_EQ(os_access_protect((storage_ + "/db").c_str()), 1);
    ASSERT_EQ(os_access_protect((storage_ + "/db").c_str()), 1);
    for (bool has_roots : {true, false}) {
        if (!has_roots) {
            ASSERT_EQ(os_access_roots_set(nullptr, 0), 1);
        }
        EXPECT_FALSE(opens(storage_ + "/db/data.mdb"));
        EXPECT_FALSE(opens(storage_ + "/sub/../db/data.mdb", OS_FILE_UPDATE));
        EXPECT_FALSE(opens(storage_ + "/to_store"));
        EXPECT_FALSE(opens(storage_ + "/db/new", OS_FILE_WRITE));
        EXPECT_EQ(os_file_replace((storage_ + "/db/data.mdb").c_str(), OS_FILE_CLIENT, "x", 1), 0);
        EXPECT_TRUE(opens(storage_ + "/db2/data.mdb"));
        EXPECT_EQ(opens(folder_.file("secret/s.rec")), !has_roots);
    }
    EXPECT_EQ(text("storage/db/data.mdb"), "store");
}

TEST_F(OsRoots, OnlyFoldersCanBeProtected)
{
    EXPECT_EQ(os_access_protect((storage_ + "/a.rec").c_str()), 0);
    EXPECT_EQ(os_access_protect((storage_ + "/none").c_str()), 0);
    EXPECT_EQ(os_access_protect(nullptr), 0);
    EXPECT_TRUE(opens(storage_ + "/a.rec"));
}
