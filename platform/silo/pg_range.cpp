#include "platform/silo/pg_range.h"

#include "platform/silo/silo.h"

#include <algorithm>
#include <iterator>

std::string pg_range_end()
{
    return std::string(SILO_KEY_MAX + 1, '\xFF');
}

std::string pg_prefix_end(std::string_view prefix)
{
    size_t last = prefix.find_last_not_of('\xFF');
    if (last == prefix.npos)
        return pg_range_end();
    std::string end(prefix.substr(0, last + 1));
    end.back() = static_cast<char>(static_cast<unsigned char>(end.back()) + 1);
    return end;
}

pg_range pg_prefix_range(std::string_view prefix)
{
    return {std::string(prefix), pg_prefix_end(prefix)};
}

pg_range pg_key_range(std::string_view key)
{
    return {std::string(key), std::string(key) + '\0'};
}

// ---- What is known -------------------------------------------------------------------------------------------------

void pg_known::clear()
{
    pairs_.clear();
    ranges_.clear();
    bytes_ = 0;
}

bool pg_known::add(const pg_range &range, const std::vector<std::pair<std::string, std::string>> &pairs)
{
    size_t bytes = range.low.size() + range.high.size();
    for (const auto &[key, value] : pairs)
        bytes += key.size() + value.size();
    if (range.low >= range.high || bytes > bytes_max_ - bytes_)
        return false;
    bytes_ += bytes;
    for (const auto &[key, value] : pairs)
        pairs_.insert_or_assign(key, value);
    join(range);
    return true;
}

// Melts a range with those that it touches.
void pg_known::join(const pg_range &range)
{
    std::string low = range.low, high = range.high;
    auto at = ranges_.upper_bound(low);
    if (at != ranges_.begin() && std::prev(at)->second >= low) {
        --at;
        low = at->first;
        high = std::max(high, at->second);
        at = ranges_.erase(at);
    }
    while (at != ranges_.end() && at->first <= high) {
        high = std::max(high, at->second);
        at = ranges_.erase(at);
    }
    ranges_.emplace(low, high);
}

bool pg_known::knows(std::string_view key) const
{
    auto above = ranges_.upper_bound(key);
    return above != ranges_.begin() && key < std::prev(above)->second;
}

const std::string *pg_known::value(std::string_view key) const
{
    auto pair = pairs_.find(key);
    return pair == pairs_.end() ? nullptr : &pair->second;
}

bool pg_known::knows_range(std::string_view low, std::string_view high) const
{
    if (low >= high)
        return true;
    auto above = ranges_.upper_bound(low);
    return above != ranges_.begin() && high <= std::prev(above)->second;
}

// ---- What is pending -----------------------------------------------------------------------------------------------

void pg_pending::put(std::string_view key, std::optional<std::string> value)
{
    auto [pair, is_new] = keys_.try_emplace(std::string(key));
    if (!is_new)
        bytes_ -= key.size() + (pair->second ? pair->second->size() : 0);
    bytes_ += key.size() + (value ? value->size() : 0);
    pair->second = std::move(value);
}

void pg_pending::set(std::string_view key, std::string_view value)
{
    put(key, std::string(value));
}

void pg_pending::remove(std::string_view key)
{
    put(key, std::nullopt);
}

void pg_pending::remove_prefix(std::string_view prefix)
{
    auto first = keys_.lower_bound(prefix), last = first;
    for (; last != keys_.end() && last->first.starts_with(prefix); ++last)
        bytes_ -= last->first.size() + (last->second ? last->second->size() : 0);
    keys_.erase(first, last);
    prefixes_.emplace_back(prefix);
    bytes_ += prefix.size();
}

void pg_pending::clear()
{
    prefixes_.clear();
    keys_.clear();
    bytes_ = 0;
}

pg_pending::outcome pg_pending::look(std::string_view key) const
{
    if (auto pair = keys_.find(key); pair != keys_.end())
        return {true, pair->second ? &*pair->second : nullptr};
    bool removed = std::ranges::any_of(prefixes_, [&](const std::string &prefix) { return key.starts_with(prefix); });
    return {removed, nullptr};
}
