// Bytes that no client should send: that connection bears it alone.
#include "tests/integration/bad_input_fixture.h"

#include "platform/ms/ms.h"
#include "platform/os/os.h"

#include <algorithm>
#include <random>

static std::vector<uint8_t> with_bytes(std::vector<uint8_t> bytes, size_t at, const std::vector<uint8_t> &other)
{
    std::copy(other.begin(), other.end(), bytes.begin() + static_cast<ptrdiff_t>(at));
    return bytes;
}

static constexpr size_t TOTAL_LEN_AT = offsetof(MpPackHead, total_len), CODE_AT = offsetof(MpPackHead, code),
                        MODULE_AT = offsetof(MpPackHead, module_des), FIRST_ATTR_LEN_AT = sizeof(MpPackHead) + 2;

// ---- Packages that cannot be cut or parsed --------------------------------------------------------------------------

TEST_F(BadInputTest, PackagesThatDoNotParseEndTheirConnection)
{
    const std::vector<uint8_t> request = play_request("rec/even.rec"), get = raw_get();
    const auto size = static_cast<uint16_t>(request.size());
    struct row {
        const char *what;
        std::vector<uint8_t> bytes;
    };
    const row rows[] = {
        {"wrong flag", with_bytes(request, 0, raw_u32(0x12345678))},
        {"text of another protocol", raw_text("GET / HTTP/1.1\r\nHost: recorder\r\n\r\n")},
        {"length 0", with_bytes(request, TOTAL_LEN_AT, raw_u16(0))},
        {"length 11", with_bytes(request, TOTAL_LEN_AT, raw_u16(11))},
        {"length of the head in front of attributes", with_bytes(request, TOTAL_LEN_AT, raw_u16(12))},
        {"one byte less", with_bytes(request, TOTAL_LEN_AT, raw_u16(static_cast<uint16_t>(size - 1)))},
        {"one byte more", raw_join({with_bytes(request, TOTAL_LEN_AT, raw_u16(static_cast<uint16_t>(size + 1))), {0}})},
        {"attribute of length 0", with_bytes(request, FIRST_ATTR_LEN_AT, raw_u16(0))},
        {"attribute of length 3", with_bytes(request, FIRST_ATTR_LEN_AT, raw_u16(3))},
        {"attribute past the end", with_bytes(request, FIRST_ATTR_LEN_AT, raw_u16(60'000))},
        {"attribute one byte past the end", with_bytes(get, FIRST_ATTR_LEN_AT, raw_u16(9))},
        {"rest behind the last attribute", with_bytes(get, FIRST_ATTR_LEN_AT, raw_u16(6))},
        {"21 attributes", raw_package(9, std::vector<raw_attr>(21, {1, {}}))},
    };
    for (const row &of : rows) {
        raw_client client;
        ASSERT_TRUE(client.connect(service.port()));
        client.send(of.bytes);
        EXPECT_TRUE(client.is_closed_within(5000)) << of.what;
        raw_session session;
        open_session(&session);
        session.send(of.bytes);
        EXPECT_TRUE(session.client().is_closed_within(5000)) << of.what << ", with a session";
    }
}

TEST_F(BadInputTest, PackagesCutAtEveryByteWaitForTheRest)
{
    const std::vector<uint8_t> request = play_request("rec/even.rec");
    for (size_t cut = 0; cut < request.size(); cut += static_cast<size_t>(4 / rounds(4))) {
        raw_client client;
        ASSERT_TRUE(client.connect(service.port()));
        client.send({request.data(), cut});
        if (cut % 8 != 0)
            continue; // and it is gone
        EXPECT_TRUE(client.receive(1).empty());
        client.send({request.data() + cut, request.size() - cut});
        EXPECT_FALSE(client.receive_code(10).empty()) << cut;
    }
}

// ---- Packages that parse and make no sense --------------------------------------------------------------------------

static std::vector<uint8_t> request_with(const std::vector<uint8_t> &resource)
{
    std::vector<raw_attr> attrs = raw_request_attrs(0x8001, 0, {});
    attrs[5].value = resource;
    return raw_package(9, attrs);
}

TEST_F(BadInputTest, SenselessPackagesAreDroppedAndTheConnectionGoesOn)
{
    const std::vector<uint8_t> request = play_request("rec/even.rec");
    std::vector<raw_attr> attrs = raw_request_attrs(0x8001, 0, {});
    struct row {
        const char *what;
        std::vector<uint8_t> bytes;
    };
    const row rows[] = {
        {"for a module that nobody serves", with_bytes(request, MODULE_AT, {7})},
        {"code 0", with_bytes(request, CODE_AT, {0})},
        {"code 99", with_bytes(request, CODE_AT, {99})},
        {"an accept", with_bytes(request, CODE_AT, {10})},
        {"data", with_bytes(request, CODE_AT, {13})},
        {"acknowledged", with_bytes(request, CODE_AT, {16})},
        {"push without a link", with_bytes(request, CODE_AT, {19})},
        {"get without a link", raw_get()},
        {"stop without a link", raw_stop()},
        {"command without a link", raw_command(1, control_xml(12, 50))},
        {"no attributes", raw_package(9, {})},
        {"too few attributes", raw_package(9, {attrs.begin(), attrs.begin() + 5})},
        {"20 empty attributes", raw_package(9, std::vector<raw_attr>(20, {3, {}}))},
        {"no request kind", request_with({})},
        {"half a request kind", request_with({1})},
        {"unknown kind", request_with(raw_join({raw_u16(0x7777), raw_u16(0)}))},
        {"no file block", request_with(raw_join({raw_u16(0x8001), raw_u16(0)}))},
        {"cut file block", request_with(raw_join({raw_u16(0x8001), raw_u16(0), std::vector<uint8_t>(39)}))},
    };
    raw_client client;
    ASSERT_TRUE(client.connect(service.port()));
    for (const row &of : rows) {
        client.send(of.bytes);
        EXPECT_TRUE(client.receive(30).empty()) << of.what;
    }
    client.send(request);
    EXPECT_FALSE(client.receive_code(10).empty());
}

TEST_F(BadInputTest, NamesAreBoundedByTheirAttributeAndByTheirLength)
{
    // Without a zero: up to the attribute's end.
    raw_client client;
    ASSERT_TRUE(client.connect(service.port()));
    std::string name = "rec/even.rec";
    client.send(
        request_with(raw_join({raw_u16(0x8001), raw_u16(0), std::vector<uint8_t>(40), {name.begin(), name.end()}})));
    EXPECT_FALSE(client.receive_code(10).empty());
    for (auto [length, code] :
         {std::pair{259, 0x1000028u}, {260, 0x1000027u}, {5000, 0x1000027u}, {60'000, 0x1000027u}}) {
        raw_session session;
        EXPECT_EQ(session.request(service.port(), std::string(static_cast<size_t>(length), 'x')), 11) << length;
        EXPECT_EQ(session.reject_code(), code) << length;
    }
}

TEST_F(BadInputTest, ASecondRequestOnOneConnectionIsLeftWithoutAnAnswer)
{
    raw_session session;
    open_session(&session);
    for (uint16_t kind : {uint16_t{0x0001}, uint16_t{0x8001}, uint16_t{0x8003}, uint16_t{0x8012}})
        session.send(raw_request(kind, 0, raw_join({std::vector<uint8_t>(40), raw_text("rec/even.rec")})));
    session.send(play_request("rec/none.rec"));
    EXPECT_TRUE(session.client().receive(200).empty());
    EXPECT_EQ(link_counters(service.server()).at(VODCLIENT_LINKS_PLAYBACK), 2); // and the one elsewhere
}

// ---- Anything -------------------------------------------------------------------------------------------------------

static std::vector<uint8_t> mutated(std::vector<uint8_t> bytes, std::minstd_rand &random)
{
    // Framing mostly stays as it is, so that the bytes get as far as the sessions.
    size_t kept = random() % 4 == 0 ? 0 : sizeof(MpPackHead);
    for (size_t change = random() % 6; change > 0; change--)
        bytes[kept + random() % (bytes.size() - kept)] = static_cast<uint8_t>(random());
    return bytes;
}

TEST_F(BadInputTest, RandomChangesInWholeSessionsHarmNobodyElse)
{
    std::minstd_rand random(20260301);
    for (int i = 0; i < rounds(300); i++) {
        const uint16_t kinds[] = {0x0001, 0x8001, 0x8001, 0x8003, 0x8006, 0x8012};
        std::vector<std::vector<uint8_t>> packages{
            raw_request(kinds[random() % std::size(kinds)], 0,
                        raw_join({std::vector<uint8_t>(40), raw_text("rec/even.rec")})),
            raw_get(),
            raw_command(1, control_xml(static_cast<int>(random() % 40), static_cast<int>(random() % 100))),
            raw_get(3),
            raw_stop(),
            raw_command(1, STOP_PLAYBACK_XML)};
        raw_client client;
        ASSERT_TRUE(client.connect(service.port()));
        for (const std::vector<uint8_t> &package : packages)
            client.send(mutated(package, random));
        if (random() % 4 == 0)
            client.receive(5);
    }
    EXPECT_TRUE(service.is_running());
}

TEST_F(BadInputTest, NoiseIsCutOffAtOnce)
{
    std::minstd_rand random(1);
    for (int i = 0; i < rounds(100); i++) {
        std::vector<uint8_t> noise(1 + random() % 20'000);
        std::generate(noise.begin(), noise.end(), [&random] { return static_cast<uint8_t>(random()); });
        raw_client client;
        ASSERT_TRUE(client.connect(service.port()));
        client.send(noise);
        if (noise.size() >= sizeof(MpPackHead)) {
            EXPECT_TRUE(client.is_closed_within(5000));
        }
    }
}
