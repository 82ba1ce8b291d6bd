// One playback: the request, the data with its acknowledgements, the control commands.
#include "client/command_text.h"
#include "client/connection.h"
#include "client/guarded.h"
#include "client/incoming.h"

#include <algorithm>
#include <cstring>
#include <iterator>

// The service holds back after 1000 packages that were not acknowledged. A quarter of that between acknowledgements
// keeps data flowing while one is on its way.
static constexpr uint32_t ACKNOWLEDGE_EVERY = 250;

// Hardplay_File_Info on the wire, behind the request kind and the channel and before the file name.
struct HardplayFileInfo {
    uint16_t start[6], end[6];
    uint32_t file_length, driver_no, start_cluster;
    uint16_t file_type, reserved;
};
static_assert(sizeof(HardplayFileInfo) == 40 && offsetof(HardplayFileInfo, end) == 12
              && offsetof(HardplayFileInfo, start_cluster) == 32 && offsetof(HardplayFileInfo, file_type) == 36
              && offsetof(HardplayFileInfo, reserved) == 38);

struct playback_state {
    connection link;
    LMutex commands{}; // held by the one command that waits for its reply
    bool usable = false;

    // Guarded by link.mutex.
    bool is_open = false, is_started = false;
    vodclient_play_info info;
    uint32_t last_session_id = 0;
    uint32_t taken_packages = 0; // windowed, since the last acknowledgement
    stream_package current;      // what the last event points into; belongs to the consumer
    bool current_is_windowed = false;

    playback_state() : usable(os_mutex_init(&commands, 0) && link.usable) {}
    ~playback_state() { os_mutex_destroy(&commands); }
};

struct commands_guard : os_lock_guard {
    explicit commands_guard(playback_state &state) : os_lock_guard(&state.commands) {}
};

vodclient_playback::vodclient_playback() noexcept : state_(make_state<playback_state>())
{
}

vodclient_playback::~vodclient_playback()
{
    close();
}

void vodclient_playback::close() noexcept
{
    if (state_ != nullptr)
        connection_close(state_->link);
}

// ---- Opening --------------------------------------------------------------------------------------------------------

static void store_time(uint8_t *bytes, const vodclient_time &time)
{
    const uint16_t fields[] = {time.year, time.month, time.day, time.hour, time.minute, time.second};
    for (uint16_t field : fields) {
        wire_store(bytes, field);
        bytes += sizeof field;
    }
}

static std::vector<uint8_t> file_info_bytes(const vodclient_play_request &request)
{
    std::vector<uint8_t> bytes(sizeof(HardplayFileInfo));
    store_time(bytes.data() + offsetof(HardplayFileInfo, start), request.start);
    store_time(bytes.data() + offsetof(HardplayFileInfo, end), request.end);
    wire_store(bytes.data() + offsetof(HardplayFileInfo, start_cluster), request.start_position);
    wire_store(bytes.data() + offsetof(HardplayFileInfo, file_type), request.file_type);
    wire_store(bytes.data() + offsetof(HardplayFileInfo, reserved), request.mode);
    bytes.insert(bytes.end(), request.file.begin(), request.file.end());
    bytes.push_back(0);
    return bytes;
}

static std::vector<uint8_t> device_bytes(const vodclient_play_request &request)
{
    if (!request.file.empty())
        return {};
    std::vector<uint8_t> bytes(VODCLIENT_DEVICE_ID_MAX);
    std::ranges::copy(request.device_id, bytes.begin());
    return bytes;
}

static vodclient_result check_request(const vodclient_play_request &request)
{
    if (request.file.find('\0') != std::string::npos || request.device_id.find('\0') != std::string::npos)
        return {VODCLIENT_BAD_ARGUMENT, 0, "a name must not contain a zero byte"};
    if (request.file.empty() && request.device_id.empty())
        return {VODCLIENT_BAD_ARGUMENT, 0, "name a file, or a device with a time span"};
    if (request.device_id.size() > VODCLIENT_DEVICE_ID_MAX)
        return {VODCLIENT_BAD_ARGUMENT, 0, "the device id is longer than 60 bytes"};
    if (request.mode > VODCLIENT_MODE_MAX)
        return {VODCLIENT_BAD_ARGUMENT, 0, "analysis playback needs rules, which this library does not send"};
    return {};
}

static void deliver_head(playback_state &state, std::vector<uint8_t> &&head)
{
    stream_package package;
    package.type = VODCLIENT_EVENT_HEAD;
    package.data_size = head.size();
    package.bytes = std::move(head);
    connection_guard held(state.link);
    state.link.stream.push(std::move(package));
    state.is_open = true;
}

static vodclient_result request_playback(playback_state &state, const vodclient_play_request &request)
{
    outgoing_package package;
    if (!build_request(&package, REQUEST_PLAYBACK, request.channel, file_info_bytes(request), request.insert_abstime,
                       device_bytes(request)))
        return {VODCLIENT_BAD_ARGUMENT, 0, "the file name is too long"};
    std::vector<uint8_t> accept, head;
    if (vodclient_result result = connection_request(state.link, package, &accept); !result)
        return result;
    MpPackage answer{};
    if (!mp_parse_package(accept.data(), accept.size(), &answer) || !read_play_accept(answer, &state.info, &head))
        return bad_reply("an unreadable accept");
    deliver_head(state, std::move(head));
    return {};
}

vodclient_result vodclient_playback::open(const vodclient_server &server,
                                          const vodclient_play_request &request) noexcept
{
    return guarded(state_, [&](playback_state &state) {
        if (vodclient_result result = check_request(request); !result)
            return result;
        if (vodclient_result result = connection_open({state_, &state.link}, server); !result)
            return result;
        vodclient_result result = request_playback(state, request);
        if (!result)
            connection_close(state.link);
        return result;
    });
}

vodclient_play_info vodclient_playback::info() const noexcept
{
    if (state_ == nullptr)
        return {};
    connection_guard held(state_->link);
    return state_->info;
}

static vodclient_result not_open()
{
    return {VODCLIENT_WRONG_STATE, 0, "no recording is open; open one first"};
}

vodclient_result vodclient_playback::start() noexcept
{
    return guarded(state_, [](playback_state &state) -> vodclient_result {
        {
            connection_guard held(state.link);
            if (!state.is_open)
                return not_open();
            if (state.is_started)
                return {VODCLIENT_WRONG_STATE, 0, "data flows already"};
            state.is_started = true;
        }
        outgoing_package get;
        build_get(&get, 0);
        return connection_send(state.link, get);
    });
}

// ---- Data -----------------------------------------------------------------------------------------------------------

// The consumer has come back, so it is done with the last event. True when the service should be told by now, with the
// number of packages that still wait here.
static bool retire_current(playback_state &state, const connection_guard &, uint32_t *still_held)
{
    state.taken_packages += (state.current_is_windowed ? 1 : 0) + state.link.stream.take_dropped();
    state.current_is_windowed = false;
    if (state.taken_packages < ACKNOWLEDGE_EVERY || state.link.over)
        return false;
    state.taken_packages = 0;
    *still_held = state.link.stream.windowed();
    return true;
}

static void acknowledge_what_was_taken(playback_state &state)
{
    uint32_t still_held = 0;
    {
        connection_guard held(state.link);
        if (!retire_current(state, held, &still_held))
            return;
    }
    outgoing_package get;
    build_get(&get, still_held);
    if (connection_send(state.link, get))
        return;
    // Not sent: due again at the next call. A connection that has ended tells that to whoever waits for data.
    connection_guard held(state.link);
    state.taken_packages += ACKNOWLEDGE_EVERY;
}

static vodclient_result next_event(playback_state &state, vodclient_event *event, uint32_t timeout_ms)
{
    acknowledge_what_was_taken(state);
    connection_guard held(state.link);
    if (!state.is_open)
        return not_open();
    vodclient_result result = connection_wait(state.link, held, timeout_ms, [&](const connection_guard &) {
        return state.link.stream.pop(&state.current);
    });
    if (!result)
        return result;
    state.current_is_windowed = state.current.is_windowed();
    *event = {state.current.type, state.current.bytes.data() + state.current.data_offset, state.current.data_size};
    return {};
}

vodclient_result vodclient_playback::next(vodclient_event *event, uint32_t timeout_ms) noexcept
{
    return guarded(state_, [&](playback_state &state) { return next_event(state, event, timeout_ms); });
}

vodclient_result vodclient_playback::for_each(const std::function<bool(const vodclient_event &)> &consume,
                                              uint32_t timeout_ms) noexcept
{
    return guarded(state_, [&](playback_state &state) -> vodclient_result {
        try {
            for (vodclient_event event;;) {
                if (vodclient_result result = next_event(state, &event, timeout_ms); !result)
                    return result;
                if (!consume(event))
                    return {};
            }
        } catch (const std::bad_alloc &) {
            throw;
        } catch (...) {
            return {VODCLIENT_BAD_ARGUMENT, 0, "the consumer has thrown an exception"};
        }
    });
}

// ---- Commands -------------------------------------------------------------------------------------------------------

// Codes that only ask may come before the data flows; an action then would make the service send what it must not.
static bool is_question(int code)
{
    return code == VODCLIENT_GET_PERCENT || code == VODCLIENT_GET_TOTAL_FRAMES || code == VODCLIENT_GET_TOTAL_SECONDS;
}

// Codes that always move to another position. A change of direction is none: asking for the direction that already
// holds does nothing, and there is no telling which it was.
static bool is_seek(int code)
{
    static constexpr int s_seek_codes[] = {VODCLIENT_SEEK_PERCENT, VODCLIENT_SEEK_MS, VODCLIENT_SEEK_KILOBYTE,
                                           VODCLIENT_SEEK_ABSOLUTE_TIME};
    return std::ranges::find(s_seek_codes, code) != std::end(s_seek_codes);
}

static vodclient_result begin_command(playback_state &state, int code, uint32_t *session_id, uint32_t *marks_before)
{
    connection_guard held(state.link);
    if (!state.is_open)
        return not_open();
    if (!state.is_started && !is_question(code))
        return {VODCLIENT_WRONG_STATE, 0, "start the data first"};
    *session_id = ++state.last_session_id;
    *marks_before = state.link.stream.seek_marks();
    return {};
}

static vodclient_result refused_control(int code, int32_t error)
{
    auto number = static_cast<uint32_t>(error);
    std::string text = "the service refused control code " + std::to_string(code);
    if (number != 0 && error != -1)
        text += std::string(": ") + vodclient_error_text(number);
    return {VODCLIENT_REFUSED, number, std::move(text)};
}

static vodclient_result control_command(playback_state &state, int code, int32_t value, int32_t *reply)
{
    commands_guard alone(state);
    uint32_t session_id = 0, marks_before = 0;
    if (vodclient_result result = begin_command(state, code, &session_id, &marks_before); !result)
        return result;

    std::string text;
    std::string xml = command_text_build("playback_control", {{"control_code", code}, {"value", value}});
    if (vodclient_result result = connection_command(state.link, session_id, xml, &text); !result)
        return result;
    command_return answer;
    if (!command_return_read(text, "playback_control", "value", &answer))
        return bad_reply("an unreadable reply to a control command");
    if (!answer.ok)
        return refused_control(code, answer.value);
    if (is_seek(code)) {
        connection_guard held(state.link);
        state.link.stream.seek_granted(marks_before);
    }
    if (reply != nullptr)
        *reply = answer.value;
    return {};
}

vodclient_result vodclient_playback::control(int code, int32_t value, int32_t *reply) noexcept
{
    return guarded(state_, [&](playback_state &state) { return control_command(state, code, value, reply); });
}

static vodclient_result check_open(playback_state &state)
{
    connection_guard held(state.link);
    return state.is_open ? vodclient_result{} : not_open();
}

vodclient_result vodclient_playback::stop() noexcept
{
    return guarded(state_, [](playback_state &state) {
        if (vodclient_result result = check_open(state); !result)
            return result;
        outgoing_package stop;
        build_stop(&stop);
        return connection_send(state.link, stop);
    });
}

vodclient_result vodclient_playback::stop_playback() noexcept
{
    return guarded(state_, [](playback_state &state) {
        if (vodclient_result result = check_open(state); !result)
            return result;
        outgoing_package command;
        build_command(&command, 0, command_text_build("stop_playback", {}));
        return connection_send(state.link, command);
    });
}
