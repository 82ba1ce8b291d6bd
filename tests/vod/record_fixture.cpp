#include "tests/vod/record_fixture.h"

#include "platform/os/os_guard.h"
#include "vod/record_outbox.h"
#include "vod/record_pressure.h"

#include <stdexcept>

RecordTest::RecordTest()
{
    fake_index_reset();
    if (!record_lists_create())
        throw std::runtime_error("no lists");
    read(mslink, res_package(0x8006, ""));
    read(mslink, get_package());
    before = mslink.sent_count();
    log.clear();
}

RecordTest::~RecordTest()
{
    record_worker_stop();
    adt_dlist_destroy(s_lst_findfds);
    adt_dlist_destroy(s_lst_asyn_op);
    s_lst_findfds = nullptr;
    s_lst_asyn_op = nullptr;
    fake_index_reset();
}

std::string RecordTest::time(const char *name, int second)
{
    return std::string("<") + name +
           "> <year>2026</year><month>1</month><day>2</day><hour>3</hour><minute>4</minute><second>" +
           std::to_string(second) + "</second></" + name + ">";
}

std::string RecordTest::find_file(const std::string &rest, const std::string &ch, const std::string &filetype)
{
    return "<command name=\"find_file\">\n<ch>" + ch + "</ch><filetype>" + filetype + "</filetype>" + rest +
           "</command>";
}

size_t RecordTest::queued()
{
    dlist_guard held(s_lst_asyn_op);
    return adt_dlist_size(s_lst_asyn_op);
}

record_item RecordTest::take()
{
    dlist_guard held(s_lst_asyn_op);
    DListNode *head = adt_dlist_head(s_lst_asyn_op);
    if (head == nullptr)
        return nullptr;
    record_item item(*static_cast<VodOperateRecItem **>(adt_dlist_data(head)));
    adt_dlist_erase(s_lst_asyn_op, head);
    record_pressure_leave(item->udata->mslink);
    return item;
}

void RecordTest::work()
{
    while (record_item item = take()) {
        deal_with_asyn_rec_operate(item.get());
        for (uint32_t ms; (ms = record_outbox_try()) != OS_WAIT_FOREVER;)
            os_sleep(ms);
    }
}

void RecordTest::open_search()
{
    command(whole_find_file());
    work();
    before = mslink.sent_count();
    log.clear();
}

std::string RecordTest::reply_text()
{
    std::string text = mslink.last().attr(7);
    if (!text.empty() && text.back() == '\0')
        text.pop_back();
    return text;
}
