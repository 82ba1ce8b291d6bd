// A program that keeps no rule for writers: it changes devices, channels and begins of records that are there, gives
// ids again, and fills the whole index anew with the same ids.
#pragma once

#include "tests/silo_pool/index_writer.h"

class unruly_writer : public index_writer {
public:
    static constexpr uint64_t IDS = 30;
    using index_writer::index_writer;

    std::vector<index_change> first_values() const
    {
        return {{"rev.hi", "2"}, {"rev.lo", "1"}, {"ino", std::to_string(IDS)}};
    }
    std::vector<index_change> changes(const index_pairs &now)
    {
        uint64_t id = 1 + below(IDS);
        std::string f = "f." + std::to_string(id) + ".";
        bool is_there = now.contains(f + "bt");
        switch (is_there ? below(7) : 6) {
        case 0:
            return {{f + "ch", std::to_string(below(3))}};
        case 1:
            return {{f + "host", host()}};
        case 2:
            return moved(now, id, below(4) != 0, below(4) != 0);
        case 3:
            return removed(now, id);
        case 4:
            return rebuilt(now);
        default:
            return entered_anew(now, id);
        }
    }

private:
    // "bt." entries are found by their value: they may say another time than the record.
    static std::vector<index_change> entries_removed(const index_pairs &now, uint64_t id)
    {
        std::vector<index_change> changes;
        for (auto at = now.lower_bound("bt."); at != now.end() && at->first.starts_with("bt."); ++at)
            if (at->second == std::to_string(id))
                changes.push_back({at->first, std::nullopt});
        return changes;
    }
    std::vector<index_change> moved(const index_pairs &now, uint64_t id, bool entry, bool field)
    {
        std::string bt = time(), number = std::to_string(id);
        std::vector<index_change> changes;
        if (entry) {
            changes = entries_removed(now, id);
            changes.push_back({"bt." + bt + "." + number, number});
        }
        if (field)
            changes.push_back({"f." + number + ".bt", bt});
        return changes;
    }
    static std::vector<index_change> removed(const index_pairs &now, uint64_t id)
    {
        std::vector<index_change> changes = entries_removed(now, id);
        std::string f = "f." + std::to_string(id) + ".";
        for (auto at = now.lower_bound(f); at != now.end() && at->first.starts_with(f); ++at)
            changes.push_back({at->first, std::nullopt});
        changes.push_back({"r." + std::to_string(id), std::nullopt});
        return changes;
    }
    std::vector<index_change> entered_anew(const index_pairs &now, uint64_t id)
    {
        std::vector<index_change> changes = removed(now, id);
        std::string number = std::to_string(id), f = "f." + number + ".",
                    bt = below(2) ? time() : "2024-01-02 00:00:00";
        for (const index_change &change : std::vector<index_change>{{"bt." + bt + "." + number, number},
                                                                    {"r." + number, "2"},
                                                                    {f + "bt", bt},
                                                                    {f + "ch", std::to_string(below(3))},
                                                                    {f + "host", host()},
                                                                    {f + "path", "D:\\rec\\" + number},
                                                                    {f + "rt", "1"}})
            changes.push_back(change);
        return changes;
    }
    std::vector<index_change> rebuilt(const index_pairs &now)
    {
        std::vector<index_change> changes;
        for (uint64_t id = 1; id <= IDS; id++)
            for (const index_change &change : below(5) ? entered_anew(now, id) : removed(now, id))
                changes.push_back(change);
        return changes;
    }
};
