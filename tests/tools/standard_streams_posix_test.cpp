// POSIX only: programs that are started with closed standard streams have the null device there, before anything else
// that they open can take the place.
#include "platform/os/os.h"
#include "tests/support/child_process.h"
#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Somebody who takes connections and never answers.
class silent_service {
public:
    silent_service()
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr *>(&address), size), 0);
        EXPECT_EQ(listen(socket_, 5), 0);
        EXPECT_EQ(getsockname(socket_, reinterpret_cast<sockaddr *>(&address), &size), 0);
        name = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    }
    ~silent_service() { close(socket_); }
    silent_service(const silent_service &) = delete;
    silent_service &operator=(const silent_service &) = delete;
    std::string name;

private:
    int socket_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

std::string stream_of(int pid, int number)
{
    std::error_code closed;
    return std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(number), closed);
}

// Whether the program, once it waits for something, has the null device where it had nothing.
void expect_null_streams(const std::string &program, const std::string &arguments, const std::string &folder)
{
    child_process process;
    ASSERT_TRUE(process.start({"/bin/sh", "-c", "exec '" + program + "' " + arguments + " 0<&- 1>&- 2>&-"},
                              {.folder = folder}));
    auto has_all = [&] {
        return stream_of(process.pid(), 0) == "/dev/null" && stream_of(process.pid(), 1) == "/dev/null" &&
               stream_of(process.pid(), 2) == "/dev/null";
    };
    // The shell has them open until it becomes the program.
    auto is_program = [&] {
        std::error_code gone;
        return std::filesystem::read_symlink("/proc/" + std::to_string(process.pid()) + "/exe", gone) == program;
    };
    for (int i = 0; i < 1000 && process.is_running() && !(is_program() && has_all()); i++)
        os_sleep(10);
    EXPECT_TRUE(has_all()) << program << ": " << stream_of(process.pid(), 0) << ", " << stream_of(process.pid(), 1)
                           << ", " << stream_of(process.pid(), 2);
}

} // namespace

TEST(StandardStreamsTest, VodctlHasTheNullDeviceWhereItHadNothing)
{
    silent_service service;
    temp_folder folder;
    expect_null_streams(program_beside("vodctl"), "--timeout 60 --server " + service.name + " find", folder.file("."));
}

TEST(StandardStreamsTest, OrbrecHasTheNullDeviceWhereItHadNothing)
{
    temp_folder folder;
    ASSERT_EQ(mkfifo(folder.file("in.avi").c_str(), 0600), 0);
    expect_null_streams(program_beside("orbrec"), "import in.avi -o rec/", folder.file("."));
}

TEST(StandardStreamsTest, TheServiceHasTheNullDeviceWhereItHadNothing)
{
    temp_folder folder;
    folder.write("etc/conf/ms_config.json", R"({"port": 0})");
    expect_null_streams(program_beside("vod_svr"), "--root .", folder.file("."));
}
