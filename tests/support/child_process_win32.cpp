#include "tests/support/child_figures_win32.h"

#include "platform/os/os_win32.h"

#include <algorithm>
#include <cwchar>

// As a crash's status is: no program ends with such a number by itself.
static constexpr DWORD FORCED_STATUS = 0xE0000000, FIRST_CRASH_STATUS = 0xC0000000;

using shared_handle = std::unique_ptr<handle_owner>;

// A console of the process's own, which nobody sees: Ctrl-C in it reaches the process and nobody else.
class own_console {
public:
    explicit own_console(HANDLE out)
    {
        HANDLE keyboard = nullptr, typed = nullptr;
        CreatePipe(&keyboard, &typed, nullptr, 0);
        handle_owner read(keyboard);
        typed_ = std::make_unique<handle_owner>(typed);
        if (FAILED(CreatePseudoConsole({80, 25}, read.get(), out, 0, &console_)))
            console_ = nullptr;
    }
    ~own_console()
    {
        if (console_ != nullptr)
            ClosePseudoConsole(console_);
    }
    own_console(const own_console &) = delete;
    own_console &operator=(const own_console &) = delete;
    HPCON get() const { return console_; }

private:
    shared_handle typed_; // held open: a console whose keyboard has gone closes
    HPCON console_ = nullptr;
};

struct child_state {
    shared_handle process, pipe;
    std::unique_ptr<own_console> console;
    DWORD pid = 0;
};

child_process::child_process() : state_(std::make_unique<child_state>()) {}

child_process::~child_process()
{
    end_now();
}

// ---- Texts ----------------------------------------------------------------------------------------------------------

static std::wstring wide(const std::string &text)
{
    std::wstring result(text.size(), L'\0');
    int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), result.data(),
                                     static_cast<int>(result.size()));
    result.resize(static_cast<size_t>(length));
    return result;
}

// As the program's start takes it apart again: backslashes count only before a quotation mark.
static std::wstring quoted(const std::wstring &word)
{
    std::wstring result = L"\"";
    size_t backslashes = 0;
    for (wchar_t letter : word) {
        if (letter == L'"')
            result.append(backslashes + 1, L'\\');
        backslashes = letter == L'\\' ? backslashes + 1 : 0;
        result += letter;
    }
    return result.append(backslashes, L'\\') + L"\"";
}

static std::wstring command_line(const std::vector<std::string> &words)
{
    std::wstring line;
    for (const std::string &word : words)
        line += (line.empty() ? L"" : L" ") + quoted(wide(word));
    return line;
}

static bool names_the_same(const std::wstring &left, const std::wstring &right)
{
    // Names of drives' working folders begin with the sign itself.
    size_t length = left.find(L'=', 1);
    return length == right.find(L'=', 1) && _wcsnicmp(left.c_str(), right.c_str(), length) == 0;
}

static std::wstring environment_with(const std::vector<std::string> &additions)
{
    std::vector<std::wstring> all;
    wchar_t *own = GetEnvironmentStringsW();
    for (const wchar_t *entry = own; *entry != L'\0'; entry += std::wcslen(entry) + 1)
        all.emplace_back(entry);
    FreeEnvironmentStringsW(own);
    for (const std::string &addition : additions) {
        std::erase_if(all, [&](const std::wstring &entry) { return names_the_same(entry, wide(addition)); });
        all.push_back(wide(addition));
    }
    std::wstring block;
    for (const std::wstring &entry : all)
        block.append(entry).push_back(L'\0');
    return block + L'\0';
}

// ---- Starting -------------------------------------------------------------------------------------------------------

// Everything in it ends when the test's own handle does.
static HANDLE job_of_all()
{
    static HANDLE job = [] {
        HANDLE made = CreateJobObjectW(nullptr, nullptr);
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
        limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
        SetInformationJobObject(made, JobObjectExtendedLimitInformation, &limits, sizeof limits);
        return made;
    }();
    return job;
}

static SECURITY_ATTRIBUTES inherited()
{
    return {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
}

static shared_handle stream_open(const std::string &file, DWORD access, DWORD disposition)
{
    SECURITY_ATTRIBUTES attributes = inherited();
    return std::make_unique<handle_owner>(CreateFileW(wide(file).c_str(), access,
                                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                                      &attributes, disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
}

// The file, or the test's own stream.
static shared_handle output_open(const std::string &file, DWORD own)
{
    if (!file.empty())
        return stream_open(file, GENERIC_WRITE, CREATE_ALWAYS);
    HANDLE copy = nullptr;
    DuplicateHandle(GetCurrentProcess(), GetStdHandle(own), GetCurrentProcess(), &copy, 0, TRUE, DUPLICATE_SAME_ACCESS);
    return std::make_unique<handle_owner>(copy);
}

static shared_handle pipe_open(shared_handle *reader)
{
    SECURITY_ATTRIBUTES attributes = inherited();
    HANDLE read = nullptr, write = nullptr;
    CreatePipe(&read, &write, &attributes, 0);
    SetHandleInformation(read, HANDLE_FLAG_INHERIT, 0);
    *reader = std::make_unique<handle_owner>(read);
    return std::make_unique<handle_owner>(write);
}

// Names the console and the handles that a process gets, and no others that the test happens to have.
class start_information {
public:
    start_information(HPCON console, HANDLE in, HANDLE out, HANDLE err) : streams_{in, out, err}
    {
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 2, 0, &size);
        memory_.resize(size);
        info_.StartupInfo.cb = sizeof info_;
        info_.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
        info_.StartupInfo.hStdInput = in;
        info_.StartupInfo.hStdOutput = out;
        info_.StartupInfo.hStdError = err;
        info_.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory_.data());
        InitializeProcThreadAttributeList(info_.lpAttributeList, 2, 0, &size);
        UpdateProcThreadAttribute(info_.lpAttributeList, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, streams_,
                                  sizeof streams_, nullptr, nullptr);
        if (console != nullptr)
            UpdateProcThreadAttribute(info_.lpAttributeList, 0, PROC_THREAD_ATTRIBUTE_PSEUDOCONSOLE, console,
                                      sizeof console, nullptr, nullptr);
    }
    ~start_information() { DeleteProcThreadAttributeList(info_.lpAttributeList); }
    start_information(const start_information &) = delete;
    start_information &operator=(const start_information &) = delete;
    STARTUPINFOW *get() { return &info_.StartupInfo; }

private:
    HANDLE streams_[3];
    std::vector<char> memory_;
    STARTUPINFOEXW info_ = {};
};

bool child_process::start(const std::vector<std::string> &words, const child_options &options)
{
    end_now();
    close_pipe();
    // Before the streams are open: the host of the console would inherit them and keep a pipe from ending.
    shared_handle nobody = stream_open("NUL", GENERIC_WRITE, OPEN_EXISTING);
    state_->console = std::make_unique<own_console>(nobody->get());
    shared_handle in = stream_open(options.in.empty() ? "NUL" : options.in, GENERIC_READ, OPEN_EXISTING);
    shared_handle out = options.out_is_pipe ? pipe_open(&state_->pipe) : output_open(options.out, STD_OUTPUT_HANDLE);
    shared_handle err = options.err_is_pipe ? pipe_open(&state_->pipe) : output_open(options.err, STD_ERROR_HANDLE);
    start_information streams(state_->console->get(), in->get(), out->get(), err->get());
    std::wstring line = command_line(words), environment = environment_with(options.environment);
    std::wstring folder = wide(options.folder);
    PROCESS_INFORMATION made = {};
    // Not running before it is in the job.
    DWORD flags = CREATE_SUSPENDED | CREATE_UNICODE_ENVIRONMENT | EXTENDED_STARTUPINFO_PRESENT;
    if (!CreateProcessW(wide(words.at(0)).c_str(), line.data(), nullptr, nullptr, TRUE, flags, environment.data(),
                        folder.empty() ? nullptr : folder.c_str(), streams.get(), &made))
        return false;
    handle_owner thread(made.hThread);
    state_->process = std::make_unique<handle_owner>(made.hProcess);
    state_->pid = made.dwProcessId;
    return AssignProcessToJobObject(job_of_all(), made.hProcess) && ResumeThread(made.hThread) != DWORD(-1);
}

// ---- Ending ---------------------------------------------------------------------------------------------------------

int child_process::wait(uint32_t ms)
{
    DWORD status = FORCED_STATUS;
    if (state_->process == nullptr)
        return CHILD_ENDED_BY_FORCE;
    if (WaitForSingleObject(state_->process->get(), ms) != WAIT_OBJECT_0)
        return CHILD_RUNS;
    GetExitCodeProcess(state_->process->get(), &status);
    return status >= FIRST_CRASH_STATUS ? int{CHILD_ENDED_BY_FORCE} : static_cast<int>(status);
}

// A program of its own presses the keys, because who does must leave the console that it has.
bool child_process::press_ctrl_c()
{
    child_process presser;
    return is_running() && presser.start({program_beside("child_interrupt"), std::to_string(state_->pid)}) &&
           presser.wait(60'000) == 0;
}

bool child_process::ask_to_end()
{
    return press_ctrl_c();
}

void child_process::end_now()
{
    if (!is_running())
        return;
    TerminateProcess(state_->process->get(), FORCED_STATUS);
    wait(60'000);
}

int child_process::pid() const
{
    return static_cast<int>(state_->pid);
}

// ---- The pipe -------------------------------------------------------------------------------------------------------

std::string child_process::read(size_t limit)
{
    std::string text;
    char bytes[65536];
    while (state_->pipe != nullptr && text.size() < limit) {
        DWORD count = 0;
        if (!ReadFile(state_->pipe->get(), bytes, static_cast<DWORD>(std::min(sizeof bytes, limit - text.size())),
                      &count, nullptr) ||
            count == 0)
            break;
        text.append(bytes, count);
    }
    return text;
}

void child_process::close_pipe()
{
    state_->pipe.reset();
}

// ---- What it costs --------------------------------------------------------------------------------------------------

void child_process::wait_for_rest(const std::string &) const
{
    Sleep(50);
}

child_figures child_process::figures() const
{
    return state_->process == nullptr ? child_figures{} : child_figures_of(state_->process->get(), state_->pid);
}
