// The many names that this host has for one file: none may lead out of the roots or to a device.
#include "platform/os/os_access.h"
#include "platform/os/os_win32.h"
#include "tests/os/roots_fixture.h"

#include <windows.h>

namespace fs = std::filesystem;

static std::string upper(std::string text)
{
    for (char &c : text)
        c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    return text;
}

// "C:\a\b" as "\a\b".
static std::string without_drive(const std::string &path)
{
    return path.substr(2);
}

static std::string short_name(const std::string &path)
{
    char found[1024] = "";
    return GetShortPathNameA(path.c_str(), found, sizeof found) != 0 ? found : path;
}

TEST_F(OsRoots, CaseOfNamesDoesNotCount)
{
    EXPECT_TRUE(opens(upper(storage_) + "\\A.REC"));
    EXPECT_TRUE(opens(upper(storage_) + "\\NEW.REC", OS_FILE_WRITE));
    EXPECT_FALSE(opens(upper(folder_.file("secret\\s.rec"))));
    EXPECT_FALSE(opens(upper(folder_.file("storage2\\t.rec"))));
    roots_set({upper(storage_)});
    EXPECT_TRUE(opens(storage_ + "\\a.rec"));
    EXPECT_FALSE(opens(second_ + "\\c.rec"));
}

TEST_F(OsRoots, ShortNamesCountAsWhatTheyStandFor)
{
    folder_.write("storage/a long folder name/a long file name.recording", "inside");
    folder_.write("a long secret folder/a long secret file.recording", "secret");
    const std::string inside = short_name(folder_.file("storage\\a long folder name\\a long file name.recording"));
    const std::string outside = short_name(folder_.file("a long secret folder\\a long secret file.recording"));
    if (inside.find('~') == std::string::npos)
        GTEST_SKIP() << "this volume makes no short names";
    EXPECT_TRUE(opens(inside));
    EXPECT_FALSE(opens(outside));
    EXPECT_FALSE(opens(outside, OS_FILE_WRITE));
    EXPECT_FALSE(opens(outside.substr(0, outside.rfind('\\')) + "\\new.rec", OS_FILE_WRITE));
    EXPECT_EQ(text("a long secret folder/a long secret file.recording"), "secret");
    // A root that was given by its short name is the same root.
    roots_set({inside.substr(0, inside.rfind('\\'))});
    EXPECT_TRUE(opens(folder_.file("storage\\a long folder name\\a long file name.recording")));
    EXPECT_FALSE(opens(storage_ + "\\a.rec"));
}

TEST_F(OsRoots, PrefixesOfTheHostLeadNowhereElse)
{
    const std::string secret = folder_.file("secret\\s.rec"), inside = storage_ + "\\a.rec";
    EXPECT_TRUE(opens(inside));
    const std::string paths[] = {
        "\\\\?\\" + inside,
        "//?/" + inside,
        "\\\\?\\" + storage_ + "\\sub\\..\\a.rec",
        "\\\\?\\" + secret,
        "//?/" + secret,
        "\\\\?/" + secret,
        "\\\\?\\" + storage_ + "\\..\\secret\\s.rec",
        "\\\\.\\" + secret,
        "//./" + secret,
        "\\\\.\\" + inside,
        "\\?\?\\" + secret,
        "/?\?/" + secret,
        "\\\\?\\UNC\\localhost\\C$" + without_drive(secret),
        "\\\\localhost\\C$" + without_drive(secret),
        "\\\\127.0.0.1\\C$" + without_drive(secret),
        "\\\\?\\GLOBALROOT\\DosDevices\\" + secret,
        "\\\\.\\GLOBALROOT\\Device\\Null",
        "\\/?\\GLOBALROOT\\Device\\Null",
        "\\Device\\Null",
        "\\\\?\\Volume{00000000-0000-0000-0000-000000000000}\\secret\\s.rec",
    };
    for (const std::string &path : paths)
        for (int flags : {+OS_FILE_READ, +OS_FILE_WRITE, +OS_FILE_UPDATE}) {
            EXPECT_FALSE(opens(path, flags)) << path << " " << flags;
            os_file_info info;
            EXPECT_EQ(os_file_stat(path.c_str(), OS_FILE_CLIENT, &info), 0) << path;
            EXPECT_EQ(os_file_replace(path.c_str(), OS_FILE_CLIENT, "x", 1), 0) << path;
        }
    EXPECT_EQ(text("secret/s.rec"), "secret");
    EXPECT_EQ(text("storage/a.rec"), "inside");
}

TEST_F(OsRoots, NamesWithoutDriveOrFolderCountFromWhereTheProcessStands)
{
    ASSERT_EQ(storage_.at(1), ':');
    const std::string drive = storage_.substr(0, 2);
    fs::path before = fs::current_path();
    fs::current_path(storage_);
    EXPECT_TRUE(opens(without_drive(storage_) + "\\a.rec"));
    EXPECT_FALSE(opens(without_drive(folder_.file("secret")) + "\\s.rec"));
    EXPECT_TRUE(opens("a.rec"));
    // Which folder that is depends on what the process did with the drive before.
    EXPECT_FALSE(opens(drive + "a.rec"));
    EXPECT_FALSE(opens(drive + "sub\\b.rec"));
    EXPECT_FALSE(opens(drive + "new.rec", OS_FILE_WRITE));
    EXPECT_FALSE(fs::exists("new.rec"));
    EXPECT_FALSE(opens(drive + "..\\secret\\s.rec"));
    fs::current_path(folder_.file("secret"));
    EXPECT_FALSE(opens(drive + "s.rec"));
    EXPECT_FALSE(opens(drive + "s.rec", OS_FILE_WRITE));
    EXPECT_FALSE(opens(drive));
    fs::current_path(before);
    EXPECT_EQ(text("secret/s.rec"), "secret");
}

// How often the host was asked for the name by a call that is refused.
static uint32_t looks_at(const std::string &path)
{
    os_fault_arm(1'000'000);
    os_file_info info;
    EXPECT_EQ(os_file_stat(path.c_str(), OS_FILE_CLIENT, &info), 0) << path;
    uint32_t asked = os_fault_calls() - 1; // the call itself
    os_fault_disarm();
    return asked;
}

TEST_F(OsRoots, NamesOutsideAreRefusedWithoutAskingTheHostForThem)
{
    for (const std::string &path :
         {folder_.file("secret\\s.rec"), storage_ + "\\..\\secret\\s.rec", std::string("\\\\127.0.0.1\\C$\\s.rec"),
          std::string("//127.0.0.1/share/s.rec"), "\\\\?\\" + storage_ + "\\a.rec", storage_.substr(0, 2) + "a.rec",
          std::string("Z:\\etc\\passwd"), std::string("\\"), folder_.file("storage2\\t.rec")})
        EXPECT_EQ(looks_at(path), 0u) << path;
    EXPECT_EQ(looks_at(storage_ + "\\none.rec"), 1u);
}

TEST_F(OsRoots, WithoutRootsNamesOfHostsAndDevicesAreForThoseWhoMay)
{
    ASSERT_EQ(os_access_roots_set(nullptr, 0), 1);
    const std::string drive = storage_.substr(0, 2);
    fs::path before = fs::current_path();
    fs::current_path(storage_);
    EXPECT_TRUE(opens(drive + "a.rec")) << "a tool's user names what he likes";
    EXPECT_TRUE(opens("\\\\?\\" + storage_ + "\\a.rec"));
    os_access_hosts_shut(1);
    for (const std::string &path : {std::string("\\\\127.0.0.1\\C$\\s.rec"), std::string("//127.0.0.1/share/s.rec"),
                                    std::string("\\/127.0.0.1\\share\\s.rec"), drive + "a.rec", drive,
                                    "\\\\?\\" + storage_ + "\\a.rec"})
        for (int flags : {+OS_FILE_READ, +OS_FILE_WRITE}) {
            EXPECT_FALSE(opens(path, flags)) << path;
            EXPECT_STREQ(os_file_error(), "a name of a host, of a device or from a drive's own folder") << path;
        }
    EXPECT_TRUE(opens(storage_ + "\\a.rec"));
    EXPECT_TRUE(opens(without_drive(storage_) + "\\a.rec"));
    EXPECT_TRUE(opens("a.rec"));
    os_access_hosts_shut(0);
    fs::current_path(before);
}

TEST_F(OsRoots, DevicesAreRefusedInEveryFolderAndSpelling)
{
    const auto before = std::distance(fs::directory_iterator(storage_), {});
    for (const char *name :
         {"NUL", "nul", "CON", "con", "PRN", "AUX", "COM1", "com9", "LPT1", "NUL.rec", "nul.tar.gz", "COM1 .rec", "aux ",
          "aux.", "nul:", "COM1:", "CONIN$", "conout$", "COM\xC2\xB9", "lpt\xC2\xB3.rec", "con\\a.rec"}) {
        char system_name[64] = "";
        ASSERT_EQ(os_path_from_host(name, system_name, sizeof system_name), 1) << name;
        for (const std::string &path :
             {std::string(system_name), storage_ + "\\" + system_name, "\\\\?\\" + storage_ + "\\" + system_name,
              storage_ + "\\sub\\..\\" + system_name, "\\\\.\\" + std::string(system_name)})
            for (int flags : {+OS_FILE_READ, +OS_FILE_WRITE, OS_FILE_UPDATE | OS_FILE_EXCLUSIVE}) {
                EXPECT_FALSE(opens(path, flags)) << path << " " << flags;
                EXPECT_STREQ(os_file_error(), "not a regular file") << path << " " << flags;
            }
        EXPECT_EQ(os_file_replace((storage_ + "\\" + system_name).c_str(), OS_FILE_CLIENT, "x", 1), 0) << name;
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(storage_), {}), before);
    for (const char *name : {"NULL.rec", "COM.rec", "COM10", "LPT", "a.nul", "CONSOLE", "xCON"})
        EXPECT_TRUE(opens(storage_ + "\\" + name, OS_FILE_WRITE)) << name;
}

TEST_F(OsRoots, StreamsInsideFilesAreRefused)
{
    for (const char *stream : {"\\a.rec:x", "\\a.rec::$DATA", "\\a.rec:x:$DATA", "\\sub:x", "\\sub\\:x", "\\new.rec:x",
                               ":x", "\\sub::$INDEX_ALLOCATION\\b.rec"})
        for (const std::string &prefix : {std::string(), std::string("\\\\?\\")}) {
            const std::string path = prefix + storage_ + stream;
            for (int flags : {+OS_FILE_READ, +OS_FILE_WRITE, +OS_FILE_UPDATE})
                EXPECT_FALSE(opens(path, flags)) << path;
            os_file_info info;
            EXPECT_EQ(os_file_stat(path.c_str(), OS_FILE_CLIENT, &info), 0) << path;
            EXPECT_EQ(os_file_replace(path.c_str(), OS_FILE_CLIENT, "x", 1), 0) << path;
            EXPECT_STREQ(os_file_error(), "not a regular file") << path;
        }
    EXPECT_EQ(text("storage/a.rec"), "inside");
    EXPECT_FALSE(fs::exists(storage_ + "\\new.rec"));
}

TEST_F(OsRoots, DotsAndBlanksAtTheEndsOfNamesMakeNoOtherNames)
{
    EXPECT_TRUE(opens(storage_ + "\\a.rec."));
    EXPECT_TRUE(opens(storage_ + "\\a.rec .. "));
    for (const char *path : {"\\.. \\secret\\s.rec", "\\..\\secret.\\s.rec", "\\..\\secret \\s.rec", "\\...\\secret\\s.rec",
                             "\\..\\secret\\s.rec ", "\\..\\secret\\s.rec.", "\\.\\..\\secret\\s.rec. ."})
        for (int flags : {+OS_FILE_READ, +OS_FILE_WRITE, +OS_FILE_UPDATE})
            EXPECT_FALSE(opens(storage_ + path, flags)) << path;
    EXPECT_EQ(text("secret/s.rec"), "secret");
}

TEST_F(OsRoots, WildcardsAndControlBytesAreNoNames)
{
    for (const char *name : {"\\*.rec", "\\?.rec", "\\a.re<", "\\a.re>", "\\\"a.rec", "\\a|b", "\\a\x01" "b", "\\a\nb"})
        for (int flags : {+OS_FILE_READ, +OS_FILE_WRITE})
            EXPECT_FALSE(opens(storage_ + name, flags)) << name;
}

TEST_F(OsRoots, DriveAsARootAllowsAllOfIt)
{
    roots_set({storage_.substr(0, 3)});
    EXPECT_TRUE(opens(folder_.file("secret\\s.rec")));
    EXPECT_FALSE(opens(storage_.substr(0, 3)));
    EXPECT_FALSE(opens("Z:\\etc\\passwd"));
}

// Not every host that runs these programs says where a file with a long path lies; what it does not say is refused.
static bool host_tells_where(const std::string &long_path)
{
    os_file *opened = nullptr;
    EXPECT_EQ(os_file_open(long_path.c_str(), OS_FILE_WRITE, &opened), 1);
    os_file_ptr closed(opened);
    handle_owner handle(CreateFileA(("\\\\?\\" + long_path).c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, 0, nullptr));
    std::wstring found(2048, L'\0');
    return GetFinalPathNameByHandleW(handle.get(), found.data(), 2048, 0) != 0;
}

TEST_F(OsRoots, LongPathsAreBoundToo)
{
    std::string inside = storage_, outside = folder_.file("secret");
    while (inside.size() < 400) {
        inside += "\\" + std::string(50, 'a');
        outside += "\\" + std::string(50, 'a');
        ASSERT_EQ(os_directory_create(inside.c_str()), 1);
        ASSERT_EQ(os_directory_create(outside.c_str()), 1);
    }
    EXPECT_FALSE(opens(outside + "\\a.rec", OS_FILE_WRITE));
    EXPECT_EQ(os_file_replace((outside + "\\b.rec").c_str(), OS_FILE_CLIENT, "x", 1), 0);
    if (!host_tells_where(inside + "\\a.rec"))
        GTEST_SKIP() << "this host does not tell where a file with a long path lies";
    EXPECT_TRUE(opens(inside + "\\a.rec", OS_FILE_WRITE));
    EXPECT_TRUE(opens(inside + "\\a.rec"));
    EXPECT_EQ(os_file_replace((inside + "\\b.rec").c_str(), OS_FILE_CLIENT, "x", 1), 1);
}

TEST_F(OsRoots, ChineseNamesAreBoundToo)
{
    // Given by clients in GB18030; the root is UTF-8.
    ASSERT_EQ(os_directory_create((storage_ + "\\\xCD\xA8\xB5\xC0").c_str()), 1);
    ASSERT_EQ(os_directory_create((folder_.file("secret") + "\\\xCD\xA8\xB5\xC0").c_str()), 1);
    roots_set({storage_ + "\\通道"});
    EXPECT_TRUE(opens(storage_ + "\\\xCD\xA8\xB5\xC0\\\xC2\xBC.rec", OS_FILE_WRITE));
    EXPECT_TRUE(opens(storage_ + "\\\xCD\xA8\xB5\xC0\\\xC2\xBC.rec"));
    EXPECT_FALSE(opens(storage_ + "\\a.rec"));
    EXPECT_FALSE(opens(folder_.file("secret") + "\\\xCD\xA8\xB5\xC0\\\xC2\xBC.rec", OS_FILE_WRITE));
}

TEST_F(OsRoots, ProtectedFoldersAreShutByAllTheirNames)
{
    folder_.write("storage/the store of the service/data.mdb", "store");
    const std::string store = folder_.file("storage\\the store of the service");
    ASSERT_EQ(os_access_protect(store.c_str()), 1);
    for (const std::string &name : {store, upper(store), short_name(store), "\\\\?\\" + store, without_drive(store),
                                    store + ".", store + " "}) {
        EXPECT_FALSE(opens(name + "\\data.mdb")) << name;
        EXPECT_FALSE(opens(name + "\\data.mdb", OS_FILE_UPDATE)) << name;
        EXPECT_FALSE(opens(name + "\\new", OS_FILE_WRITE)) << name;
        EXPECT_EQ(os_file_replace((name + "\\data.mdb").c_str(), OS_FILE_CLIENT, "x", 1), 0) << name;
    }
    EXPECT_EQ(text("storage/the store of the service/data.mdb"), "store");
}
