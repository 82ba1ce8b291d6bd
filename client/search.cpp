// One search of the record index.
#include "client/command_text.h"
#include "client/guarded.h"
#include "client/login.h"
#include "client/search_text.h"

struct search_state {
    connection link;
    LMutex commands{}; // held by the one command that waits for its reply
    bool usable = false;

    uint32_t last_session_id = 0; // of commands; guarded by `commands`
    int32_t session = 0;          // of the search, 0 while none is open; guarded by link.mutex

    search_state() : usable(os_mutex_init(&commands, 0) && link.usable) {}
    ~search_state() { os_mutex_destroy(&commands); }
};

struct search_commands_guard : os_lock_guard {
    explicit search_commands_guard(search_state &state) : os_lock_guard(&state.commands) {}
};

static int32_t session_of(search_state &state)
{
    connection_guard held(state.link);
    return state.session;
}

// The service keeps a search for minutes, a place that others may need. It does not answer this.
static void end_session(search_state &state)
{
    int32_t session = 0;
    {
        connection_guard held(state.link);
        std::swap(session, state.session);
    }
    outgoing_package command;
    if (session != 0 && build_command(&command, 0, command_text_build("findfile_close", {{"session", session}})))
        connection_send(state.link, command);
}

vodclient_search::vodclient_search() noexcept : state_(make_state<search_state>()) {}

vodclient_search::~vodclient_search()
{
    close();
}

void vodclient_search::close() noexcept
{
    guarded(state_, [](search_state &state) -> vodclient_result {
        end_session(state);
        return {};
    });
    if (state_ != nullptr)
        connection_close(state_->link);
}

static vodclient_result check_request(const vodclient_find_request &request)
{
    if (request.host_id.size() > VODCLIENT_HOST_ID_MAX || request.host_id.find('\0') != std::string::npos)
        return {VODCLIENT_BAD_ARGUMENT, 0, "the device id is longer than 59 bytes, or has a zero byte in it"};
    return {};
}

static vodclient_result open_session(search_state &state, const vodclient_find_request &request)
{
    search_commands_guard alone(state);
    std::string text;
    if (vodclient_result result =
            connection_command(state.link, ++state.last_session_id, find_file_text(request), &text);
        !result)
        return result;
    int32_t session = 0;
    if (!find_file_read(text, &session))
        return bad_reply("an unreadable reply to a search");
    if (session == 0)
        return {VODCLIENT_REFUSED, 0,
                "the service cannot search: its record index is out of reach, or too many searches are open; its log "
                "says which"};
    connection_guard held(state.link);
    state.session = session;
    return {};
}

vodclient_result vodclient_search::open(const vodclient_server &server, const vodclient_find_request &request) noexcept
{
    return guarded(state_, [&](search_state &state) {
        if (vodclient_result result = check_request(request); !result)
            return result;
        if (vodclient_result result = connection_open({state_, &state.link}, server); !result)
            return result;
        vodclient_result result = connection_login(state.link, REQUEST_SEARCH_LOGIN);
        if (result)
            result = open_session(state, request);
        if (!result)
            connection_close(state.link);
        return result;
    });
}

static std::string find_next_text(int32_t session, int32_t count, bool complete_open_files)
{
    std::vector<command_field> fields = {{"session", session}, {"count", count}};
    if (complete_open_files)
        fields.emplace_back("get_recording_file_attr", 1);
    return command_text_build("find_next_file", fields);
}

vodclient_result vodclient_search::next(int32_t count, bool complete_open_files, std::vector<vodclient_record> *records,
                                        bool *is_over) noexcept
{
    return guarded(state_, [&](search_state &state) -> vodclient_result {
        if (count < 1 || count > VODCLIENT_PAGE_MAX)
            return {VODCLIENT_BAD_ARGUMENT, 0, "a page has 1 to 10000 records"};
        search_commands_guard alone(state);
        int32_t session = session_of(state);
        if (session == 0)
            return {VODCLIENT_WRONG_STATE, 0, "no search is open; open one first"};
        std::string text, xml = find_next_text(session, count, complete_open_files);
        if (vodclient_result result = connection_command(state.link, ++state.last_session_id, xml, &text); !result)
            return result;
        find_next_return page;
        if (!find_next_read(text, static_cast<uint32_t>(count), {}, &page))
            return bad_reply("an unreadable list of recordings");
        *records = std::move(page.records);
        *is_over = page.is_over;
        return {};
    });
}

int32_t vodclient_search::session() const noexcept
{
    return state_ == nullptr ? 0 : session_of(*state_);
}
