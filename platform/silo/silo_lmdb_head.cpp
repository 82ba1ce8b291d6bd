// A look at a store's file before the library opens it: the library takes the head at its word.
#include "platform/silo/silo_lmdb.h"

static constexpr size_t HEAD_BYTES = 152; // of a page's head and what describes the store
static constexpr size_t FLAGS_AT = 10, MAGIC_AT = 16, VERSION_AT = 20, PAGE_BYTES_AT = 40, LAST_PAGE_AT = 136;
static constexpr uint16_t FLAG_META = 0x08;
static constexpr uint32_t MAGIC = 0xBEEFC0DE;
static constexpr uint32_t PAGE_BYTES_MIN = 512, PAGE_BYTES_MAX = 32768;
static constexpr uint64_t FILE_BYTES_MAX = uint64_t{1} << 46;

struct store_head {
    uint32_t magic, version, page_bytes;
    uint16_t flags;
    uint64_t last_page;
};

static bool head_read(os_file *file, uint64_t offset, store_head *head)
{
    uint8_t bytes[HEAD_BYTES];
    if (os_file_pread(file, bytes, sizeof bytes, offset) != static_cast<int64_t>(sizeof bytes))
        return false;
    // The host's own order, as the library writes it; hosts of both kinds are little-endian.
    *head = {wire_load<uint32_t>(bytes + MAGIC_AT), wire_load<uint32_t>(bytes + VERSION_AT),
             wire_load<uint32_t>(bytes + PAGE_BYTES_AT), wire_load<uint16_t>(bytes + FLAGS_AT),
             wire_load<uint64_t>(bytes + LAST_PAGE_AT)};
    return true;
}

static int head_judge(const store_head &head)
{
    if (head.magic != MAGIC || (head.flags & FLAG_META) == 0)
        return MDB_INVALID;
    if (head.version != 1)
        return MDB_VERSION_MISMATCH;
    bool is_page_plausible = head.page_bytes >= PAGE_BYTES_MIN && head.page_bytes <= PAGE_BYTES_MAX &&
                             (head.page_bytes & (head.page_bytes - 1)) == 0;
    return is_page_plausible && head.last_page < FILE_BYTES_MAX / head.page_bytes ? 0 : MDB_CORRUPTED;
}

static int heads_check(os_file *file)
{
    store_head head;
    if (!head_read(file, 0, &head))
        return MDB_INVALID;
    uint32_t page_bytes = head.page_bytes;
    int error = head_judge(head);
    if (error != 0 || !head_read(file, page_bytes, &head))
        return error != 0 ? error : MDB_CORRUPTED;
    error = head_judge(head);
    return error == 0 && head.page_bytes != page_bytes ? MDB_CORRUPTED : error;
}

int lmdb_head_check(const char *path, uint64_t *size)
{
    *size = 0;
    os_file_info info = {};
    if (!os_file_stat(path, 0, &info))
        return 0; // the library makes it, or says why it cannot
    os_file *opened = nullptr;
    if (!os_file_open(path, OS_FILE_READ, &opened))
        return info.is_regular ? 0 : MDB_INVALID;
    os_file_ptr file(opened);
    *size = info.size;
    return info.size == 0 ? 0 : heads_check(file.get());
}
