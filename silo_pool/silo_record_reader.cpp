#include "silo_pool/silo_record_reader.h"

#include "platform/os/os_guard.h"
#include "silo_pool/silo_values.h"

#include <iterator>

template <auto MEMBER> static bool take_text(silo_record *record, std::string_view value)
{
    text_copy(record->*MEMBER, value);
    return true;
}

template <auto MEMBER> static bool take_number32(silo_record *record, std::string_view value)
{
    uint32_t number;
    if (!silo_number_from_text(value.substr(0, NUMBER_TEXT_MAX), &number))
        return false;
    record->*MEMBER = static_cast<std::remove_reference_t<decltype(record->*MEMBER)>>(number);
    return true;
}

static bool take_size(silo_record *record, std::string_view value)
{
    return silo_number_from_text(value.substr(0, NUMBER_TEXT_MAX), &record->size) != 0;
}

struct field_taker {
    std::string_view name;
    uint32_t bit;
    bool (*take)(silo_record *record, std::string_view value);
};

static constexpr field_taker s_takers[] = {
    {SILO_FIELD_BT, SILO_HAS_BT, take_text<&silo_record::bt>},
    {SILO_FIELD_CH, SILO_HAS_CH, take_number32<&silo_record::ch>},
    {SILO_FIELD_ET, SILO_HAS_ET, take_text<&silo_record::et>},
    {SILO_FIELD_HOST, SILO_HAS_HOST, take_text<&silo_record::host_id>},
    {SILO_FIELD_LOCK_LEVEL, SILO_HAS_LOCK_LEVEL, take_number32<&silo_record::lock_level>},
    {SILO_FIELD_LOCK_TIME, SILO_HAS_LOCK_TIME, take_text<&silo_record::lock_time>},
    {SILO_FIELD_MD5, SILO_HAS_MD5, take_text<&silo_record::md5>},
    {SILO_FIELD_PATH, SILO_HAS_PATH, take_text<&silo_record::path>},
    {SILO_FIELD_RT, SILO_HAS_RT, take_number32<&silo_record::rt>},
    {SILO_FIELD_SIZE, SILO_HAS_SIZE, take_size},
};

void silo_record_clear(silo_record *record)
{
    record->ino = record->size = record->revision = 0;
    record->ch = record->lock_level = record->has = 0;
    record->rt = 0;
    for (char *text : {record->host_id, record->bt, record->et, record->path, record->lock_time, record->md5})
        text[0] = '\0';
}

void silo_record_take(silo_record *record, size_t *place, std::string_view field, std::string_view value)
{
    for (size_t i = *place; i < std::size(s_takers); i++)
        if (s_takers[i].name == field) {
            if (s_takers[i].take(record, value))
                record->has |= s_takers[i].bit;
            *place = i + 1;
            return;
        }
}

bool silo_record_read_fields(silo_iterator_t *iter, uint64_t id, silo_record *record)
{
    silo_key prefix = silo_key_record(id);
    if (silo_iterator_bound(iter, prefix.text, prefix.len) < 0)
        return false;
    record->ino = id;
    bool found = false;
    size_t place = 0;
    for (int end = silo_iterator_seek(iter, prefix.text, prefix.len, 0); end == 0; end = silo_iterator_next(iter)) {
        const silo_kv *kv = silo_iterator_kv(iter);
        std::string_view field(kv->key + prefix.len, kv->key_len - prefix.len);
        silo_record_take(record, &place, field, {kv->val, kv->val_len});
        found = true;
    }
    return found;
}
