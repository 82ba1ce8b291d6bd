// The links that carry questions: the command login and the link-state request.
#include "client/command_text.h"
#include "client/connection.h"
#include "client/guarded.h"
#include "client/incoming.h"
#include "client/login.h"

struct login_state {
    connection link;
    LMutex commands{}; // held by the one command that waits for its reply
    bool usable = false;
    bool is_open = false; // written by open, before everything else
    uint32_t last_session_id = 0; // guarded by `commands`

    login_state() : usable(os_mutex_init(&commands, 0) && link.usable) {}
    ~login_state() { os_mutex_destroy(&commands); }
};

struct login_commands_guard : os_lock_guard {
    explicit login_commands_guard(login_state &state) : os_lock_guard(&state.commands) {}
};

vodclient_login::vodclient_login() noexcept : state_(make_state<login_state>())
{
}

vodclient_login::~vodclient_login()
{
    close();
}

void vodclient_login::close() noexcept
{
    if (state_ != nullptr)
        connection_close(state_->link);
}

// The login is complete when the service has answered the get with its one byte of data.
static vodclient_result complete_login(connection &link)
{
    outgoing_package get;
    build_get(&get, 0);
    if (vodclient_result result = connection_send(link, get); !result)
        return result;
    stream_package data;
    connection_guard held(link);
    return connection_wait(link, held, link.server.timeout_ms,
                           [&](const connection_guard &) { return link.stream.pop(&data); });
}

vodclient_result connection_login(connection &link, request_kind kind)
{
    static constexpr uint8_t s_no_text[] = {0};
    outgoing_package request;
    build_request(&request, kind, 0, s_no_text, 0, {});
    std::vector<uint8_t> accept;
    if (vodclient_result result = connection_request(link, request, &accept); !result)
        return result;
    return complete_login(link);
}

vodclient_result vodclient_login::open(const vodclient_server &server) noexcept
{
    return guarded(state_, [&](login_state &state) {
        if (vodclient_result result = connection_open({state_, &state.link}, server); !result)
            return result;
        vodclient_result result = connection_login(state.link, REQUEST_COMMAND_LOGIN);
        if (result)
            state.is_open = true;
        else
            connection_close(state.link);
        return result;
    });
}

vodclient_result vodclient_login::link_num(int kind, int32_t *count) noexcept
{
    return guarded(state_, [&](login_state &state) -> vodclient_result {
        if (!state.is_open)
            return {VODCLIENT_WRONG_STATE, 0, "not logged in; open first"};
        login_commands_guard alone(state);
        std::string text, xml = command_text_build("get_vod_link_num", {{"type", kind}});
        if (vodclient_result result = connection_command(state.link, ++state.last_session_id, xml, &text); !result)
            return result;
        command_return answer;
        if (!command_return_read(text, "get_vod_link_num", "link_num", &answer))
            return bad_reply("an unreadable number of links");
        if (!answer.ok)
            return {VODCLIENT_REFUSED, 0, "the service does not tell the number of links"};
        *count = answer.value;
        return {};
    });
}

static vodclient_result request_state(connection &link, const std::string &name, std::string *text)
{
    std::vector<uint8_t> param(name.begin(), name.end());
    param.push_back(0);
    outgoing_package request;
    if (!build_request(&request, REQUEST_LINK_STATE, 0, param, 0, {}))
        return {VODCLIENT_BAD_ARGUMENT, 0, "the file name is too long"};
    std::vector<uint8_t> accept, data;
    if (vodclient_result result = connection_request(link, request, &accept); !result)
        return result;
    MpPackage answer{};
    if (!mp_parse_package(accept.data(), accept.size(), &answer) || !read_accept_data(answer, &data))
        return bad_reply("an unreadable link state");
    *text = text_of(data);
    return {};
}

vodclient_result vodclient_link_state(const vodclient_server &server, const std::string &name,
                                      std::string *text) noexcept
{
    auto link = make_state<connection>();
    return guarded(link, [&](connection &of) -> vodclient_result {
        if (name.empty() || name.find('\0') != std::string::npos)
            return {VODCLIENT_BAD_ARGUMENT, 0, "the name of the state file is missing"};
        if (vodclient_result result = connection_open(link, server); !result)
            return result;
        vodclient_result result = request_state(of, name, text);
        connection_close(of);
        return result;
    });
}
