#include "tools/orbrec/index.h"

#include "tools/orbrec/progress.h"
#include "tools/orbrec/scan.h"

#include <algorithm>
#include <cstdio>

static constexpr size_t HOST_BYTES_MAX = 59;

index_wishes index_command::wishes() const
{
    index_wishes wishes;
    wishes.host = host;
    if (channel >= 0)
        wishes.channel = static_cast<uint32_t>(channel);
    if (type >= 0)
        wishes.type = static_cast<uint32_t>(type);
    wishes.renew_md5 = md5;
    wishes.folder = store.folder();
    return wishes;
}

static std::string complaint(const index_command &command)
{
    if (command.host.size() > HOST_BYTES_MAX)
        return "--host wants at most 59 bytes";
    return "";
}

// Enters the files one after the other, until the store fails or the process is to stop.
static int index_all(const index_command &command, const std::vector<found_file> &files, index_report *report)
{
    uint64_t total = 0, done = 0;
    for (const found_file &file : files)
        total += file.size;
    progress_bar progress("index", static_cast<int64_t>(total));
    for (const found_file &file : files) {
        if (orbrec_is_stopped()) {
            report->add({.facts = {}, .result = INDEX_STOPPED, .id = 0, .md5 = {}, .error = {}});
            break;
        }
        indexed_file entered = index_file(file.name, command.wishes(),
                                          [&](uint64_t bytes) { progress.show(static_cast<int64_t>(done + bytes)); });
        if (entered.facts.file.empty())
            entered.facts.file = file.name;
        done += file.size;
        progress.show(static_cast<int64_t>(done));
        if (report->tells(entered))
            progress.hide();
        report->add(entered);
        if (entered.result == INDEX_STORE_FAILED || entered.result == INDEX_STOPPED)
            break;
    }
    return report->finish();
}

static uint64_t size_of(const std::string &name)
{
    std::string path, error;
    os_file_info info;
    return system_path(name, &path, &error) && os_file_stat(path.c_str(), 0, &info) ? info.size : 0;
}

int orbrec_index(const index_command &command)
{
    if (std::string text = complaint(command); !text.empty())
        return orbrec_fail(ORBREC_USAGE, text);
    std::string address;
    if (int status = index_open(command.store, INDEX_IS_MADE, &address); status != ORBREC_OK)
        return status;
    index_report report(address, command.json, true);
    std::vector<found_file> files;
    for (const std::string &name : command.files)
        files.push_back({name, size_of(name)});
    return index_all(command, files, &report);
}

int orbrec_reindex(const index_command &command)
{
    if (std::string text = complaint(command); !text.empty())
        return orbrec_fail(ORBREC_USAGE, text);
    std::string address;
    if (int status = index_open(command.store, INDEX_IS_MADE, &address); status != ORBREC_OK)
        return status;
    index_report report(address, command.json, false);
    std::vector<found_file> files;
    std::vector<std::string> errors;
    for (const std::string &folder : command.folders)
        scan_folder(folder, command.endings, &files, &errors);
    for (const std::string &error : errors)
        report.fail(error, ORBREC_UNREADABLE);
    return index_all(command, files, &report);
}

// ---- Taking entries away --------------------------------------------------------------------------------------------

// What a name may stand for in the index: the file of that name, or the path itself as a search showed it.
static std::vector<std::string> paths_of(const std::string &name, const std::string &folder)
{
    std::string full, path, error;
    std::vector<std::string> paths;
    if (full_name(name, &full))
        paths = index_paths(full, folder);
    if (index_path(name, &path, &error) && std::ranges::find(paths, path) == paths.end())
        paths.push_back(path);
    return paths;
}

static index_step take_away(silo_transaction_t *trans, const std::vector<std::string> &paths, uint64_t *id)
{
    std::string path;
    uint64_t found = index_find(trans, paths, &path);
    if (found == 0)
        return INDEX_NOTHING;
    *id = found;
    silo_record record;
    silo_key key = silo_key_path(path);
    // Where the path leads to the record of another one, only the path is wrong.
    bool is_astray = silo_record_read(trans, found, &record) && (record.has & SILO_HAS_PATH) && path != record.path;
    bool is_gone =
        is_astray ? silo_delete(trans, key.text, key.len) == 0 : silo_orb_delete_path(trans, path.c_str(), 0) == 0;
    return is_gone ? INDEX_COMMIT : INDEX_FAILED;
}

static int unindex_one(const index_command &command, const std::string &name, json_object *files)
{
    uint64_t id = 0;
    std::vector<std::string> paths = paths_of(name, command.store.folder());
    bool is_done = index_write([&](silo_transaction_t *trans) { return take_away(trans, paths, &id); });
    json_object *entry = json_object_new_object();
    json_add(entry, "file", name);
    json_add(entry, "result", !is_done ? "failed" : id == 0 ? "not there" : "taken away");
    json_object_array_add(files, entry);
    if (!is_done)
        return orbrec_fail(ORBREC_UNWRITABLE, name + ": the index cannot be written");
    if (id == 0)
        return orbrec_fail(ORBREC_UNREADABLE, name + " is not in the index");
    json_add(entry, "id", static_cast<int64_t>(id));
    if (!command.json)
        report_line("%s: taken out of the index; the file stays", name.c_str());
    return ORBREC_OK;
}

int orbrec_unindex(const index_command &command)
{
    std::string address;
    if (int status = index_open(command.store, INDEX_AS_IS, &address); status != ORBREC_OK)
        return status;
    json_ref all(json_object_new_object());
    json_object *files = json_object_new_array();
    json_add(all.get(), "store", address);
    json_object_object_add(all.get(), "files", files);
    int worst = ORBREC_OK;
    for (const std::string &name : command.files) {
        if (orbrec_is_stopped())
            worst = orbrec_fail(ORBREC_INTERRUPTED, "stopped");
        else
            worst = std::max(worst, unindex_one(command, name, files));
        if (worst >= ORBREC_UNWRITABLE)
            break;
    }
    if (command.json)
        json_print(all.get());
    return worst;
}
