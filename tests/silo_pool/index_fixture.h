// An index in the fake store, and what a search of it finds.
#pragma once

#include "silo_pool/silo_orb.h"
#include "silo_pool/silo_owners.h"
#include "silo_pool/silo_record.h"
#include "tests/silo_pool/pool_fixture.h"

#include <algorithm>
#include <cstdlib>

struct made_record {
    uint64_t id = 1;
    std::string path = "D:\\a.orb", host = "dev1", bt = "2024-01-01 00:00:00", et = "2024-01-01 00:10:00";
    int ch = 1;
    unsigned rt = 1;
    uint64_t size = 1000000, revision = 2;
};

inline void add_made(fake_content *index, const made_record &record)
{
    fake_content &content = *index;
    std::string id = std::to_string(record.id), f = "f." + id + ".";
    content["p." + record.path] = id;
    content["bt." + record.bt + "." + id] = id;
    content["r." + id] = std::to_string(record.revision);
    content[f + "path"] = record.path;
    content[f + "bt"] = record.bt;
    content[f + "et"] = record.et;
    content[f + "host"] = record.host;
    content[f + "ch"] = std::to_string(record.ch);
    content[f + "rt"] = std::to_string(record.rt);
    content[f + "size"] = std::to_string(record.size);
    content["ino"] = std::to_string(std::max<uint64_t>(record.id, std::strtoull(content["ino"].c_str(), nullptr, 10)));
}

inline void put_all(const std::vector<made_record> &records)
{
    fake_content content = fake_silo_content();
    for (const made_record &record : records)
        add_made(&content, record);
    fake_silo_set_content(content);
}

inline void put_made(const made_record &record)
{
    put_all({record});
}

struct search_ender {
    void operator()(silo_orb_iterator *it) const { silo_orb_iterator_destroy(it); }
};
using search_ptr = std::unique_ptr<silo_orb_iterator, search_ender>;

class IndexTest : public PoolTest {
protected:
    IndexTest() { fake_silo_set_content({{"rev.hi", "2"}, {"rev.lo", "1"}, {"ino", "0"}}); }

    static search_ptr open(const char *host = nullptr, int ch = -1, int type = 0,
                           const char *from = "2000-01-01 00:00:00", const char *to = "2099-01-01 00:00:00")
    {
        return search_ptr(silo_orb_iterator_init(host, ch, type, from, to));
    }
    static std::vector<uint64_t> rest(silo_orb_iterator *it)
    {
        std::vector<uint64_t> ids;
        while (silo_orb_iterator_next(it) == 0)
            ids.push_back(it->current.ino);
        return ids;
    }
    template <class... A> static std::vector<uint64_t> found(A... wish)
    {
        search_ptr it = open(wish...);
        return it == nullptr ? std::vector<uint64_t>{~uint64_t{0}} : rest(it.get());
    }
};
using ids = std::vector<uint64_t>;
using words = std::vector<std::string>;
