// What tests of record searches share: a record-search link over the fake index, with or without the worker's thread.
#pragma once

#include "tests/vod/fake_index.h"
#include "tests/vod/vod_fixture.h"

#include "vod/record_worker.h"

#include <string>

class RecordTest : public VodEventTest {
protected:
    RecordTest();
    ~RecordTest() override;
    // The lists alone; commands stay in the queue.
    static std::string time(const char *name, int second = 5);
    static std::string find_file(const std::string &rest, const std::string &ch = "1",
                                 const std::string &filetype = "255");
    static std::string whole_find_file()
    {
        return find_file(time("start_time") + time("end_time", 59) + "<host_id>h</host_id>");
    }
    static std::string next(const std::string &inside)
    {
        return "<command name=\"find_next_file\">" + inside + "</command>";
    }
    static std::string next(int session, int count)
    {
        return next("<session>" + std::to_string(session) + "</session><count>" + std::to_string(count) + "</count>");
    }
    static std::string close(int session)
    {
        return "<command name=\"findfile_close\"><session>" + std::to_string(session) + "</session></command>";
    }
    void command(const std::string &xml, uint32_t session = 9) { read(mslink, command_package(xml, 1, session)); }

    size_t queued();
    // The oldest queued item, taken out of the queue.
    record_item take();
    // Carries out everything that is queued, on this thread, each until its reply is out or given up.
    void work();
    // Opens a search and forgets its reply.
    void open_search();
    size_t replies() { return mslink.sent_count() - before; }
    // The text of the last reply without its terminating zero.
    std::string reply_text();

    size_t before = 0;
};
