#include "bench/find_session.h"

#include "bench/figure.h"
#include "platform/ms/ms.h"
#include "platform/os/os_guard.h"

#include <asio.hpp>

#include <thread>

using asio::ip::tcp;

static constexpr uint16_t REQUEST_SEARCH = 0x8006;
static constexpr uint32_t REPLY_MS = 60000;
static constexpr uint8_t ATTR_DATA = 7, ATTR_PIECE = 5;

find_session::find_session(uint16_t port)
{
    bench_require(client_.connect(port) && client_.send(raw_request(REQUEST_SEARCH, 0, {})) &&
                      !client_.receive_code(MP_CODE_ACCEPT_RES).empty() && client_.send(raw_get()) &&
                      !client_.receive_code(13).empty(),
                  "the service takes no searches");
}

// The reply's text, put together from its pieces.
std::string find_session::ask(const std::string &xml)
{
    std::string whole;
    bench_require(client_.send(raw_command(1, xml)), "cannot send");
    for (bool is_last = false; !is_last;) {
        std::vector<uint8_t> bytes = client_.receive_code(17, REPLY_MS);
        MpPackage package;
        uint32_t size = 0;
        bench_require(!bytes.empty() && mp_parse_package(bytes.data(), bytes.size(), &package), "no reply");
        const uint8_t *piece = mp_attr_value(&package, ATTR_PIECE, 16, nullptr);
        const uint8_t *data = mp_attr_value(&package, ATTR_DATA, 1, &size);
        bench_require(piece != nullptr && data != nullptr, "an empty reply");
        whole.append(data, data + size);
        is_last = wire_load<uint32_t>(piece + 8) + 1 == wire_load<uint32_t>(piece + 4);
    }
    return whole;
}

static std::string time_xml(const std::string &name, const char *time)
{
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    std::sscanf(time, "%d-%d-%d %d:%d:%d", &year, &month, &day, &hour, &minute, &second);
    auto field = [](const char *tag, int value) {
        return std::string("<") + tag + ">" + std::to_string(value) + "</" + tag + ">";
    };
    return "<" + name + ">" + field("year", year) + field("month", month) + field("day", day) + field("hour", hour) +
           field("minute", minute) + field("second", second) + "</" + name + ">";
}

static int count_of(const std::string &text, const std::string &what)
{
    int count = 0;
    for (size_t at = 0; (at = text.find(what, at)) != text.npos; at += what.size())
        count++;
    return count;
}

std::string find_session::open(const char *host, int channel, const bench_question &question)
{
    const std::string command = "<command name=\"find_file\"><ch>" + std::to_string(channel) +
                             "</ch><filetype>0</filetype>" + time_xml("start_time", question.from) +
                             time_xml("end_time", question.to) + "<host_id>" + host + "</host_id></command>";
    const std::string opened = ask(command);
    static const std::string tag = "<session_id>";
    size_t at = opened.find(tag);
    bench_require(opened.find("result=\"ok\"") != opened.npos && at != opened.npos, "no search");
    return "<session>" + std::to_string(std::atoi(opened.c_str() + at + tag.size())) + "</session>";
}

static std::string next_xml(const std::string &session, int count)
{
    return "<command name=\"find_next_file\">" + session + "<count>" + std::to_string(count) + "</count></command>";
}

double find_session::find(const char *host, int channel, const bench_question &question, int count)
{
    stopwatch watch;
    const std::string session = open(host, channel, question);
    const std::string found = ask(next_xml(session, count));
    double seconds = watch.seconds();
    records_ = count_of(found, "<file>");
    reply_bytes_ = found.size();
    client_.send(raw_command(1, "<command name=\"findfile_close\">" + session + "</command>"));
    return seconds;
}

void find_session::ask_without_reading(const char *host, int channel, const bench_question &question, int count,
                                       int times)
{
    const std::string session = open(host, channel, question);
    for (int i = 0; i < times; i++)
        bench_require(client_.send(raw_command(1, next_xml(session, count))), "cannot send");
}

// ---- The least it could cost ----------------------------------------------------------------------------------------

static constexpr size_t QUESTION_BYTES = 512, SHORT_REPLY_BYTES = 400;

static void answer(tcp::socket socket, size_t reply_bytes)
{
    std::vector<char> question(QUESTION_BYTES), reply(reply_bytes);
    asio::error_code failed;
    for (bool is_second = false; !failed; is_second = !is_second) {
        asio::read(socket, asio::buffer(question), failed);
        if (!failed)
            asio::write(socket, asio::buffer(reply, is_second ? reply_bytes : SHORT_REPLY_BYTES), failed);
    }
}

double echo_seconds(int runs, size_t reply_bytes)
{
    reply_bytes = std::max(reply_bytes, SHORT_REPLY_BYTES);
    asio::io_context io;
    tcp::acceptor acceptor(io, tcp::endpoint(asio::ip::address_v4::loopback(), 0));
    tcp::socket client(io);
    client.connect(acceptor.local_endpoint());
    tcp::socket accepted = acceptor.accept();
    for (tcp::socket *socket : {&client, &accepted})
        socket->set_option(tcp::no_delay(true));
    std::thread server(answer, std::move(accepted), reply_bytes);
    std::vector<char> question(QUESTION_BYTES), reply(reply_bytes);
    std::vector<double> seconds;
    for (int i = 0; i < runs; i++) {
        stopwatch watch;
        for (size_t size : {SHORT_REPLY_BYTES, reply_bytes}) {
            asio::write(client, asio::buffer(question));
            asio::read(client, asio::buffer(reply, size));
        }
        seconds.push_back(watch.seconds());
    }
    client.close();
    server.join();
    return median_of(seconds);
}
