// A service over an index that the test has filled.
#pragma once

#include "tests/integration/service_fixture.h"
#include "tests/support/raw_client.h"

#include <string>
#include <vector>

struct indexed_record {
    std::string path, host = "recorder-1";
    uint32_t channel = 1, type = 1;
    std::string begin = "2024-05-06 10:00:00", end = "2024-05-06 10:10:00"; // empty: still being written
    uint64_t size = 1'000'000;
};

// Enters records into the index of a store, made ready where it is not yet, and lets go of it.
bool index_fill_store(const std::string &store, const std::vector<indexed_record> &records);
// Into the one below `folder` ("lmdb:<folder>").
bool index_fill(const std::string &folder, const std::vector<indexed_record> &records);

// A record-search link, byte by byte.
class raw_search {
public:
    bool login(uint16_t port, uint16_t kind = 0x8006, const std::string &own_address = "127.0.0.1");
    void command(const std::string &xml, uint32_t id = 9);
    // The next reply's text, put together from its pieces and without its zero; empty when none came.
    std::string reply(uint32_t ms = 5000);
    // The bytes of each piece of the last reply.
    const std::vector<size_t> &pieces() const { return pieces_; }
    std::string ask(const std::string &xml)
    {
        command(xml);
        return reply();
    }
    // Opens a search of the whole day 2024-05-06; its number, 0 when it could not be opened.
    int open(const std::string &host = "recorder-1", int channel = -1, int type = 0);
    std::string next(int session, long long count);
    void close_search(int session);
    void disconnect() { client_.close(); }
    raw_client &client() { return client_; }

private:
    raw_client client_;
    std::vector<size_t> pieces_;
};

std::string find_file_xml(const std::string &host, int channel, int type, const std::string &begin = "00:00:00",
                          const std::string &end = "23:59:59");
std::string find_next_xml(int session, long long count, const std::string &more = "");
// The names in a reply, in its order.
std::vector<std::string> names_in(const std::string &reply);

class FindTest : public ServiceTest {
protected:
    static service_settings settings();
    explicit FindTest(const service_settings &of = settings()) : ServiceTest(of) {}
    // Fills the index before the service starts.
    void SetUp() override;
    virtual std::vector<indexed_record> records() { return {}; }
};
