// The fixture of the recording player's tests: the scripted media library, a folder and one player.
#pragma once

#include "tests/support/log_capture.h"
#include "tests/support/temp_folder.h"
#include "tests/vod_player_orb/data_receiver.h"
#include "tests/vod_player_orb/fake_avfilter.h"
#include "vod_player_orb/vod_player_orb.h"

#include <gtest/gtest.h>

#include <string>

class OrbPlayerTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // A recording in the working folder, as a client would name it.
    std::string recording(const std::string &name = "dev_01_20240305070809_0.orb");
    int open(const std::string &name);
    int open() { return open(recording()); }
    // Opens, waits for the header.
    void open_to_header();
    // Closes and destroys the player; afterwards there is none.
    void destroy();
    VODOrbPlayer *orb() { return reinterpret_cast<VODOrbPlayer *>(player); }
    int status() { return shared_load(player->status); }

    fake_avfilter &fake = fake_avfilter::instance();
    temp_folder folder{temp_folder::working_directory::enter};
    data_receiver receiver;
    log_capture log;
    VODPlayer *player = nullptr;
};
