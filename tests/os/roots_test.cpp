#include "tests/os/roots_fixture.h"
#include "tests/support/log_capture.h"

namespace fs = std::filesystem;

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
    EXPECT_EQ(os_file_replace((storage_ + "/a.rec").c_str(), OS_FILE_CLIENT, "new", 3), 1);
    EXPECT_EQ(os_file_replace((storage_ + "/fresh").c_str(), OS_FILE_CLIENT, "new", 3), 1);
    EXPECT_EQ(os_file_replace((storage_ + "/../secret/s.rec").c_str(), OS_FILE_CLIENT, "x", 1), 0);
    EXPECT_EQ(text("storage/a.rec"), "new");
    EXPECT_EQ(text("secret/s.rec"), "secret");
}

TEST_F(OsRoots, ARefusalHasItsLine)
{
    log_capture log;
    EXPECT_FALSE(opens(storage_ + "/../secret/s.rec"));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, LOG_REFUSE);
    EXPECT_TRUE(log.lines()[0].text.starts_with("outside access.roots: ")) << log.lines()[0].text;
    EXPECT_NE(log.lines()[0].text.find("s.rec"), std::string::npos) << log.lines()[0].text;
    log.clear();
    EXPECT_TRUE(opens(storage_ + "/a.rec"));
    EXPECT_FALSE(opens(storage_ + "/none.rec"));
    EXPECT_TRUE(log.lines().empty());
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

// Protection lasts as long as the process, so each of these shuts a folder of its own.
TEST_F(OsRoots, ProtectedFoldersAreShutToClients)
{
    folder_.write("storage/db/data.mdb", "store");
    folder_.write("storage/db2/data.mdb", "not the store");
    ASSERT_EQ(os_access_protect((storage_ + "/db").c_str()), 1);
    ASSERT_EQ(os_access_protect((storage_ + "/db").c_str()), 1);
    for (bool has_roots : {true, false}) {
        if (!has_roots) {
            ASSERT_EQ(os_access_roots_set(nullptr, 0), 1);
        }
        EXPECT_FALSE(opens(storage_ + "/db/data.mdb"));
        EXPECT_FALSE(opens(storage_ + "/sub/../db/data.mdb", OS_FILE_UPDATE));
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
