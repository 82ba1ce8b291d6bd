// Ranges of keys, and what a transaction knows of them without asking the server again.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Keys from `low` up to, and without, `high`.
struct pg_range {
    std::string low, high;
};

// Above every key.
std::string pg_range_end();
// The first text above all that start with these bytes.
std::string pg_prefix_end(std::string_view prefix);
pg_range pg_prefix_range(std::string_view prefix);
pg_range pg_key_range(std::string_view key);

// What was fetched of a snapshot: ranges of which every pair is known. Neither grows beyond its bounds: what does not
// fit is not known.
class pg_known {
public:
    explicit pg_known(size_t bytes_max) : bytes_max_(bytes_max) {}
    void clear();
    bool empty() const { return ranges_.empty(); }
    // The pairs of a range, all of them; false when they do not fit, and nothing of the range is known then.
    bool add(const pg_range &range, const std::vector<std::pair<std::string, std::string>> &pairs);
    bool knows(std::string_view key) const;
    // Of a key that is known: its value, nullptr when it is absent.
    const std::string *value(std::string_view key) const;
    // Whether every key of the range is known.
    bool knows_range(std::string_view low, std::string_view high) const;
    using pairs_map = std::map<std::string, std::string, std::less<>>;
    const pairs_map &pairs() const { return pairs_; }

private:
    void join(const pg_range &range);
    size_t bytes_max_, bytes_ = 0;
    pairs_map pairs_;
    std::map<std::string, std::string, std::less<>> ranges_; // low -> high; they neither touch nor overlap
};

// Writes that the server has not seen yet: what was removed by prefix first, then single keys.
class pg_pending {
public:
    void set(std::string_view key, std::string_view value);
    void remove(std::string_view key);
    void remove_prefix(std::string_view prefix);
    void clear();
    bool empty() const { return keys_.empty() && prefixes_.empty(); }
    size_t bytes() const { return bytes_; }

    struct outcome {
        bool is_decided;          // false: as the server has it
        const std::string *value; // nullptr: absent
    };
    outcome look(std::string_view key) const;

    const std::vector<std::string> &prefixes() const { return prefixes_; }
    using keys_map = std::map<std::string, std::optional<std::string>, std::less<>>;
    const keys_map &keys() const { return keys_; }

private:
    void put(std::string_view key, std::optional<std::string> value);
    std::vector<std::string> prefixes_;
    keys_map keys_;
    size_t bytes_ = 0;
};
