#include "platform/json/json.h"

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
