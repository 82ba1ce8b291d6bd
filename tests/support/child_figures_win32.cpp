#include "tests/support/child_figures_win32.h"

#include <cstring>
// After windows.h, on which they rest.
#include <psapi.h>
#include <winternl.h>

// One entry of what the host answers to ALL_HANDLES, behind two counts of the same size as a pointer.
struct handle_entry {
    uint64_t object, process_id, value;
    uint32_t access, kinds, attributes, reserved;
};
static_assert(sizeof(handle_entry) == 40 && offsetof(handle_entry, process_id) == 8);
static constexpr size_t ENTRIES_OFFSET = 16, ANSWER_BYTES_MAX = 256u << 20;
// The header lacks some of the host's questions.
static constexpr ULONG ALL_PROCESSES = SystemProcessInformation, ALL_HANDLES = 64;
using information_query = LONG(WINAPI *)(ULONG question, void *answer, ULONG answer_size, ULONG *size);

// The host's answer about all processes, empty when it gives none.
static std::vector<char> answer_to(ULONG question)
{
    auto ask = reinterpret_cast<information_query>(
        reinterpret_cast<void *>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    for (size_t bytes = 1 << 20; ask != nullptr && bytes <= ANSWER_BYTES_MAX; bytes *= 4) {
        std::vector<char> answer(bytes);
        ULONG size = 0;
        if (ask(question, answer.data(), static_cast<ULONG>(bytes), &size) == 0)
            return answer;
    }
    return {};
}

static int threads_of(DWORD pid)
{
    std::vector<char> answer = answer_to(ALL_PROCESSES);
    SYSTEM_PROCESS_INFORMATION record = {};
    for (size_t at = 0; at + sizeof record <= answer.size(); at += record.NextEntryOffset) {
        std::memcpy(&record, answer.data() + at, sizeof record);
        if (reinterpret_cast<uintptr_t>(record.UniqueProcessId) == pid)
            return static_cast<int>(record.NumberOfThreads);
        if (record.NextEntryOffset == 0)
            break;
    }
    return 0;
}

// One by one: the count that the host keeps for a process is that of its table where it is Wine.
static int handles_of(DWORD pid)
{
    std::vector<char> answer = answer_to(ALL_HANDLES);
    uint64_t count = 0;
    int found = 0;
    if (answer.size() >= sizeof count)
        std::memcpy(&count, answer.data(), sizeof count);
    for (uint64_t i = 0; i < count && ENTRIES_OFFSET + (i + 1) * sizeof(handle_entry) <= answer.size(); i++) {
        handle_entry entry;
        std::memcpy(&entry, answer.data() + ENTRIES_OFFSET + i * sizeof entry, sizeof entry);
        found += entry.process_id == pid ? 1 : 0;
    }
    return found;
}

static uint64_t ms_of(const FILETIME &time)
{
    return (uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime) / 10'000;
}

child_figures child_figures_of(HANDLE process, DWORD pid)
{
    child_figures figures;
    PROCESS_MEMORY_COUNTERS memory = {};
    FILETIME begin, end, kernel = {}, user = {};
    IO_COUNTERS io = {};
    GetProcessIoCounters(process, &io);
    GetProcessMemoryInfo(process, &memory, sizeof memory);
    GetProcessTimes(process, &begin, &end, &kernel, &user);
    figures.threads = threads_of(pid);
    figures.descriptors = handles_of(pid);
    figures.host_descriptors = 4;
    figures.resident_bytes = memory.WorkingSetSize;
    figures.cpu_ms = ms_of(kernel) + ms_of(user);
    figures.read_bytes = io.ReadTransferCount;
    return figures;
}
