// Replies about as long as one piece or two, through the whole service and the network.
#include "tests/integration/find_fixture.h"

#include <algorithm>

class FindPiecesTest : public FindTest {
protected:
    static constexpr size_t NAME_LENGTH = 20;

    // All records of a device have one reply of their own. Devices' names are of one length.
    static indexed_record record(const std::string &host, size_t number, size_t name_length = NAME_LENGTH)
    {
        std::string path = host + "\\" + std::to_string(number) + "_";
        path.resize(name_length, 'p');
        return {.path = path, .host = host};
    }
    std::vector<indexed_record> records() override
    {
        return {record("host_1", 0), record("host_2", 0), record("host_2", 1)};
    }
    void SetUp() override
    {
        FindTest::SetUp();
        ASSERT_TRUE(search.login(service.port()));
        size_t one = reply_of("host_1").size();
        record_size = reply_of("host_2").size() - one;
        around = one - record_size - 1;
    }
    std::string reply_of(const std::string &host) { return search.next(search.open(host), 10000); }
    // Records whose reply has exactly so many characters.
    std::vector<indexed_record> records_of(const std::string &host, size_t size) const
    {
        size_t count = (size - around) / (record_size + 150);
        size_t letters = size - around - std::to_string(count).size() - count * (record_size - NAME_LENGTH);
        std::vector<indexed_record> made;
        for (size_t i = 0; i < count; i++)
            made.push_back(record(host, i, letters / count + (i < letters % count ? 1 : 0)));
        return made;
    }
    size_t client_finds(const std::string &host)
    {
        vodclient_search found;
        vodclient_find_request request;
        request.host_id = host;
        request.start = {2024, 5, 6, 0, 0, 0};
        request.end = {2024, 5, 6, 23, 59, 59};
        vodclient_result opened = found.open(service.server(), request);
        EXPECT_TRUE(opened) << opened.text;
        std::vector<vodclient_record> page;
        bool is_over = false;
        vodclient_result read = found.next(10000, false, &page, &is_over);
        EXPECT_TRUE(read) << read.text;
        EXPECT_TRUE(is_over);
        return page.size();
    }
    raw_search search;
    size_t record_size = 0, around = 0;
};

TEST_F(FindPiecesTest, RepliesOfAnyLengthArriveWhole)
{
    struct row {
        const char *host;
        size_t size;
        std::vector<size_t> pieces; // the last one with the terminating zero
    };
    for (const row &of : {row{"host_a", 64511, {64512}}, row{"host_b", 64512, {64513}},
                          row{"host_c", 64513, {64512, 2}}, row{"host_d", 129023, {64512, 64512}},
                          row{"host_e", 129024, {64512, 64513}}, row{"host_f", 129025, {64512, 64512, 2}}}) {
        std::vector<indexed_record> made = records_of(of.host, of.size);
        ASSERT_TRUE(index_fill("index", made));
        std::string text = reply_of(of.host);
        EXPECT_EQ(text.size(), of.size);
        EXPECT_EQ(search.pieces(), of.pieces) << of.size;
        EXPECT_TRUE(text.ends_with("</file></command_return>\n")) << of.size;
        std::vector<std::string> names = names_in(text), wanted;
        for (const indexed_record &record : made)
            wanted.push_back(record.path);
        std::ranges::sort(names);
        std::ranges::sort(wanted);
        EXPECT_EQ(names, wanted) << of.size;
        EXPECT_EQ(client_finds(of.host), made.size()) << of.size;
    }
}
