// The peer of the load benches: what any program on this machine would need for the same work and nothing more. As a
// sender it speaks just enough of the protocol for the same client to receive from it.
#include "bench/figure.h"
#include "platform/avfiltersdk/avfiltersdk.h"
#include "platform/ms/ms.h"
#include "platform/os/os_guard.h"

#include <CLI/CLI.hpp>
#include <asio.hpp>

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

using asio::ip::tcp;

static constexpr uint16_t PEER_MODULE = 131, CLIENT_MODULE = 200;

struct sender_plan {
    std::string file; // empty: the same bytes again and again
    uint32_t data_bytes = AVFILTER_PACKAGE_SIZE;
    uint64_t total_bytes = 0;
    uint32_t pause_ms = 0;
};

struct sender {
    const sender_plan *plan;
    tcp::socket socket;
    os_file_ptr file;
    uint64_t offset = 0;
    std::vector<uint8_t> data;
    uint8_t package[MP_MAX_PACKAGE_LEN];
};

static bool send_bytes(sender *to, const MpPackage &package)
{
    asio::error_code failed;
    asio::write(to->socket, asio::buffer(to->package, package.used), failed);
    return !failed;
}

static bool send_data(sender *to, size_t size)
{
    MpPackage package;
    return mp_build_package_send_res(to->package, sizeof to->package, CLIENT_MODULE, PEER_MODULE, to->data.data(),
                                     static_cast<uint32_t>(size), &package) &&
           send_bytes(to, package);
}

// Bytes that are now at the front of the buffer, 0 at the end.
static size_t next_data(sender *to)
{
    if (to->offset >= to->plan->total_bytes)
        return 0;
    size_t size = to->data.size();
    if (to->file != nullptr) {
        std::fill(to->data.begin(), to->data.end(), uint8_t{0});
        size =
            static_cast<size_t>(std::max<int64_t>(os_file_pread(to->file.get(), to->data.data(), size, to->offset), 0));
    }
    to->offset += size;
    return size;
}

// Takes one package of the client's, whatever it says.
static bool take_package(sender *from)
{
    asio::error_code failed;
    asio::read(from->socket, asio::buffer(from->package, sizeof(MpPackHead)), failed);
    int len = failed ? -1 : mp_frame_length(from->package, sizeof(MpPackHead));
    if (len < 0)
        return false;
    asio::read(from->socket, asio::buffer(from->package, static_cast<size_t>(len) - sizeof(MpPackHead)), failed);
    return !failed;
}

static bool accept_request(sender *to)
{
    static constexpr uint8_t head[4 + AVFILTER_FILE_HEAD_SIZE] = {};
    MpPackage package;
    return take_package(to) &&
           mp_build_package_accept_res(to->package, sizeof to->package, CLIENT_MODULE, PEER_MODULE, head, sizeof head,
                                       &package) &&
           send_bytes(to, package) && take_package(to);
}

static void open_file(sender *to)
{
    if (to->plan->file.empty())
        return;
    char name[1024];
    os_file *file = nullptr;
    bench_require(os_path_from_host(to->plan->file.c_str(), name, sizeof name) != 0 &&
                      os_file_open(name, OS_FILE_READ, &file) != 0,
                  "cannot open " + to->plan->file);
    to->file.reset(file);
}

static void serve(tcp::socket socket, const sender_plan *plan)
{
    auto to = std::make_unique<sender>(sender{plan, std::move(socket), nullptr, 0, {}, {}});
    to->data.assign(plan->data_bytes, 'x');
    open_file(to.get());
    if (!accept_request(to.get()))
        return;
    for (size_t size = 1; size != 0;) {
        size = next_data(to.get());
        if (plan->pause_ms != 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(plan->pause_ms));
        if (!send_data(to.get(), size))
            return;
    }
    // Until the client goes: its acknowledgements lie unread, and closing over them would cut off what was sent.
    while (take_package(to.get()))
        continue;
}

static void listen_and_serve(const sender_plan &plan)
{
    asio::io_context io;
    tcp::acceptor acceptor(io, tcp::endpoint(asio::ip::address_v4::loopback(), 0));
    std::printf("%u\n", acceptor.local_endpoint().port());
    std::fflush(stdout);
    for (;;) {
        tcp::socket socket = acceptor.accept();
        socket.set_option(tcp::no_delay(true));
        std::thread(serve, std::move(socket), &plan).detach();
    }
}

// Threads with nothing to do, waiting to be told or looking every `poll_ms`.
static void idle(int threads, int poll_ms)
{
    std::mutex mutex;
    std::condition_variable changed;
    auto wait = [&] {
        for (std::unique_lock held(mutex);;)
            if (poll_ms == 0)
                changed.wait(held);
            else
                changed.wait_for(held, std::chrono::milliseconds(poll_ms));
    };
    for (int i = 0; i < threads; i++)
        std::thread(wait).detach();
    std::printf("waiting\n");
    std::fflush(stdout);
    wait();
}

int main(int argc, char **argv)
{
    CLI::App app("What the load benches compare the service with; they start it");
    sender_plan plan;
    int threads = 0, poll_ms = 0;
    app.add_option("--file", plan.file, "Send this file instead of the same bytes");
    app.add_option("--package", plan.data_bytes, "Data bytes of a package")->check(CLI::Range(1, MP_MAX_DATA_LEN));
    app.add_option("--total", plan.total_bytes, "Bytes to send");
    app.add_option("--pause", plan.pause_ms, "Milliseconds before each package");
    app.add_option("--threads", threads, "Do not send: keep so many threads idle");
    app.add_option("--poll", poll_ms, "Milliseconds between looks of an idle thread; 0 waits");
    CLI11_PARSE(app, argc, argv);
    if (threads != 0)
        idle(threads, poll_ms);
    else
        listen_and_serve(plan);
    return 0;
}
