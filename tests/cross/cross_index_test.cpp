// The record index as the programs of both hosts write it.
#include "tests/cross/cross_programs.h"
#include "tests/support/recording_maker.h"

#include "platform/silo/silo.h"

#include <algorithm>
#include <filesystem>
#include <map>

using index_pairs = std::map<std::string, std::string>;

// The same folder has a drive before it on one of the hosts.
static std::string without_drive(std::string text)
{
    if (size_t at = text.find("Z:\\"); at != std::string::npos)
        text.erase(at, 2);
    return text;
}

static index_pairs pairs_of(silo_t *db)
{
    index_pairs pairs;
    silo_transaction_t *trans = silo_begin_transaction(db, SILO_READ);
    silo_iterator_t *iter = trans == nullptr ? nullptr : silo_iterator_init(trans);
    if (iter != nullptr) {
        for (int end = silo_iterator_seek(iter, "", 0, 0); end == 0; end = silo_iterator_next(iter)) {
            const silo_kv *kv = silo_iterator_kv(iter);
            pairs[without_drive({kv->key, kv->key_len})] = without_drive({kv->val, kv->val_len});
        }
        silo_iterator_destroy(iter);
    }
    silo_end_transaction(trans);
    return pairs;
}

static index_pairs read_index(const std::string &folder)
{
    int fd = silo_connect_fd(("lmdb:" + folder).c_str());
    silo_t *db = silo_open_proxy_fd(fd, fd);
    index_pairs pairs;
    if (db != nullptr && silo_proxy_select_db(db, "db") == 0)
        pairs = pairs_of(db);
    silo_destroy(db);
    silo_close_fd(fd);
    return pairs;
}

class CrossIndexTest : public CrossTest {
protected:
    temp_folder folder{temp_folder::working_directory::enter};

    static void enter_recordings(program_host host)
    {
        child_result result =
            run_program(host, "orbrec", {"index", "--store", std::string("lmdb:") + name_of(host), "--host", "door",
                                         "--channel", "3", "--type", "1", "a.rec", "\xE9\x97\xA8.rec"});
        EXPECT_EQ(result.status, 0) << result.err;
    }
};

TEST_F(CrossIndexTest, BothEnterARecordingWithTheSameBytes)
{
    make_recording("a.rec");
    make_recording("\xE9\x97\xA8.rec");
    for (program_host host : {program_host::posix, program_host::windows})
        enter_recordings(host);
    // Locks of processes are each host's own; all of them have ended.
    for (const auto &entry : std::filesystem::recursive_directory_iterator("windows"))
        if (entry.path().filename().string().find("lock") != std::string::npos)
            std::filesystem::remove(entry.path());
    index_pairs ours = read_index("posix"), theirs = read_index("windows");
    EXPECT_GT(ours.size(), 20u);
    EXPECT_EQ(ours["f.1.host"], "door");
    EXPECT_EQ(ours, theirs);
}
