#include "tools/orbrec/index.h"

#include <algorithm>
#include <cstdio>

index_report::index_report(const std::string &address, bool json, bool tells_all)
    : files_(json_object_new_array()), json_(json), tells_all_(tells_all)
{
    json_add(all_.get(), "store", address);
    json_object_object_add(all_.get(), "files", files_);
}

static json_object *file_json(const indexed_file &file)
{
    json_object *entry = json_object_new_object();
    json_add(entry, "file", file.facts.file);
    json_add(entry, "result", index_result_text(file.result));
    if (!file.error.empty()) {
        json_add(entry, "reason", file.error);
        return entry;
    }
    json_add(entry, "id", static_cast<int64_t>(file.id));
    json_add(entry, "begin", file.facts.begin);
    // Without it the recording is still being written.
    if (!file.facts.end.empty())
        json_add(entry, "end", file.facts.end);
    json_add(entry, "host", file.facts.host);
    json_add(entry, "channel", file.facts.channel);
    json_add(entry, "type", file.facts.type);
    json_add(entry, "size", static_cast<int64_t>(file.facts.size));
    json_add(entry, "md5", file.md5);
    return entry;
}

static int status_of(index_result result)
{
    switch (result) {
    case INDEX_NO_RECORDING:
        return ORBREC_UNREADABLE;
    case INDEX_STORE_FAILED:
        return ORBREC_UNWRITABLE;
    case INDEX_STOPPED:
        return ORBREC_INTERRUPTED;
    default:
        return ORBREC_OK;
    }
}

void index_report::fail(const std::string &text, int status)
{
    status_ = std::max(status_, orbrec_fail(status, text));
}

void index_report::add(const indexed_file &file)
{
    counts_[file.result]++;
    if (tells(file) && file.result != INDEX_STOPPED)
        json_object_array_add(files_, file_json(file));
    if (int status = status_of(file.result); status != ORBREC_OK && file.result != INDEX_STOPPED)
        return fail((file.facts.file.empty() ? "" : file.facts.file + ": ") + file.error, status);
    if (file.result == INDEX_STOPPED)
        status_ = ORBREC_INTERRUPTED;
    else if (!json_ && tells(file))
        report_line("%s: %s, %s %u, %s to %s", file.facts.file.c_str(), index_result_text(file.result),
                    file.facts.host.c_str(), file.facts.channel, file.facts.begin.c_str(),
                    file.facts.end.empty() ? "now, still being written" : file.facts.end.c_str());
}

int index_report::finish()
{
    int64_t failed = counts_[INDEX_NO_RECORDING] + counts_[INDEX_STORE_FAILED];
    json_add(all_.get(), "added", counts_[INDEX_ADDED]);
    json_add(all_.get(), "updated", counts_[INDEX_UPDATED]);
    json_add(all_.get(), "replaced", counts_[INDEX_REPLACED]);
    json_add(all_.get(), "unchanged", counts_[INDEX_UNCHANGED]);
    json_add(all_.get(), "failed", failed);
    if (json_)
        json_print(all_.get());
    else
        report_line("%lld added, %lld updated, %lld replaced, %lld unchanged, %lld failed",
                    static_cast<long long>(counts_[INDEX_ADDED]), static_cast<long long>(counts_[INDEX_UPDATED]),
                    static_cast<long long>(counts_[INDEX_REPLACED]), static_cast<long long>(counts_[INDEX_UNCHANGED]),
                    static_cast<long long>(failed));
    if (status_ == ORBREC_INTERRUPTED)
        orbrec_fail(status_, "stopped; the same command goes on where it ended");
    return status_;
}
