// Plays the service's part on the message service, as far as a test's script says. One at a time in a process.
#pragma once

#include "client/vodclient.h"
#include "platform/ms/ms.h"
#include "tests/support/temp_folder.h"

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

// A package as it arrived, with values by position.
struct seen_package {
    uint8_t code = 0;
    MpPackHead head{};
    struct attr {
        uint8_t type, reserved;
        std::vector<uint8_t> value;
    };
    std::vector<attr> attrs;
    uint32_t u32(size_t position) const; // of the value's first 4 bytes
    uint16_t u16(size_t position, size_t offset) const;
    std::string text(size_t position) const; // of the value, up to its first zero
    // What a command's text says between <name> and </name>.
    std::string xml_value(const std::string &name) const;
};

class fake_service {
  public:
    using handler = std::function<void(fake_service &, MsLink *, const seen_package &)>;

    fake_service();
    ~fake_service();
    fake_service(const fake_service &) = delete;
    fake_service &operator=(const fake_service &) = delete;

    vodclient_server server(uint32_t timeout_ms = 5000) const;
    const temp_folder &folder() const { return folder_; }
    // What happens when a package of this code arrives, on a thread of the message service. Without a handler: nothing.
    void on(uint8_t code, handler action);

    // All packages of this code so far.
    std::vector<seen_package> seen(uint8_t code) const;
    // Waits until `count` packages of this code came; false after 5 s.
    bool wait_for(uint8_t code, size_t count) const;
    bool wait_for_disconnect() const;
    MsLink *last_link() const;

    void accept(MsLink *link, const std::vector<uint8_t> &data);
    // As a playback is accepted: file type 3, `head`, totals 100 frames, 4 s, begin 1700000000, `total_size` bytes.
    void accept_playback(MsLink *link, const std::vector<uint8_t> &head, uint64_t total_size);
    void reject(MsLink *link, uint32_t code);
    // Waits while the connection takes no more; false when it has ended.
    bool data(MsLink *link, const std::vector<uint8_t> &bytes, uint8_t mark = 0);
    void reply(MsLink *link, const seen_package &command, const std::string &text);
    // The same cut into pieces of so many bytes, the last with the zero. The piece `skipped` is left out.
    void reply_in_pieces(MsLink *link, const seen_package &command, const std::string &text, size_t piece_bytes,
                         int skipped = -1);
    // The reply to a "playback_control".
    void reply_control(MsLink *link, const seen_package &command, const char *result, int value);
    void send(MsLink *link, const std::vector<uint8_t> &package);
    void disconnect(MsLink *link) { mslink_destroy(link); }

  private:
    static void on_event(MsLink *link, int event, MpPackage *package);
    void take(MsLink *link, const seen_package &package);

    temp_folder folder_{temp_folder::working_directory::enter};
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    // Guarded by mutex_.
    std::map<uint8_t, handler> handlers_;
    std::vector<seen_package> seen_;
    MsLink *last_link_ = nullptr;
    size_t disconnects_ = 0;
};
