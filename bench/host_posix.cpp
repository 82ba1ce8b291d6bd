#include "bench/host.h"

#include "bench/figure.h"

#include <csignal>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

static void run_program(const std::vector<std::string> &arguments, int output)
{
    std::vector<char *> argv;
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    dup2(output, STDOUT_FILENO);
    execv(argv[0], argv.data());
    _exit(127);
}

child_process::child_process(const std::vector<std::string> &arguments)
{
    int ends[2];
    bench_require(pipe2(ends, O_CLOEXEC) == 0, "no pipe");
    pid_ = fork();
    bench_require(pid_ >= 0, "no process");
    if (pid_ == 0)
        run_program(arguments, ends[1]);
    close(ends[1]);
    output_ = ends[0];
}

child_process::~child_process()
{
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
    close(output_);
}

std::string child_process::read_line()
{
    std::string line;
    for (char c; read(output_, &c, 1) == 1 && c != '\n';)
        line += c;
    return line;
}

double child_process::cpu_seconds() const
{
    clockid_t clock = 0;
    timespec used = {};
    bench_require(clock_getcpuclockid(pid_, &clock) == 0 && clock_gettime(clock, &used) == 0, "the process is gone");
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

uint64_t child_process::resident_bytes() const
{
    std::ifstream file("/proc/" + std::to_string(pid_) + "/statm");
    uint64_t all_pages = 0, resident_pages = 0;
    bench_require(static_cast<bool>(file >> all_pages >> resident_pages), "the process is gone");
    return resident_pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

uint64_t own_bytes_read()
{
    std::ifstream file("/proc/self/io");
    std::string key;
    uint64_t bytes = 0;
    bench_require(static_cast<bool>(file >> key >> bytes) && key == "rchar:", "the host does not count reads");
    return bytes;
}

bool read_ends(const std::string &path, void *head, size_t head_size, void *tail, size_t tail_size)
{
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat info = {};
    bool is_read =
        fstat(fd, &info) == 0 && info.st_size >= static_cast<off_t>(tail_size) &&
        pread(fd, head, head_size, 0) == static_cast<ssize_t>(head_size) &&
        pread(fd, tail, tail_size, info.st_size - static_cast<off_t>(tail_size)) == static_cast<ssize_t>(tail_size);
    close(fd);
    return is_read;
}
