#include "tests/support/child_process.h"

#include "platform/os/os.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

static constexpr uint32_t LOOK_MS = 5;

struct child_state {
    int pid = -1, status = CHILD_ENDED_BY_FORCE, pipe = -1;
    bool runs = false;
};

child_process::child_process() : state_(std::make_unique<child_state>()) {}

child_process::~child_process()
{
    end_now();
    close_pipe();
}

// ---- Starting -------------------------------------------------------------------------------------------------------

static std::vector<char *> pointers_to(std::vector<std::string> &texts)
{
    std::vector<char *> pointers;
    for (std::string &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

static std::vector<std::string> environment_with(const std::vector<std::string> &additions)
{
    auto is_replaced = [&](const std::string &entry) {
        return std::ranges::any_of(additions, [&](const std::string &addition) {
            return entry.starts_with(addition.substr(0, addition.find('=') + 1));
        });
    };
    std::vector<std::string> all;
    for (char **entry = environ; *entry != nullptr; entry++)
        if (!is_replaced(*entry))
            all.emplace_back(*entry);
    all.insert(all.end(), additions.begin(), additions.end());
    return all;
}

// What the new process does before it becomes the program: nothing here may take memory, because other threads of the
// test may have held the allocator's lock.
static void become(const child_options &options, int pipe_end, int parent, char *const *argv, char *const *environment)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        return;
    auto connect = [](const char *file, int flags, int stream) {
        int opened = open(file, flags | O_CLOEXEC, 0600);
        return opened >= 0 && dup2(opened, stream) >= 0;
    };
    bool is_connected = connect(options.in.empty() ? "/dev/null" : options.in.c_str(), O_RDONLY, STDIN_FILENO);
    if (pipe_end >= 0)
        is_connected = is_connected && dup2(pipe_end, options.err_is_pipe ? STDERR_FILENO : STDOUT_FILENO) >= 0;
    if (!options.out_is_pipe && !options.out.empty())
        is_connected = is_connected && connect(options.out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, STDOUT_FILENO);
    if (!options.err_is_pipe && !options.err.empty())
        is_connected = is_connected && connect(options.err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, STDERR_FILENO);
    if (is_connected && (options.folder.empty() || chdir(options.folder.c_str()) == 0))
        execve(argv[0], argv, environment);
}

bool child_process::start(const std::vector<std::string> &words, const child_options &options)
{
    end_now();
    close_pipe();
    std::vector<std::string> argument_texts = words, environment_texts = environment_with(options.environment);
    std::vector<char *> argv = pointers_to(argument_texts), environment = pointers_to(environment_texts);
    int ends[2] = {-1, -1}, parent = getpid();
    if ((options.out_is_pipe || options.err_is_pipe) && pipe2(ends, O_CLOEXEC) != 0)
        return false;
    state_->pid = fork();
    if (state_->pid == 0) {
        become(options, ends[1], parent, argv.data(), environment.data());
        _exit(127);
    }
    close(ends[1]);
    state_->pipe = ends[0];
    state_->runs = state_->pid > 0;
    return state_->runs;
}

// ---- Ending ---------------------------------------------------------------------------------------------------------

static bool has_ended(child_state *state)
{
    int status = 0;
    if (state->runs && waitpid(state->pid, &status, WNOHANG) == state->pid) {
        state->runs = false;
        state->status = WIFEXITED(status) ? WEXITSTATUS(status) : int{CHILD_ENDED_BY_FORCE};
    }
    return !state->runs;
}

int child_process::wait(uint32_t ms)
{
    uint64_t deadline = os_tick() + ms;
    while (!has_ended(state_.get())) {
        if (os_tick() >= deadline)
            return CHILD_RUNS;
        os_sleep(LOOK_MS);
    }
    return state_->status;
}

bool child_process::ask_to_end()
{
    return !has_ended(state_.get()) && kill(state_->pid, SIGTERM) == 0;
}

bool child_process::press_ctrl_c()
{
    return !has_ended(state_.get()) && kill(state_->pid, SIGINT) == 0;
}

void child_process::end_now()
{
    if (has_ended(state_.get()))
        return;
    kill(state_->pid, SIGKILL);
    wait(60'000);
}

int child_process::pid() const
{
    return state_->pid;
}

// ---- The pipe -------------------------------------------------------------------------------------------------------

std::string child_process::read(size_t limit)
{
    std::string text;
    char bytes[65536];
    while (text.size() < limit) {
        ssize_t count = ::read(state_->pipe, bytes, std::min(sizeof bytes, limit - text.size()));
        if (count <= 0)
            break;
        text.append(bytes, static_cast<size_t>(count));
    }
    return text;
}

void child_process::close_pipe()
{
    if (state_->pipe >= 0)
        close(state_->pipe);
    state_->pipe = -1;
}

// ---- What it costs --------------------------------------------------------------------------------------------------

static int entries_in(const std::string &folder)
{
    std::error_code gone;
    std::filesystem::directory_iterator entries(folder, gone);
    return gone ? 0 : static_cast<int>(std::distance(entries, {}));
}

static std::string text_of(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// User and system time out of /proc/<pid>/stat.
static uint64_t cpu_ticks(const std::string &stat)
{
    // Behind the name, which may hold anything, stand the state and ten numbers.
    std::istringstream fields(stat.substr(std::min(stat.size(), stat.rfind(')') + 1)));
    std::string skipped;
    for (int i = 0; i < 11; i++)
        fields >> skipped;
    uint64_t user = 0, system = 0;
    fields >> user >> system;
    return user + system;
}

static uint64_t bytes_read(const std::string &io)
{
    std::istringstream fields(io);
    std::string name;
    uint64_t bytes = 0;
    fields >> name >> bytes; // "rchar: " stands first
    return bytes;
}

// The letter behind the name in /proc/<pid>/task/<tid>/stat: whoever was woken no longer sleeps.
static bool is_at_rest(const std::string &stat, const std::string &thread_name)
{
    size_t end = stat.rfind(')');
    return end == stat.npos || stat.find("(" + thread_name + ")") == stat.npos || stat.compare(end, 3, ") S") == 0;
}

void child_process::wait_for_rest(const std::string &thread_name) const
{
    auto all_rest = [&] {
        std::error_code gone;
        std::filesystem::directory_iterator thread("/proc/" + std::to_string(state_->pid) + "/task", gone), end;
        for (; !gone && thread != end; thread.increment(gone))
            if (!is_at_rest(text_of(thread->path() / "stat"), thread_name))
                return false;
        return true;
    };
    for (uint64_t deadline = os_tick() + 20'000; !all_rest() && os_tick() < deadline; os_sleep(LOOK_MS)) {
    }
}

child_figures child_process::figures() const
{
    std::string proc = "/proc/" + std::to_string(state_->pid);
    child_figures figures;
    figures.threads = entries_in(proc + "/task");
    figures.descriptors = entries_in(proc + "/fd");
    uint64_t pages = 0;
    std::istringstream(text_of(proc + "/statm")) >> pages >> pages;
    figures.resident_bytes = pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    figures.cpu_ms = cpu_ticks(text_of(proc + "/stat")) * 1000 / static_cast<uint64_t>(sysconf(_SC_CLK_TCK));
    figures.read_bytes = bytes_read(text_of(proc + "/io"));
    return figures;
}
