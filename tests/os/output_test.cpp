// Output files: a temporary name until the end, nothing replaced unasked, no input touched, the rest of a break kept.
#include "platform/os/os_output.h"
#include "tests/os/output_fixture.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(OsOutput, TheTargetAppearsWholeAtTheEnd)
{
    output_ref output = open({file("a")});
    ASSERT_NE(output, nullptr);
    EXPECT_EQ(os_output_is_stream(output.get()), 0);
    EXPECT_TRUE(write(output, "0123456789"));
    EXPECT_EQ(os_output_write(output.get(), "ab", 2, 4), 1);
    EXPECT_FALSE(std::filesystem::exists(file("a")));
    ASSERT_EQ(names().size(), 1u);
    EXPECT_EQ(names()[0], std::filesystem::path(os_output_temporary(output.get())).filename());
    EXPECT_EQ(os_output_finish(output.get()), 1) << os_file_error();
    EXPECT_EQ(text("a"), "0123ab6789");
    EXPECT_THAT(names(), ElementsAre("a"));
}

TEST_F(OsOutput, TemporaryNamesCannotBeGuessed)
{
    output_ref first = open({file("a")}), second = open({file("a")});
    ASSERT_TRUE(first && second);
    EXPECT_STRNE(os_output_temporary(first.get()), os_output_temporary(second.get()));
    EXPECT_EQ(names().size(), 2u);
}

TEST_F(OsOutput, AFileThatIsThereIsReplacedOnlyWhenAsked)
{
    folder_.write("a", "old");
    EXPECT_EQ(result_of({file("a")}), OS_OUTPUT_EXISTS);
    EXPECT_EQ(text("a"), "old");
    output_ref output = open({file("a"), OS_OUTPUT_REPLACE});
    ASSERT_NE(output, nullptr);
    EXPECT_TRUE(write(output, "new"));
    EXPECT_EQ(text("a"), "old");
    EXPECT_EQ(os_output_finish(output.get()), 1);
    EXPECT_EQ(text("a"), "new");
    EXPECT_THAT(names(), ElementsAre("a"));
}

TEST_F(OsOutput, AFileThatIsMadeMeanwhileIsNotReplaced)
{
    output_ref output = open({file("a")});
    ASSERT_NE(output, nullptr);
    EXPECT_TRUE(write(output, "mine"));
    folder_.write("a", "theirs");
    EXPECT_EQ(os_output_finish(output.get()), 0);
    EXPECT_THAT(os_file_error(), HasSubstr("made meanwhile"));
    EXPECT_EQ(left(output), file("a.part"));
    EXPECT_EQ(text("a"), "theirs");
    EXPECT_EQ(text("a.part"), "mine");
}

TEST_F(OsOutput, AnInputIsRefusedUnderEachOfItsNames)
{
    folder_.write("in", "input");
    std::filesystem::create_hard_link(folder_.path() / "in", folder_.path() / "twin");
    std::filesystem::create_directory(folder_.path() / "sub");
    for (const char *name : {"in", "./in", "sub/../in", "twin"})
        for (int flags : {0, +OS_OUTPUT_REPLACE})
            EXPECT_EQ(result_of({file(name), flags, {file("in"), file("no such file")}}), OS_OUTPUT_INPUT) << name;
    EXPECT_EQ(text("in"), "input");
    EXPECT_EQ(names().size(), 3u);
}

TEST_F(OsOutput, ATargetThatBecomesTheInputMeanwhileIsLeftAlone)
{
    folder_.write("in", "input");
    output_ref output = open({file("a"), OS_OUTPUT_REPLACE, {file("in")}});
    ASSERT_NE(output, nullptr);
    EXPECT_TRUE(write(output, "mine"));
    std::filesystem::create_hard_link(folder_.path() / "in", folder_.path() / "a");
    EXPECT_EQ(os_output_finish(output.get()), 0);
    EXPECT_EQ(text("in"), "input");
}

TEST_F(OsOutput, WhatABreakLeavesIsKeptAsPart)
{
    folder_.write("a", "old");
    output_ref output = open({file("a"), OS_OUTPUT_REPLACE});
    ASSERT_NE(output, nullptr);
    EXPECT_TRUE(write(output, "half"));
    EXPECT_EQ(left(output), file("a.part"));
    output.reset();
    EXPECT_EQ(text("a"), "old");
    EXPECT_EQ(text("a.part"), "half");
    EXPECT_THAT(names(), ElementsAre("a", "a.part"));
}

TEST_F(OsOutput, APartOfTheUsersOwnIsNeverTouched)
{
    folder_.write("a.part", "the user's");
    for (int i = 2; i <= 9; i++) {
        output_ref output = open({file("a")});
        ASSERT_NE(output, nullptr);
        EXPECT_TRUE(write(output, "half"));
        EXPECT_EQ(left(output), file("a.part." + std::to_string(i)));
    }
    output_ref output = open({file("a")});
    ASSERT_NE(output, nullptr);
    EXPECT_TRUE(write(output, "half"));
    std::string temporary = os_output_temporary(output.get());
    EXPECT_EQ(left(output), temporary);
    EXPECT_TRUE(std::filesystem::exists(temporary));
    EXPECT_EQ(text("a.part"), "the user's");
}

TEST_F(OsOutput, NothingWrittenLeavesNothing)
{
    output_ref output = open({file("a")});
    ASSERT_NE(output, nullptr);
    EXPECT_EQ(left(output), "");
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_NE(open({file("a")}), nullptr); // and so does an end without a word
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(OsOutput, WhatIsDroppedIsGone)
{
    output_ref output = open({file("a")});
    ASSERT_NE(output, nullptr);
    EXPECT_TRUE(write(output, "half"));
    EXPECT_EQ(os_output_drop(output.get()), 1);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(OsOutput, TheCallerMayMakeTheFileItself)
{
    folder_.write("a", "old");
    output_ref output = open({file("a"), OS_OUTPUT_REPLACE | OS_OUTPUT_NAME_ONLY});
    ASSERT_NE(output, nullptr);
    EXPECT_THAT(names(), ElementsAre("a"));
    std::ofstream(os_output_temporary(output.get())) << "new";
    EXPECT_EQ(os_output_finish(output.get()), 1);
    EXPECT_EQ(text("a"), "new");
    EXPECT_THAT(names(), ElementsAre("a"));
}

TEST_F(OsOutput, FoldersAndPlacesThatAreNotThereAreRefused)
{
    std::filesystem::create_directory(folder_.path() / "sub");
    EXPECT_EQ(result_of({file("sub"), OS_OUTPUT_REPLACE}), OS_OUTPUT_FOLDER);
    EXPECT_EQ(result_of({file("."), OS_OUTPUT_REPLACE}), OS_OUTPUT_FOLDER);
    EXPECT_EQ(result_of({file("no/a"), OS_OUTPUT_REPLACE}), OS_OUTPUT_FAILED);
    EXPECT_THAT(os_file_error(), HasSubstr("No such file"));
    EXPECT_EQ(result_of({"", OS_OUTPUT_REPLACE}), OS_OUTPUT_FAILED);
    EXPECT_EQ(os_output_open(nullptr, nullptr), 0);
}

TEST_F(OsOutput, ANameOfTheGreatestLengthCanBeWritten)
{
    std::string name(250, 'n');
    name += "\xC3\xA4";
    output_ref output = open({file(name)});
    ASSERT_NE(output, nullptr) << os_file_error();
    EXPECT_TRUE(write(output, "x"));
    EXPECT_EQ(os_output_finish(output.get()), 1) << os_file_error();
    EXPECT_EQ(names().size(), 1u);
}

TEST_F(OsOutput, AFailureAtAnyPointLosesNothingThatWasThere)
{
    folder_.write("a", "old");
    for (uint32_t n = 1; n <= 6; n++) {
        os_fault_arm(n);
        output_ref output(nullptr);
        os_output *opened = nullptr;
        std::string name = file("a");
        os_output_wish asked = {name.c_str(), OS_OUTPUT_REPLACE, nullptr, 0};
        bool is_done = os_output_open(&asked, &opened) == OS_OUTPUT_OPENED;
        output.reset(opened);
        is_done = is_done && write(output, "new") && os_output_finish(output.get());
        os_fault_disarm();
        EXPECT_EQ(text("a"), is_done ? "new" : "old") << n;
    }
    EXPECT_EQ(text("a"), "new");
}
