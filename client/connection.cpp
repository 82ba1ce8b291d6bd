#include "client/connection.h"

#include "client/incoming.h"

#include <map>
#include <mutex>
#include <new>

namespace {
// Which connections may be found by events. Guarded by its own mutex, inside which no other lock is taken; one that
// needs no making, as there is nobody to tell when that fails.
struct connection_directory {
    std::mutex mutex;
    uintptr_t last_number = 0;
    std::map<uintptr_t, std::weak_ptr<connection>> by_number;
};

struct directory_guard : std::lock_guard<std::mutex> {
    explicit directory_guard(connection_directory &of) : std::lock_guard<std::mutex>(of.mutex) {}
};
} // namespace

// Never destroyed: events may come while the process is on its way out.
static connection_directory &directory()
{
    static auto *s_directory = new connection_directory;
    return *s_directory;
}

static uintptr_t directory_enter(const std::shared_ptr<connection> &self)
{
    directory_guard held(directory());
    uintptr_t number = ++directory().last_number;
    directory().by_number[number] = self;
    return number;
}

static void directory_leave(uintptr_t number)
{
    directory_guard held(directory());
    directory().by_number.erase(number);
}

static std::shared_ptr<connection> directory_find(uintptr_t number)
{
    directory_guard held(directory());
    auto found = directory().by_number.find(number);
    return found == directory().by_number.end() ? nullptr : found->second.lock();
}

vodclient_result bad_reply(const char *what)
{
    return {VODCLIENT_BAD_REPLY, 0,
            std::string("the service sent something that makes no sense (") + what
                + "); check that host and port are those of the recording service"};
}

std::string server_name(const vodclient_server &server)
{
    bool is_bare_ipv6 = server.host.find(':') != std::string::npos && server.host.front() != '[';
    return (is_bare_ipv6 ? "[" + server.host + "]" : server.host) + ":" + std::to_string(server.port);
}

static void end_connection(connection &self, const connection_guard &, vodclient_result why)
{
    if (self.over)
        return;
    self.over = true;
    self.over_result = std::move(why);
    os_cond_broadcast(&self.changed);
}

static void take_answer(connection &self, const connection_guard &held, const MpPackage &package)
{
    // Only the first counts; a reject that follows an accept says that the link has failed over there.
    auto bytes = reinterpret_cast<const uint8_t *>(package.head);
    if (self.answer.empty())
        self.answer.assign(bytes, bytes + package.head->total_len);
    else if (uint32_t code = 0; package.head->code == MP_CODE_REJECT_RES && read_reject(package, &code))
        end_connection(self, held, {VODCLIENT_REFUSED, code, vodclient_error_text(code)});
}

static void take_reply(connection &self, const connection_guard &, const MpPackage &package)
{
    // Replies to commands whose callers gave up are never taken; more than a few of them serve nobody.
    static constexpr size_t REPLIES_MAX = 64;
    command_reply reply;
    command_piece piece;
    reply_pieces::result result = reply_pieces::PIECES_WRONG;
    if (read_command_return(package, &piece))
        result = self.pieces.add(piece, &reply.text);
    if (result == reply_pieces::PIECES_MORE)
        return;
    reply.readable = result == reply_pieces::PIECES_WHOLE;
    reply.session_id = piece.session_id;
    if (self.replies.size() == REPLIES_MAX)
        self.replies.pop_front();
    self.replies.push_back(std::move(reply));
}

static void take_data(connection &self, const connection_guard &held, const MpPackage &package)
{
    stream_package data;
    switch (stream_package_read(package, &data)) {
    case stream_read_result::read:
        if (!self.stream.push(std::move(data)))
            end_connection(self, held, bad_reply("far more data than was asked for"));
        break;
    case stream_read_result::ignored:
        self.stream.count_dropped(1);
        break;
    case stream_read_result::malformed:
        end_connection(self, held, bad_reply("a data package without data"));
        break;
    }
}

static void take_package(connection &self, const MpPackage &package)
{
    connection_guard held(self);
    if (self.over)
        return;
    switch (package.head->code) {
    case MP_CODE_ACCEPT_RES:
    case MP_CODE_REJECT_RES:
        take_answer(self, held, package);
        break;
    case MP_CODE_SEND_RES:
        take_data(self, held, package);
        break;
    case MP_CODE_RET_CMD_CHS:
        take_reply(self, held, package);
        break;
    default:
        return; // of no meaning to a client
    }
    os_cond_broadcast(&self.changed);
}

static void on_service_event(MsLink *link, int event, MpPackage *package)
{
    auto self = directory_find(reinterpret_cast<uintptr_t>(mslink_get_udata(link)));
    if (self == nullptr)
        return;
    try {
        if (event == MS_CLIENT_EV_READ && package != nullptr && package->head != nullptr)
            take_package(*self, *package);
        else if (event == MS_CLIENT_EV_DISCONNECT) {
            connection_guard held(*self);
            end_connection(*self, held, {VODCLIENT_LOST, 0, "the service has ended the connection"});
        }
    } catch (const std::bad_alloc &) {
        connection_guard held(*self);
        end_connection(*self, held, {VODCLIENT_NO_MEMORY, 0, "out of memory"});
    }
}

connection::connection()
{
    usable = os_mutex_init(&mutex, 0) && os_cond_init(&changed);
}

connection::~connection()
{
    if (usable)
        connection_close(*this);
    os_cond_destroy(&changed);
    os_mutex_destroy(&mutex);
}

static vodclient_result check_server(const vodclient_server &server)
{
    if (server.host.empty() || server.host.find('\0') != std::string::npos)
        return {VODCLIENT_BAD_ARGUMENT, 0, "the service's host name is missing"};
    if (server.port == 0)
        return {VODCLIENT_BAD_ARGUMENT, 0, "the service's port is missing"};
    return {};
}

// Takes the number of a record that was never connected; false when it was, or was closed already.
static bool claim(const std::shared_ptr<connection> &self, const vodclient_server &server)
{
    uintptr_t number = directory_enter(self);
    connection_guard held(*self);
    if (self->number != 0 || self->over) {
        directory_leave(number);
        return false;
    }
    self->number = number;
    self->server = server;
    return true;
}

// The address stands in front of it already.
static std::string connect_reason()
{
    std::string text = ms_connect_error();
    size_t reason = text.rfind("cannot connect to ", 0) == 0 ? text.find(": ") : std::string::npos;
    return reason == std::string::npos ? text : text.substr(reason + 2);
}

vodclient_result connection_open(const std::shared_ptr<connection> &self, const vodclient_server &server)
{
    if (vodclient_result result = check_server(server); !result)
        return result;
    if (!claim(self, server))
        return {VODCLIENT_WRONG_STATE, 0, "this object was opened before; make a new one"};

    MsLink *link = ms_connect(server.host.c_str(), server.port, server.timeout_ms, on_service_event,
                              reinterpret_cast<void *>(self->number));
    if (link == nullptr)
        return {VODCLIENT_CANNOT_CONNECT, 0,
                "cannot connect to " + server_name(server) + ": " + connect_reason()
                    + "; check that the service runs there and listens on this address"};
    {
        connection_guard held(*self);
        self->link = link;
        if (!self->over)
            return {};
    }
    // Closed by another thread, or already ended by the service.
    mslink_destroy(link);
    return self->over_result;
}

void connection_close(connection &self)
{
    MsLink *link = nullptr;
    uintptr_t number = 0;
    {
        connection_guard held(self);
        end_connection(self, held, {VODCLIENT_LOST, 0, "the connection was closed"});
        std::swap(link, self.link);
        number = self.number;
    }
    if (number != 0)
        directory_leave(number);
    if (link != nullptr)
        mslink_destroy(link);
}

// The link to send on, NULL and the reason when there is none.
static MsLink *link_of(connection &self, vodclient_result *result)
{
    connection_guard held(self);
    if (self.over)
        *result = self.over_result;
    else if (self.link == nullptr)
        *result = {VODCLIENT_WRONG_STATE, 0, "not connected; open first"};
    return self.over ? nullptr : self.link;
}

vodclient_result connection_send(connection &self, const outgoing_package &package)
{
    static constexpr uint32_t RETRY_MS = 50;
    vodclient_result result;
    uint64_t deadline = os_tick() + self.server.timeout_ms;
    for (MsLink *link; (link = link_of(self, &result)) != nullptr;) {
        if (ms_send_package(link, &package.package))
            return {};
        if (os_get_errno() != ORB_ERROR_TRY_AGAIN)
            return {VODCLIENT_LOST, 0, "the service has ended the connection"};
        if (os_tick() >= deadline)
            return {VODCLIENT_TIMEOUT, 0, "the service takes no packages; the network or the service may be stuck"};
        ms_wait_sendable(link, RETRY_MS);
    }
    return result;
}

static vodclient_result read_answer(std::vector<uint8_t> *answer)
{
    MpPackage package{};
    if (!mp_parse_package(answer->data(), answer->size(), &package))
        return bad_reply("an unreadable answer");
    if (package.head->code == MP_CODE_ACCEPT_RES)
        return {};
    uint32_t code = 0;
    if (!read_reject(package, &code))
        return bad_reply("a refusal without its reason");
    return {VODCLIENT_REFUSED, code, vodclient_error_text(code)};
}

vodclient_result connection_request(connection &self, const outgoing_package &request, std::vector<uint8_t> *accept)
{
    if (vodclient_result result = connection_send(self, request); !result)
        return result;
    connection_guard held(self);
    vodclient_result result = connection_wait(self, held, self.server.timeout_ms,
                                              [&](const connection_guard &) { return !self.answer.empty(); });
    if (result.status == VODCLIENT_TIMEOUT)
        result.text = server_name(self.server) + " did not answer the request within "
            + std::to_string(self.server.timeout_ms) + " ms; it may be overloaded: try again, or wait longer";
    if (!result)
        return result;
    *accept = self.answer;
    return read_answer(accept);
}

// Takes the reply with this session id; older ones belong to callers who gave up.
static bool take_reply_of(connection &self, uint32_t session_id, command_reply *reply)
{
    while (!self.replies.empty()) {
        *reply = std::move(self.replies.front());
        self.replies.pop_front();
        if (!reply->readable || reply->session_id == session_id)
            return true;
    }
    return false;
}

vodclient_result connection_command(connection &self, uint32_t session_id, std::string_view xml, std::string *reply)
{
    outgoing_package command;
    if (!build_command(&command, session_id, xml))
        return {VODCLIENT_BAD_ARGUMENT, 0, "the command is too long"};
    if (vodclient_result result = connection_send(self, command); !result)
        return result;

    command_reply answer;
    connection_guard held(self);
    vodclient_result result =
        connection_wait(self, held, self.server.timeout_ms,
                        [&](const connection_guard &) { return take_reply_of(self, session_id, &answer); });
    if (!result)
        return result;
    if (!answer.readable)
        return bad_reply("an unreadable reply to a command");
    *reply = std::move(answer.text);
    return {};
}
