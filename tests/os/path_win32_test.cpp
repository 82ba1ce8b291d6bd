// Names of UTF-16 behind GB18030 paths, which stay as they are but for the character set.
#include "tests/os/path_fixture.h"

TEST_F(OsPath, BackslashesStay)
{
    EXPECT_EQ(to_host("etc\\conf\\vod_config.json"), "etc\\conf\\vod_config.json");
    EXPECT_EQ(to_host("C:\\zeta\\Web\\upload"), "C:\\zeta\\Web\\upload");
    EXPECT_EQ(to_host("C:\\"), "C:\\");
    EXPECT_EQ(to_host("\\\\host\\share\\a"), "\\\\host\\share\\a");
    EXPECT_EQ(to_host(""), "");
    EXPECT_EQ(from_host("etc/conf/vod_config.json"), "etc\\conf\\vod_config.json");
    EXPECT_EQ(from_host("C:\\zeta"), "C:\\zeta");
    EXPECT_EQ(from_host(""), "");
}

TEST_F(OsPath, NamesAreDecodedWhateverTheSettingSays)
{
    for (const char *charset : {"GB18030", "UTF-8"}) {
        ASSERT_EQ(os_fs_charset_set(charset), 1);
        EXPECT_EQ(to_host("\xCD\xA8\xB5\xC0\\1.rec"), "通道\\1.rec") << charset;
        EXPECT_EQ(from_host("通道/1.rec"), "\xCD\xA8\xB5\xC0\\1.rec") << charset;
        EXPECT_EQ(to_host("a\xCD"), "(refused)") << charset;
        EXPECT_EQ(from_host("a\xFF"), "(refused)") << charset;
    }
}

TEST_F(OsPath, SecondByteOfACharacterIsNoSeparator)
{
    // 0x85 0x5C is one character.
    EXPECT_EQ(from_host(to_host("x\\\x85\x5C\\y")), "x\\\x85\x5C\\y");
    EXPECT_EQ(to_host("\x85\x5C").find('\\'), std::string::npos);
}
