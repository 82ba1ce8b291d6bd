#include "comm_func/comm_files.h"
#include "platform/os/os.h"
#include "tests/comm_func/said.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cstring>
#include <memory>

// ---- Device-qualified names -----------------------------------------------------------------------------------------

TEST(CloudDevid, IsPutBeforeTheName)
{
    char name[64];
    EXPECT_EQ(add_cloud_devid_to_filename("AB12", "ch1.rec", name), 1);
    EXPECT_STREQ(name, "AB12--ch1.rec");
    EXPECT_EQ(add_cloud_devid_to_filename("", "", name), 1);
    EXPECT_STREQ(name, "--");
}

TEST(CloudDevid, EachMissingPartHasItsText)
{
    char name[64] = "before", device[64] = "before";
    log_capture logs;
    EXPECT_EQ(add_cloud_devid_to_filename(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(add_cloud_devid_to_filename("AB12", nullptr, nullptr), 0);
    EXPECT_EQ(add_cloud_devid_to_filename("AB12", "ch1.rec", nullptr), 0);
    EXPECT_EQ(parse_cloud_devid_filename(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(parse_cloud_devid_filename("a--b", nullptr, nullptr), 0);
    EXPECT_EQ(parse_cloud_devid_filename("a--b", device, nullptr), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "dev_id == NULL"},
                                      {2, "filename == NULL"},
                                      {2, "id_filename == NULL"},
                                      {2, "filename == NULL"},
                                      {2, "dev_id == NULL"},
                                      {2, "real_filename == NULL"}}));
    EXPECT_STREQ(name, "before");
    EXPECT_STREQ(device, "before");
}

TEST(CloudDevid, IsSplitOffAtTheFirstDoubleDash)
{
    struct row {
        const char *filename, *device, *name;
    };
    for (const row &r :
         {row{"AB12--ch1.rec", "AB12", "ch1.rec"}, row{"x--y--z", "x", "y--z"}, row{"x---y", "x", "-y"},
          row{"--y", "", "y"}, row{"x--", "x", ""}, row{"--", "", ""}, row{"---", "", "-"}, row{"a-b--c", "a-b", "c"},
          // Without one the outputs stay.
          row{"abc", "before", "before"}, row{"", "before", "before"}, row{"-", "before", "before"},
          row{"a-b-c", "before", "before"}}) {
        char device[64] = "before", name[64] = "before";
        EXPECT_EQ(parse_cloud_devid_filename(r.filename, device, name), 1) << r.filename;
        EXPECT_STREQ(device, r.device) << r.filename;
        EXPECT_STREQ(name, r.name) << r.filename;
    }
}

// ---- MP4 ------------------------------------------------------------------------------------------------------------

TEST(IsMp4File, DoesNotWaitForPipesNorReadDevices)
{
    temp_folder folder;
    const std::string special = host_special_file(folder);
    log_capture logs;
    EXPECT_EQ(is_mp4_file(special.c_str()), 0);
    EXPECT_EQ(is_mp4_file("/dev/zero"), 0);
    EXPECT_EQ(said(logs), (said_lines{{4, "fp == NULL, filename:" + special}, {4, "fp == NULL, filename:/dev/zero"}}));
}

TEST(IsMp4File, LooksAtTheFirstSixtyFourWords)
{
    struct row {
        std::string bytes;
        int is_mp4;
    };
    auto at = [](size_t offset, size_t size = 512) {
        std::string bytes(size, 'x');
        return bytes.replace(offset, 4, "ftyp");
    };
    temp_folder folder;
    for (const row &r :
         {row{at(4), 1}, row{at(0), 1}, row{at(248), 1}, row{at(252), 1}, row{at(256), 0}, row{at(1), 0}, row{at(6), 0},
          row{at(251), 0}, row{at(4, 8), 1}, row{at(0, 4), 1}, row{std::string(1000, 'x'), 0}, row{"", 0},
          row{"ftyq", 0}, row{"....fty", 0}, row{"....FTYP", 0}}) {
        folder.write("file", r.bytes);
        log_capture logs;
        EXPECT_EQ(is_mp4_file(folder.file("file").c_str()), r.is_mp4) << r.bytes.substr(0, 16);
        EXPECT_EQ(said(logs), said_lines{});
    }
}

TEST(IsMp4File, RefusesWhatCannotBeOpened)
{
    temp_folder folder;
    std::filesystem::create_directory(folder.path() / "ftyp");
    std::string missing = folder.file("missing"), directory = folder.file("ftyp");
    log_capture logs;
    EXPECT_EQ(is_mp4_file(nullptr), 0);
    EXPECT_EQ(is_mp4_file(missing.c_str()), 0);
    EXPECT_EQ(is_mp4_file(directory.c_str()), 0);
    EXPECT_EQ(is_mp4_file(""), 0);
    EXPECT_EQ(said(logs), (said_lines{{4, "filename == NULL"},
                                      {4, "fp == NULL, filename:" + missing},
                                      {4, "fp == NULL, filename:" + directory},
                                      {4, "fp == NULL, filename:"}}));
}

TEST(IsMp4File, TakesNamesInUtf8)
{
    temp_folder folder;
    folder.write(host_name("\xC2\xBC.mp4"), "....ftyp"); // U+5F55
    EXPECT_EQ(is_mp4_file(folder.file("\xE5\xBD\x95.mp4").c_str()), 1);
    std::string broken = folder.file("\xC2\xBC.mp4"), endless = folder.file(std::string(300, 'n'));
    log_capture logs;
    EXPECT_EQ(is_mp4_file(broken.c_str()), 0);
    EXPECT_EQ(is_mp4_file(endless.c_str()), 0);
    EXPECT_EQ(said(logs), (said_lines{{4, "fp == NULL, filename:" + broken}, {4, "fp == NULL, filename:" + endless}}));
}

TEST(IsMp4File, HoldsClientsToTheRoots)
{
    temp_folder inside, outside;
    inside.write("a.mp4", "....ftyp");
    outside.write("a.mp4", "....ftyp");
    std::string root = inside.path().string();
    const char *roots[] = {root.c_str()};
    ASSERT_EQ(os_access_roots_set(roots, 1), 1);
    log_capture logs;
    EXPECT_EQ(is_mp4_file(inside.file("a.mp4").c_str()), 1);
    EXPECT_EQ(is_mp4_file(outside.file("a.mp4").c_str()), 0);
    EXPECT_EQ(os_access_roots_set(nullptr, 0), 1);
    // The first line has the name in the form of the host.
    said_lines lines = said(logs);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].first, 2);
    EXPECT_TRUE(lines[0].second.starts_with("outside access.roots: ")) << lines[0].second;
    EXPECT_EQ(lines[1], said_lines::value_type(4, "fp == NULL, filename:" + outside.file("a.mp4")));
}

// ---- ".md5" ---------------------------------------------------------------------------------------------------------

TEST(ReplaceSuffixByMd5, TakesTheLastSuffixAway)
{
    struct row {
        const char *filename;
        int room, result;
        const char *name;
    };
    for (const row &r : {row{"a.mp4", 64, 1, "a.md5"}, row{"a", 64, 1, "a.md5"}, row{"a.b.mp4", 64, 1, "a.b.md5"},
                         row{"a.", 64, 1, "a.md5"}, row{".mp4", 64, 1, ".md5"}, row{"", 64, 1, ".md5"},
                         row{"d.x\\name", 64, 1, "d.md5"}, row{"a.MD5", 64, 1, "a.md5"}, row{"a.md55", 64, 1, "a.md5"},
                         row{"a.longsuffix", 64, 1, "a.md5"},
                         // Exactly enough room, and one byte less.
                         row{"ab.mp4", 7, 1, "ab.md5"}, row{"ab.", 7, 1, "ab.md5"}, row{"ab.", 6, 0, "ab."},
                         row{"ab", 7, 1, "ab.md5"}, row{"ab", 6, 0, "ab"}}) {
        auto name = std::make_unique<char[]>(static_cast<size_t>(r.room));
        log_capture logs;
        EXPECT_EQ(replace_suffix_by_md5(r.filename, name.get(), r.room), r.result) << r.filename << ' ' << r.room;
        EXPECT_STREQ(name.get(), r.name);
        EXPECT_EQ(said(logs), said_lines{});
    }
}

TEST(ReplaceSuffixByMd5, RefusesANameThatHasItAlready)
{
    char name[64] = "before";
    log_capture logs;
    EXPECT_EQ(replace_suffix_by_md5("rec.md5", name, sizeof name), 0);
    EXPECT_EQ(said(logs), (said_lines{{4, "filename: rec.md5"}}));
}

TEST(ReplaceSuffixByMd5, RefusesANameAsLongAsTheRoom)
{
    char name[64] = "before";
    log_capture logs;
    for (int room : {6, 5, 0, -1})
        EXPECT_EQ(replace_suffix_by_md5("ab.mp4", name, room), 0) << room;
    EXPECT_STREQ(name, "before");
    EXPECT_EQ(said(logs), (said_lines{{4, "filename:ab.mp4, len:6 >= filename_md5_len:6"},
                                      {4, "filename:ab.mp4, len:6 >= filename_md5_len:5"},
                                      {4, "filename:ab.mp4, len:6 >= filename_md5_len:0"},
                                      {4, "filename:ab.mp4, len:6 >= filename_md5_len:-1"}}));
}

TEST(ReplaceSuffixByMd5, RefusesMissingArguments)
{
    char name[64] = "before";
    log_capture logs;
    EXPECT_EQ(replace_suffix_by_md5(nullptr, name, sizeof name), 0);
    EXPECT_EQ(replace_suffix_by_md5("a", nullptr, 64), 0);
    EXPECT_EQ(said(logs), said_lines(2, {4, "filename == NULL || filename_md5 == NULL"}));
}

TEST(ReplaceSuffixByMd5, NeverWritesBeyondTheRoom)
{
    log_capture refusals;
    EXPECT_TRUE(rc::check([](std::string filename) {
        std::erase(filename, '\0');
        int room = *rc::gen::inRange(0, 40);
        auto name = std::make_unique<char[]>(static_cast<size_t>(room) + 1);
        name[static_cast<size_t>(room)] = 'e';
        if (replace_suffix_by_md5(filename.c_str(), name.get(), room))
            RC_ASSERT(std::string(name.get()).ends_with(".md5"));
        RC_ASSERT(name[static_cast<size_t>(room)] == 'e');
    }));
}

// ---- Recording types ------------------------------------------------------------------------------------------------

TEST(GetDbRecType, MapsTheKnownTypes)
{
    struct row {
        int rec_type, db_type;
    };
    for (const row &r : {row{0, 255}, row{1, 2}, row{2, 1}, row{3, 1}, row{4, 1}, row{5, 1}, row{6, 1}, row{7, 4},
                         row{8, 8}, row{255, 255}, row{-1, -1}, row{INT32_MAX, INT32_MAX}, row{INT32_MIN, INT32_MIN}})
        EXPECT_EQ(get_db_rec_type(r.rec_type), r.db_type) << r.rec_type;
}

// ---- Disk status ----------------------------------------------------------------------------------------------------

TEST(DiskStatusFilename, FlattensThePath)
{
    struct row {
        std::string path, name;
    };
    for (const row &r :
         {row{"/orbfs/sda/1", "/var/run/diskstatus/_sda_1"}, row{"/sda/1", "/var/run/diskstatus/_sda_1"},
          row{"sda", "/var/run/diskstatus/sda"}, row{"", "/var/run/diskstatus/"}, row{"/orbfs", "/var/run/diskstatus/"},
          row{"/orbfsx/1", "/var/run/diskstatus/x_1"}, row{"/a/orbfs", "/var/run/diskstatus/_a_orbfs"},
          row{"/orbfs" + std::string(300, '/'), "/var/run/diskstatus/" + std::string(255, '_')}}) {
        char name[512];
        get_disk_status_filename(r.path.c_str(), name, sizeof name);
        EXPECT_EQ(name, r.name);
    }
}

TEST(DiskStatusFilename, IsCutToTheBuffer)
{
    auto exact = std::make_unique<char[]>(24);
    get_disk_status_filename("/orbfs/sda/1", exact.get(), 24);
    EXPECT_STREQ(exact.get(), "/var/run/diskstatus/_sd");
    char name[8] = "before";
    get_disk_status_filename("/sda", name, 0);
    get_disk_status_filename("/sda", name, -1);
    get_disk_status_filename(nullptr, name, 8);
    get_disk_status_filename("/sda", nullptr, 8);
    EXPECT_STREQ(name, "before");
}

TEST(DiskCheck, ComparesTheUptimeWithTheStoredTime)
{
    struct row {
        const char *text;
        int valid_interval, is_active;
        const char *line; // "" for none
    };
    temp_folder folder;
    for (const row &r :
         {row{"100\n", 10, 1, ""}, row{"100", 1, 1, ""}, row{"0", 1, 1, ""}, row{" \n 5 rest", 1, 1, ""},
          row{"0", 0, 0, "uptime:0-update_time:0:0 >= 0, disk_check is unactive"},
          row{"-10", 10, 0, "uptime:0-update_time:-10:10 >= 10, disk_check is unactive"}, row{"-9", 10, 1, ""},
          row{"100", -100, 0, "uptime:0-update_time:100:-100 >= -100, disk_check is unactive"},
          row{"100", -99, 1, ""}}) {
        folder.write("checktime", r.text);
        log_capture logs;
        EXPECT_EQ(disk_check_file_is_active(folder.file("checktime").c_str(), r.valid_interval), r.is_active) << r.text;
        EXPECT_EQ(said(logs), (*r.line == '\0' ? said_lines{} : said_lines{{1, r.line}})) << r.text;
    }
}

TEST(DiskCheck, TheDifferenceHasThirtyTwoBits)
{
    temp_folder folder;
    folder.write("checktime", "-4294967296");
    EXPECT_EQ(disk_check_file_is_active(folder.file("checktime").c_str(), 1), 1) << "at the bound of the host's numbers";
    folder.write("checktime", "-99999999999999999999999999");
    EXPECT_EQ(disk_check_file_is_active(folder.file("checktime").c_str(), 1), 1) << "saturates, then keeps 32 bits";
}

TEST(DiskCheck, RefusesAMissingAndAnEmptyFile)
{
    temp_folder folder;
    for (const char *text : {"", "x", "\n\n", "- 5"}) {
        folder.write("checktime", text);
        log_capture logs;
        EXPECT_EQ(disk_check_file_is_active(folder.file("checktime").c_str(), 10), 0) << text;
        EXPECT_EQ(said(logs), (said_lines{{4, "!fscanf"}})) << text;
    }
    log_capture logs;
    EXPECT_EQ(disk_check_file_is_active(folder.file("missing").c_str(), 10), 0);
    EXPECT_EQ(said(logs), (said_lines{{1, "!fopen(\"/var/run/diskstatus/checktime\", \"r\")"}}));
}

TEST(DiskCheck, ReadsTheCheckTimeOfTheHost)
{
    EXPECT_EQ(disk_check_is_active(10), disk_check_file_is_active("/var/run/diskstatus/checktime", 10));
}

TEST(HostProbes, GiveFixedAnswers)
{
    char result[8] = "before";
    log_capture logs;
    EXPECT_EQ(get_uptime(), 0);
    EXPECT_EQ(get_uptime_from_status_file("/proc/uptime"), -1);
    EXPECT_EQ(get_uptime_from_status_file(nullptr), -1);
    EXPECT_EQ(get_cmd_result("echo 1", result, sizeof result), 0);
    EXPECT_STREQ(result, "before");
    EXPECT_EQ(said(logs), said_lines{});
    EXPECT_EQ(get_cmd_result(nullptr, result, sizeof result), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "cmd == NULL"}}));
}
