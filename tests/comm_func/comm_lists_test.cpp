#include "comm_func/comm_lists.h"
#include "tests/comm_func/comm_time_print.h"
#include "tests/comm_func/said.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <cstdlib>

class range_list : public testing::Test {
protected:
    range_list() : list(adt_dlist_create(sizeof(DataTimeMap *))) {}
    ~range_list() override
    {
        for (DataTimeMap *map : maps())
            std::free(map);
        adt_dlist_destroy(list);
    }
    std::vector<DataTimeMap *> maps() const
    {
        std::vector<DataTimeMap *> found;
        for (DListNode *node = adt_dlist_head(list); node != nullptr; node = adt_dlist_next(node))
            found.push_back(*static_cast<DataTimeMap **>(adt_dlist_data(node)));
        return found;
    }
    void add(DataTimeMap *map) { adt_dlist_push_back(list, &map); }
    // An entry that starts at this hour and is told apart by its handle.
    void add_hour(uint16_t hour, handle_orb number)
    {
        auto map = static_cast<DataTimeMap *>(std::calloc(1, sizeof(DataTimeMap)));
        map->pair_time.start_time = {2024, 1, 1, hour, 0, 0};
        map->findfd = number;
        add(map);
    }
    std::vector<handle_orb> numbers() const
    {
        std::vector<handle_orb> found;
        for (const DataTimeMap *map : maps())
            found.push_back(map == nullptr ? -100 : map->findfd);
        return found;
    }
    DList *list;
    int context = 0;
};
using ParseJsonToList = range_list;
using SortListByTime = range_list;

// ---- JSON -----------------------------------------------------------------------------------------------------------

TEST_F(ParseJsonToList, AppendsOneEntryForEachRange)
{
    add_hour(1, 77);
    log_capture logs;
    EXPECT_EQ(parse_json_to_list(R"({"other":1,"param":[["2024-03-05 07:08:09","2024-03-05 08:00:00"],
                                     ["2023-01-01 00:00:00","2023-01-02 00:00:00","more"]]})",
                                 list, &context),
              1);
    auto found = maps();
    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found[0]->findfd, 77);
    EXPECT_EQ(found[1]->pair_time.start_time, (CommTime{2024, 3, 5, 7, 8, 9}));
    EXPECT_EQ(found[1]->pair_time.end_time, (CommTime{2024, 3, 5, 8, 0, 0}));
    EXPECT_EQ(found[1]->data, &context);
    EXPECT_EQ(found[1]->findfd, INVALID_HANDLE_ORB);
    EXPECT_EQ(found[2]->pair_time.start_time, (CommTime{2023, 1, 1, 0, 0, 0}));
    EXPECT_EQ(said(logs), said_lines{});
}

TEST_F(ParseJsonToList, DamagedRangesAreLeftOutAndTheRestKept)
{
    static const char whole[] = R"(["2024-03-05 07:08:09","2024-03-05 08:00:00"])";
    static const char not_array[] = "!json_object_is_type(jso_param, json_type_array)";
    struct row {
        const char *range, *text;
    };
    for (const row &r :
         {row{"null", "jso_host == NULL"}, row{"{}", not_array}, row{"\"2024\"", not_array}, row{"5", not_array},
          row{"[]", "json_start_time == NULL"}, row{"[null,null]", "json_start_time == NULL"},
          row{R"([null,"2024-03-05 08:00:00"])", "json_start_time == NULL"},
          row{R"(["2024-03-05 08:00:00"])", "json_end_time == NULL"},
          row{R"(["2024-03-05 08:00:00",null])", "json_end_time == NULL"}}) {
        size_t before = maps().size();
        log_capture logs;
        std::string json = std::string("{\"param\":[") + r.range + "," + whole + "]}";
        EXPECT_EQ(parse_json_to_list(json.c_str(), list, &context), 1) << r.range;
        EXPECT_EQ(maps().size(), before + 1) << r.range;
        EXPECT_EQ(said(logs), (said_lines{{2, r.text}})) << r.range;
    }
}

TEST_F(ParseJsonToList, ShortTimesAreReadAsFarAsTheyGo)
{
    EXPECT_EQ(parse_json_to_list(R"({"param":[["2024-03-05", 7]]})", list, &context), 1);
    ASSERT_EQ(maps().size(), 1u);
    EXPECT_EQ(maps()[0]->pair_time.start_time, (CommTime{2024, 3, 5, 0, 0, 0}));
    EXPECT_EQ(maps()[0]->pair_time.end_time, (CommTime{7, 0, 0, 0, 0, 0}));
}

TEST_F(ParseJsonToList, WithoutAUsableParamNothingIsAddedAndAllIsWell)
{
    static const char missing[] = "jso_param == NULL", not_array[] = "!json_object_is_type(jso_param, json_type_array)";
    struct row {
        const char *json, *text;
    };
    for (const row &r :
         {row{"{}", missing}, row{"{\"param\":null}", missing}, row{"[1,2]", missing}, row{"5", missing},
          row{"\"param\"", missing}, row{"{\"param\":5}", not_array}, row{"{\"param\":{}}", not_array}}) {
        log_capture logs;
        EXPECT_EQ(parse_json_to_list(r.json, list, &context), 1) << r.json;
        EXPECT_EQ(said(logs), (said_lines{{2, r.text}})) << r.json;
    }
    log_capture logs;
    EXPECT_EQ(parse_json_to_list("{\"param\":[]}", list, &context), 1);
    EXPECT_EQ(said(logs), said_lines{});
    EXPECT_TRUE(maps().empty());
}

TEST_F(ParseJsonToList, RefusesWhatIsNoJson)
{
    for (const char *json : {"", "{", "nonsense", "{\"param\":[[\"2024-03-05 07:08:09\"", "null"}) {
        log_capture logs;
        EXPECT_EQ(parse_json_to_list(json, list, &context), 0) << json;
        EXPECT_EQ(said(logs), (said_lines{{2, "json_object_from_file is_error !!!"}})) << json;
    }
    EXPECT_TRUE(maps().empty());
}

TEST_F(ParseJsonToList, RefusesMissingArgumentsInTheirOrder)
{
    log_capture logs;
    EXPECT_EQ(parse_json_to_list(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(parse_json_to_list("{}", nullptr, nullptr), 0);
    EXPECT_EQ(parse_json_to_list("{}", nullptr, &context), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "json == NULL"}, {2, "data == NULL"}, {2, "ls_pair_time == NULL"}}));
}

using ParseJsonToListDeathTest = range_list;

TEST_F(ParseJsonToListDeathTest, EndsTheProcessWithoutMemory)
{
    static const char json[] = R"({"param":[["2024-03-05 07:08:09","2024-03-05 08:00:00"]]})";
    for (uint32_t call : {1u, 2u}) // the entry, its place in the list
        EXPECT_EXIT(
            {
                os_fault_arm(call);
                parse_json_to_list(json, list, &context);
            },
            testing::ExitedWithCode(1), "time_dev_map == NULL!!!");
}

// ---- Order ----------------------------------------------------------------------------------------------------------

TEST_F(SortListByTime, AscendsAndKeepsTheOrderOfEqualStarts)
{
    add_hour(10, 1);
    add_hour(9, 2);
    add_hour(10, 3);
    EXPECT_EQ(sort_list_by_time(list), 1);
    EXPECT_EQ(numbers(), (std::vector<handle_orb>{2, 1, 3}));
}

TEST_F(SortListByTime, DropsEntriesThatAreNull)
{
    add(nullptr);
    add_hour(10, 1);
    add(nullptr);
    add_hour(9, 2);
    add(nullptr);
    EXPECT_EQ(sort_list_by_time(list), 1);
    EXPECT_EQ(numbers(), (std::vector<handle_orb>{2, 1}));
}

TEST_F(SortListByTime, AnEmptyListIsSorted)
{
    EXPECT_EQ(sort_list_by_time(list), 1);
    add(nullptr);
    EXPECT_EQ(sort_list_by_time(list), 1);
    EXPECT_TRUE(maps().empty());
}

TEST_F(SortListByTime, RefusesAMissingList)
{
    log_capture logs;
    EXPECT_EQ(sort_list_by_time(nullptr), 0);
    EXPECT_EQ(said(logs), (said_lines{{2, "lst == NULL"}}));
}

TEST_F(SortListByTime, WithoutMemoryTheListStaysAsItWas)
{
    add_hour(10, 1);
    add(nullptr);
    add_hour(9, 2);
    for (uint32_t call : {1u, 2u, 3u, 4u}) { // the scratch list and its lock, its first and its second entry
        log_capture logs;
        os_fault_arm(call);
        int sorted = sort_list_by_time(list);
        os_fault_disarm();
        EXPECT_EQ(sorted, 0) << call;
        EXPECT_EQ(said(logs), (said_lines{{2, "ls_data_time_map == NULL"}})) << call;
        EXPECT_EQ(numbers(), (std::vector<handle_orb>{1, -100, 2})) << call;
    }
    EXPECT_EQ(sort_list_by_time(list), 1);
}

TEST_F(SortListByTime, IsAStableSort)
{
    EXPECT_TRUE(rc::check([this](const std::vector<uint8_t> &hours) {
        for (DataTimeMap *map : maps())
            std::free(map);
        for (DListNode *node = adt_dlist_head(list); node != nullptr;)
            node = adt_dlist_erase(list, node);
        std::vector<std::pair<uint8_t, handle_orb>> expected;
        for (uint8_t hour : hours) {
            auto number = static_cast<handle_orb>(expected.size());
            expected.emplace_back(static_cast<uint8_t>(hour % 5), number);
            add_hour(static_cast<uint16_t>(hour % 5), number);
        }
        std::ranges::stable_sort(expected, {}, &std::pair<uint8_t, handle_orb>::first);
        RC_ASSERT(sort_list_by_time(list) == 1);
        auto sorted = numbers();
        RC_ASSERT(sorted.size() == expected.size());
        for (size_t i = 0; i < sorted.size(); i++)
            RC_ASSERT(sorted[i] == expected[i].second);
    }));
}
