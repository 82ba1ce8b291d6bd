#include "tests/integration/play_session.h"

#include "platform/ms/ms.h"
#include "platform/os/os_guard.h"

#include <gtest/gtest.h>

static constexpr uint32_t PATIENCE_MS = 20'000;

// ---- Through the library --------------------------------------------------------------------------------------------

static std::string text_of(const vodclient_event &event)
{
    return {reinterpret_cast<const char *>(event.data), event.size};
}

bool play_to_end(vodclient_playback &session, std::string *bytes)
{
    vodclient_event event;
    while (session.next(&event, PATIENCE_MS)) {
        if (event.type == VODCLIENT_EVENT_END)
            return true;
        if (event.type == VODCLIENT_EVENT_HEAD || event.type == VODCLIENT_EVENT_STREAM)
            *bytes += text_of(event);
    }
    return false;
}

bool play_behind_mark(vodclient_playback &session, std::string *bytes)
{
    vodclient_event event;
    while (session.next(&event, PATIENCE_MS))
        if (event.type == VODCLIENT_EVENT_SEEK_DONE)
            return play_to_end(session, bytes);
    return false;
}

vodclient_play_request request_of(const std::string &name)
{
    vodclient_play_request request;
    request.file = name;
    return request;
}

play_result play_all(const vodclient_server &server, const std::string &name)
{
    play_result played;
    vodclient_playback session;
    if (played.result = session.open(server, request_of(name)); !played.result)
        return played;
    played.info = session.info();
    if (played.result = session.start(); played.result)
        played.reached_end = play_to_end(session, &played.bytes);
    return played;
}

// ---- What recordings are made of ------------------------------------------------------------------------------------

std::vector<played_frame> frames_of(const std::string &stream)
{
    std::vector<played_frame> frames;
    for (size_t at = 0; at < stream.size();) {
        const char *head = stream.data() + at;
        size_t left = stream.size() - at;
        bool has_head = left >= AVFILTER_FRAME_HEAD_SIZE && wire_load<uint32_t>(head) == AVFILTER_FRAME_ID;
        size_t size = has_head ? AVFILTER_FRAME_HEAD_SIZE + wire_load<uint32_t>(head + 4) : left + 1;
        if (size > left) {
            ADD_FAILURE() << "no whole frame at " << at << " of " << stream.size();
            break;
        }
        frames.push_back({wire_load<uint32_t>(head + 12), wire_load<uint32_t>(head + 16), head[8] == AVFRAME_TYPE_KEY,
                          stream.substr(at, size)});
        at += size;
    }
    return frames;
}

std::vector<uint32_t> numbers_of(const std::vector<played_frame> &frames)
{
    std::vector<uint32_t> numbers;
    for (const played_frame &frame : frames)
        numbers.push_back(frame.number);
    return numbers;
}

std::string bytes_from(const made_recording &made, const made_frame &first)
{
    return made.bytes().substr(static_cast<size_t>(first.offset));
}

// ---- Byte by byte ---------------------------------------------------------------------------------------------------

std::vector<uint8_t> play_request(const std::string &name)
{
    constexpr size_t file_block_size = 40; // start, end and numbers, all zero
    return raw_request(0x8001, 0, raw_join({std::vector<uint8_t>(file_block_size), raw_text(name)}));
}

std::string control_xml(int code, int value)
{
    return "<?xml version=\"1.0\"?>\n<command name=\"playback_control\">\n\t<control_code>" + std::to_string(code) +
           "</control_code>\n\t<value>" + std::to_string(value) + "</value>\n</command>";
}

static std::string attr_text(std::vector<uint8_t> package, uint32_t index)
{
    MpPackage parsed;
    uint32_t size = 0;
    if (!mp_parse_package(package.data(), package.size(), &parsed))
        return {};
    const uint8_t *value = mp_attr_value(&parsed, index, 0, &size);
    return value == nullptr ? std::string() : std::string(value, value + size);
}

uint32_t reject_code_of(const std::vector<uint8_t> &package)
{
    std::string value = attr_text(package, 0);
    return value.size() < sizeof(uint32_t) ? 0 : wire_load<uint32_t>(value.data());
}

static uint8_t code_of(const std::vector<uint8_t> &package)
{
    return package.empty() ? uint8_t{0} : package[offsetof(MpPackHead, code)];
}

int raw_session::request(uint16_t port, const std::string &name)
{
    if (!client_.connect(port) || !client_.send(play_request(name)))
        return 0;
    std::vector<uint8_t> answer = client_.receive(PATIENCE_MS);
    if (code_of(answer) == MP_CODE_REJECT_RES)
        reject_code_ = reject_code_of(answer);
    return code_of(answer);
}

std::optional<data_package> raw_session::data(uint32_t ms)
{
    std::vector<uint8_t> package;
    if (!kept_.empty()) {
        package = kept_.front();
        kept_.erase(kept_.begin());
    } else {
        package = client_.receive_code(MP_CODE_SEND_RES, ms);
    }
    if (package.size() < sizeof(MpPackHead) + sizeof(MpAttrHead))
        return {};
    return data_package{package[sizeof(MpPackHead) + offsetof(MpAttrHead, reserved)], attr_text(package, 0)};
}

std::string raw_session::control(int code, int value)
{
    client_.send(raw_command(7, control_xml(code, value)));
    for (;;) {
        std::vector<uint8_t> package = client_.receive(PATIENCE_MS);
        if (package.empty() || code_of(package) == MP_CODE_RET_CMD_CHS)
            return attr_text(package, 7).c_str();
        kept_.push_back(package);
    }
}
