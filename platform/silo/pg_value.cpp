#include "platform/silo/pg_value.h"

// Types as every server of this protocol numbers them.
static constexpr Oid TYPE_BYTEA = 17, TYPE_INT8 = 20, TYPE_TEXT = 25, TYPE_BYTEA_ARRAY = 1001;

template <class T> static void put(std::string *bytes, T number)
{
    for (size_t i = sizeof(T); i-- > 0;)
        bytes->push_back(static_cast<char>(static_cast<uint64_t>(number) >> (8 * i) & 0xFF));
}

pg_value pg_bytes(std::string_view bytes)
{
    return {TYPE_BYTEA, std::string(bytes)};
}

pg_value pg_text(std::string_view text)
{
    return {TYPE_TEXT, std::string(text)};
}

pg_value pg_int8(int64_t number)
{
    pg_value value = {TYPE_INT8, {}};
    put(&value.bytes, number);
    return value;
}

void pg_bytes_array::add(std::string_view element)
{
    put(&elements_, static_cast<int32_t>(element.size()));
    elements_ += element;
    count_++;
}

pg_value pg_bytes_array::value() const
{
    pg_value value = {TYPE_BYTEA_ARRAY, {}};
    put(&value.bytes, int32_t(count_ == 0 ? 0 : 1)); // dimensions
    put(&value.bytes, int32_t(0));                   // without nulls
    put(&value.bytes, static_cast<int32_t>(TYPE_BYTEA));
    if (count_ != 0) {
        put(&value.bytes, count_);
        put(&value.bytes, int32_t(1)); // first index
        value.bytes += elements_;
    }
    return value;
}

std::string_view pg_cell(const pg_answer &result, int row, int column)
{
    return {PQgetvalue(result.get(), row, column), static_cast<size_t>(PQgetlength(result.get(), row, column))};
}

bool pg_cell_is_null(const pg_answer &result, int row, int column)
{
    return PQgetisnull(result.get(), row, column) != 0;
}

int64_t pg_cell_int8(const pg_answer &result, int row, int column)
{
    std::string_view bytes = pg_cell(result, row, column);
    if (bytes.size() != sizeof(int64_t))
        return 0;
    uint64_t number = 0;
    for (char byte : bytes)
        number = number << 8 | static_cast<unsigned char>(byte);
    return static_cast<int64_t>(number);
}
