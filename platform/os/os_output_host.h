// The host's side of output files: a folder that stays the same folder while names in it are made and changed.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

enum output_kind { OUTPUT_ABSENT, OUTPUT_REGULAR, OUTPUT_FOLDER, OUTPUT_STREAM };
enum output_rename { OUTPUT_RENAMED, OUTPUT_NAME_TAKEN, OUTPUT_RENAME_FAILED };

struct output_host_state;

// Names are parts of the folder's; calls that fail keep the reason.
class output_host {
public:
    output_host();
    ~output_host();
    output_host(const output_host &) = delete;
    output_host &operator=(const output_host &) = delete;

    // Where the name leads, links followed; opens the folder of what may be a file.
    bool find(const std::string &host, output_kind *kind);
    // The folder as it is written in front of a name (empty, or with its separator), and the target's name in it.
    const std::string &prefix() const;
    const std::string &name() const;
    bool target_is(const std::string &input) const;

    // Opens the device or pipe that was found.
    bool stream_open();
    bool make(const std::string &name);
    bool write(const void *bytes, size_t size, uint64_t offset, bool is_stream);
    bool close(bool to_disk);
    // 0 also for what is not there.
    uint64_t size_of(const std::string &name) const;
    bool remove(const std::string &name);
    output_rename rename(const std::string &from, const std::string &to);
    // Takes the target's place and its rights, if that is a file or absent.
    bool replace_target(const std::string &from);
    void folder_to_disk();
    // The longest name that a folder takes, in the units of the host.
    static bool name_fits(const std::string &name);

private:
    std::unique_ptr<output_host_state> state_;
};
