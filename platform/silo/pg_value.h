// Values on the wire: PostgreSQL's binary formats.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <libpq-fe.h>

struct pg_value {
    Oid type;
    std::string bytes;
};

pg_value pg_bytes(std::string_view bytes);
pg_value pg_text(std::string_view text);
pg_value pg_int8(int64_t number);

// Collects the elements of a bytea[].
class pg_bytes_array {
public:
    void add(std::string_view element);
    bool empty() const { return count_ == 0; }
    pg_value value() const;

private:
    int32_t count_ = 0;
    std::string elements_;
};

struct pg_statement {
    std::string sql;
    std::vector<pg_value> values = {};
};

struct pg_answer_clear {
    void operator()(PGresult *result) const { PQclear(result); }
};
using pg_answer = std::unique_ptr<PGresult, pg_answer_clear>;

// Cells of a binary result; the caller knows that they exist. Good as long as the result.
std::string_view pg_cell(const pg_answer &result, int row, int column);
bool pg_cell_is_null(const pg_answer &result, int row, int column);
// Of an int8 cell; 0 when it is something else.
int64_t pg_cell_int8(const pg_answer &result, int row, int column);
