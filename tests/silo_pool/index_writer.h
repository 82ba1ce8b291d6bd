// Random work on an index: what other programs and uploads do to it, and searches of all kinds. The same work is done
// on a store and on plain pairs.
#pragma once

#include "silo_pool/silo_record.h"
#include "tests/silo_pool/reference_search.h"

#include <random>

struct index_change {
    std::string key;
    std::optional<std::string> value; // none: deleted
};

class index_writer {
public:
    explicit index_writer(uint32_t seed) : random_(seed) {}

    size_t below(size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(random_); }
    std::string time()
    {
        char text[32];
        snprintf(text, sizeof text, "2024-01-%02d %02d:%02d:%02d", static_cast<int>(below(3) + 1),
                 static_cast<int>(below(4)), static_cast<int>(below(4)), static_cast<int>(below(60)));
        return text;
    }
    std::string host() { return "dev" + std::to_string(below(4)); }
    std::string path() { return "D:\\rec\\" + std::to_string(below(400)) + ".orb"; }

    // Another program of the platform writes a record's values, all but those that are written once.
    std::vector<index_change> foreign_values(uint64_t id)
    {
        std::string f = "f." + std::to_string(id) + ".";
        std::vector<index_change> changes;
        if (below(2))
            changes.push_back({f + "lock_level", std::to_string(below(5))});
        if (below(3) == 0)
            changes.push_back({f + "et", below(2) ? std::optional(time()) : std::nullopt});
        if (below(3) == 0)
            changes.push_back({f + "rt", std::to_string(below(16))});
        if (below(3) == 0)
            changes.push_back({"r." + std::to_string(id), std::to_string(below(5))});
        return changes;
    }
    // What no program should write: random bytes at places of the index.
    index_change damage(uint64_t last_id)
    {
        static const char *const FIELDS[] = {"bt",   "ch", "et",   "host", "lock_level", "lock_time", "md5",
                                             "path", "rt", "size", "",     "zz",         "c"};
        std::string id = std::to_string(below(last_id + 2));
        std::string key;
        switch (below(5)) {
        case 0:
            key = "f." + id + "." + FIELDS[below(std::size(FIELDS))];
            break;
        case 1:
            key = "r." + id;
            break;
        case 2:
            key = "bt." + (below(2) ? time() + "." + id : bytes(30));
            break;
        case 3:
            key = "f." + bytes(8);
            break;
        default:
            key = "p." + path();
            break;
        }
        if (below(4) == 0)
            return {key, std::nullopt};
        switch (below(4)) {
        case 0:
            return {key, std::to_string(below(last_id + 2))};
        case 1:
            return {key, bytes(20)};
        case 2:
            return {key, std::string(below(6000), 'x')};
        default:
            return {key, std::to_string(below(3)) + bytes(3)};
        }
    }
    std::string bytes(size_t most)
    {
        std::string text(below(most + 1), ' ');
        for (char &byte : text)
            byte = static_cast<char>(below(4) ? below(256) : '0' + below(10));
        return text;
    }
    search_wish wish()
    {
        search_wish wish;
        if (below(4))
            wish.host = below(10) ? host() : "";
        wish.ch = static_cast<int>(below(6)) - 2;
        wish.type = static_cast<int>(below(4)) == 0 ? static_cast<int>(below(16)) : 0;
        if (below(2)) {
            wish.from = time();
            wish.to = time();
        }
        return wish;
    }

private:
    std::mt19937 random_;
};
