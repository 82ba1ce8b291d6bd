// The keys of the record index, all of them, in one place. Keys and values are plain text without a terminating zero.
//
//   rev.hi, rev.lo      highest and lowest revision that searches see
//   ino                 the last record id handed out; written under the store's named lock of that name
//   p.<path>            the record id of a path
//   bt.<time>.<id>      the record id, in the order of begin times
//   r.<id>              the revision of a record
//   f.<id>.<field>      its values
#pragma once

#include "platform/silo/silo.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <string_view>

inline constexpr std::string_view SILO_KEY_REV_HI = "rev.hi";
inline constexpr std::string_view SILO_KEY_REV_LO = "rev.lo";
inline constexpr std::string_view SILO_KEY_INO = "ino";
inline constexpr const char *SILO_LOCK_INO = "ino";

inline constexpr std::string_view SILO_PREFIX_PATH = "p.";
inline constexpr std::string_view SILO_PREFIX_BY_TIME = "bt.";
inline constexpr std::string_view SILO_PREFIX_REVISION = "r.";
inline constexpr std::string_view SILO_PREFIX_RECORD = "f.";

// In the order in which the store has them.
inline constexpr std::string_view SILO_FIELD_BT = "bt";
inline constexpr std::string_view SILO_FIELD_CH = "ch";
inline constexpr std::string_view SILO_FIELD_ET = "et";
inline constexpr std::string_view SILO_FIELD_HOST = "host";
inline constexpr std::string_view SILO_FIELD_LOCK_LEVEL = "lock_level";
inline constexpr std::string_view SILO_FIELD_LOCK_TIME = "lock_time";
inline constexpr std::string_view SILO_FIELD_MD5 = "md5";
inline constexpr std::string_view SILO_FIELD_PATH = "path";
inline constexpr std::string_view SILO_FIELD_RT = "rt";
inline constexpr std::string_view SILO_FIELD_SIZE = "size";

// A key that does not fit has length 0, which the store refuses. Only what is written is touched.
struct silo_key {
    char text[SILO_KEY_MAX + 1];
    uint32_t len;

    silo_key() : len(0) { text[0] = '\0'; }
    silo_key(const silo_key &other) : len(other.len) { std::memcpy(text, other.text, len + size_t{1}); }
    silo_key &operator=(const silo_key &) = delete;
    std::string_view view() const { return {text, len}; }
};

inline void silo_key_add(silo_key *key, std::string_view part)
{
    if (part.size() > SILO_KEY_MAX - key->len) {
        key->len = 0;
        key->text[0] = '\0';
        return;
    }
    if (!part.empty())
        std::memcpy(key->text + key->len, part.data(), part.size());
    key->len += static_cast<uint32_t>(part.size());
    key->text[key->len] = '\0';
}

inline void silo_key_add(silo_key *key, uint64_t number)
{
    char digits[20];
    auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    silo_key_add(key, std::string_view(digits, static_cast<size_t>(end - digits)));
}

inline silo_key silo_key_text(std::string_view text)
{
    silo_key key;
    silo_key_add(&key, text);
    return key;
}

inline void silo_key_set(silo_key *key, std::string_view text)
{
    key->len = 0;
    silo_key_add(key, text);
}

inline silo_key silo_key_path(std::string_view path)
{
    silo_key key;
    if (path.size() > SILO_KEY_MAX - SILO_PREFIX_PATH.size())
        return key;
    silo_key_add(&key, SILO_PREFIX_PATH);
    silo_key_add(&key, path);
    return key;
}

inline silo_key silo_key_by_time(std::string_view time, uint64_t id)
{
    silo_key key;
    if (time.size() > SILO_KEY_MAX / 2)
        return key;
    silo_key_add(&key, SILO_PREFIX_BY_TIME);
    silo_key_add(&key, time);
    silo_key_add(&key, ".");
    silo_key_add(&key, id);
    return key;
}

inline silo_key silo_key_revision(uint64_t id)
{
    silo_key key;
    silo_key_add(&key, SILO_PREFIX_REVISION);
    silo_key_add(&key, id);
    return key;
}

// "f.<id>.": what all values of a record start with.
inline silo_key silo_key_record(uint64_t id)
{
    silo_key key;
    silo_key_add(&key, SILO_PREFIX_RECORD);
    silo_key_add(&key, id);
    silo_key_add(&key, ".");
    return key;
}

inline silo_key silo_key_field(uint64_t id, std::string_view field)
{
    silo_key key = silo_key_record(id);
    silo_key_add(&key, field);
    return key;
}

// Takes "f.<id>.<field>" apart. Ids are written without leading zeros; anything else is no key of the index.
inline bool silo_key_split(std::string_view key, uint64_t *id, std::string_view *field)
{
    if (!key.starts_with(SILO_PREFIX_RECORD))
        return false;
    key.remove_prefix(SILO_PREFIX_RECORD.size());
    auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), *id);
    size_t digits = static_cast<size_t>(end - key.data());
    if (error != std::errc() || digits == key.size() || *end != '.' || (digits > 1 && key[0] == '0'))
        return false;
    *field = key.substr(digits + 1);
    return true;
}
