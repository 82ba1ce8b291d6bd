// Recordings and an index of the test's own, and looks into both.
#pragma once

#include "tests/silo/silo_handles.h"
#include "tests/support/recording_maker.h"
#include "tests/tools/orbrec_clip.h"

#include <gtest/gtest.h>

constexpr const char *REC_A = "rec/door1_03_2_20260101080000_1.rec";
constexpr const char *REC_B = "rec/door1_04_4_20260101090000_1.rec";

class OrbrecIndexTest : public testing::Test {
protected:
    OrbrecIndexTest()
    {
        folder_.write("rec/.keep", "");
        os_fs_charset_set("UTF-8");
    }
    std::string uri() const { return "lmdb:" + folder_.file("store"); }
    // A short recording of 4 s.
    made_recording make(const std::string &name, recording_plan plan = {})
    {
        plan.key_bytes = 600;
        plan.delta_bytes = 200;
        std::string path = folder_.file(name);
        if (std::filesystem::path native(std::u8string(path.begin(), path.end())); std::filesystem::exists(native))
            std::filesystem::remove(native);
        made_recording made = make_recording(path, plan);
        // As it is long afterwards.
        age(name, 1'700'000'000);
        return made;
    }
    // When it was changed last.
    void age(const std::string &name, int64_t seconds)
    {
        char path[512];
        ASSERT_TRUE(os_path_from_host(folder_.file(name).c_str(), path, sizeof path));
        ASSERT_TRUE(os_file_set_modified(path, seconds)) << name;
    }
    void remove(const std::string &name) { std::filesystem::remove(folder_.path() / name); }
    tool_result run(const std::string &command, const std::string &rest = "")
    {
        return orbrec(folder_, command + " --store " + uri() + (rest.empty() ? "" : " " + rest));
    }
    json_result run_json(const std::string &command, const std::string &rest = "", int status = 0)
    {
        tool_result result = run(command, "--json " + rest);
        EXPECT_EQ(result.status, status) << result.err << result.out;
        return json_of(result.out);
    }
    // The path as the index has it.
    std::string stored(const std::string &name)
    {
        char path[512] = "";
        std::string full = (std::filesystem::weakly_canonical(folder_.path()) / name).make_preferred().string();
        EXPECT_TRUE(os_path_from_host(full.c_str(), path, sizeof path));
        return path;
    }
    silo_pairs index()
    {
        silo_ptr db = silo_opened(uri());
        return everything(reading(db));
    }
    std::string value(const std::string &key)
    {
        silo_ptr db = silo_opened(uri());
        return get(reading(db), key);
    }
    // As another program would; no value takes the key away.
    void change(const std::vector<std::pair<std::string, std::optional<std::string>>> &pairs)
    {
        silo_ptr db = silo_opened(uri());
        trans_ptr trans = writing(db);
        for (const auto &[key, text] : pairs)
            EXPECT_EQ(text ? put(trans, key, *text) : drop(trans, key), 0) << key;
        ASSERT_EQ(silo_commit(trans.get()), 0);
    }
    std::string id_of(const std::string &name) { return value("p." + stored(name)); }

    temp_folder folder_;
};
