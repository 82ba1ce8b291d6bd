// A client that searches over the network, and the least that its questions could cost: the same bytes there and back.
#pragma once

#include "bench/index_records.h"
#include "tests/support/raw_client.h"

#include <string>

class find_session {
public:
    explicit find_session(uint16_t port);
    // "find_file", "find_next_file" with this count, waiting for each answer, then "findfile_close". Seconds until the
    // records were there.
    double find(const char *host, int channel, const bench_question &question, int count);
    // Opens a search and asks for its records, so many times in pages of `count`, and takes none of the answers.
    void ask_without_reading(const char *host, int channel, const bench_question &question, int count, int times);
    // Of the last search.
    int records() const { return records_; }
    size_t reply_bytes() const { return reply_bytes_; }

private:
    std::string ask(const std::string &xml);
    // Its number, as the element of commands.
    std::string open(const char *host, int channel, const bench_question &question);
    raw_client client_;
    int records_ = 0;
    size_t reply_bytes_ = 0;
};

// The median time in seconds of two questions to a thread behind a loopback connection, of which the second is answered
// with so many bytes.
double echo_seconds(int runs, size_t reply_bytes);
