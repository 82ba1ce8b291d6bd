// POSIX only: names of bytes, folders separated by slashes.
#include "tests/os/path_fixture.h"

#include <rapidcheck.h>

TEST_F(OsPath, BackslashesBecomeTheHostsSeparator)
{
    EXPECT_EQ(to_host("etc\\conf\\vod_config.json"), "etc/conf/vod_config.json");
    EXPECT_EQ(to_host("C:\\zeta\\Web\\upload"), "C:/zeta/Web/upload");
    EXPECT_EQ(to_host("/data/a\\b"), "/data/a/b");
    EXPECT_EQ(to_host(""), "");
    EXPECT_EQ(from_host("etc/conf/vod_config.json"), "etc\\conf\\vod_config.json");
    EXPECT_EQ(from_host(""), "");
}

TEST_F(OsPath, SecondByteOfACharacterIsNoSeparator)
{
    // 0x85 0x5C is one character; so is 0x81 0x30 0x81 0x30.
    EXPECT_EQ(to_host("a\\\x85\x5C\\b"), "a/\x85\x5C/b");
    EXPECT_EQ(to_host("\x81\x30\x81\x30\\b"), "\x81\x30\x81\x30/b");
    EXPECT_EQ(from_host("a/\x85\x5C/b"), "a\\\x85\x5C\\b");
    // Two second bytes in a row: the first belongs to the character, the other separates.
    EXPECT_EQ(to_host("\x85\x5C\\"), "\x85\x5C/");
}

TEST_F(OsPath, BytesThatBeginNoCharacterStandForThemselves)
{
    EXPECT_EQ(to_host("\xFF\\b"), "\xFF/b");
    EXPECT_EQ(to_host("\x80\\b"), "\x80/b");
    EXPECT_EQ(to_host("a\x81"), "a\x81");
    EXPECT_EQ(to_host("\x81\x30\\b"), "\x81\x30/b");
    EXPECT_EQ(to_host("\x81\x30\x81\\b"), "\x81\x30\x81\\b");
}

TEST_F(OsPath, Utf8NamesAreDecoded)
{
    ASSERT_EQ(os_fs_charset_set("utf-8"), 1);
    EXPECT_EQ(to_host("\xCD\xA8\xB5\xC0\\1.rec"), "通道/1.rec");
    EXPECT_EQ(from_host("通道/1.rec"), "\xCD\xA8\xB5\xC0\\1.rec");
    EXPECT_EQ(to_host("a\\b"), "a/b");
    EXPECT_EQ(to_host(""), "");
    EXPECT_EQ(to_host("a\xCD"), "(refused)");
    EXPECT_EQ(from_host("a\xFF"), "(refused)");
    // 0x85 0x5C stays one character on the way through.
    EXPECT_EQ(from_host(to_host("x\\\x85\x5C\\y")), "x\\\x85\x5C\\y");
}

TEST_F(OsPath, OtherCharsetsAreRefusedAndChangeNothing)
{
    EXPECT_EQ(os_fs_charset_set("latin1"), 0);
    EXPECT_EQ(os_fs_charset_set(nullptr), 0);
    EXPECT_EQ(os_fs_charset_set(""), 0);
    EXPECT_EQ(to_host("\xCD\xA8"), "\xCD\xA8");
    EXPECT_EQ(os_fs_charset_set("gb18030"), 1);
}

TEST_F(OsPath, ThereAndBackIsTheSameForPathsWithoutSlashes)
{
    EXPECT_TRUE(rc::check("any bytes but zero and '/'", [] {
        const auto path =
            *rc::gen::container<std::string>(rc::gen::suchThat<char>([](char c) { return c != '\0' && c != '/'; }));
        RC_ASSERT(from_host(to_host(path)) == path);
        RC_ASSERT(to_host(path).size() == path.size());
    }));
}
