// What tests start as another process that uses the same store: the first word says what it does, the second names the
// store.
#include "platform/os/os.h"
#include "tests/silo/silo_handles.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

static int say(const char *text)
{
    std::printf("%s\n", text);
    std::fflush(stdout);
    return 0;
}

// Writes one pair.
static int put_one(const silo_ptr &db, char **words)
{
    return write_all(db, {{words[0], words[1]}}) == 0 ? 0 : 2;
}

// Says the value.
static int get_one(const silo_ptr &db, char **words)
{
    return say(get(reading(db), words[0]).c_str());
}

// Adds one to a number, as often as the second word says.
static int count_up(const silo_ptr &db, char **words)
{
    for (int i = std::atoi(words[1]); i > 0; i--) {
        trans_ptr trans = writing(db);
        int next = std::atoi(get(trans, words[0]).c_str()) + 1;
        if (put(trans, words[0], std::to_string(next)) != 0 || silo_commit(trans.get()) != 0)
            return 2;
    }
    return 0;
}

static int stay()
{
    say("held");
    for (;;)
        os_sleep(1000);
}

// Holds a transaction until it is ended by force; a writing one has written something.
static int hold(const silo_ptr &db, char **words)
{
    bool is_write = std::strcmp(words[0], "write") == 0;
    trans_ptr trans = is_write ? writing(db) : reading(db);
    if (trans == nullptr || (is_write && put(trans, "held", words[1]) != 0))
        return 2;
    return stay();
}

// Holds many reading transactions.
static int hold_many(const silo_ptr &, char **words)
{
    std::vector<silo_ptr> handles;
    std::vector<trans_ptr> readers;
    for (int i = std::atoi(words[1]); i > 0; i--) {
        handles.push_back(silo_opened(words[0]));
        readers.push_back(reading(handles.back()));
        if (readers.back() == nullptr)
            return 2;
    }
    return stay();
}

// Holds the writer's turn for some milliseconds, then writes a pair.
static int write_slowly(const silo_ptr &db, char **words)
{
    trans_ptr trans = writing(db);
    say("held");
    os_sleep(static_cast<uint32_t>(std::atoi(words[0])));
    return put(trans, "slow", words[1]) == 0 && silo_commit(trans.get()) == 0 ? 0 : 2;
}

// Writes as many values of 1000 bytes.
static int fill(const silo_ptr &db, char **words)
{
    for (int i = std::atoi(words[1]); i > 0; i--)
        if (write_all(db, {{words[0] + std::to_string(i), std::string(1000, 'x')}}) != 0)
            return 2;
    return 0;
}

int main(int argc, char **argv)
{
    static constexpr struct {
        const char *name;
        int (*run)(const silo_ptr &db, char **words);
    } deeds[] = {
        {"put", put_one},         {"get", get_one},      {"count", count_up}, {"hold", hold},
        {"hold_many", hold_many}, {"slow", write_slowly}, {"fill", fill},
    };
    argv = os_program_start(argc, argv);
    if (argc != 5)
        return 64;
    silo_ptr db = silo_opened(argv[2]);
    if (db == nullptr)
        return 1;
    for (const auto &deed : deeds)
        if (std::strcmp(deed.name, argv[1]) == 0)
            return deed.run(db, argv + 3);
    return 64;
}
