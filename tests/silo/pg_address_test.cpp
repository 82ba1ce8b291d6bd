#include "platform/silo/pg_address.h"

#include "platform/silo/silo.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <rapidcheck.h>

static pg_address parsed(const std::string &uri)
{
    pg_address address;
    std::string reason;
    EXPECT_TRUE(pg_address_parse(uri, &address, &reason)) << uri << ": " << reason;
    return address;
}

static std::string refusal(const std::string &uri)
{
    pg_address address;
    std::string reason;
    EXPECT_FALSE(pg_address_parse(uri, &address, &reason)) << uri;
    EXPECT_FALSE(reason.empty()) << uri;
    return reason;
}

static std::string hosts(const pg_address &address)
{
    std::string text;
    for (const pg_host &host : address.hosts)
        text += "[" + host.host + "|" + host.hostaddr + "|" + host.port + "]";
    return text;
}

static std::string param(const pg_address &address, const std::string &name)
{
    for (const auto &[key, value] : address.params)
        if (key == name)
            return value;
    return "";
}

TEST(PgAddress, IsTakenByItsShape)
{
    for (const char *uri : {"postgresql://h/db", "postgres://h", "postgresql://", "127.0.0.1:12777", "a.b:1,c-d:65535",
                            "[::1]:5432", "h:5432/db", "h:5432?user=x"})
        EXPECT_TRUE(pg_address_is_ours(uri)) << uri;
    for (const char *uri : {"", "lmdb:/var/x", "lmdb:C:\\x", "lmdb:1", "h", "h:", ":5432", "h:x", "h:1,", "h:123456",
                            "http://h:1", "a:b:1", "C:\\5"})
        EXPECT_EQ(pg_address_is_ours(uri), std::string(uri) == "lmdb:1") << uri;
}

TEST(PgAddress, OfHostAndPortLeavesTheRestToLibpq)
{
    pg_address address = parsed("127.0.0.1:12777");
    EXPECT_EQ(hosts(address), "[127.0.0.1||12777]");
    EXPECT_TRUE(address.params.empty());
    EXPECT_EQ(address.connect_ms, 1000u);
    EXPECT_EQ(address.statement_ms, 900u);
}

TEST(PgAddress, MayNameSeveralHosts)
{
    EXPECT_EQ(hosts(parsed("a:1,b:2,[::1]:3")), "[a||1][b||2][::1||3]");
    EXPECT_EQ(hosts(parsed("postgresql://u:p@a,b:2/db")), "[a||][b||2]");
    EXPECT_EQ(hosts(parsed("postgresql:///db?host=a,b&port=7")), "[a||7][b||7]");
    EXPECT_EQ(hosts(parsed("postgresql:///db?hostaddr=1.2.3.4,5.6.7.8")), "[|1.2.3.4|][|5.6.7.8|]");
    EXPECT_EQ(hosts(parsed("postgresql:///db")), "[||]");
}

TEST(PgAddress, KeepsWhatLibpqKnows)
{
    pg_address address = parsed("postgresql://user:p%40ss@h:1/db?sslmode=require&options=-csearch_path%3Dx");
    EXPECT_EQ(param(address, "user"), "user");
    EXPECT_EQ(param(address, "password"), "p@ss");
    EXPECT_EQ(param(address, "dbname"), "db");
    EXPECT_EQ(param(address, "sslmode"), "require");
    EXPECT_EQ(param(address, "options"), "-csearch_path=x");
}

TEST(PgAddress, TakesItsOwnTimes)
{
    pg_address address = parsed("postgresql://u:a?b@h:1/db?connect_ms=50&user=x&statement_ms=60000");
    EXPECT_EQ(address.connect_ms, 50u);
    EXPECT_EQ(address.statement_ms, 60000u);
    EXPECT_EQ(param(address, "user"), "x");
    EXPECT_EQ(param(address, "password"), "a?b");
    EXPECT_EQ(parsed("h:1?statement_ms=100").statement_ms, 100u);
}

TEST(PgAddress, RefusesWrongTimes)
{
    for (const char *value : {"", "0", "49", "60001", "-1", "1e3", "900ms", "4294967346", "99999999999999999999"})
        for (const char *name : {"connect_ms", "statement_ms"})
            EXPECT_EQ(refusal(std::string("h:1?") + name + "=" + value),
                      std::string(name) + " must be 50 to 60000 milliseconds");
    EXPECT_EQ(refusal("h:1?connect_ms"), "connect_ms must be 50 to 60000 milliseconds");
}

TEST(PgAddress, RefusesWhatLibpqDoesNotUnderstand)
{
    EXPECT_NE(refusal("postgresql://h/db?no_such=1").find("no_such"), std::string::npos);
    refusal("postgresql://[::1/db");
    refusal("postgresql://h/%zz");
    EXPECT_EQ(refusal("postgresql:///db?host=a,b,c&port=1,2"),
              "it names another number of ports or host addresses than of hosts");
    EXPECT_EQ(refusal("postgresql:///db?host=a,b,c&hostaddr=1.1.1.1,2.2.2.2"),
              "it names another number of ports or host addresses than of hosts");
}

TEST(PgAddress, RefusalsDoNotQuotePasswords)
{
    EXPECT_EQ(refusal("postgresql://u:se%zzcret@h/db").find("cret"), std::string::npos);
    EXPECT_EQ(refusal("postgresql://u:se/cret@h:x/db?y=1").find("cret"), std::string::npos);
    EXPECT_EQ(refusal("postgresql://h/db?password=se%zzcret").find("cret"), std::string::npos);
}

TEST(PgAddress, AnyTextIsParsedOrRefused)
{
    EXPECT_TRUE(rc::check([](const std::string &text) {
        pg_address address;
        std::string reason;
        bool is_good = pg_address_parse(std::string((text + '\0').c_str()), &address, &reason);
        RC_ASSERT((is_good ? !address.hosts.empty() : !reason.empty()));
    }));
}

// ---- Addresses in logs ---------------------------------------------------------------------------------------------

static std::string printable(const std::string &uri)
{
    char out[1200];
    int length = silo_uri_printable(uri.c_str(), out, sizeof out);
    EXPECT_EQ(length, static_cast<int>(std::string(out).size()));
    return out;
}

TEST(UriPrintable, ShowsWhatHoldsNoPassword)
{
    for (const char *uri : {"lmdb:/var/lib/x@y:z?map_mb=1", "127.0.0.1:12777",
                            "postgresql://user@h:1,i:2/db?sslmode=require", "postgresql:///db?host=/run/x", ""})
        EXPECT_EQ(printable(uri), uri);
}

TEST(UriPrintable, HidesPasswords)
{
    EXPECT_EQ(printable("postgresql://user:secret@h:1/db"), "postgresql://user:***@h:1/db");
    EXPECT_EQ(printable("postgresql://user:se:cr@et@h:1/db"), "postgresql://user:***@h:1/db");
    EXPECT_EQ(printable("postgresql://user:s/e?c&ret@h:1/db"), "postgresql://user:***@h:1/db");
    EXPECT_EQ(printable("user:secret@h:1"), "user:***@h:1");
    EXPECT_EQ(printable("postgresql://h/db?user=x&password=secret&sslmode=require"),
              "postgresql://h/db?user=x&password=***&sslmode=require");
    EXPECT_EQ(printable("postgresql://h/db?sslpassword=secret"), "postgresql://h/db?sslpassword=***");
    EXPECT_EQ(printable("postgresql://h/db?pass%77ord=secret"), "postgresql://h/db?pass%77ord=***");
}

TEST(UriPrintable, IsCutToItsRoom)
{
    char out[8] = "xxxxxxx";
    EXPECT_EQ(silo_uri_printable("127.0.0.1:12777", out, sizeof out), 15);
    EXPECT_STREQ(out, "127.0.0");
    EXPECT_EQ(silo_uri_printable("127.0.0.1:12777", nullptr, 0), 15);
    EXPECT_EQ(silo_uri_printable(nullptr, out, sizeof out), 0);
    EXPECT_STREQ(out, "");
}

// Whatever the rest looks like: a password between user and host does not show.
TEST(UriPrintable, NeverShowsThePassword)
{
    EXPECT_TRUE(rc::check([](const std::string &noise) {
        std::string rest((noise + '\0').c_str());
        std::erase(rest, 'S');
        std::string shown = printable("postgresql://u:S1S" + rest + "S2S@h/db?a=b");
        RC_ASSERT(shown.find('S') == shown.npos);
    }));
}
