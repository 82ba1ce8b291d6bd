// Playbacks for tests: through the client library, and byte by byte.
#pragma once

#include "client/vodclient.h"
#include "tests/support/raw_client.h"
#include "tests/support/recording_maker.h"

#include <optional>
#include <string>
#include <vector>

// ---- Through the library --------------------------------------------------------------------------------------------

struct play_result {
    vodclient_result result; // of the first call that failed
    vodclient_play_info info;
    std::string bytes; // file head and stream
    bool reached_end = false;
};
vodclient_play_request request_of(const std::string &name);
// From the request to the end of the recording.
play_result play_all(const vodclient_server &server, const std::string &name);
// Adds what comes until the end of the recording; false when the end does not come.
bool play_to_end(vodclient_playback &session, std::string *bytes);
// Waits for the seek mark and adds what comes behind it.
bool play_behind_mark(vodclient_playback &session, std::string *bytes);

// ---- What recordings are made of ------------------------------------------------------------------------------------

struct played_frame {
    uint32_t number = 0, time_stamp = 0;
    bool is_key = false;
    std::string bytes; // header included
};
// Cuts a stream (without file head) into frames; a rest that is no whole frame fails the test.
std::vector<played_frame> frames_of(const std::string &stream);
std::vector<uint32_t> numbers_of(const std::vector<played_frame> &frames);
std::string bytes_from(const made_recording &made, const made_frame &first);

// ---- Byte by byte ---------------------------------------------------------------------------------------------------

std::vector<uint8_t> play_request(const std::string &name);
std::string control_xml(int code, int value);
inline constexpr char STOP_PLAYBACK_XML[] = "<?xml version=\"1.0\"?><command name=\"stop_playback\"/>";

struct data_package {
    uint8_t marker = 0;
    std::string bytes;
    bool is_end() const { return marker == 0 && bytes.empty(); }
    bool is_stream() const { return marker == 0 && !bytes.empty(); }
};

// One playback whose packages the test sends and sees itself. Nothing is acknowledged unless the test does.
class raw_session {
public:
    // Connects and requests; the code that came back: 10, 11, or 0 for none.
    int request(uint16_t port, const std::string &name);
    bool get(uint32_t held_packages = 0) { return client_.send(raw_get(held_packages)); }
    std::optional<data_package> data(uint32_t ms = 10'000);
    // The text of the reply to a control command; data that comes before it is kept for `data`.
    std::string control(int code, int value);
    bool send(std::span<const uint8_t> bytes) { return client_.send(bytes); }
    uint32_t reject_code() const { return reject_code_; }
    raw_client &client() { return client_; }

private:
    raw_client client_;
    uint32_t reject_code_ = 0;
    std::vector<std::vector<uint8_t>> kept_;
};
// The error code of a reject package.
uint32_t reject_code_of(const std::vector<uint8_t> &package);
