#include "tools/orbrec/check.h"
#include "tools/orbrec/progress.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

namespace fs = std::filesystem;

static fs::path host_path(const std::string &text)
{
    return fs::path(std::u8string(text.begin(), text.end()));
}

std::string entry_file(const std::string &path, const std::string &root)
{
    char host[4096];
    std::string name = path;
    // Other programs may have written UTF-8.
    if (os_path_to_host(path.c_str(), host, sizeof host))
        name = host;
    std::string full;
    fs::path file = host_path(name);
    if (!file.is_absolute() && !file.has_root_directory())
        name = root + "/" + name;
    return full_name(name, &full) ? full : "";
}

// ---- Folders, asked once each ---------------------------------------------------------------------------------------

enum folder_state { FOLDER_IN_USE, FOLDER_GONE };

// An empty one may be the place where a disk should be.
static folder_state folder_look(const std::string &folder)
{
    std::error_code failed;
    fs::directory_iterator first(host_path(folder), failed);
    return !failed && first != fs::directory_iterator() ? FOLDER_IN_USE : FOLDER_GONE;
}

struct file_walk {
    const check_command &command;
    const index_snapshot &snapshot;
    std::vector<finding> *findings;
    check_counts *counts;
    std::vector<std::string> below{}; // folders in full, ending with a separator; none: everything
    std::map<std::string, folder_state> folders{};
    std::set<std::string> entered{}; // files that have an entry
};

static folder_state folder_state_of(file_walk *walk, const std::string &file)
{
    std::string folder = file.substr(0, file.find_last_of("/\\") + 1);
    auto known = walk->folders.find(folder);
    if (known == walk->folders.end())
        known = walk->folders.emplace(folder, folder_look(folder)).first;
    return known->second;
}

static bool is_looked_at(const file_walk &walk, const index_row &row, const std::string &file)
{
    const std::vector<std::string> &hosts = walk.command.hosts;
    if (!hosts.empty() && std::ranges::find(hosts, row.host) == hosts.end())
        return false;
    return walk.below.empty() ||
           std::ranges::any_of(walk.below, [&](const std::string &folder) { return file.starts_with(folder); });
}

// ---- One entry and its file -----------------------------------------------------------------------------------------

static void tell(file_walk *walk, finding_kind kind, const index_row &row, const std::string &file,
                 const std::string &text)
{
    walk->findings->push_back({.kind = kind, .id = row.id, .file = file, .path = row.path, .text = text});
}

static void compare_size(file_walk *walk, const index_row &row, const std::string &file, uint64_t size)
{
    if (row.has & SILO_HAS_SIZE ? row.size != size : size != 0)
        tell(walk, FINDING_SIZE, row, file,
             "the index says " + std::to_string(row.size) + " bytes, the file has " + std::to_string(size));
}

static void compare_md5(file_walk *walk, const index_row &row, const std::string &file, uint64_t size)
{
    if (!walk->command.md5 || row.md5.empty())
        return;
    std::string md5 = file_md5(file, size, nullptr);
    if (!md5.empty() && md5 != row.md5)
        tell(walk, FINDING_MD5, row, file, "the index says MD5 " + row.md5 + ", the file has " + md5);
}

static void compare_times(file_walk *walk, const index_row &row, const recording_facts &facts)
{
    if ((row.has & SILO_HAS_BT) && row.begin != facts.begin)
        tell(walk, FINDING_BEGIN, row, facts.file,
             "the index says that it begins at " + row.begin + ", the file at " + facts.begin);
    if (facts.is_growing && !row.end.empty())
        tell(walk, FINDING_END, row, facts.file,
             "the index says that it ends at " + row.end + ", the file is still being written");
    else if (!facts.is_growing && row.end.empty())
        tell(walk, FINDING_END, row, facts.file,
             "the index says that it is still being written, it ended at " + facts.end);
    else if (!facts.is_growing && row.end != facts.end)
        tell(walk, FINDING_END, row, facts.file,
             "the index says that it ends at " + row.end + ", the file at " + facts.end);
}

static void compare(file_walk *walk, const index_row &row, const std::string &file, uint64_t size)
{
    recording_facts facts;
    std::string error;
    bool is_recording = recording_facts_read(file, &facts, &error);
    if (is_recording)
        compare_times(walk, row, facts);
    // One that is being written is ahead of its entry.
    if (is_recording && facts.is_growing && row.end.empty())
        return;
    size_t before = walk->findings->size();
    compare_size(walk, row, file, size);
    if (walk->findings->size() == before)
        compare_md5(walk, row, file, size);
}

static void look_at(file_walk *walk, const index_row &row, const std::string &file)
{
    std::string path, error;
    os_file_info info;
    bool is_there = system_path(file, &path, &error) && os_file_stat(path.c_str(), 0, &info) && info.is_regular;
    bool is_hidden = walk->snapshot.is_hidden(row);
    // Other revisions than ours are how other programs take entries out of searches. Of two entries of one file the one
    // that its path does not lead to stays hidden.
    if (is_hidden && (!is_there || row.revision != 0 || walk->snapshot.not_led_to.contains(row.id))) {
        walk->counts->hidden++;
        return;
    }
    if (!is_there) {
        bool is_folder_gone = folder_state_of(walk, file) == FOLDER_GONE;
        return tell(walk, is_folder_gone ? FINDING_FOLDER_MISSING : FINDING_FILE_MISSING, row, file,
                    is_folder_gone ? "its folder is gone or empty: is its disk there?" : "its file is gone");
    }
    if (is_hidden)
        tell(walk, FINDING_FILE_BACK, row, file, "hidden from searches although its file is there");
    else
        compare(walk, row, file, info.size);
}

// ---- All of them ----------------------------------------------------------------------------------------------------

// What changed since the snapshot is not told: the service and recorders go on meanwhile.
static bool is_still_so(silo_transaction_t *trans, const check_command &command, const finding &found,
                        const index_row *row)
{
    if (found.kind == FINDING_NO_ENTRY) {
        std::string path;
        return index_find(trans, index_paths(found.file, command.store.folder()), &path) == 0;
    }
    silo_record record;
    return row == nullptr || (silo_record_read(trans, row->id, &record) && row->path == record.path &&
                              row->size == record.size && row->end == record.et && row->revision == record.revision);
}

static bool forget_what_changed(file_walk *walk)
{
    return index_read([&](silo_transaction_t *trans) {
        std::erase_if(*walk->findings, [&](const finding &found) {
            return found.kind != FINDING_KEY &&
                   !is_still_so(trans, walk->command, found, row_of(walk->snapshot, found.id));
        });
        return true;
    });
}

static void folders_in_full(file_walk *walk)
{
    for (const std::string &folder : walk->command.folders)
        if (std::string inside; full_name(folder + "/x", &inside))
            walk->below.push_back(inside.substr(0, inside.size() - 1));
}

bool check_files(const check_command &command, const index_snapshot &snapshot, const std::vector<found_file> &files,
                 std::vector<finding> *findings, check_counts *counts)
{
    file_walk walk{.command = command, .snapshot = snapshot, .findings = findings, .counts = counts};
    folders_in_full(&walk);
    progress_bar progress("check", static_cast<int64_t>(snapshot.rows.size()));
    for (const index_row &row : snapshot.rows) {
        progress.show(static_cast<int64_t>(counts->entries++));
        if (orbrec_is_stopped())
            return false;
        std::string file = row.path.empty() ? "" : entry_file(row.path, command.store.folder());
        if (file.empty())
            continue;
        walk.entered.insert(file);
        if (is_looked_at(walk, row, file))
            look_at(&walk, row, file);
    }
    for (const found_file &file : files)
        if (!walk.entered.contains(file.name))
            findings->push_back({.kind = FINDING_NO_ENTRY, .file = file.name, .text = "not in the index"});
    counts->files = files.size();
    return forget_what_changed(&walk);
}
