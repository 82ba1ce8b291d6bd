#include "tests/integration/store_service.h"

#include "platform/os/os.h"

#include <cstdlib>

static constexpr int PAGES_MAX = 1000;

service_settings store_settings(const std::string &store, uint16_t port)
{
    std::string quoted;
    for (char one : store)
        quoted += one == '\\' ? "\\\\" : std::string(1, one);
    service_settings made;
    made.ms_config = "{\"port\": " + std::to_string(port) + "}";
    made.svr_config =
        R"({"fs_charset": "UTF-8", "store": ")" + quoted + R"(", "log": {"level": 2, "stderr": 1}})";
    return made;
}

std::vector<indexed_record> numbered_records(int count)
{
    std::vector<indexed_record> records;
    for (int i = 0; i < count; i++) {
        char begin[64];
        std::snprintf(begin, sizeof begin, "2024-05-06 %02d:%02d:%02d", i / 3600, i / 60 % 60, i % 60);
        records.push_back({.path = "rec\\" + std::to_string(i) + ".rec", .begin = begin});
    }
    return records;
}

int find_answer(raw_search &search, const std::string &host)
{
    search.command(find_file_xml(host, -1, 0));
    std::string text = search.reply(STORE_REPLY_MS);
    if (text.find("name=\"find_file\" result=\"error\"") != std::string::npos)
        return 0;
    size_t at = text.find("<session_id>");
    return at == std::string::npos ? -1 : std::atoi(text.c_str() + at + 12);
}

found_names read_on(raw_search &search, int session, int page)
{
    found_names found;
    for (int pages = 0; pages < PAGES_MAX; pages++) {
        search.command(find_next_xml(session, page));
        std::string text = search.reply(STORE_REPLY_MS);
        size_t at = text.find("result=\"");
        found.result = at == std::string::npos ? "" : text.substr(at + 8, text.find('"', at + 8) - at - 8);
        for (const std::string &name : names_in(text))
            found.names.push_back(name);
        if (found.result != "ok")
            return found;
    }
    ADD_FAILURE() << "the search has no end";
    return found;
}

void StoreServiceTest::serve(const std::string &store, uint16_t port)
{
    service_settings settings = store_settings(store, port);
    if (!vod_config.empty())
        settings.vod_config = vod_config;
    service = std::make_unique<service_process>(settings);
    made = make_recording(service->folder().file("rec/a.rec"));
}

void StoreServiceTest::expect_plays(const std::string &when)
{
    EXPECT_TRUE(play_all(service->server(), "rec\\a.rec").bytes == made.bytes()) << when;
    EXPECT_FALSE(link_counters(service->server()).empty()) << when;
}

size_t StoreServiceTest::said(const std::string &text) const
{
    size_t count = 0;
    std::string log = service->log();
    for (size_t at = 0; (at = log.find(text, at)) != std::string::npos; at += text.size())
        count++;
    return count;
}
