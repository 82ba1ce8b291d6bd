// Files of JSON, and what can be said about those that are none.
#include "platform/json/json.h"

#include "platform/json/json_repeated.h"
#include "platform/os/os_guard.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>
#include <system_error>

// A configuration file; more than this is no configuration.
static constexpr uint64_t FILE_BYTES_MAX = 16u << 20;
static constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF", WHITE_SPACE = " \t\r\n";

// False with the reason in `why`.
static bool read_text(const char *path, std::string *text, std::string *why)
{
    os_file *opened = nullptr;
    uint64_t size = 0;
    bool is_open = path != nullptr && os_file_open(path, OS_FILE_READ, &opened);
    os_file_ptr file(opened);
    if (!is_open || !os_file_size(file.get(), &size))
        return *why = os_file_error(), false;
    if (size > FILE_BYTES_MAX)
        return *why = "it is larger than 16 MiB", false;
    text->resize(static_cast<size_t>(size));
    if (os_file_pread(file.get(), text->data(), text->size(), 0) != static_cast<int64_t>(text->size()))
        return *why = "it cannot be read whole", false;
    return true;
}

// A name that nothing has, apart from one that the host does not let us look at.
static bool is_missing(const char *path)
{
    os_file_info info;
    if (path == nullptr || os_file_stat(path, 0, &info))
        return path == nullptr;
    std::string why = os_file_error();
    return why == std::generic_category().message(ENOENT) || why == std::generic_category().message(ENOTDIR);
}

struct tokener_freer {
    void operator()(json_tokener *tokener) const { json_tokener_free(tokener); }
};

static std::string at_line(std::string_view text, size_t offset, const char *words)
{
    return "line " + std::to_string(1 + std::ranges::count(text.substr(0, offset), '\n')) + ": " + words;
}

// The parser stops behind the first value, and at a zero byte: what stands there would go unseen.
static json_object *parse(const std::string &text, std::string *error)
{
    std::unique_ptr<json_tokener, tokener_freer> tokener(json_tokener_new());
    if (tokener == nullptr)
        throw std::bad_alloc();
    size_t zero = text.find('\0');
    if (zero != text.npos)
        return *error = at_line(text, zero, "a zero byte"), nullptr;
    // With its zero, so that a number at the end is whole.
    json_ref value(json_tokener_parse_ex(tokener.get(), text.c_str(), static_cast<int>(text.size() + 1)));
    size_t end = std::min(json_tokener_get_parse_end(tokener.get()), text.size());
    if (json_tokener_error wrong = json_tokener_get_error(tokener.get()); wrong != json_tokener_success)
        *error = at_line(text, end, json_tokener_error_desc(wrong));
    else if (size_t more = text.find_first_not_of(WHITE_SPACE, end); more != text.npos)
        *error = at_line(text, more, "text behind the value");
    return error->empty() ? value.release() : nullptr;
}

static std::string lines_of(const std::vector<std::string> &keys, size_t room)
{
    static constexpr std::string_view MORE = "...";
    std::string lines;
    for (const std::string &key : keys) {
        if (lines.size() + key.size() + 1 + MORE.size() > room)
            return lines.append(MORE);
        lines.append(key).append("\n");
    }
    return lines.substr(0, lines.empty() ? 0 : lines.size() - 1);
}

static json_object *read_file(const char *path, json_file_report *report)
{
    std::string text, error;
    report->is_there = 1;
    if (!read_text(path, &text, &error)) {
        report->is_there = !is_missing(path);
        if (report->is_there)
            text_copy(report->error, error);
        return nullptr;
    }
    if (text.starts_with(BYTE_ORDER_MARK))
        text.erase(0, BYTE_ORDER_MARK.size());
    json_ref value(parse(text, &error));
    text_copy(report->error, error);
    if (value != nullptr)
        text_copy(report->repeated, lines_of(json_repeated_keys(text), sizeof report->repeated - 1));
    return value.release();
}

struct json_object *json_object_from_file_told(const char *path, struct json_file_report *report)
{
    *report = {};
    try {
        if (!os_fault_point("json_object_from_file_ex"))
            return read_file(path, report);
    } catch (const std::bad_alloc &) {
    }
    report->is_there = 1;
    text_copy(report->error, "out of memory");
    return nullptr;
}

struct json_object *json_object_from_file_ex(const char *path)
{
    json_file_report report;
    return json_object_from_file_told(path, &report);
}

static char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

static bool may_hold(const char *path, std::string_view wanted)
{
    std::string text, why;
    if (!read_text(path, &text, &why))
        return !is_missing(path);
    std::erase(text, '\0'); // what is left of ASCII in UTF-16
    return !std::ranges::search(text, wanted, {}, lower, lower).empty();
}

int json_file_may_hold(const char *path, const char *text)
{
    try {
        return may_hold(path, text);
    } catch (const std::bad_alloc &) {
        return 1;
    }
}
