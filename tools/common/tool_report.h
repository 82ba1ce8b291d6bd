// What a tool says: results on standard output, words for people on standard error; with --json exactly one object on
// standard output, also where nothing came of it. All of it on the main thread.
#pragma once

#include "platform/json/json.h"
#include "platform/os/orb_export.h"

#include <cstdint>
#include <string>
#include <string_view>

// First of all. `program` stands in front of each message; --json is looked for among the arguments, because arguments
// that are wrong are told as JSON too.
void report_start(const char *program, int argc, char *const *argv);

// Bytes of a result to standard output as they are. False: they could not be written, now or before.
bool report_put(std::string_view bytes);
bool report_flush();
// errno of the first failure; 0: none.
int report_put_error();

// A line of a result, made fit for a terminal as a whole.
void report_line(const char *format, ...) ORB_PRINTF(1, 2);
// The result as JSON.
void report_json(json_object *object);

// Says what went wrong and what to do, and yields `status`. `code`: the service's number for it, if there is one.
int report_fail(int status, const std::string &text, const std::string &code = "");
// The same for what has been said already: only the JSON still tells it.
int report_note(int status, const std::string &text, const std::string &code = "");
void report_warn(const std::string &text);

// Last of all, with the status that the program is to end with: brings everything out. Where that fails a status of up
// to `verdict_max` becomes `unwritable`, unless it is a reader who has gone, which is his right.
int report_end(int status, int unwritable, int verdict_max = 0);

void json_add(json_object *object, const char *key, const std::string &text);
void json_add(json_object *object, const char *key, int64_t value);
void json_add_flag(json_object *object, const char *key, bool value);
// The value is not known.
void json_add_null(json_object *object, const char *key);

// An object whose last member is a list that need not fit into memory.
class json_stream {
public:
    // Writes what `head` holds and begins the list.
    json_stream(json_object *head, const char *key);
    // Takes the entry over.
    void add(json_object *entry);
    void end();

private:
    bool has_entries_ = false;
};
