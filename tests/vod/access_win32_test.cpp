// Windows only: names that are plain elsewhere and lead to devices, streams or other files here.
#include "tests/support/temp_folder.h"
#include "tests/vod/vod_fixture.h"

#include "platform/json/json.h"
#include "vod/access.h"
#include "vod/state_file.h"

#include <filesystem>

class StateFileNamesTest : public VodTest {
protected:
    StateFileNamesTest() : folder(temp_folder::working_directory::enter) {}
    ~StateFileNamesTest() override { access_settings_forget(); }

    static bool is_written(const std::string &name) { return state_file_write(name, "<?xml version=\"1.0\"?>") == 1; }
    temp_folder folder;
};

static const char *const s_refused[] = {"NUL", "nul.xml", "CON", "com1.xml", "aux", "a.xml:x", "a.xml::$DATA", "C:a.xml"};

TEST_F(StateFileNamesTest, WithRootsDevicesAndStreamsAreRefused)
{
    std::filesystem::create_directory("recordings");
    json_ref config(json_tokener_parse("{\"access\":{\"roots\":[\"recordings\"],\"state_dir\":\"states\"}}"));
    ASSERT_EQ(access_settings_read(config.get()), 1);
    EXPECT_TRUE(is_written("a.xml"));
    for (const char *name : s_refused)
        EXPECT_FALSE(is_written(name)) << name;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("states"), {}), 1);
}

TEST_F(StateFileNamesTest, WithoutRootsDevicesAndStreamsAreRefusedToo)
{
    EXPECT_TRUE(is_written("a.xml"));
    EXPECT_TRUE(is_written((folder.path() / "b.xml").string()));
    EXPECT_TRUE(is_written("通道.xml"));
    EXPECT_TRUE(std::filesystem::exists(L"\x901A\x9053.xml"));
    for (const char *name : {"NUL", "nul.xml", "CON", "com1.xml", "aux", "a.xml:x", "a.xml::$DATA", "\\\\.\\pipe\\a",
                             "\\\\?\\GLOBALROOT\\Device\\Null"})
        EXPECT_FALSE(is_written(name)) << name;
}
