#include "tools/orbrec/check.h"

#include "tools/store_address/store_address.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <iterator>

// What is mended may bring more to light: a path that leads to an entry again lets its file be compared.
static constexpr int PASSES = 4;

struct check_run {
    const check_command &command;
    std::string address;
    bool may_hide = false;
    std::vector<finding> findings{}; // mended ones of earlier passes, then those of the last one
    size_t settled = 0;
    check_counts counts{};
    int status = ORBREC_OK;
};

static bool fail(check_run *run, int status, const std::string &text)
{
    run->status = orbrec_fail(status, text);
    return false;
}

// Entries that are hidden for good are no matter of searches.
static bool is_told(const index_snapshot &snapshot, const key_problem &problem)
{
    const index_row *row = problem.id != 0 ? row_of(snapshot, problem.id) : nullptr;
    bool is_put_aside =
        row != nullptr && (row->has & SILO_HAS_REVISION) && row->revision == 0 && snapshot.is_hidden(*row);
    return !is_put_aside || (problem.problem != SILO_PROBLEM_INCOMPLETE_RECORD &&
                             problem.problem != SILO_PROBLEM_RECORD_WITHOUT_PATH_KEY);
}

static finding finding_of(const check_run &run, const index_snapshot &snapshot, const key_problem &problem)
{
    const index_row *row = problem.id != 0 ? row_of(snapshot, problem.id) : nullptr;
    bool is_of_entry = row != nullptr && !row->path.empty() && problem.key.starts_with(SILO_PREFIX_RECORD);
    return {.kind = FINDING_KEY,
            .problem = problem.problem,
            .id = problem.id,
            .file = is_of_entry ? entry_file(row->path, run.command.store.folder()) : "",
            .key = problem.key,
            .text = silo_problem_text(problem.problem)};
}

static bool refused(check_run *run, const index_snapshot &snapshot)
{
    if (!snapshot.is_index())
        return !fail(run, ORBREC_UNREADABLE,
                     "there is no record index at " + run->address +
                         ", it is empty or holds something else; nothing was "
                         "changed. orbrec reindex --scan DIR makes one");
    if (run->command.repair && snapshot.foreign_keys > snapshot.rows.size())
        return !fail(run, ORBREC_UNREADABLE,
                     "the store at " + run->address +
                         " holds more of something else than of a record index; nothing was "
                         "changed");
    return false;
}

static bool scan_all(check_run *run, std::vector<found_file> *files)
{
    std::vector<std::string> errors;
    for (const std::string &folder : run->command.folders)
        scan_folder(folder, run->command.endings, files, &errors);
    if (errors.empty())
        return true;
    for (const std::string &error : errors)
        fail(run, ORBREC_UNREADABLE, error);
    return false;
}

static bool look(check_run *run, index_snapshot *snapshot)
{
    std::vector<found_file> files;
    if (!scan_all(run, &files))
        return false;
    if (!snapshot_take(snapshot))
        return orbrec_is_stopped() || fail(run, ORBREC_UNREADABLE, "the index at " + run->address + " cannot be read");
    if (refused(run, *snapshot))
        return false;
    for (const key_problem &problem : snapshot->problems)
        if (is_told(*snapshot, problem))
            run->findings.push_back(finding_of(*run, *snapshot, problem));
    run->counts = {};
    std::vector<finding> found;
    if (!check_files(run->command, *snapshot, files, &found, &run->counts) && !orbrec_is_stopped())
        return fail(run, ORBREC_UNREADABLE, "the index at " + run->address + " cannot be read");
    run->findings.insert(run->findings.end(), found.begin(), found.end());
    return true;
}

// Whether another pass may bring more.
static bool repair_pass(check_run *run, const index_snapshot &snapshot)
{
    std::vector<finding> open(run->findings.begin() + static_cast<ptrdiff_t>(run->settled), run->findings.end());
    if (!check_repair(run->command, snapshot, run->may_hide, &open))
        fail(run, ORBREC_UNWRITABLE, "the index at " + run->address + " cannot be written");
    run->findings.resize(run->settled);
    auto is_open = [](const finding &found) { return found.state == FINDING_OPEN; };
    std::ranges::copy_if(open, std::back_inserter(run->findings), std::not_fn(is_open));
    bool mended = run->findings.size() > run->settled;
    run->settled = run->findings.size();
    // The next pass finds the open ones again.
    if (!mended || run->status != ORBREC_OK)
        std::ranges::copy_if(open, std::back_inserter(run->findings), is_open);
    return mended && run->status == ORBREC_OK;
}

static void check_all(check_run *run)
{
    for (int pass = 0; pass < PASSES && !orbrec_is_stopped(); pass++) {
        index_snapshot snapshot;
        if (!look(run, &snapshot) || !run->command.repair || orbrec_is_stopped() || !repair_pass(run, snapshot))
            return;
    }
    // The last pass mended something still: what is open now?
    index_snapshot snapshot;
    if (!orbrec_is_stopped())
        look(run, &snapshot);
}

// ---- Telling --------------------------------------------------------------------------------------------------------

const char *finding_name(const finding &found)
{
    static constexpr const char *KEYS[] = {"foreign-key",
                                           "bad-value",
                                           "no-counters",
                                           "path-without-entry",
                                           "time-without-entry",
                                           "revision-without-entry",
                                           "incomplete-entry",
                                           "entry-without-path",
                                           "entry-without-time",
                                           "id-beyond-counter",
                                           "hidden"};
    static constexpr const char *KINDS[] = {"",
                                            "file-missing",
                                            "folder-missing",
                                            "file-back",
                                            "file-without-entry",
                                            "size-differs",
                                            "begin-differs",
                                            "end-differs",
                                            "md5-differs"};
    return found.kind == FINDING_KEY ? KEYS[found.problem] : KINDS[found.kind];
}

static const char *state_text(finding_state state)
{
    static constexpr const char *TEXTS[] = {"open", "mended", "hidden"};
    return TEXTS[state];
}

// Keys may hold any bytes.
static std::string printable(const std::string &key)
{
    char text[2 * SILO_KEY_MAX + 2];
    if (os_code_convert("GB18030", "utf-8", text, sizeof text, key.data(), key.size()) <= 0)
        text_copy(text, key);
    std::string shown = text;
    std::ranges::replace_if(
        shown, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; }, '?');
    return shown;
}

static void print_line(const finding &found)
{
    std::string subject = !found.file.empty() ? found.file : "key " + printable(found.key);
    std::string end = found.state != FINDING_OPEN ? std::string(" (") + state_text(found.state) + ")"
                      : found.reason.empty()      ? ""
                                                  : " (left: " + found.reason + ")";
    std::string id = found.id == 0 ? "" : ", entry " + std::to_string(found.id);
    report_line("%s%s: %s%s", subject.c_str(), id.c_str(), found.text.c_str(), end.c_str());
}

static json_object *finding_json(const finding &found)
{
    json_object *entry = json_object_new_object();
    json_add(entry, "problem", finding_name(found));
    if (!found.file.empty())
        json_add(entry, "file", found.file);
    if (!found.key.empty())
        json_add(entry, "key", printable(found.key));
    if (found.id != 0)
        json_add(entry, "id", static_cast<int64_t>(found.id));
    json_add(entry, "text", found.text);
    json_add(entry, "state", state_text(found.state));
    if (!found.reason.empty())
        json_add(entry, "reason", found.reason);
    return entry;
}

static void report_print(const check_run &run)
{
    auto count = [&](finding_state state) { return std::ranges::count(run.findings, state, &finding::state); };
    auto open = count(FINDING_OPEN), mended = count(FINDING_MENDED), hidden = count(FINDING_HIDDEN);
    if (!run.command.json) {
        for (const finding &found : run.findings)
            print_line(found);
        report_line(
            "%llu entries, %llu of them hidden; %llu files scanned; %lld problems open, %lld mended, %lld hidden "
            "now",
            static_cast<unsigned long long>(run.counts.entries), static_cast<unsigned long long>(run.counts.hidden),
            static_cast<unsigned long long>(run.counts.files), static_cast<long long>(open),
            static_cast<long long>(mended), static_cast<long long>(hidden));
        return;
    }
    json_ref all(json_object_new_object());
    json_add(all.get(), "store", run.address);
    json_add(all.get(), "entries", static_cast<int64_t>(run.counts.entries));
    json_add(all.get(), "files", static_cast<int64_t>(run.counts.files));
    json_add(all.get(), "hidden", static_cast<int64_t>(run.counts.hidden));
    json_object *problems = json_object_new_array();
    for (const finding &found : run.findings)
        json_object_array_add(problems, finding_json(found));
    json_object_object_add(all.get(), "problems", problems);
    json_add(all.get(), "open", open);
    json_add(all.get(), "mended", mended);
    json_add(all.get(), "newly_hidden", hidden);
    json_print(all.get());
}

int orbrec_check(const check_command &command)
{
    check_run run{.command = command, .address = {}};
    if (int status = index_open(command.store, INDEX_AS_IS, &run.address); status != ORBREC_OK)
        return status;
    run.may_hide = store_is_embedded(run.address) || !command.hosts.empty();
    check_all(&run);
    if (orbrec_is_stopped())
        return orbrec_fail(ORBREC_INTERRUPTED, "stopped");
    if (run.status != ORBREC_OK && run.findings.empty())
        return run.status;
    report_print(run);
    bool is_open = std::ranges::any_of(run.findings, [](const finding &found) { return found.state == FINDING_OPEN; });
    return std::max(run.status, is_open ? int{ORBREC_FAULTS} : int{ORBREC_OK});
}
