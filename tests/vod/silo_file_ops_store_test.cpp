// Uploads and searches over the real stores, from many threads and processes.
#include "silo_pool/silo_check.h"
#include "silo_pool/silo_owners.h"
#include "silo_pool/silo_record.h"
#include "tests/silo/store_fixture.h"
#include "tests/support/child_process.h"
#include "vod/silo_file_ops.h"

#include <algorithm>

class FileOpsStoreTest : public StoreTest {
protected:
    void SetUp() override
    {
        StoreTest::SetUp();
        if (store_ == nullptr)
            return;
        silo_pool_close();
        silo_pool_set_db_uri(address().c_str());
        ASSERT_EQ(silo_db_init(), 0);
    }
    void TearDown() override { silo_pool_close(); }
    std::string address() const { return uri() + (kind() == "lmdb" ? "?sync=0" : ""); }
};

static int note_id(void *user, const silo_record *record)
{
    static_cast<std::vector<uint64_t> *>(user)->push_back(record->ino);
    return 1;
}

TEST_P(FileOpsStoreTest, IdsAreUniqueAndDenseWhoeverEnters)
{
    static constexpr size_t PROCESSES = 4, THREADS = 8, UPLOADS = 5;
    child_process children[PROCESSES];
    for (size_t i = 0; i < PROCESSES; i++)
        ASSERT_TRUE(
            children[i].start({program_beside("silo_insert_program"), address(), "D:\\" + std::to_string(i) + "_",
                               std::to_string(THREADS), std::to_string(UPLOADS)}));
    for (child_process &child : children)
        EXPECT_EQ(child.wait(100000), 0);
    silo_connection_ptr conn(silo_pool_get_connection());
    silo_transaction_ptr trans(silo_begin_transaction(conn->db, SILO_READ));
    std::vector<uint64_t> ids;
    ASSERT_EQ(silo_record_walk(trans.get(), note_id, &ids), 1);
    std::ranges::sort(ids);
    ASSERT_EQ(ids.size(), PROCESSES * THREADS * UPLOADS);
    for (size_t i = 0; i < ids.size(); i++)
        EXPECT_EQ(ids[i], i + 1);
    uint64_t last;
    EXPECT_EQ(silo_read_number(trans.get(), silo_key_text(SILO_KEY_INO), &last), 1);
    EXPECT_EQ(last, ids.size());
    silo_check_counts counts;
    EXPECT_EQ(silo_index_check(trans.get(), nullptr, nullptr, &counts), 1);
    EXPECT_EQ(counts.problems, 0u);
}

TEST_P(FileOpsStoreTest, AnUploadIsEnteredFoundContinuedAndRemoved)
{
    UpDataInfo info = {};
    text_copy(info.filename, "D:\\up\\a.mp4");
    text_copy(info.devid, "dev1");
    text_copy(info.md5, "0123456789abcdef0123456789abcdef");
    info.start = {2024, 1, 1, 0, 0, 0};
    info.end = {2024, 1, 1, 0, 10, 0};
    info.ch = 3;
    info.file_type = 8;
    info.file_length = 5000;
    ASSERT_EQ(silo_insert_upload_rec_info(&info), 1);
    EXPECT_STREQ(info.id, "1");
    info.file_length = 6000;
    ASSERT_EQ(silo_insert_upload_rec_info(&info), 1);
    int32_t search = 0;
    ASSERT_EQ(silo_db_find_file("dev1", 3, 8, &info.start, &info.start, &search), 1);
    RecordFileInfo found;
    ASSERT_EQ(silo_db_get_next_file(search, &found), 0);
    EXPECT_EQ(found.size, 6000);
    EXPECT_STREQ(found.filename, info.filename);
    EXPECT_STREQ(found.md5, info.md5);
    EXPECT_EQ(found.endtime.minute, 10);
    EXPECT_EQ(silo_db_get_next_file(search, &found), -1);
    EXPECT_EQ(silo_db_find_close(search), 1);
    EXPECT_EQ(silo_delete_upload_rec_info(info.filename), 1);
    ASSERT_EQ(silo_db_find_file(nullptr, -1, 0, &info.start, &info.start, &search), 1);
    EXPECT_EQ(silo_db_get_next_file(search, &found), -1);
    EXPECT_EQ(silo_db_find_close(search), 1);
}
INSTANTIATE_FOR_EACH_STORE(FileOpsStoreTest);
