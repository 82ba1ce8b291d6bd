// One connection and the questions that travel over it: many statements in one round trip, each question with its own
// time, and a failure that stays.
#pragma once

#include "platform/silo/pg_value.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct pg_connection_finish {
    void operator()(PGconn *conn) const { PQfinish(conn); }
};
using pg_connection = std::unique_ptr<PGconn, pg_connection_finish>;

enum pg_outcome {
    PG_ANSWERED, // every statement was carried out
    PG_REFUSED,  // the server refused one: those before it were carried out, those behind it were not
    PG_BROKEN    // the connection is of no use any more
};

struct pg_link {
    pg_connection conn;
    uint32_t statement_ms = 0;
    uint64_t round_trips = 0;
    bool is_broken = false;
    int owed_answers = 0;   // of what was posted
    bool is_warned = false; // the last question came with a warning

    // Of the last question that was not answered.
    std::string sql_state, message;
    bool was_sent = false; // the server may have seen all of it
};

// `conn` is connected. False when it cannot be used.
bool pg_link_start(pg_link *link, pg_connection conn);
// Waits for the answers, at most `ms`. `results` gets one for each statement that was carried out; may be nullptr.
pg_outcome pg_ask(pg_link *link, std::span<const pg_statement> statements, std::vector<pg_answer> *results,
                  uint32_t ms);
// Sends a statement whose answer nobody waits for.
void pg_post(pg_link *link, const char *sql);
// Whether the last refusal came only from another writer, so that the same again may succeed.
bool pg_is_conflict(const pg_link &link);
// The first line of a text.
std::string pg_first_line(const char *text);
