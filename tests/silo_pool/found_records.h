// What a search of the real index finds, in the terms of the reference.
#pragma once

#include "silo_pool/silo_orb.h"
#include "tests/silo_pool/reference_search.h"

#include <gtest/gtest.h>
#include <ostream>

inline silo_orb_iterator *begin_search(const search_wish &wish)
{
    return silo_orb_iterator_init(wish.host ? wish.host->c_str() : nullptr, wish.ch, wish.type, wish.from.c_str(),
                                  wish.to.c_str());
}

inline std::vector<found_record> finish_search(silo_orb_iterator *it)
{
    std::vector<found_record> found;
    while (it != nullptr && silo_orb_iterator_next(it) == 0) {
        const silo_record &record = it->current;
        found.push_back(
            {record.ino, record.host_id, record.bt, record.et, record.path, record.ch, record.rt, record.size});
    }
    silo_orb_iterator_destroy(it);
    return found;
}

inline void PrintTo(const found_record &record, std::ostream *out)
{
    *out << record.id << " " << record.host << "/" << record.ch << " " << record.bt;
}
inline void PrintTo(const search_wish &wish, std::ostream *out)
{
    *out << wish.host.value_or("-") << "/" << wish.ch << " type " << wish.type << " " << wish.from << " " << wish.to;
}
