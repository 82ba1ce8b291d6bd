#include "platform/json/json.h"
#include "platform/os/os.h"
#include "tests/support/host.h"
#include "tests/support/temp_folder.h"

#include <climits>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

class Json : public testing::Test {
protected:
    json_ref file(const std::string &text) const
    {
        folder_.write("a.json", text);
        return json_ref(json_object_from_file_ex(folder_.file("a.json").c_str()));
    }
    static json_ref text(const char *json) { return json_ref(json_tokener_parse(json)); }

    temp_folder folder_;
};

TEST_F(Json, FileIsParsed)
{
    json_ref object = file("{\"max_num\": 64, \"upload\": {\"save_path\": \"D:\\\\rec\"}}");
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(json_object_get_field_int(object.get(), "max_num", 128), 64);
    json_object *upload = nullptr;
    ASSERT_TRUE(json_object_object_get_ex(object.get(), "upload", &upload));
    EXPECT_STREQ(json_object_get_field_string(upload, "save_path"), "D:\\rec");
}

TEST_F(Json, SystemPathsUseBackslashes)
{
    folder_.write("etc\\conf\\a.json", "{}");
    json_ref object(json_object_from_file_ex((folder_.path().string() + "\\etc\\conf\\a.json").c_str()));
    EXPECT_NE(object, nullptr);
}

TEST_F(Json, WhatIsNoJsonGivesNothing)
{
    const std::string texts[] = {
        "",
        " ",
        "{",
        "{\"a\": }",
        "nonsense",
        "{\"a\": 1",
        std::string("{}\0{", 4),
        std::string("\0", 1),
        "\xFF\xFE{",
        std::string(100, '['),
    };
    for (const std::string &one : texts)
        EXPECT_EQ(file(one), nullptr) << one;
}

TEST_F(Json, MissingAndUnreadableFilesGiveNothing)
{
    EXPECT_EQ(json_object_from_file_ex(nullptr), nullptr);
    EXPECT_EQ(json_object_from_file_ex(""), nullptr);
    EXPECT_EQ(json_object_from_file_ex(folder_.file("none.json").c_str()), nullptr);
    EXPECT_EQ(json_object_from_file_ex(folder_.path().string().c_str()), nullptr);
    EXPECT_EQ(json_object_from_file_ex(host_special_file(folder_).c_str()), nullptr);
}

TEST_F(Json, FilesThatAreNoConfigurationAreNotRead)
{
    folder_.write("huge.json", "{}");
    std::filesystem::resize_file(folder_.file("huge.json"), (16 << 20) + 1);
    EXPECT_EQ(json_object_from_file_ex(folder_.file("huge.json").c_str()), nullptr);
}

TEST_F(Json, TextBehindTheValueGivesNothing)
{
    for (const char *more : {"x", "{}", ",", "}", " \n {\"max_num\": 5}", "\xEF\xBB\xBF"})
        EXPECT_EQ(file(std::string("{\"max_num\": 64}") + more), nullptr) << more;
    for (const char *more : {"", "\n", " \t\r\n\r\n", "\n// a comment", "/* {} */\n"})
        EXPECT_NE(file(std::string("{\"max_num\": 64}") + more), nullptr) << more;
    EXPECT_EQ(json_object_get_int(file("75").get()), 75);
}

TEST_F(Json, AByteOrderMarkIsSkipped)
{
    json_ref object = file("\xEF\xBB\xBF{\"max_num\": 64}");
    EXPECT_EQ(json_object_get_field_int(object.get(), "max_num", 128), 64);
    EXPECT_EQ(file("\xEF\xBB\xBF\xEF\xBB\xBF{}"), nullptr);
    EXPECT_EQ(file("\xEF\xBB\xBF"), nullptr);
}

TEST_F(Json, WhatIsWrongIsToldWithItsLine)
{
    struct row {
        const char *text, *error;
    };
    const row rows[] = {
        {"{\"a\": 1}", ""},
        {"null", ""},
        {"{\n\"a\": }", "line 2: "},
        {"{\"a\": 1", "line 1: unexpected end of data"},
        {"", "line 1: unexpected end of data"},
        {"{}\n\n x", "line 3: text behind the value"},
    };
    for (const row &one : rows) {
        json_file_report report;
        folder_.write("a.json", one.text);
        json_ref object(json_object_from_file_told(folder_.file("a.json").c_str(), &report));
        EXPECT_EQ(report.is_there, 1) << one.text;
        EXPECT_TRUE(std::string(report.error).starts_with(one.error)) << one.text << ": " << report.error;
        EXPECT_EQ(*report.error == '\0', *one.error == '\0') << one.text << ": " << report.error;
    }
}

TEST_F(Json, AMissingFileIsKnownFromOneThatCannotBeRead)
{
    json_file_report report;
    for (const char *name : {"none.json", "none/none.json", "a.json/b.json"}) {
        folder_.write("a.json", "{}");
        EXPECT_EQ(json_object_from_file_told(folder_.file(name).c_str(), &report), nullptr);
        EXPECT_EQ(report.is_there, 0) << name;
        EXPECT_STREQ(report.error, "") << name;
    }
    EXPECT_EQ(json_object_from_file_told(folder_.path().string().c_str(), &report), nullptr);
    EXPECT_EQ(report.is_there, 1);
    EXPECT_STRNE(report.error, "");
    for (uint32_t n = 1; n <= 4; n++) {
        os_fault_arm(n);
        json_ref object(json_object_from_file_told(folder_.file("a.json").c_str(), &report));
        os_fault_disarm();
        EXPECT_EQ(object, nullptr) << n;
        EXPECT_EQ(report.is_there, 1) << n;
        EXPECT_STRNE(report.error, "") << n;
    }
}

TEST_F(Json, AKeyThatStandsTwiceIsTold)
{
    struct row {
        const char *text, *key;
    };
    const row rows[] = {
        {R"({"a": 1, "b": {"a": 2}, "c": [{"a": 1}, {"a": 1}]})", ""},
        {R"({"a": 1, "a": 2})", "a"},
        {R"({"a": {"b": 1, "c": {}, "b": [1]}})", "a.b"},
        {R"({"a": [{"b": 1}, {"c": 1, "c": 2}]})", "a.c"},
        {R"({"access": {"roots": ["x"]}, "acc\u0065ss": {}})", "access"},
        {R"({"a": "a\", \"a", "b": ["a", "a"], "c": "a"})", ""},
        {R"({"a": 1, "a": 2, "a": 3, "access": {}, "access": {}})", "a\na\naccess"},
        {"{'a': 1, \"a\": 2}", "a"},
        {"{\"a\": 1, /* \"a\": 2, */ \"b\": 3 // \"a\": 4\n}", ""},
        {"[1, 2, \"a\", \"a\"]", ""},
        {"\"a\"", ""},
    };
    for (const row &one : rows) {
        json_file_report report;
        folder_.write("a.json", one.text);
        json_ref object(json_object_from_file_told(folder_.file("a.json").c_str(), &report));
        EXPECT_NE(object, nullptr) << one.text << ": " << report.error;
        EXPECT_STREQ(report.repeated, one.key) << one.text;
    }
}

TEST_F(Json, KeysThatStandTwiceAndDoNotFitAreStoodFor)
{
    std::string text = "{\"a\": 1";
    for (int i = 0; i < 300; i++)
        text += ", \"a\": 1";
    json_file_report report;
    folder_.write("a.json", text + ", \"" + std::string(300, 'k') + "\": 1, \"" + std::string(300, 'k') + "\": 1}");
    json_ref object(json_object_from_file_told(folder_.file("a.json").c_str(), &report));
    std::string repeated = report.repeated;
    EXPECT_TRUE(repeated.starts_with("a\na\na\n") && repeated.ends_with("a\n...")) << repeated;
}

TEST_F(Json, WhatAFileMayHoldIsSeenInAnyForm)
{
    struct row {
        std::string text;
        int may_hold;
    };
    const row rows[] = {{"{\"access\": [", 1}, {"xACCESSx", 1},         {std::string("a\0c\0c\0e\0s\0s\0", 12), 1},
                        {"{\"max_num\": ", 0}, {"", 0}, {"acces", 0}};
    for (const row &one : rows) {
        folder_.write("a.json", one.text);
        EXPECT_EQ(json_file_may_hold(folder_.file("a.json").c_str(), "access"), one.may_hold) << one.text;
    }
    EXPECT_EQ(json_file_may_hold(folder_.file("none.json").c_str(), "access"), 0);
    EXPECT_EQ(json_file_may_hold(folder_.path().string().c_str(), "access"), 1) << "who knows";
}

TEST_F(Json, KeysAreAsFarApartAsLettersWereMistyped)
{
    struct row {
        const char *one, *other;
        int distance;
    };
    const row rows[] = {{"access", "access", 0}, {"Access", "aCCess", 0}, {"acces", "access", 1},
                        {"acecss", "access", 1}, {"axxess", "access", 2}, {"root", "roots", 1},
                        {"", "abc", 3},          {"abc", "", 3},          {"", "", 0},
                        {"kitten", "sitting", 3}};
    for (const row &one : rows) {
        EXPECT_EQ(json_key_distance(one.one, one.other), one.distance) << one.one;
        EXPECT_EQ(json_key_distance(one.other, one.one), one.distance) << one.one;
    }
    EXPECT_EQ(json_key_distance(std::string(64, 'a').c_str(), std::string(9000, 'a').c_str()), 0);
}

TEST_F(Json, EveryFailingStepGivesNothing)
{
    folder_.write("a.json", "{}");
    for (uint32_t n = 1;; n++) {
        os_fault_arm(n);
        json_ref object(json_object_from_file_ex(folder_.file("a.json").c_str()));
        bool was_reached = os_fault_calls() >= n;
        os_fault_disarm();
        if (!was_reached) {
            EXPECT_NE(object, nullptr);
            EXPECT_GT(n, 3u);
            break;
        }
        EXPECT_EQ(object, nullptr) << n;
    }
}

TEST_F(Json, IntegerOrDefault)
{
    json_ref object = text("{\"one\": 1, \"minus\": -3, \"zero\": 0, \"text\": \"5\", \"half\": 0.5, \"yes\": true,"
                           " \"none\": null, \"list\": [1], \"huge\": 99999999999, \"low\": -99999999999}");
    struct row {
        const char *key;
        int value;
    };
    const row rows[] = {{"one", 1},  {"minus", -3}, {"zero", 0}, {"text", 7},       {"half", 7},      {"yes", 7},
                        {"none", 7}, {"list", 7},   {"gone", 7}, {"huge", INT_MAX}, {"low", INT_MIN}, {nullptr, 7}};
    for (const row &one : rows)
        EXPECT_EQ(json_object_get_field_int(object.get(), one.key, 7), one.value) << (one.key ? one.key : "NULL");
    EXPECT_EQ(json_object_get_field_int(nullptr, "one", 7), 7);
    EXPECT_EQ(json_object_get_field_int(text("[1]").get(), "one", 7), 7);
}

TEST_F(Json, TextOrNothing)
{
    json_ref object = text("{\"text\": \"bond0\", \"empty\": \"\", \"one\": 1, \"none\": null, \"list\": [\"a\"]}");
    EXPECT_STREQ(json_object_get_field_string(object.get(), "text"), "bond0");
    EXPECT_STREQ(json_object_get_field_string(object.get(), "empty"), "");
    for (const char *key : {"one", "none", "list", "gone"})
        EXPECT_EQ(json_object_get_field_string(object.get(), key), nullptr) << key;
    EXPECT_EQ(json_object_get_field_string(object.get(), nullptr), nullptr);
    EXPECT_EQ(json_object_get_field_string(nullptr, "text"), nullptr);
    EXPECT_EQ(json_object_get_field_string(text("\"text\"").get(), "text"), nullptr);
}
