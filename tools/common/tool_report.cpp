#include "tools/common/tool_report.h"

#include "platform/os/os.h"
#include "tools/common/tool_text.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {
struct report_state {
    const char *program = "";
    bool wants_json = false, has_result = false;
    int put_error = 0;
    // The first failure that was told.
    std::string text, code;
};
} // namespace

static report_state s_report;

static constexpr int JSON_FORM = JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_NOSLASHESCAPE;

void report_start(const char *program, int argc, char *const *argv)
{
    s_report = {};
    s_report.program = program;
    s_report.wants_json =
        std::any_of(argv, argv + argc, [](const char *word) { return word != nullptr && std::strcmp(word, "--json") == 0; });
}

// ---- Standard output ------------------------------------------------------------------------------------------------

static bool note(bool is_put)
{
    if (!is_put && s_report.put_error == 0)
        s_report.put_error = errno != 0 ? errno : EIO;
    return s_report.put_error == 0;
}

bool report_put(std::string_view bytes)
{
    errno = 0;
    return note(std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size());
}

bool report_flush()
{
    errno = 0;
    return note(std::fflush(stdout) == 0);
}

int report_put_error()
{
    return s_report.put_error;
}

static std::string formatted(const char *format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::vector<char> text(static_cast<size_t>(std::max(length, 0)) + 1);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    return text.data();
}

void report_line(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::string line = formatted(format, arguments);
    va_end(arguments);
    report_put(printable(line) + "\n");
}

void report_json(json_object *object)
{
    s_report.has_result = true;
    report_put(json_object_to_json_string_ext(object, JSON_FORM));
    report_put("\n");
}

// ---- Words ----------------------------------------------------------------------------------------------------------

int report_note(int status, const std::string &text, const std::string &code)
{
    if (s_report.text.empty()) {
        s_report.text = text;
        s_report.code = code;
    }
    return status;
}

int report_fail(int status, const std::string &text, const std::string &code)
{
    std::string line = std::string(s_report.program) + ": " + text + (code.empty() ? "" : " (" + code + ")");
    std::fputs((printable(line) + "\n").c_str(), stderr);
    return report_note(status, text, code);
}

void report_warn(const std::string &text)
{
    std::fputs((printable(std::string(s_report.program) + ": warning: " + text) + "\n").c_str(), stderr);
}

static void failure_json(int status)
{
    json_ref object(json_object_new_object());
    json_object *error = json_object_new_object();
    json_object_object_add(object.get(), "error", error);
    json_add(error, "exit", status);
    if (!s_report.code.empty())
        json_add(error, "code", s_report.code);
    json_add(error, "text", s_report.text);
    json_add(object.get(), "status", status);
    report_json(object.get());
}

int report_end(int status, int unwritable, int verdict_max)
{
    if (s_report.wants_json && !s_report.has_result && status != 0)
        failure_json(status);
    if (report_flush() || status > verdict_max || os_is_reader_gone(s_report.put_error) != 0)
        return status;
    return report_fail(unwritable, std::string("cannot write to standard output: ") + std::strerror(s_report.put_error));
}

// ---- JSON -----------------------------------------------------------------------------------------------------------

void json_add(json_object *object, const char *key, const std::string &text)
{
    std::string valid = valid_utf8(text);
    json_object_object_add(object, key, json_object_new_string_len(valid.data(), static_cast<int>(valid.size())));
}

void json_add(json_object *object, const char *key, int64_t value)
{
    json_object_object_add(object, key, json_object_new_int64(value));
}

void json_add_flag(json_object *object, const char *key, bool value)
{
    json_object_object_add(object, key, json_object_new_boolean(value));
}

void json_add_null(json_object *object, const char *key)
{
    json_object_object_add(object, key, nullptr);
}

json_stream::json_stream(json_object *head, const char *key)
{
    std::string text = json_object_to_json_string_ext(head, JSON_FORM);
    text.pop_back(); // its closing brace
    text.resize(text.find_last_not_of("\n ") + 1);
    s_report.has_result = true;
    report_put(text + ",\n  \"" + key + "\":[");
}

void json_stream::add(json_object *entry)
{
    json_ref owned(entry);
    report_put(has_entries_ ? ",\n    " : "\n    ");
    report_put(json_object_to_json_string_ext(entry, JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE));
    has_entries_ = true;
}

void json_stream::end()
{
    report_put(has_entries_ ? "\n  ]\n}\n" : "]\n}\n");
}
