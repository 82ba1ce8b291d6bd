#include "platform/json/json.h"

#include "platform/os/os_guard.h"

#include <new>
#include <string>

// A configuration file; more than this is no configuration.
static constexpr uint64_t FILE_BYTES_MAX = 16u << 20;

static bool read_text(const char *path, std::string *text)
{
    os_file *opened = nullptr;
    if (path == nullptr || !os_file_open(path, OS_FILE_READ, &opened))
        return false;
    os_file_ptr file(opened);
    uint64_t size = 0;
    if (!os_file_size(file.get(), &size) || size > FILE_BYTES_MAX)
        return false;
    text->resize(static_cast<size_t>(size));
    return os_file_pread(file.get(), text->data(), text->size(), 0) == static_cast<int64_t>(text->size());
}

// The parser stops at a zero byte, so what stands behind one would go unseen.
static json_object *parse_file(const char *path)
{
    std::string text;
    if (!read_text(path, &text) || text.find('\0') != std::string::npos)
        return nullptr;
    return json_tokener_parse(text.c_str());
}

struct json_object *json_object_from_file_ex(const char *path)
{
    if (os_fault_point("json_object_from_file_ex"))
        return nullptr;
    try {
        return parse_file(path);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

int json_object_get_field_int(struct json_object *object, const char *key, int default_value)
{
    json_object *field = nullptr;
    if (object == nullptr || key == nullptr || !json_object_is_type(object, json_type_object) ||
        !json_object_object_get_ex(object, key, &field) || !json_object_is_type(field, json_type_int))
        return default_value;
    return json_object_get_int(field);
}

const char *json_object_get_field_string(struct json_object *object, const char *key)
{
    json_object *field = nullptr;
    if (object == nullptr || key == nullptr || !json_object_is_type(object, json_type_object) ||
        !json_object_object_get_ex(object, key, &field) || !json_object_is_type(field, json_type_string))
        return nullptr;
    return json_object_get_string(field);
}
