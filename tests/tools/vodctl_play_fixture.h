// vodctl play as a process, against a service that plays one recording.
#pragma once

#include "tests/client/fake_service.h"
#include "tests/support/raw_client.h"
#include "tests/tools/vodctl_process.h"
#include "tests/tools/vodctl_recording.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

inline std::string text_of(const byte_list &bytes)
{
    return {bytes.begin(), bytes.end()};
}

class VodctlPlayTest : public testing::Test {
protected:
    VodctlPlayTest()
    {
        file = recording_head_bytes();
        byte_list frames = recording_frames_bytes(0, FRAMES);
        file.insert(file.end(), frames.begin(), frames.end());
        service.on(MP_CODE_REQUEST_RES, [this](fake_service &self, MsLink *link, const seen_package &) {
            self.accept_playback(link, recording_head_bytes(), file.size());
        });
        service.on(MP_CODE_GET_RES, [this](fake_service &self, MsLink *link, const seen_package &) {
            if (!is_playing.exchange(true))
                play_from(self, link, 0);
        });
        service.on(MP_CODE_SEND_CMD_CHS, [this](fake_service &self, MsLink *link, const seen_package &command) {
            self.reply_control(link, command, "ok", -1);
            self.data(link, {}, 0xEE);
            play_from(self, link, seek_to);
        });
    }
    // In pieces that do not care for frames.
    void play_from(fake_service &self, MsLink *link, uint32_t frame)
    {
        static constexpr size_t PIECE = 700;
        byte_list frames = recording_frames_bytes(frame, FRAMES - frame);
        for (size_t at = 0; at < frames.size(); at += PIECE)
            self.data(link, {frames.begin() + static_cast<ptrdiff_t>(at),
                             frames.begin() + static_cast<ptrdiff_t>(std::min(at + PIECE, frames.size()))});
        self.data(link, {});
    }
    std::vector<std::string> with_server(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--server", "127.0.0.1:" + std::to_string(ms_listen_port())});
        return arguments;
    }
    child_result run(const std::vector<std::string> &arguments) const { return run_vodctl(with_server(arguments)); }

    static constexpr uint32_t FRAMES = 30;
    byte_list file;
    std::atomic<bool> is_playing{false};
    uint32_t seek_to = 10;
    fake_service service; // its events use all of the above
};
