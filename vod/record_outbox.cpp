#include "vod/record_outbox.h"

#include "vod/record_pressure.h"
#include "vod/reply.h"

#include <algorithm>
#include <list>
#include <new>
#include <set>
#include <utility>

static constexpr int TRY_AGIAN_NUM = 30;
static constexpr uint32_t TRY_AGAIN_MS = 10;
// Of a piece's package, all but the text.
static constexpr size_t PIECE_HEAD_BYTES = 512;

namespace {
struct waiting_reply {
    VodAsynRecUdata udata;
    std::string text;
    const record_reply_kind *kind;
    int tries_max;
    uint32_t piece = 0; // the next one to go out
    int tries = 0;      // of that piece, in vain
    uint64_t due_tick = 0;
};

struct outbox {
    std::list<waiting_reply> waiting;
    // Connections that did not take a reply in all its tries, and have not sent everything yet.
    std::set<MsLink *> stuck;
};
} // namespace

// A plain pointer, emptied by record_outbox_clear: not every host destroys the objects of a thread before it takes their
// storage away.
static thread_local outbox *s_outbox;

// May run out of memory.
static outbox &own_outbox()
{
    if (s_outbox == nullptr)
        s_outbox = new outbox;
    return *s_outbox;
}

// ---- Connections ----------------------------------------------------------------------------------------------------

size_t record_outbox_room(MsLink *mslink)
{
    size_t unsent = 0, room = 0;
    if (!mslink_send_queue(mslink, &unsent, &room))
        return 0;
    size_t heads = (room / MP_MAX_DATA_LEN + 1) * PIECE_HEAD_BYTES;
    return room > heads ? room - heads : 0;
}

static bool is_drained_or_gone(MsLink *mslink)
{
    size_t unsent = 0, room = 0;
    return !mslink_send_queue(mslink, &unsent, &room) || unsent == 0;
}

static bool is_stuck(MsLink *mslink)
{
    if (s_outbox == nullptr || !s_outbox->stuck.contains(mslink))
        return false;
    if (!is_drained_or_gone(mslink))
        return true;
    s_outbox->stuck.erase(mslink);
    return false;
}

static void stuck_add(MsLink *mslink)
{
    std::erase_if(s_outbox->stuck, is_drained_or_gone);
    try {
        s_outbox->stuck.insert(mslink);
    } catch (const std::bad_alloc &) {
        // Then the next one is tried as often as this one was.
    }
}

// ---- Pieces ---------------------------------------------------------------------------------------------------------

// 0, or the error of the message service. A slot that serves another client by now is as good as a broken connection.
static uint32_t send_once(const VodAsynRecUdata &udata, const MpPackage *package)
{
    vodlinks_guard held;
    VodLink *link = vodlink_of_cookie(held, udata.link_life);
    if (link == nullptr || link->mslink == nullptr)
        return ORB_ERROR_TCP_SEND_ERR;
    return ms_send_package(link->mslink, package) ? 0 : os_get_errno();
}

static uint32_t pieces_of(const waiting_reply &reply)
{
    return static_cast<uint32_t>((reply.text.size() + MP_MAX_DATA_LEN - 1) / MP_MAX_DATA_LEN);
}

// The terminating zero goes with the last piece, which therefore may hold one byte more than the others.
static int build_piece(reply_package *package, const waiting_reply &reply)
{
    const VodAsynRecUdata &udata = reply.udata;
    auto size = static_cast<uint32_t>(reply.text.size());
    uint32_t begin = reply.piece * MP_MAX_DATA_LEN, pieces = pieces_of(reply);
    uint32_t length = reply.piece + 1 == pieces ? size - begin + 1 : uint32_t{MP_MAX_DATA_LEN};
    return mp_build_package_ret_cmd_chs(package->buffer, sizeof package->buffer, 0, udata.module_s, udata.module_d,
                                        udata.src_id, udata.src_sup_id, udata.des_sup_id, udata.des_id,
                                        udata.mp_session_id, pieces, reply.piece, size + 1, 0,
                                        reply.text.c_str() + begin, length, &package->package);
}

// ---- Trying ---------------------------------------------------------------------------------------------------------

static void say(const char *text)
{
    if (text != nullptr)
        LOG(LOG_SYSTEM, "%s", text);
}

// True when the reply is given up, false when it is to be tried again.
static bool is_over_after_failure(waiting_reply *reply, uint32_t error)
{
    if (error != ORB_ERROR_TRY_AGAIN) {
        say(reply->kind->broken);
        return true;
    }
    say(reply->kind->try_again);
    if (++reply->tries >= reply->tries_max && reply->tries_max < TRY_AGIAN_NUM)
        return LOGGED(true, LOG_REFUSE, "a reply of %zu bytes is dropped: its connection has not taken the ones before",
                      reply->text.size());
    reply->due_tick = os_tick() + TRY_AGAIN_MS;
    return false;
}

// False when the reply has to wait.
static bool try_pieces(waiting_reply *reply)
{
    for (; reply->piece < pieces_of(*reply); reply->piece++, reply->tries = 0) {
        reply_package package;
        if (!build_piece(&package, *reply)) {
            reply->kind->unbuildable();
            return true;
        }
        if (uint32_t error = send_once(reply->udata, &package.package); error != 0)
            return is_over_after_failure(reply, error);
    }
    return true;
}

void record_outbox_send(const VodAsynRecUdata &udata, std::string text, const record_reply_kind *kind)
{
    std::list<waiting_reply> one;
    one.push_back({.udata = udata,
                   .text = std::move(text),
                   .kind = kind,
                   .tries_max = is_stuck(udata.mslink) ? 1 : TRY_AGIAN_NUM});
    if (try_pieces(&one.front()))
        return;
    outbox &own = own_outbox();
    // It counts as a command of its connection that is not done.
    record_pressure_enter(udata.mslink);
    own.waiting.splice(own.waiting.end(), one);
}

bool record_outbox_is_behind(MsLink *mslink)
{
    if (!is_drained_or_gone(mslink))
        return true;
    return s_outbox != nullptr && std::ranges::any_of(s_outbox->waiting, [mslink](const waiting_reply &reply) {
        return reply.udata.mslink == mslink;
    });
}

// True when the reply is gone one way or the other.
static bool try_again(waiting_reply *reply)
{
    if (reply->tries < TRY_AGIAN_NUM)
        return try_pieces(reply);
    say(reply->kind->given_up);
    stuck_add(reply->udata.mslink);
    return true;
}

uint32_t record_outbox_try()
{
    if (s_outbox == nullptr)
        return OS_WAIT_FOREVER;
    std::list<waiting_reply> &waiting = s_outbox->waiting;
    uint64_t now = os_tick(), next = UINT64_MAX;
    for (auto reply = waiting.begin(); reply != waiting.end();) {
        if (reply->due_tick <= now && try_again(&*reply)) {
            MsLink *mslink = reply->udata.mslink;
            reply = waiting.erase(reply);
            record_pressure_leave(mslink);
            continue;
        }
        next = std::min(next, reply->due_tick);
        reply++;
    }
    if (next == UINT64_MAX)
        return OS_WAIT_FOREVER;
    return next > now ? static_cast<uint32_t>(next - now) : 0;
}

void record_outbox_clear()
{
    if (s_outbox == nullptr)
        return;
    for (const waiting_reply &reply : s_outbox->waiting)
        record_pressure_leave(reply.udata.mslink);
    delete s_outbox;
    s_outbox = nullptr;
}
