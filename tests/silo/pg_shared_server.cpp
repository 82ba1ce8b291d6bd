// One server for all tests of a build: making one takes seconds, and each test is a process of its own.
//
// Each user holds a shared lock on a file beside the test programs. A script that runs beside the server tries every
// few seconds to get that lock for itself; when it does, nobody is left, and it ends the server and removes its folder.
// Locks go with their processes, however those end.
#include "tests/silo/pg_server.h"

#include "platform/os/os.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

static constexpr uint32_t START_MS = 60'000, LOOK_MS = 50;
static constexpr int START_ATTEMPTS = 5;

// Arguments: the server's folder, the lock file, the file that tells the address, then the server's command.
static constexpr const char *KEEPER = R"(
folder=$1 users=$2 ready=$3
shift 3
"$@" >"$folder/log" 2>&1 &
server=$!
while sleep 5 && kill -0 $server 2>/dev/null; do
  exec 9<>"$users"
  flock -n -x 9 && break
  exec 9>&-
done
rm -f "$ready"
kill -INT $server 2>/dev/null
wait $server
rm -rf "$folder"
)";

static std::string beside(const std::string &name)
{
    char program[4096] = "";
    os_module_filename(program, sizeof program);
    return (fs::path(program).parent_path() / name).string();
}

static std::string read_text(const std::string &path)
{
    std::string text;
    std::getline(std::ifstream(path), text);
    return text;
}

static bool make_cluster(const std::string &folder)
{
    return pg_give_folder(folder) && child_run(pg_command("initdb", {"-D", folder + "/data", "-U", "silo", "-A",
                                                                     "trust", "-E", "UTF8", "--no-locale", "-N"}),
                                               {.folder = "/tmp"})
                                             .status == 0;
}

static bool start_keeper(const std::string &folder, uint16_t port)
{
    std::vector<std::string> words = {
        "/bin/sh", "-c", KEEPER, "keeper", folder, beside("pg_server.users"), beside("pg_server.ready")};
    for (const std::string &word :
         pg_command("postgres", {"-D", folder + "/data", "-p", std::to_string(port), "-c", "fsync=off", "-c",
                                 "listen_addresses=127.0.0.1", "-c", "unix_socket_directories=", "-c",
                                 "max_connections=400", "-c", "shared_buffers=64MB"}))
        words.push_back(word);
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&files);
    posix_spawnattr_init(&attributes);
    for (int stream = 0; stream < 3; stream++)
        posix_spawn_file_actions_addopen(&files, stream, "/dev/null", O_RDWR, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    pid_t keeper = -1;
    bool started = posix_spawn(&keeper, argv[0], &files, &attributes, argv.data(), environ) == 0;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return started;
}

static std::string address(uint16_t port)
{
    return "postgresql://silo@127.0.0.1:" + std::to_string(port) + "/postgres";
}

static bool answers(const std::string &uri)
{
    return !uri.empty() && pg_ask_server(uri, "SELECT 1") == "1";
}

static std::string start_server()
{
    char folder[] = "/tmp/silo_pg_XXXXXX";
    if (mkdtemp(folder) == nullptr || !make_cluster(folder))
        return "";
    uint16_t port = pg_free_port();
    if (!start_keeper(folder, port))
        return "";
    for (uint32_t waited = 0; waited < START_MS && fs::exists(folder); waited += LOOK_MS, os_sleep(LOOK_MS))
        if (answers(address(port))) {
            std::ofstream(beside("pg_server.ready")) << address(port) << '\n';
            return address(port);
        }
    return "";
}

static std::string find_or_start()
{
    // Kept until the process ends.
    int users = open(beside("pg_server.users").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    int starting = open(beside("pg_server.starting").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (users < 0 || starting < 0 || flock(users, LOCK_SH) != 0 || flock(starting, LOCK_EX) != 0)
        return "";
    std::string uri = read_text(beside("pg_server.ready"));
    for (int attempt = 0; attempt < START_ATTEMPTS && !answers(uri); attempt++)
        uri = start_server();
    close(starting);
    return uri;
}

std::string pg_shared_server_uri()
{
    static const std::string uri = find_or_start();
    return uri;
}
