#include "tests/vod_player_orb/fake_avfilter.h"

#include "platform/os/os_guard.h"
#include "platform/vca/vca.h"

#include <algorithm>

struct fake_handle {
    bool header_was_read;
};

fake_avfilter &fake_avfilter::instance()
{
    static auto fake = new fake_avfilter;
    return *fake;
}

void fake_avfilter::reset()
{
    std::lock_guard held(mutex);
    scripted = {};
    recorded = {};
    scripted.info.iTotalTime = 60;
    scripted.info.iTotalFrame = 1500;
    scripted.info.llPlayRealSize = 1'000'000;
    scripted.info.iVEncMode = 21;
}

void fake_avfilter::script(const std::function<void(fake_avfilter_script &)> &change)
{
    std::lock_guard held(mutex);
    change(scripted);
}

fake_avfilter_record fake_avfilter::record()
{
    std::lock_guard held(mutex);
    return recorded;
}

int fake_avfilter::open_handles()
{
    std::lock_guard held(mutex);
    return static_cast<int>(handles.size());
}

static fake_avfilter &fake()
{
    return fake_avfilter::instance();
}

int AVFilterStartup(void)
{
    std::lock_guard held(fake().mutex);
    fake().recorded.startups++;
    return fake().scripted.startup_result;
}

void *AVFilterCreate(int kind, const AVOrbFileFilter *filter, int size)
{
    std::lock_guard held(fake().mutex);
    fake().recorded.filters.push_back(*filter);
    fake().recorded.create_kinds.push_back(kind);
    fake().recorded.create_sizes.push_back(size);
    if (fake().scripted.failing_creates.contains(static_cast<int>(fake().recorded.filters.size())) ||
        os_fault_point("AVFilterCreate"))
        return nullptr;
    auto handle = new fake_handle{};
    fake().handles.insert(handle);
    return handle;
}

void AVFilterDestroy(void *handle)
{
    std::lock_guard held(fake().mutex);
    fake().recorded.destroys++;
    if (fake().handles.erase(handle) != 1)
        std::abort();
    delete static_cast<fake_handle *>(handle);
}

int AVFilterCheckValidData(int kind, const void *bytes, int size)
{
    std::lock_guard held(fake().mutex);
    fake().recorded.checks++;
    auto from = static_cast<const uint8_t *>(bytes);
    fake().recorded.checked.assign(from, from + size);
    return kind == 0 ? fake().scripted.check_result : -1;
}

static int read_header(fake_handle *handle, void *buffer, int size)
{
    handle->header_was_read = true;
    fake().recorded.header_sizes.push_back(size);
    std::deque<int> &results = fake().scripted.header_results;
    int result = 0;
    if (!results.empty()) {
        result = results.front();
        results.pop_front();
    }
    if (result == 0 && os_fault_point("AVFilterGetInfo"))
        result = -1;
    if (result == 0)
        std::ranges::copy(fake().scripted.header, static_cast<uint8_t *>(buffer));
    return result;
}

static int read_info(void *buffer, int size)
{
    fake().recorded.info_sizes.push_back(size);
    if (fake().scripted.info_result != 0)
        return fake().scripted.info_result;
    auto info = static_cast<AVFileInfo *>(buffer);
    if (info->iSise != 88 || size != 88)
        return -1;
    *info = fake().scripted.info;
    info->iSise = 88;
    return 0;
}

int AVFilterGetInfo(void *handle, int info, void *buffer, int size)
{
    std::unique_lock held(fake().mutex);
    if (auto hook = fake().scripted.on_header; hook && info == AVFILTER_INFO_FILE_HEAD) {
        held.unlock();
        hook(size);
        held.lock();
    }
    return info == AVFILTER_INFO_FILE_HEAD ? read_header(static_cast<fake_handle *>(handle), buffer, size)
                                           : read_info(buffer, size);
}

static int scan_data(void *buffer)
{
    fake().recorded.scan_reads++;
    std::deque<std::vector<uint8_t>> &blocks = fake().scripted.scan_blocks;
    if (blocks.empty())
        return 0;
    std::vector<uint8_t> block = std::move(blocks.front());
    blocks.pop_front();
    std::ranges::copy(block, static_cast<uint8_t *>(buffer));
    return static_cast<int>(block.size());
}

static int file_data(void *buffer, int size)
{
    auto bytes = static_cast<uint8_t *>(buffer);
    fake().recorded.buffers_were_clear.push_back(std::all_of(bytes, bytes + 49152, [](uint8_t b) { return b == 0; }));
    std::deque<fake_block> &blocks = fake().scripted.blocks;
    if (blocks.empty())
        return 0;
    fake_block block = blocks.front();
    blocks.pop_front();
    if (block.result > 0)
        std::memset(buffer, block.fill, static_cast<size_t>(std::min(block.result, size)));
    return block.result;
}

int AVFilterGetData(void *handle, int kind, void *buffer, int size, AVFrameInfo *info)
{
    std::unique_lock held(fake().mutex);
    auto opened = static_cast<fake_handle *>(handle);
    if (!opened->header_was_read)
        return scan_data(buffer);
    if (auto hook = fake().scripted.on_get_data) {
        held.unlock();
        hook();
        held.lock();
    }
    fake().recorded.data_kinds.push_back(kind);
    fake().recorded.data_sizes.push_back(size);
    fake().recorded.frame_info_sizes.push_back(info == nullptr ? 0 : info->iSize);
    return file_data(buffer, size);
}

template <class T> static T field_at(const void *record, size_t offset)
{
    T value;
    std::memcpy(&value, static_cast<const char *>(record) + offset, sizeof value);
    return value;
}

int AVFilterSetCommond(void *, int command, const void *record, int record_size)
{
    std::unique_lock held(fake().mutex);
    if (auto hook = fake().scripted.on_command) {
        held.unlock();
        hook();
        held.lock();
    }
    int64_t value = record_size == 8 ? field_at<int32_t>(record, 4) : field_at<int64_t>(record, 8);
    fake().recorded.commands.push_back({command, record_size, field_at<int32_t>(record, 0), value});
    return fake().scripted.failing_commands.contains(command) ? -1 : 0;
}

int vca_destory_query(int query_id)
{
    std::lock_guard held(fake().mutex);
    fake().recorded.vca_destroyed.push_back(query_id);
    return fake().scripted.vca_destroy_result;
}
