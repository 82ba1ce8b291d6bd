/* Accessors over json-c that the system uses everywhere it reads JSON. */
#ifndef PLATFORM_JSON_JSON_H
#define PLATFORM_JSON_JSON_H

#include "platform/os/orb_export.h"

#include <json-c/json.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Parses a JSON file (system path), with or without a byte-order mark of UTF-8. NULL for a missing, unreadable or
 * unparsable file; text behind the value, other than white space, makes it unparsable. Released with json_object_put.
 */
ORB_API struct json_object *json_object_from_file_ex(const char *path);

/* What there is to say about a file. Texts are UTF-8, cut where they do not fit, empty where there is nothing to say. */
struct json_file_report {
    int is_there;       /* 0 only when no file has that name; 1 also for one that may not be looked at */
    char error[160];    /* why a file that is there gives nothing, with the line */
    /* Keys that stand twice in their object, "access.roots", a line for each; their last values count. "..." at the end
     * stands for those that do not fit. */
    char repeated[256];
};
/* As json_object_from_file_ex; `report` (not NULL) is filled in any case. */
ORB_API struct json_object *json_object_from_file_told(const char *path, struct json_file_report *report);
/*
 * 1 when the bytes of a file hold that text (ASCII; case does not matter), whether they can be parsed or not, also in
 * UTF-16; 1 as well for a file that is there and cannot be read. For files that cannot be parsed: were they meant to
 * limit something?
 */
ORB_API int json_file_may_hold(const char *path, const char *text);

/* The integer under `key`; `default_value` when the object is NULL or no object, the key absent or no integer. */
ORB_API int json_object_get_field_int(struct json_object *object, const char *key, int default_value);
/* The text under `key`, owned by the object; NULL when absent or no text. */
ORB_API const char *json_object_get_field_string(struct json_object *object, const char *key);

/*
 * How far two keys are apart, for telling what somebody may have meant: letters (bytes) to put in, take out, change or
 * exchange with the next one. Upper and lower case count as the same; only the first 64 bytes are compared.
 */
ORB_API int json_key_distance(const char *one, const char *other);

#ifdef __cplusplus
}

#include <memory>

struct json_putter {
    void operator()(json_object *object) const { json_object_put(object); }
};
using json_ref = std::unique_ptr<json_object, json_putter>;
#endif

#endif
