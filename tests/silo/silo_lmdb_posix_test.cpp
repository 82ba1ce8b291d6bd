// Hosts with limits on the size of files, and with rights.
#include "tests/silo/silo_handles.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_folder.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

class file_limit {
public:
    explicit file_limit(rlim_t bytes) : before_(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &limit_);
        rlimit lower = {bytes, limit_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &lower);
    }
    ~file_limit()
    {
        setrlimit(RLIMIT_FSIZE, &limit_);
        std::signal(SIGXFSZ, before_);
    }

private:
    rlimit limit_ = {};
    void (*before_)(int);
};

TEST(SiloLmdbPosix, FileThatMayNotGrowFailsTheCommitAndNothingElse)
{
    temp_folder folder;
    silo_ptr db = silo_opened("lmdb:" + folder.file("store"));
    ASSERT_EQ(write_all(db, {{"a", "1"}}), 0);
    const std::string value(200'000, 'x');
    {
        file_limit limited(512 * 1024);
        log_capture log;
        int result = 0;
        for (int i = 0; i < 20 && result == 0; i++)
            result = write_all(db, {{"k" + std::to_string(i), value}});
        EXPECT_EQ(result, SILO_COMMIT_FAILED);
        EXPECT_EQ(log.count_containing("committing: "), 1u);
        EXPECT_EQ(get(reading(db), "a"), "1");
        EXPECT_EQ(silo_proxy_error(db.get()), 0);
    }
    EXPECT_EQ(write_all(db, {{"z", value}}), 0);
    silo_pairs pairs = everything(reading(db));
    EXPECT_EQ(pairs.back().second, value);
    for (const silo_pair &one : pairs)
        EXPECT_TRUE(one.first == "a" || one.second == value) << one.first; // whole or not there
}

TEST(SiloLmdbPosix, ChildProcessesInheritNoFileOfTheStore)
{
    temp_folder folder;
    silo_ptr db = silo_opened("lmdb:" + folder.file("store"));
    ASSERT_NE(db, nullptr);
    int found = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code none;
        std::string target = std::filesystem::read_symlink(entry.path(), none).string();
        if (target.find(folder.file("store")) == std::string::npos)
            continue;
        found++;
        int fd = std::stoi(entry.path().filename().string());
        EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << target;
    }
    EXPECT_GE(found, 2);
}

TEST(SiloLmdbPosix, FolderWithoutRightsIsRefused)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "root may write anywhere";
    temp_folder folder;
    std::filesystem::create_directory(folder.file("store"));
    chmod(folder.file("store").c_str(), 0500);
    log_capture log;
    EXPECT_EQ(silo_connect_fd(("lmdb:" + folder.file("store")).c_str()), -1);
    chmod(folder.file("store").c_str(), 0700);
    EXPECT_EQ(log.count_containing("this account may not read and write there"), 1u);
}

TEST(SiloLmdbPosix, PipeInPlaceOfTheFileIsRefused)
{
    temp_folder folder;
    std::filesystem::create_directory(folder.file("store"));
    ASSERT_EQ(mkfifo(folder.file("store/data.mdb").c_str(), 0600), 0);
    EXPECT_EQ(silo_connect_fd(("lmdb:" + folder.file("store")).c_str()), -1);
}

TEST(SiloLmdbPosix, NamesThatLookLikeOthersAreFolded)
{
    temp_folder folder;
    silo_ptr db = silo_opened("lmdb:" + folder.file("store"));
    // A second name of the same file would make the library open it twice.
    std::filesystem::create_directory(folder.file("second"));
    std::filesystem::create_hard_link(folder.file("store/data.mdb"), folder.file("second/data.mdb"));
    silo_ptr other = silo_opened("lmdb:" + folder.file("second"));
    ASSERT_NE(other, nullptr);
    trans_ptr trans = writing(db);
    EXPECT_EQ(writing(other), nullptr);
}

// An administrator makes it, the service shall open it.
class SiloLmdbOwner : public testing::Test {
protected:
    static constexpr uid_t SERVICE = 54321;
    static constexpr gid_t GROUP = 54322;
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "only root gives files away";
        ASSERT_EQ(chown(folder_.path().c_str(), SERVICE, GROUP), 0);
    }
    std::string owner(const std::string &name) const
    {
        struct stat info = {};
        EXPECT_EQ(lstat((folder_.path() / name).c_str(), &info), 0) << name;
        return std::to_string(info.st_uid) + ":" + std::to_string(info.st_gid);
    }
    temp_folder folder_;
};

TEST_F(SiloLmdbOwner, AStoreThatRootMakesBelongsToTheOwnerOfTheFolderAbove)
{
    ASSERT_EQ(write_all(silo_opened("lmdb:" + folder_.file("var/index")), {{"a", "1"}}), 0);
    for (const char *name : {"var", "var/index", "var/index/data.mdb", "var/index/lock.mdb"})
        EXPECT_EQ(owner(name), "54321:54322") << name;
    EXPECT_EQ(get(reading(silo_opened("lmdb:" + folder_.file("var/index"))), "a"), "1");
}

TEST_F(SiloLmdbOwner, WhatIsThereKeepsItsOwner)
{
    std::filesystem::create_directory(folder_.path() / "roots");
    ASSERT_EQ(write_all(silo_opened("lmdb:" + folder_.file("roots")), {{"a", "1"}}), 0);
    for (const char *name : {"roots", "roots/data.mdb", "roots/lock.mdb"})
        EXPECT_EQ(owner(name), "0:0") << name;
}

TEST_F(SiloLmdbOwner, ALinkThatSomebodyPutThereGivesNothingAway)
{
    folder_.write("store/.keep", "");
    ASSERT_EQ(chown((folder_.path() / "store").c_str(), SERVICE, GROUP), 0);
    std::filesystem::create_symlink(folder_.path() / "secret", folder_.path() / "store/data.mdb");
    silo_opened("lmdb:" + folder_.file("store"));
    if (std::filesystem::exists(folder_.path() / "secret")) {
        EXPECT_EQ(owner("secret"), "0:0");
    }
}
