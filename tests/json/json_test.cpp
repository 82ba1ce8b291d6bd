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
