// The settings of the record index.
#pragma once

struct json_object;

// Takes "index" out of the root of "vod_config.json" (NULL: all defaults). Values out of range are moved to the nearest
// allowed one, with a line. Called at start-up.
void index_settings_read(json_object *config);
