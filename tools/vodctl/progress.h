// How far a playback is, on standard error, where somebody looks on; at most ten times a second.
#pragma once

#include <cstdint>
#include <string>

class progress_line {
  public:
    // `total_bytes` 0: not known.
    progress_line(bool wanted, uint64_t total_bytes);
    ~progress_line();
    progress_line(const progress_line &) = delete;
    progress_line &operator=(const progress_line &) = delete;
    void show(uint64_t bytes, uint64_t frames);

  private:
    uint64_t total_bytes_, started_at_, drawn_at_ = 0;
    bool visible_, drawn_ = false;
};

// "[######........]  43 %   12.3 MB/s   1500 frames"; without the bar when the total is not known.
std::string progress_text(uint64_t bytes, uint64_t total_bytes, uint64_t elapsed_ms, uint64_t frames);
