// The search in its plainest form, without cursors and memory: one question after the other over plain pairs.
// What the real one is held against.
#pragma once

#include "platform/silo/silo.h"

#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

using index_pairs = std::map<std::string, std::string>;

struct search_wish {
    std::optional<std::string> host;
    int ch = -1, type = 0;
    std::string from = "2000-01-01 00:00:00", to = "2099-01-01 00:00:00";
};

struct found_record {
    uint64_t id = 0;
    std::string host, bt, et, path;
    uint32_t ch = 0;
    int rt = 0;
    uint64_t size = 0;
    bool operator==(const found_record &) const = default;
};

class reference_search {
public:
    explicit reference_search(const index_pairs &pairs) : pairs_(pairs) {}

    std::vector<found_record> operator()(const search_wish &wish) const
    {
        std::vector<found_record> found;
        uint64_t high, low;
        if (!number("rev.hi", "%lu", &high) || !number("rev.lo", "%lu", &low))
            return found;
        std::string start = ("bt." + wish.from + ".").substr(0, 31), end = ("bt." + wish.to + ".Z").substr(0, 31);
        for (auto at = pairs_.lower_bound(start); at != pairs_.end(); ++at) {
            if (!at->first.starts_with("bt.") || at->first >= end)
                break;
            found_record record;
            if (xfmt_sscanf(at->second.data(), at->second.size(), "%lu", &record.id) == 1 &&
                evaluate(wish, low, high, &record))
                found.push_back(record);
        }
        return found;
    }

private:
    std::optional<std::string> text(const std::string &key, size_t size) const
    {
        auto found = pairs_.find(key);
        if (found == pairs_.end())
            return {};
        return std::string(found->second.substr(0, size - 1).c_str()); // to the first zero, as a C string
    }
    template <class T> bool number(const std::string &key, const char *format, T *value) const
    {
        auto found = pairs_.find(key);
        return found != pairs_.end() &&
               xfmt_sscanf(found->second.data(), std::min<size_t>(found->second.size(), 63), format, value) == 1;
    }
    bool evaluate(const search_wish &wish, uint64_t low, uint64_t high, found_record *record) const
    {
        std::string f = "f." + std::to_string(record->id) + ".";
        uint64_t revision;
        uint32_t rt;
        int mask = wish.type == 0 ? 65535 : wish.type;
        if (!number("r." + std::to_string(record->id), "%lu", &revision) || revision < low || revision > high ||
            !number(f + "rt", "%u", &rt) || (static_cast<int>(rt) & mask) == 0)
            return false;
        auto host = text(f + "host", 256), path = text(f + "path", 4096), bt = text(f + "bt", 32);
        if (!host || !number(f + "ch", "%u", &record->ch))
            return false;
        if (wish.host && !wish.host->empty() &&
            (*host != wish.host->substr(0, 255) || (wish.ch >= 0 && record->ch != static_cast<uint32_t>(wish.ch))))
            return false;
        if (!path || !bt)
            return false;
        number(f + "size", "%lu", &record->size);
        record->rt = static_cast<int>(rt);
        record->host = *host;
        record->path = *path;
        record->bt = *bt;
        record->et = text(f + "et", 32).value_or("");
        return true;
    }
    const index_pairs &pairs_;
};
