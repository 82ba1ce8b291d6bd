#include "tools/common/tool_output.h"

#include "platform/os/os.h"
#include "tools/common/tool_report.h"

#include <algorithm>
#include <cstring>

bool tool_output::fail(const std::string &reason)
{
    if (error_.empty())
        error_ = "cannot write " + name_ + ": " + reason;
    return false;
}

bool tool_output::standard_failed()
{
    return fail(std::strerror(report_put_error()));
}

static std::string refusal_text(int result, const std::string &name)
{
    switch (result) {
    case OS_OUTPUT_EXISTS:
        return name + " is already there: use --force to replace it";
    case OS_OUTPUT_FOLDER:
        return name + " is a folder: name the file to write with -o";
    case OS_OUTPUT_INPUT:
        return name + " is the file that is read: name another one with -o";
    default:
        return "cannot write " + name + ": " + os_file_error();
    }
}

int tool_output::open(const tool_output_wish &wish)
{
    is_standard_ = wish.name == "-";
    name_ = is_standard_ ? "standard output" : wish.name;
    if (is_standard_)
        return OS_OUTPUT_OPENED;
    std::vector<const char *> inputs;
    for (const std::string &input : wish.inputs)
        inputs.push_back(input.c_str());
    int flags = (wish.force ? OS_OUTPUT_REPLACE : 0) | (wish.name_only ? OS_OUTPUT_NAME_ONLY : 0);
    os_output_wish asked = {wish.name.c_str(), flags, inputs.data(), inputs.size()};
    os_output *opened = nullptr;
    int result = os_output_open(&asked, &opened);
    file_.reset(opened);
    if (result != OS_OUTPUT_OPENED)
        error_ = refusal_text(result, name_);
    return result;
}

bool tool_output::write(std::span<const uint8_t> bytes, uint64_t offset)
{
    std::string_view text(reinterpret_cast<const char *>(bytes.data()), bytes.size());
    if (is_standard_ && !(report_put(text) && report_flush()))
        return standard_failed();
    if (!is_standard_ && !os_output_write(file_.get(), bytes.data(), bytes.size(), offset))
        return fail(os_file_error());
    size_ = std::max(size_, offset + bytes.size());
    return true;
}

bool tool_output::finish()
{
    if (is_standard_)
        return report_flush() || standard_failed();
    return os_output_finish(file_.get()) == 1 || fail(os_file_error());
}

std::string tool_output::leave()
{
    char kept[4096] = "";
    if (is_stream())
        return name_ + " holds only what came until then";
    if (file_ == nullptr || !os_output_leave(file_.get(), kept, sizeof kept) || *kept == '\0')
        return "nothing was written";
    return std::string("what came until then is in ") + kept;
}

void tool_output::drop()
{
    if (file_ != nullptr)
        os_output_drop(file_.get());
}

bool tool_output::reader_has_gone() const
{
    return is_standard_ && report_put_error() != 0 && os_is_reader_gone(report_put_error()) != 0;
}
