/* Three accessors over json-c that the system uses everywhere it reads JSON. */
#ifndef PLATFORM_JSON_JSON_H
#define PLATFORM_JSON_JSON_H

#include "platform/os/orb_export.h"

#include <json-c/json.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Parses a JSON file (system path). NULL for a missing, unreadable or unparsable file. Released with json_object_put. */
ORB_API struct json_object *json_object_from_file_ex(const char *path);
/* The integer under `key`; `default_value` when the object is NULL or no object, the key absent or no integer. */
ORB_API int json_object_get_field_int(struct json_object *object, const char *key, int default_value);
/* The text under `key`, owned by the object; NULL when absent or no text. */
ORB_API const char *json_object_get_field_string(struct json_object *object, const char *key);

#ifdef __cplusplus
}

#include <memory>

struct json_putter {
    void operator()(json_object *object) const { json_object_put(object); }
};
using json_ref = std::unique_ptr<json_object, json_putter>;
#endif

#endif
