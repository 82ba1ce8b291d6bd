#include "tests/vod/fake_index.h"

fake_index_state s_fake_index;

std::vector<asked_search> fake_index_state::searches()
{
    std::lock_guard held(mutex);
    return asked;
}

std::vector<int32_t> fake_index_state::closed_ones()
{
    std::lock_guard held(mutex);
    return closed;
}

size_t fake_index_state::open_count()
{
    std::lock_guard held(mutex);
    return open.size();
}

void fake_index_reset()
{
    std::lock_guard held(s_fake_index.mutex);
    s_fake_index.init_result = 0;
    s_fake_index.find_result = 1;
    s_fake_index.is_server = false;
    s_fake_index.records.clear();
    s_fake_index.on_next = nullptr;
    s_fake_index.inits = 0;
    s_fake_index.last_id = 0;
    s_fake_index.open.clear();
    s_fake_index.asked.clear();
    s_fake_index.closed.clear();
}

RecordFileInfo fake_record(const std::string &filename)
{
    RecordFileInfo record = {};
    record.ch = 3;
    text_copy(record.filename, filename);
    record.size = 1'000'000;
    record.starttime = {2026, 1, 2, 3, 4, 5};
    record.endtime = {2026, 1, 2, 3, 5, 5};
    record.filetype = 1;
    text_copy(record.devid, "host-1");
    return record;
}

int silo_db_init()
{
    std::lock_guard held(s_fake_index.mutex);
    s_fake_index.inits++;
    return s_fake_index.init_result;
}

bool silo_db_is_server()
{
    return s_fake_index.is_server;
}

int silo_db_find_file(const char *host_id, int32_t ch, int32_t filetype, const DVR_TIME *start, const DVR_TIME *end,
                      int32_t *findfd)
{
    std::lock_guard held(s_fake_index.mutex);
    s_fake_index.asked.push_back({host_id, ch, filetype, *start, *end});
    if (!s_fake_index.find_result)
        return 0;
    *findfd = ++s_fake_index.last_id;
    s_fake_index.open[*findfd] = 0;
    return 1;
}

int silo_db_get_next_file(int32_t findfd, RecordFileInfo *f)
{
    if (s_fake_index.on_next)
        s_fake_index.on_next();
    std::lock_guard held(s_fake_index.mutex);
    *f = {};
    auto found = s_fake_index.open.find(findfd);
    if (found == s_fake_index.open.end() || found->second == s_fake_index.records.size())
        return -1;
    *f = s_fake_index.records[found->second++];
    return 0;
}

int silo_db_find_close(int32_t findfd)
{
    std::lock_guard held(s_fake_index.mutex);
    s_fake_index.closed.push_back(findfd);
    return s_fake_index.open.erase(findfd) == 1;
}

int silo_insert_upload_rec_info(UpDataInfo *)
{
    return 1;
}

int silo_delete_upload_rec_info(const char *)
{
    return 1;
}
