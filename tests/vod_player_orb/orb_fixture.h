// What the tests of the recording player share: a receiver of its data, and a fixture with the scripted media library,
// one recording file and one player.
#pragma once

#include "tests/support/log_capture.h"
#include "tests/support/temp_folder.h"
#include "tests/vod_player_orb/fake_avfilter.h"
#include "vod_player_orb/vod_player_orb.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

struct received {
    int type, size;
    std::string data; // `size` bytes
    bool has_data;    // the pointer was not null
    handle_orb producer;
};

// Its address is the `usr` of an open.
class data_receiver {
  public:
    static void callback(handle_orb producer, int type, char *data, int size, handle_orb usr);
    handle_orb usr() { return reinterpret_cast<handle_orb>(this); }
    // What arrived, once it is at least `count` things; fewer when that takes half a minute.
    std::vector<received> wait_for(size_t count);
    // Waits until something of this type arrives for the n-th time.
    bool wait_for_type(int type, size_t n = 1);
    std::vector<received> all();
    size_t count_of(int type);
    std::vector<int> types();
    void clear();
    // Called on the reading thread with each thing received, before it is counted.
    void on_receive(std::function<void(const received &)> hook);

  private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<received> received_;
    std::function<void(const received &)> hook_;
};

// Waits, up to half a minute, until the condition holds.
bool eventually(const std::function<bool()> &condition);

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
