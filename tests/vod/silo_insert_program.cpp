// Enters uploads from several threads: silo_insert_program <store> <prefix of the paths> <threads> <uploads of each>.
// Ends with 0 when all were entered.
#include "silo_pool/silo_pool.h"
#include "vod/silo_file_ops.h"

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

static bool enter(const std::string &path)
{
    UpDataInfo info = {};
    text_copy(info.filename, path);
    text_copy(info.devid, "dev1");
    info.start = info.end = {2024, 1, 1, 0, 0, 0};
    info.file_type = 1;
    return silo_insert_upload_rec_info(&info) == 1;
}

int main(int argc, char **argv)
{
    if (argc != 5)
        return 2;
    silo_pool_set_db_uri(argv[1]);
    int count = std::atoi(argv[4]);
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (int n = 0; n < std::atoi(argv[3]); n++)
        threads.emplace_back([&, n] {
            for (int i = 0; i < count; i++)
                failures += !enter(std::string(argv[2]) + std::to_string(n) + "_" + std::to_string(i));
        });
    for (std::thread &thread : threads)
        thread.join();
    silo_pool_close();
    return failures == 0 ? 0 : 1;
}
