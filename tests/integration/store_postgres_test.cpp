// A service whose record index is on a PostgreSQL server that is not there, dies, or says nothing.
#include "tests/integration/store_service.h"

#include "platform/os/os.h"
#include "tests/silo/pg_proxy.h"
#include "tests/silo/pg_server.h"

#include <atomic>
#include <thread>

namespace {

// Long enough that a slow machine finishes a playback meanwhile.
constexpr const char *PATIENT = "connect_ms=20000&statement_ms=20000";
// Of the pool, and of a fresh process.
constexpr int IDLE_CONNECTIONS_MAX = 3;

class StorePostgres : public StoreServiceTest {
protected:
    void SetUp() override
    {
        std::string why;
        if (!pg_programs_are_there(&why))
            GTEST_SKIP() << why;
        ASSERT_TRUE(server_.start(settings()));
    }
    virtual std::vector<std::string> settings() const { return {}; }
    void fill(int count) { ASSERT_TRUE(index_fill_store(server_.uri(PATIENT), numbered_records(count))); }
    // Connections that died with the server are found out one by one.
    static int find_in_the_end(raw_search &search)
    {
        int session = 0;
        for (int tried = 0; session == 0 && tried <= IDLE_CONNECTIONS_MAX; tried++)
            session = find_answer(search);
        return session;
    }
    pg_server server_;
};

} // namespace

TEST_F(StorePostgres, AServerThatComesAfterTheServiceIsFoundWithoutARestart)
{
    fill(3);
    server_.kill_now();
    uint16_t port = pg_free_port();
    serve(server_.uri(), port);
    std::atomic<bool> served_early = false;
    std::thread client([&] {
        // Requests that come before the service is bound to its events get no answer.
        auto search = std::make_unique<raw_search>();
        for (int i = 0; i < 600 && !search->login(port); i++) {
            os_sleep(50);
            search = std::make_unique<raw_search>();
        }
        bool refused = find_answer(*search) == 0;
        std::string played = play_all({"127.0.0.1", port, 20'000}, "rec\\a.rec").bytes;
        served_early = refused && played == made.bytes() && service->out().empty();
    });
    EXPECT_TRUE(service->start());
    client.join();
    EXPECT_TRUE(served_early) << "it serves while it waits for its store\n" << service->log();
    EXPECT_EQ(said("silo_connect_fd failed, uri:" + server_.uri()), 11u) << "ten attempts and the search";
    EXPECT_EQ(said("takes connections that may write"), 11u);

    raw_search search;
    ASSERT_TRUE(search.login(service->port()));
    EXPECT_EQ(find_answer(search), 0);
    EXPECT_EQ(said("!opit->success"), 2u);
    expect_plays("without a store");
    ASSERT_TRUE(server_.restart());
    int session = find_answer(search);
    EXPECT_GT(session, 0);
    EXPECT_EQ(read_on(search, session, 10).names.size(), 3u);
}

TEST_F(StorePostgres, AnEmptyServerThatComesLaterServesOnceItsIndexIsMade)
{
    server_.kill_now();
    serve(server_.uri());
    ASSERT_TRUE(service->start());
    ASSERT_TRUE(server_.restart());
    raw_search search;
    ASSERT_TRUE(search.login(service->port()));
    EXPECT_EQ(find_answer(search), 0) << "there is no index yet";
    EXPECT_EQ(said("the index is not made yet"), 1u);
    fill(2);
    EXPECT_EQ(read_on(search, find_answer(search), 10).names.size(), 2u);
}

TEST_F(StorePostgres, AServerThatIsKilledEndsTheSearchAndNothingElse)
{
    fill(1000);
    serve(server_.uri(PATIENT));
    made_recording film = make_recording(service->folder().file("rec/long.rec"), package_plan(600));
    ASSERT_TRUE(service->start());
    raw_search search;
    ASSERT_TRUE(search.login(service->port()));
    int session = find_answer(search);
    ASSERT_EQ(names_in(search.next(session, 10)).size(), 10u);
    raw_session playing;
    ASSERT_EQ(playing.request(service->port(), "rec\\long.rec"), 10);
    ASSERT_TRUE(playing.get());
    std::string played;
    auto play_packages = [&](int count) {
        for (int i = 0; i < count; i++) {
            std::optional<data_package> data = playing.data();
            if (!data || data->is_end())
                return;
            played += data->bytes;
        }
    };
    play_packages(5);

    server_.kill_now();
    found_names rest = read_on(search, session, 10);
    EXPECT_EQ(rest.result, "end");
    EXPECT_LT(rest.names.size(), 900u);
    EXPECT_EQ(said("store: "), 1u) << service->log();
    EXPECT_EQ(said("the connection is given up; look at the server and the network"), 1u);
    EXPECT_EQ(search.next(session, 10).find("result=\"end\" count=\"0\"") != std::string::npos, true);
    EXPECT_EQ(find_answer(search), 0);
    search.close_search(session);
    expect_plays("without its store");
    play_packages(1000);
    EXPECT_EQ(played.size(), film.bytes().size() - film.header.size()) << "the one that had begun goes on";

    ASSERT_TRUE(server_.restart());
    session = find_in_the_end(search);
    EXPECT_GT(session, 0);
    EXPECT_EQ(read_on(search, session, 300).names.size(), 1000u);
}

TEST_F(StorePostgres, AServerThatFallsSilentHoldsUpSearchesAloneAndNotForEver)
{
    fill(1000);
    serve(server_.uri("connect_ms=10000&statement_ms=10000"));
    ASSERT_TRUE(service->start());
    raw_search reader, opener;
    ASSERT_TRUE(reader.login(service->port()) && opener.login(service->port()));
    int session = find_answer(reader);
    ASSERT_EQ(names_in(reader.next(session, 10)).size(), 10u);
    server_.stop_answering();
    reader.command(find_next_xml(session, 1000));
    opener.command(find_file_xml("recorder-1", -1, 0));
    expect_plays("while its store says nothing");
    EXPECT_EQ(reader.reply(1), "") << "the store was still waited for";

    std::string text = reader.reply(STORE_REPLY_MS);
    EXPECT_NE(text.find("result=\"end\""), std::string::npos) << text;
    EXPECT_LT(names_in(text).size(), 990u);
    EXPECT_NE(opener.reply(STORE_REPLY_MS).find("name=\"find_file\" result=\"error\""), std::string::npos);
    server_.go_on();
    session = find_in_the_end(opener);
    // What a command took is told behind its reply, and before the next command is answered.
    EXPECT_GE(said("the server did not answer for 10000 ms"), 1u);
    EXPECT_GE(said("the others had to wait"), 2u);
    EXPECT_EQ(read_on(opener, session, 300).names.size(), 1000u);
}

TEST_F(StorePostgres, AServiceStopsInOrderWhileItsStoreSaysNothing)
{
    fill(1000);
    serve(server_.uri(PATIENT));
    ASSERT_TRUE(service->start());
    raw_search search;
    ASSERT_TRUE(search.login(service->port()));
    int session = find_answer(search);
    server_.stop_answering();
    search.command(find_next_xml(session, 1000));
    EXPECT_EQ(search.reply(200), "");
    service->stop();
    server_.go_on();
}

TEST_F(StorePostgres, ASilentServerAtTheStartIsGivenUp)
{
    pg_silent_server silent;
    serve("127.0.0.1:" + std::to_string(silent.port()) + "?connect_ms=50");
    ASSERT_TRUE(service->start());
    // 50 ms, less what went by before.
    EXPECT_EQ(said(": no answer for "), 10u);
    raw_search search;
    ASSERT_TRUE(search.login(service->port()));
    EXPECT_EQ(find_answer(search), 0);
    expect_plays("without a store");
}

TEST_F(StorePostgres, FewSearchesAreOpenAndOneAddressHasHalfOfThemAtMost)
{
    fill(3);
    serve(server_.uri(PATIENT));
    ASSERT_TRUE(service->start());
    raw_search one, other;
    ASSERT_TRUE(one.login(service->port()) && other.login(service->port(), 0x8006, "127.0.0.2"));
    int ones = 0, others = 0;
    for (int i = 0; i < 40; i++)
        ones += find_answer(one) > 0;
    EXPECT_EQ(ones, 16);
    const int session = find_answer(other);
    EXPECT_EQ(read_on(other, session, 10).names.size(), 3u);
    for (int i = 0; i < 40; i++)
        others += find_answer(other) > 0;
    EXPECT_EQ(others, 15);
    EXPECT_EQ(pg_ask_server(server_.uri(), "SELECT count(*) FROM pg_stat_activity WHERE application_name = 'silo' AND "
                                           "state = 'idle in transaction'"),
              "32");
    EXPECT_GE(said("is refused: 16 of its address are open;"), 1u);
}

// ---- More searches than the server takes ----------------------------------------------------------------------------

namespace {

class StorePostgresSmall : public StorePostgres {
protected:
    std::vector<std::string> settings() const override
    {
        return {"max_connections=12", "superuser_reserved_connections=2"};
    }
};

} // namespace

TEST_F(StorePostgresSmall, ForgottenSearchesTakeItsConnectionsUntilTheyAreClosed)
{
    fill(3);
    pg_ask_server(server_.uri(), "CREATE ROLE recorder LOGIN; GRANT ALL ON ALL TABLES IN SCHEMA public TO recorder");
    serve("postgresql://recorder@127.0.0.1:" + std::to_string(server_.port()) + "/postgres?" + PATIENT);
    ASSERT_TRUE(service->start());
    raw_search search;
    ASSERT_TRUE(search.login(service->port()));
    std::vector<int> open;
    for (int i = 0; i < rounds(200); i++)
        if (int session = find_answer(search); session > 0)
            open.push_back(session);
    EXPECT_GE(open.size(), 5u);
    EXPECT_LE(open.size(), 10u);
    EXPECT_GE(said("have connections left (max_connections)") + said("has connections left (max_connections)"), 1u);
    // What an operator asks the server, as docs/operations.md says it.
    EXPECT_EQ(pg_ask_server(server_.uri(), "SELECT count(*) FROM pg_stat_activity WHERE application_name = 'silo' AND "
                                           "state = 'idle in transaction'"),
              std::to_string(open.size()));
    expect_plays("with its store's connections used up");
    EXPECT_EQ(read_on(search, open.front(), 10).names.size(), 3u);
    for (int session : open)
        search.close_search(session);
    EXPECT_GT(find_answer(search), 0);
}

// ---- No room --------------------------------------------------------------------------------------------------------

TEST_F(StorePostgres, AServerWithoutRoomRefusesTheWriterAndLosesNothing)
{
    fill(3);
    serve(server_.uri(PATIENT));
    ASSERT_TRUE(service->start());
    auto ask = [&](const std::string &sql) { EXPECT_EQ(pg_ask_server(server_.uri(), sql), "") << sql; };
    ask("CREATE FUNCTION no_room() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN RAISE EXCEPTION "
        "'could not extend file: No space left on device' USING ERRCODE = '53100'; END $$");
    ask("CREATE TRIGGER no_room BEFORE INSERT ON db_db FOR EACH ROW EXECUTE FUNCTION no_room()");
    indexed_record more = {.path = "rec\\more.rec", .begin = "2024-05-06 12:00:00"};
    EXPECT_FALSE(index_fill_store(server_.uri(PATIENT), {more}));
    raw_search search;
    ASSERT_TRUE(search.login(service->port()));
    EXPECT_EQ(read_on(search, find_answer(search), 10).names.size(), 3u) << "nothing more, nothing less";
    expect_plays("while its store has no room");
    ask("CREATE OR REPLACE FUNCTION no_room() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN RETURN NEW; END $$");
    EXPECT_TRUE(index_fill_store(server_.uri(PATIENT), {more}));
    EXPECT_EQ(read_on(search, find_answer(search), 10).names.size(), 4u);
}
