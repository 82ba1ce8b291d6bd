#include "vod/state_file.h"

#include "platform/os/os_guard.h"
#include "vod/access.h"
#include "vod/link_table.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <vector>

static constexpr std::string_view STATE_DOCUMENT_START = "<?xml version=\"1.0\" encoding=\"GB2312\"?>\n<vod>";

static std::mutex s_state_files_mutex;
// Guarded by s_state_files_mutex. The names of our documents in the folder, the oldest first, as of this reading of the
// settings. Times of files are too coarse to tell what a quick client wrote first. Never destroyed: the threads of the
// service outlive main.
static auto &s_state_files = *new std::deque<std::string>;
static unsigned s_state_files_reading;

struct state_files_guard : std::lock_guard<std::mutex> {
    state_files_guard() : lock_guard(s_state_files_mutex) {}
};

// One component of letters that no host and no character set reads as anything else, and no hidden one.
static bool is_plain_name(std::string_view name)
{
    static constexpr std::string_view LETTERS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
    return !name.empty() && name.front() != '.' && name.find_first_not_of(LETTERS) == name.npos;
}

// Settings are UTF-8, paths of the system GB18030. Empty when there is no such path.
static std::string system_path(const std::string &utf8)
{
    char path[4096];
    int length = os_code_convert("utf-8", "GB18030", path, sizeof path, utf8.c_str(), utf8.size());
    return length > 0 ? path : "";
}

static std::string path_in_folder(const std::string &name)
{
    return system_path(access_rules_now().state_dir) + '\\' + name;
}

static bool is_state_document(const std::string &path)
{
    os_file *opened = nullptr;
    if (!os_file_open(path.c_str(), OS_FILE_READ, &opened))
        return false;
    os_file_ptr file(opened);
    char start[STATE_DOCUMENT_START.size()];
    return os_file_pread(file.get(), start, sizeof start, 0) == static_cast<int64_t>(sizeof start) &&
           std::string_view(start, sizeof start) == STATE_DOCUMENT_START;
}

static bool is_foreign_file(const std::string &path)
{
    os_file_info info;
    return os_file_stat(path.c_str(), 0, &info) && !is_state_document(path);
}

// ---- How many -------------------------------------------------------------------------------------------------------

static int take_name(void *names, const char *name)
{
    static_cast<std::vector<std::string> *>(names)->push_back(name);
    return 1;
}

static void find_documents(const state_files_guard &)
{
    std::vector<std::string> names;
    std::vector<std::pair<int64_t, std::string>> found;
    os_directory_list(system_path(access_rules_now().state_dir).c_str(), take_name, &names);
    for (const std::string &name : names) {
        os_file_info info;
        std::string path = path_in_folder(name);
        if (is_plain_name(name) && os_file_stat(path.c_str(), 0, &info) && is_state_document(path))
            found.emplace_back(info.modified_seconds, name);
    }
    std::ranges::sort(found);
    s_state_files.clear();
    for (auto &[modified, name] : found)
        s_state_files.push_back(std::move(name));
    s_state_files_reading = access_rules_now().reading;
}

// Before the file is written, so that there are never more. Somebody may have put another file in a document's place.
static void make_room(const state_files_guard &held, const std::string &name)
{
    if (s_state_files_reading != access_rules_now().reading)
        find_documents(held);
    std::erase(s_state_files, name);
    auto most = static_cast<size_t>(access_rules_now().state_files);
    for (; s_state_files.size() >= most; s_state_files.pop_front()) {
        std::string path = path_in_folder(s_state_files.front());
        if (is_state_document(path) && os_file_remove(path.c_str()))
            LOG(LOG_REFUSE, "state file %s removed, there may be %zu", s_state_files.front().c_str(), most);
    }
}

// ---- Writing --------------------------------------------------------------------------------------------------------

static int write_to(const std::string &path, int flags, const std::string &name, const std::string &text)
{
    if (!os_file_replace(path.c_str(), flags, text.data(), text.size()))
        return LOGGED(0, LOG_SYSTEM, "state file not written: %s: %s", name.c_str(), os_file_error());
    return 1;
}

static void state_dir_create()
{
    const std::string &folder = access_rules_now().state_dir;
    for (size_t end = 0; end != std::string::npos;) {
        end = folder.find_first_of("/\\", end + 1);
        os_directory_create(system_path(folder.substr(0, end)).c_str());
    }
}

// The folder is the operator's choice, and the name cannot lead out of it.
static int write_in_folder(const std::string &name, const std::string &text)
{
    if (!is_plain_name(name))
        return LOGGED(0, LOG_REFUSE, "state file refused, no plain name: %s", name.c_str());
    state_files_guard held;
    state_dir_create();
    std::string path = path_in_folder(name);
    if (is_foreign_file(path))
        return LOGGED(0, LOG_REFUSE, "state file refused, another file has its name: %s", name.c_str());
    make_room(held, name);
    if (!write_to(path, 0, name, text))
        return 0;
    s_state_files.push_back(name);
    return 1;
}

int state_file_write(const std::string &name, const std::string &text)
{
    char path[VOD_PATH_SIZE];
    if (os_code_convert("utf-8", "GB18030", path, sizeof path, name.c_str(), name.size()) <= 0)
        return LOGGED(0, LOG_REFUSE, "os_code_convert <= 0");
    return access_rules_now().is_limited ? write_in_folder(name, text) : write_to(path, OS_FILE_CLIENT, name, text);
}
