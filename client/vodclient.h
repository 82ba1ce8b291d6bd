// The client side of the recording-access service: search for recordings, play one over the network, steer it, ask what
// the service is doing. docs/protocol.md describes the packages behind it.
//
//     vodclient_playback playback;
//     vodclient_play_request request;
//     request.file = "D:\\rec\\ch1_20240501100000_20240501110000_1.rec";
//     if (vodclient_result result = playback.open({"recorder.example", 7131}, request); !result)
//         return complain(result.text);
//     playback.start();
//     vodclient_event event;
//     while (playback.next(&event, 10000) && event.type != VODCLIENT_EVENT_END)
//         consume(event.data, event.size);
//
// Nothing here throws. Every call answers with a vodclient_result whose text says what happened and what to do about
// it.
//
// Threads: one object may be used from several threads at once, with three exceptions: `next` and `for_each` belong to
// one thread at a time, as an event lives until the next call of them; `open` comes before everything else but `close`;
// the object must not be destroyed while a call is under way. `close` may come from any thread and wakes every waiting
// call.
// Different objects have nothing to do with each other: each has a connection of its own.
#pragma once

#include "platform/os/orb_export.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

enum vodclient_status {
    VODCLIENT_OK = 0,
    VODCLIENT_REFUSED,        // the service said no: error_code is its reason
    VODCLIENT_CANNOT_CONNECT, // no connection came about
    VODCLIENT_LOST,           // the connection has ended; nothing more will come from this object
    VODCLIENT_TIMEOUT,        // no answer in time; a playback goes on and the call may be repeated
    VODCLIENT_BAD_REPLY,      // the service's answer makes no sense
    VODCLIENT_BAD_ARGUMENT,
    VODCLIENT_WRONG_STATE,    // not open, already open, or already started
    VODCLIENT_NO_MEMORY
};

struct vodclient_result {
    vodclient_status status = VODCLIENT_OK;
    uint32_t error_code = 0; // refused: the service's number (0x10000xx), 0 when it gave none
    std::string text;        // for people; empty when all is well
    explicit operator bool() const { return status == VODCLIENT_OK; }
};

// What a reject code (0x10000xx) means and what to do about it. Never NULL.
ORB_API const char *vodclient_error_text(uint32_t error_code);

struct vodclient_server {
    std::string host = "127.0.0.1";
    uint16_t port = 7131;
    uint32_t timeout_ms = 10000; // for connecting and for each answer
};

// ---- Playback -------------------------------------------------------------------------------------------------------

// A local time of the recorder, field by field.
struct vodclient_time {
    uint16_t year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
};

#define VODCLIENT_RECENT_YEAR 65535   // as start.year: the last start.second seconds up to now
#define VODCLIENT_FILE_NAME_MAX 259   // bytes of UTF-8; the service refuses longer ones
#define VODCLIENT_DEVICE_ID_MAX 60
#define VODCLIENT_MODE_MAX 65533

struct vodclient_play_request {
    // By file: its name as the service sees it, UTF-8. Empty: by time, with the fields below.
    std::string file;
    std::string device_id; // by time: the recorder, up to 60 characters
    uint16_t channel = 0;
    uint16_t file_type = 0; // by time: which recordings
    vodclient_time start;   // by time: the span; by file: `start` is the origin of VODCLIENT_SEEK_ABSOLUTE_TIME
    vodclient_time end;
    uint16_t mode = 0;           // 0 plays everything; 1 to 65533 by time: key frames only, at this distance
    uint32_t start_position = 0; // by time: where to begin, bytes
    bool insert_abstime = false; // have absolute time written into key frames that lack it
};

// What the service told when it accepted. Values that it did not send are 0.
struct vodclient_play_info {
    uint32_t file_type = 0;
    uint32_t total_frames = 0;
    uint32_t total_seconds = 0;
    uint32_t begin_time = 0; // seconds since 1970
    uint64_t total_size = 0; // bytes, file head included
};

enum vodclient_event_type {
    VODCLIENT_EVENT_HEAD = 1,  // the file head: first of all, once
    VODCLIENT_EVENT_STREAM,    // recording data, frames one after another
    VODCLIENT_EVENT_SEEK_DONE, // what follows comes from the new position; no data
    VODCLIENT_EVENT_TOTALS,    // JSON text with new totals of a range that is still being searched
    VODCLIENT_EVENT_SLICE,
    VODCLIENT_EVENT_ALARM,
    VODCLIENT_EVENT_ALARM_EX,
    VODCLIENT_EVENT_INT_VALUE, // one 32-bit value
    VODCLIENT_EVENT_END        // no more data until the next seek
};

struct vodclient_event {
    vodclient_event_type type = VODCLIENT_EVENT_END;
    const uint8_t *data = nullptr; // valid until the next call of next, for_each or the end of the object
    size_t size = 0;
};

enum vodclient_control_code {
    VODCLIENT_PLAY = 1,
    VODCLIENT_SEEK_PERCENT = 12, // of the bytes
    VODCLIENT_GET_PERCENT = 13,
    VODCLIENT_GET_TOTAL_FRAMES = 16,
    VODCLIENT_GET_TOTAL_SECONDS = 17,
    VODCLIENT_REVERSE_FROM_SECOND = 24,
    VODCLIENT_SEEK_MS = 25,
    VODCLIENT_SEEK_KILOBYTE = 30,
    VODCLIENT_FORWARD_FROM_SECOND = 31,
    VODCLIENT_SEEK_ABSOLUTE_TIME = 34, // seconds since 1970
    VODCLIENT_FORWARD_FROM_MS = 35,
    VODCLIENT_REVERSE_FROM_MS = 36
};

struct playback_state;

class ORB_API vodclient_playback {
  public:
    vodclient_playback() noexcept;
    ~vodclient_playback();
    vodclient_playback(const vodclient_playback &) = delete;
    vodclient_playback &operator=(const vodclient_playback &) = delete;

    // Connects and waits until the recording is open over there. Once per object.
    vodclient_result open(const vodclient_server &server, const vodclient_play_request &request) noexcept;
    vodclient_play_info info() const noexcept;
    // Lets the data flow. Once.
    vodclient_result start() noexcept;

    // Waits for the next event. About 1000 data packages (of up to 48 KiB) wait here for a consumer that takes its
    // time, besides what was on its way; then the service pauses until they are consumed, which this object tells it by
    // itself. VODCLIENT_TIMEOUT: nothing came in `timeout_ms` (0: only look). VODCLIENT_LOST: all that came has been
    // handed out and the connection is over.
    vodclient_result next(vodclient_event *event, uint32_t timeout_ms) noexcept;
    // Calls `consume` for each event until it answers false (VODCLIENT_OK) or `next` fails.
    vodclient_result for_each(const std::function<bool(const vodclient_event &)> &consume,
                              uint32_t timeout_ms) noexcept;

    // Any control code. `reply` (may be null) receives the reply's value, -1 for codes that only act. A refusal carries
    // the service's error number. After VODCLIENT_SEEK_* data of the old position not taken yet is dropped, and
    // VODCLIENT_EVENT_SEEK_DONE tells where the new position begins. A change of direction is told by the same event,
    // but for a request of the direction that already holds, which does nothing; older data is then kept.
    // Seeking needs `start` first.
    vodclient_result control(int code, int32_t value, int32_t *reply) noexcept;

    vodclient_result play() noexcept { return control(VODCLIENT_PLAY, 0, nullptr); }
    // A percentage of a recording's bytes. Where its middle in time is, info().total_seconds tells: use seek_ms.
    vodclient_result seek_percent(int32_t percent) noexcept
    {
        return control(VODCLIENT_SEEK_PERCENT, percent, nullptr);
    }
    vodclient_result seek_ms(int32_t ms) noexcept { return control(VODCLIENT_SEEK_MS, ms, nullptr); }
    vodclient_result seek_kilobyte(int32_t kilobyte) noexcept
    {
        return control(VODCLIENT_SEEK_KILOBYTE, kilobyte, nullptr);
    }
    vodclient_result seek_absolute_time(int32_t seconds) noexcept
    {
        return control(VODCLIENT_SEEK_ABSOLUTE_TIME, seconds, nullptr);
    }
    vodclient_result reverse_from_ms(int32_t ms) noexcept { return control(VODCLIENT_REVERSE_FROM_MS, ms, nullptr); }
    vodclient_result reverse_from_second(int32_t second) noexcept
    {
        return control(VODCLIENT_REVERSE_FROM_SECOND, second, nullptr);
    }
    vodclient_result forward_from_ms(int32_t ms) noexcept { return control(VODCLIENT_FORWARD_FROM_MS, ms, nullptr); }
    vodclient_result forward_from_second(int32_t second) noexcept
    {
        return control(VODCLIENT_FORWARD_FROM_SECOND, second, nullptr);
    }
    vodclient_result get_percent(int32_t *percent) noexcept { return control(VODCLIENT_GET_PERCENT, 0, percent); }
    vodclient_result get_total_frames(int32_t *frames) noexcept
    {
        return control(VODCLIENT_GET_TOTAL_FRAMES, 0, frames);
    }
    vodclient_result get_total_seconds(int32_t *seconds) noexcept
    {
        return control(VODCLIENT_GET_TOTAL_SECONDS, 0, seconds);
    }

    // Stops the data for good; the service does not answer. The recording stays open there until `close`.
    vodclient_result stop() noexcept;
    // As stop, and closes the recording over there at once. Not answered either.
    vodclient_result stop_playback() noexcept;
    // Ends the connection. Waiting calls return VODCLIENT_LOST.
    void close() noexcept;

  private:
    std::shared_ptr<playback_state> state_;
};

// ---- Record search --------------------------------------------------------------------------------------------------

#define VODCLIENT_HOST_ID_MAX 59
#define VODCLIENT_PAGE_MAX 10000 // records that the service delivers at once

struct vodclient_find_request {
    // The device that recorded, up to 59 bytes of UTF-8. Empty: any, and `channel` counts for nothing.
    std::string host_id;
    int32_t channel = -1;  // of that device; negative: any
    int32_t file_type = 0; // bit mask of recording types; 0: any
    // Local times of the recorder. Recordings are found that begin from `start` to `end`, both included.
    vodclient_time start, end;
};

struct vodclient_record {
    std::string file; // as a playback asks for it, UTF-8
    std::string host_id;
    int32_t channel = 0, file_type = 0;
    int64_t size = 0;          // bytes; 0 while it is still being written
    vodclient_time start, end; // the end is all zero while it is still being written
    vodclient_time lock;       // all zero: not locked
    int32_t lock_level = 0;
    std::string md5;
    int32_t ratio = 0, drive = 0, start_cluster = 0; // of some recorders
    std::string card_number;
};

struct search_state;

// One search of the record index on a connection of its own:
//
//     vodclient_search search;
//     if (vodclient_result result = search.open({"recorder.example", 7131}, request); !result)
//         return complain(result.text);
//     std::vector<vodclient_record> page;
//     for (bool is_over = false; !is_over && search.next(100, false, &page, &is_over);)
//         for (const vodclient_record &record : page)
//             consume(record);
//
// The service keeps an open search until it is closed: `close`, or the end of the object, does that. A search sees the
// index as it was when it was opened. Small files are left out by the service.
class ORB_API vodclient_search {
  public:
    vodclient_search() noexcept;
    ~vodclient_search();
    vodclient_search(const vodclient_search &) = delete;
    vodclient_search &operator=(const vodclient_search &) = delete;

    // Connects, logs in and opens the search. Once per object. VODCLIENT_REFUSED: the service cannot search just now.
    vodclient_result open(const vodclient_server &server, const vodclient_find_request &request) noexcept;
    // The next records, `count` (1 to VODCLIENT_PAGE_MAX) of them at most, in the order of their begin; `*is_over`
    // tells that no more will come. With `complete_open_files` the service looks up size and end of files that are
    // still being written. VODCLIENT_TIMEOUT: no answer in time; what it would have brought is lost, so a search should end then.
    vodclient_result next(int32_t count, bool complete_open_files, std::vector<vodclient_record> *records,
                          bool *is_over) noexcept;
    // The service's number of the search, 0 when none is open.
    int32_t session() const noexcept;
    // Ends the search over there, and the connection.
    void close() noexcept;

  private:
    std::shared_ptr<search_state> state_;
};

// ---- Questions ------------------------------------------------------------------------------------------------------

enum vodclient_link_kind {
    VODCLIENT_LINKS_DOWNLOAD = 0,
    VODCLIENT_LINKS_PLAYBACK = 1,
    VODCLIENT_LINKS_STATE = 2,
    VODCLIENT_LINKS_UPLOAD = 3,
    VODCLIENT_LINKS_ACTIVE = 4
};

struct login_state;

// A command login: a connection for questions about the service as a whole.
class ORB_API vodclient_login {
  public:
    vodclient_login() noexcept;
    ~vodclient_login();
    vodclient_login(const vodclient_login &) = delete;
    vodclient_login &operator=(const vodclient_login &) = delete;

    vodclient_result open(const vodclient_server &server) noexcept;
    // How many links of `kind` (a vodclient_link_kind) there are. The service does not answer for other kinds.
    vodclient_result link_num(int kind, int32_t *count) noexcept;
    void close() noexcept;

  private:
    std::shared_ptr<login_state> state_;
};

// The name that asks for the state itself; with any other name the service writes a file of that name and `text`
// receives the name.
#define VODCLIENT_STATE_FROM_NET "from_net.xml"

// Which recordings are being played and downloaded: an XML text.
ORB_API vodclient_result vodclient_link_state(const vodclient_server &server, const std::string &name,
                                              std::string *text) noexcept;
