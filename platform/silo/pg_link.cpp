#include "platform/silo/pg_link.h"

#include "platform/os/os_guard.h"
#include "platform/silo/pg_socket.h"

#include <algorithm>
#include <cstring>

// What is left of the time for a question.
struct pg_deadline {
    explicit pg_deadline(uint32_t limit_ms) : ms(limit_ms), start(os_tick()) {}
    uint32_t left() const { return static_cast<uint32_t>(ms - std::min<uint64_t>(os_tick() - start, ms)); }
    uint32_t ms;
    uint64_t start;
};

std::string pg_first_line(const char *text)
{
    std::string line = text == nullptr ? "" : text;
    return line.substr(0, line.find('\n'));
}

bool pg_is_conflict(const pg_link &link)
{
    return link.sql_state == "40001" || link.sql_state == "40P01";
}

static pg_outcome break_link(pg_link *link, const std::string &message)
{
    link->is_broken = true;
    link->sql_state.clear();
    link->message = message;
    return PG_BROKEN;
}

// A server that has said why it hangs up is believed.
static pg_outcome lose_link(pg_link *link)
{
    std::string message = link->message.empty() ? pg_first_line(PQerrorMessage(link->conn.get())) : link->message;
    return break_link(link, message.empty() ? "the connection was lost" : message);
}

static void notice(void *user, const PGresult *result)
{
    const char *severity = PQresultErrorField(result, PG_DIAG_SEVERITY_NONLOCALIZED);
    if (severity == nullptr || std::strcmp(severity, "WARNING") == 0)
        static_cast<pg_link *>(user)->is_warned = true;
}

bool pg_link_start(pg_link *link, pg_connection conn)
{
    link->conn = std::move(conn);
    PQsetNoticeReceiver(link->conn.get(), notice, link);
    return PQsetnonblocking(link->conn.get(), 1) == 0 && PQenterPipelineMode(link->conn.get()) == 1;
}

// ---- Sending -------------------------------------------------------------------------------------------------------

static bool queue_statement(pg_link *link, const pg_statement &statement)
{
    std::vector<Oid> types;
    std::vector<const char *> bytes;
    std::vector<int> lengths, formats(statement.values.size(), 1);
    for (const pg_value &value : statement.values) {
        types.push_back(value.type);
        bytes.push_back(value.bytes.data());
        lengths.push_back(static_cast<int>(value.bytes.size()));
    }
    return PQsendQueryParams(link->conn.get(), statement.sql.c_str(), static_cast<int>(types.size()), types.data(),
                             bytes.data(), lengths.data(), formats.data(), 1) == 1;
}

static pg_outcome wait_for_socket(pg_link *link, bool for_write, const pg_deadline &deadline)
{
    switch (pg_socket_wait(PQsocket(link->conn.get()), true, for_write, deadline.left())) {
    case PG_SOCKET_READY:
        return PQconsumeInput(link->conn.get()) == 1 ? PG_ANSWERED : lose_link(link);
    case PG_TIME_UP:
        return break_link(link, "the server did not answer for " + std::to_string(deadline.ms) + " ms");
    default:
        return break_link(link, "the connection's socket failed");
    }
}

// Answers are taken meanwhile, so that neither side waits for the other one's buffer.
static pg_outcome flush(pg_link *link, const pg_deadline &deadline)
{
    for (int result; (result = PQflush(link->conn.get())) != 0;) {
        if (result < 0)
            return lose_link(link);
        if (wait_for_socket(link, true, deadline) != PG_ANSWERED)
            return PG_BROKEN;
    }
    return PG_ANSWERED;
}

static pg_outcome send_question(pg_link *link, std::span<const pg_statement> statements, const pg_deadline &deadline)
{
    if (os_fault_point("pg_send"))
        return break_link(link, "sending failed");
    for (const pg_statement &statement : statements)
        if (!queue_statement(link, statement))
            return lose_link(link);
    if (PQpipelineSync(link->conn.get()) != 1)
        return lose_link(link);
    link->was_sent = true;
    return flush(link, deadline);
}

// ---- Taking answers ------------------------------------------------------------------------------------------------

// The next result, nullptr at the end of a statement's.
static pg_outcome take_result(pg_link *link, const pg_deadline &deadline, pg_answer *result)
{
    while (PQisBusy(link->conn.get()))
        if (wait_for_socket(link, false, deadline) != PG_ANSWERED)
            return PG_BROKEN;
    result->reset(PQgetResult(link->conn.get()));
    return PQstatus(link->conn.get()) == CONNECTION_BAD ? lose_link(link) : PG_ANSWERED;
}

static void note_refusal(pg_link *link, const pg_answer &result)
{
    const char *state = PQresultErrorField(result.get(), PG_DIAG_SQLSTATE);
    const char *message = PQresultErrorField(result.get(), PG_DIAG_MESSAGE_PRIMARY);
    link->sql_state = state == nullptr ? "" : state;
    link->message = pg_first_line(message == nullptr ? PQresultErrorMessage(result.get()) : message);
}

// Everything up to the mark that ends a question.
static pg_outcome take_answer(pg_link *link, const pg_deadline &deadline, std::vector<pg_answer> *results)
{
    pg_outcome outcome = PG_ANSWERED;
    for (int ends = 0; ends < 2;) {
        pg_answer result;
        if (take_result(link, deadline, &result) != PG_ANSWERED)
            return PG_BROKEN;
        if (result == nullptr) {
            ends++; // two in a row: the server's mark is missing
            continue;
        }
        ends = 0;
        ExecStatusType status = PQresultStatus(result.get());
        if (status == PGRES_PIPELINE_SYNC)
            return outcome;
        if (status == PGRES_TUPLES_OK || status == PGRES_COMMAND_OK) {
            if (results != nullptr)
                results->push_back(std::move(result));
        } else if (outcome == PG_ANSWERED) {
            note_refusal(link, result);
            outcome = PG_REFUSED;
        }
    }
    return break_link(link, "the server's answer is incomplete");
}

static pg_outcome take_owed_answers(pg_link *link, const pg_deadline &deadline)
{
    for (; link->owed_answers > 0; link->owed_answers--)
        if (take_answer(link, deadline, nullptr) == PG_BROKEN)
            return PG_BROKEN;
    return PG_ANSWERED;
}

static pg_outcome ask(pg_link *link, std::span<const pg_statement> statements, std::vector<pg_answer> *results,
                      const pg_deadline &deadline)
{
    if (send_question(link, statements, deadline) != PG_ANSWERED || take_owed_answers(link, deadline) != PG_ANSWERED)
        return PG_BROKEN;
    link->is_warned = false;
    return take_answer(link, deadline, results);
}

pg_outcome pg_ask(pg_link *link, std::span<const pg_statement> statements, std::vector<pg_answer> *results, uint32_t ms)
{
    link->was_sent = false;
    if (link->is_broken)
        return PG_BROKEN;
    link->sql_state.clear();
    link->message.clear();
    link->round_trips++;
    link->is_broken = true; // should memory run out on the way
    pg_outcome outcome = ask(link, statements, results, pg_deadline(ms));
    link->is_broken = outcome == PG_BROKEN;
    return outcome;
}

void pg_post(pg_link *link, const char *sql)
{
    if (link->is_broken)
        return;
    pg_statement statement = {sql};
    link->is_broken = true;
    if (send_question(link, {&statement, 1}, pg_deadline(link->statement_ms)) == PG_ANSWERED) {
        link->owed_answers++;
        link->is_broken = false;
    }
}
