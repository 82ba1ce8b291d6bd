#include "tests/silo/store_fixture.h"

#include <algorithm>

std::vector<store_kind> &store_kinds()
{
    static std::vector<store_kind> kinds;
    return kinds;
}

store_registration::store_registration(const store_kind &kind)
{
    store_kinds().push_back(kind);
    std::ranges::sort(store_kinds(), {}, &store_kind::name);
}
