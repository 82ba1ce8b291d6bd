// A folder of the test's own, removed with everything in it; optionally the process's working directory while it lives.
#pragma once

#include <filesystem>
#include <string>

class temp_folder {
  public:
    enum class working_directory { keep, enter };
    explicit temp_folder(working_directory mode = working_directory::keep);
    ~temp_folder();
    temp_folder(const temp_folder &) = delete;
    temp_folder &operator=(const temp_folder &) = delete;
    const std::filesystem::path &path() const { return path_; }
    // The name in the host's form, which is UTF-8 where names are characters.
    std::string file(const std::string &name) const;
    // Writes a file below the folder, making the folders above it; `name` may use backslashes.
    void write(std::string name, const std::string &text) const;

  private:
    std::filesystem::path path_, before_;
};
