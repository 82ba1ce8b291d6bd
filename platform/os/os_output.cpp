#include "platform/os/os_output.h"

#include "platform/os/os_internal.h"
#include "platform/os/os_output_host.h"

#include <algorithm>
#include <vector>

static const char *const s_part_suffix = ".part";
static constexpr int PARTS_MAX = 9;

struct os_output {
    output_host host;
    int flags = 0;
    bool is_stream = false, is_open = false, is_settled = false;
    std::vector<std::string> inputs;
    std::string temporary; // in the target's folder
    std::string shown;     // the same as the user would write it
};

// As much of a name as fits with what comes behind it; a character of several bytes is not cut.
static std::string name_with(std::string name, const std::string &behind)
{
    while (!name.empty() && !output_host::name_fits(name + behind)) {
        while (!name.empty() && (static_cast<unsigned char>(name.back()) & 0xC0) == 0x80)
            name.pop_back();
        if (!name.empty())
            name.pop_back();
    }
    return name + behind;
}

static bool temporary_name(const std::string &name, std::string *temporary)
{
    os_guid random;
    if (!os_guid_create(&random))
        return os_file_fail("there is no random name to be had");
    char middle[32];
    std::snprintf(middle, sizeof middle, ".%08x%04x", random.data1, unsigned{random.data2});
    *temporary = name_with(name, std::string(middle) + s_part_suffix);
    return true;
}

static bool is_input(const os_output &output)
{
    return std::ranges::any_of(output.inputs, [&](const std::string &input) { return output.host.target_is(input); });
}

static bool file_begin(os_output *output)
{
    if (!temporary_name(output->host.name(), &output->temporary))
        return false;
    output->shown = output->host.prefix() + output->temporary;
    output->is_open = (output->flags & OS_OUTPUT_NAME_ONLY) == 0;
    return !output->is_open || output->host.make(output->temporary);
}

static int output_begin(const char *name, os_output *output)
{
    std::string host;
    output_kind kind;
    if (!os_path_take_in(name, &host) || host.empty())
        return os_file_fail("the name is too long or has no form on this host");
    if (!output->host.find(host, &kind))
        return OS_OUTPUT_FAILED;
    if (kind == OUTPUT_FOLDER)
        return OS_OUTPUT_FOLDER;
    output->is_stream = kind == OUTPUT_STREAM;
    if (output->is_stream)
        return output->host.stream_open() ? OS_OUTPUT_OPENED : OS_OUTPUT_FAILED;
    if (kind == OUTPUT_REGULAR && is_input(*output))
        return OS_OUTPUT_INPUT;
    if (kind == OUTPUT_REGULAR && (output->flags & OS_OUTPUT_REPLACE) == 0)
        return OS_OUTPUT_EXISTS;
    return file_begin(output) ? OS_OUTPUT_OPENED : OS_OUTPUT_FAILED;
}

static int output_open(const os_output_wish &wish, os_output **output)
{
    auto made = std::make_unique<os_output>();
    made->flags = wish.flags;
    for (size_t i = 0; i < wish.input_count; i++)
        made->inputs.emplace_back(wish.inputs[i]);
    int result = output_begin(wish.name, made.get());
    if (result == OS_OUTPUT_OPENED)
        *output = made.release();
    return result;
}

int os_output_open(const struct os_output_wish *wish, os_output **output)
{
    if (wish == nullptr || output == nullptr || (wish->inputs == nullptr && wish->input_count != 0))
        return os_file_fail("wrong arguments");
    if (os_file_is_injected("os_output_open"))
        return OS_OUTPUT_FAILED;
    return os_guarded(+OS_OUTPUT_FAILED, [&] { return output_open(*wish, output); });
}

int os_output_is_stream(const os_output *output)
{
    return output->is_stream ? 1 : 0;
}

const char *os_output_temporary(const os_output *output)
{
    return output->shown.c_str();
}

int os_output_write(os_output *output, const void *bytes, size_t size, uint64_t offset)
{
    if (bytes == nullptr && size != 0)
        return os_file_fail("wrong arguments");
    return !os_file_is_injected("os_output_write") && output->host.write(bytes, size, offset, output->is_stream);
}

// Without leave to replace, what has come under the target's name meanwhile stays as well.
static bool take_name(os_output *output)
{
    if ((output->flags & OS_OUTPUT_REPLACE) == 0) {
        output_rename renamed = output->host.rename(output->temporary, output->host.name());
        return renamed == OUTPUT_RENAMED ||
               (renamed == OUTPUT_NAME_TAKEN && os_file_fail("a file of this name has been made meanwhile"));
    }
    if (is_input(*output))
        return os_file_fail("it has become the file that is read");
    return output->host.replace_target(output->temporary);
}

static int output_finish(os_output *output)
{
    if (!output->host.close(!output->is_stream))
        return 0;
    output->is_open = false;
    if (!output->is_stream && !take_name(output))
        return 0;
    output->is_settled = true;
    output->host.folder_to_disk();
    return 1;
}

int os_output_finish(os_output *output)
{
    if (os_file_is_injected("os_output_finish"))
        return 0;
    return os_guarded(0, [&] { return output_finish(output); });
}

static std::string part_name(const std::string &name, int number)
{
    return name + s_part_suffix + (number == 1 ? "" : "." + std::to_string(number));
}

// The name under which the rest stays.
static std::string rest_keep(os_output *output)
{
    for (int number = 1; number <= PARTS_MAX; number++) {
        std::string name = part_name(output->host.name(), number);
        output_rename renamed = output->host.rename(output->temporary, name);
        if (renamed == OUTPUT_RENAMED)
            return name;
        if (renamed == OUTPUT_RENAME_FAILED)
            break;
    }
    return output->temporary;
}

static int output_leave(os_output *output, char *kept, size_t kept_size)
{
    std::string name;
    bool is_file = !output->is_stream && !output->is_settled;
    output->host.close(false);
    output->is_settled = true;
    if (is_file && output->host.size_of(output->temporary) != 0)
        name = output->host.prefix() + rest_keep(output);
    else if (is_file && (output->flags & OS_OUTPUT_NAME_ONLY) == 0)
        output->host.remove(output->temporary);
    return kept == nullptr || os_path_copy_out(name, kept, kept_size);
}

int os_output_leave(os_output *output, char *kept, size_t kept_size)
{
    return os_guarded(0, [&] { return output_leave(output, kept, kept_size); });
}

int os_output_drop(os_output *output)
{
    output->host.close(false);
    bool is_file = !output->is_stream && !output->is_settled;
    output->is_settled = true;
    return os_guarded(0, [&] { return !is_file || output->host.remove(output->temporary); });
}

void os_output_close(os_output *output)
{
    if (output == nullptr)
        return;
    os_output_leave(output, nullptr, 0);
    delete output;
}
