// Collects what is logged while it lives.
#pragma once

#include <mutex>
#include <string>
#include <vector>

struct log_line {
    int level;
    std::string unit, text;
    bool operator==(const log_line &) const = default;
};

class log_capture {
  public:
    explicit log_capture(int level = 1);
    ~log_capture();
    log_capture(const log_capture &) = delete;
    log_capture &operator=(const log_capture &) = delete;
    std::vector<log_line> lines() const;
    // How many lines say exactly this; `level` 0 counts every level.
    size_t count(const std::string &text, int level = 0) const;
    size_t count_containing(const std::string &part) const;
    void clear();

  private:
    static void receive(void *user, int level, const char *unit, int line, const char *text);
    mutable std::mutex mutex_;
    std::vector<log_line> lines_;
};
