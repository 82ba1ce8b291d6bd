#include "tests/integration/find_fixture.h"

#include "platform/ms/ms.h"
#include "platform/os/os_guard.h"
#include "silo_pool/silo_orb.h"
#include "silo_pool/silo_owners.h"

#include <cstdio>

static bool put_all(const std::vector<indexed_record> &records)
{
    silo_connection_ptr conn(silo_pool_get_connection());
    if (conn == nullptr)
        return false;
    silo_transaction_ptr trans(silo_begin_transaction(conn->db, SILO_WRITE));
    for (const indexed_record &of : records) {
        silo_record_values values = {};
        values.path = of.path;
        values.bt = of.begin;
        values.host = of.host;
        values.ch = of.channel;
        values.et = of.end;
        values.size = of.size;
        values.rt = of.type;
        values.left_out = SILO_HAS_MD5 | SILO_HAS_LOCK_TIME;
        if (of.end.empty())
            values.left_out |= SILO_HAS_ET;
        uint64_t id = 0;
        if (trans == nullptr || silo_record_put(trans.get(), values, "", &id) != SILO_PUT_NEW)
            return false;
    }
    return silo_commit(trans.get()) == 0;
}

bool index_fill_store(const std::string &store, const std::vector<indexed_record> &records)
{
    silo_pool_set_db_uri(store.c_str());
    bool is_filled = silo_orb_initialize() == 0 && put_all(records);
    silo_pool_close();
    return is_filled;
}

bool index_fill(const std::string &folder, const std::vector<indexed_record> &records)
{
    return index_fill_store("lmdb:" + folder, records);
}

bool raw_search::login(uint16_t port, uint16_t kind, const std::string &own_address)
{
    if (!client_.connect(port, own_address) || !client_.send(raw_request(kind, 0, {})) || client_.receive_code(10).empty())
        return false;
    return client_.send(raw_get()) && !client_.receive_code(13).empty();
}

void raw_search::command(const std::string &xml, uint32_t id)
{
    client_.send(raw_command(id, xml));
}

std::string raw_search::reply(uint32_t ms)
{
    std::string whole;
    pieces_.clear();
    for (;;) {
        std::vector<uint8_t> bytes = client_.receive_code(17, ms);
        MpPackage package;
        uint32_t size = 0;
        if (bytes.empty() || !mp_parse_package(bytes.data(), bytes.size(), &package))
            return {};
        const uint8_t *info = mp_attr_value(&package, 5, 16, nullptr), *data = mp_attr_value(&package, 7, 1, &size);
        if (info == nullptr || data == nullptr)
            return {};
        whole.append(data, data + size);
        pieces_.push_back(size);
        if (wire_load<uint32_t>(info + 8) + 1 == wire_load<uint32_t>(info + 4))
            break;
    }
    if (!whole.empty() && whole.back() == '\0')
        whole.pop_back();
    return whole;
}

int raw_search::open(const std::string &host, int channel, int type)
{
    std::string text = ask(find_file_xml(host, channel, type));
    int session = 0;
    size_t at = text.find("<session_id>");
    if (text.find("result=\"ok\"") != std::string::npos && at != std::string::npos)
        session = std::atoi(text.c_str() + at + 12);
    return session;
}

std::string raw_search::next(int session, long long count)
{
    return ask(find_next_xml(session, count));
}

void raw_search::close_search(int session)
{
    command("<command name=\"findfile_close\"><session>" + std::to_string(session) + "</session></command>");
}

static std::string time_xml(const char *name, const std::string &time)
{
    return std::string("<") + name + "><year>2024</year><month>5</month><day>6</day><hour>" + time.substr(0, 2) +
           "</hour><minute>" + time.substr(3, 2) + "</minute><second>" + time.substr(6, 2) + "</second></" + name + ">";
}

std::string find_file_xml(const std::string &host, int channel, int type, const std::string &begin,
                          const std::string &end)
{
    return "<?xml version=\"1.0\"?>\n<command name=\"find_file\">\n<ch>" + std::to_string(channel) + "</ch><filetype>" +
           std::to_string(type) + "</filetype>" + time_xml("start_time", begin) + time_xml("end_time", end) +
           "<host_id>" + host + "</host_id></command>";
}

std::string find_next_xml(int session, long long count, const std::string &more)
{
    return "<command name=\"find_next_file\"><session>" + std::to_string(session) + "</session><count>" +
           std::to_string(count) + "</count>" + more + "</command>";
}

std::vector<std::string> names_in(const std::string &reply)
{
    std::vector<std::string> names;
    static const std::string open = "<filename>", close = "</filename>";
    for (size_t at = 0; (at = reply.find(open, at)) != std::string::npos;) {
        at += open.size();
        names.push_back(reply.substr(at, reply.find(close, at) - at));
    }
    return names;
}

service_settings FindTest::settings()
{
    service_settings made;
    made.svr_config = R"({"fs_charset": "UTF-8", "store": "lmdb:index", "log": {"level": 2, "stderr": 1}})";
    return made;
}

void FindTest::SetUp()
{
    ASSERT_TRUE(index_fill("index", records()));
    ServiceTest::SetUp();
}
