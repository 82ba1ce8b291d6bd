#include "vod/record_pressure.h"

#include "platform/os/os.h"
#include "vod/record_limits.h"

#include <mutex>
#include <new>
#include <unordered_map>

namespace {
struct waiting_commands {
    size_t count = 0;
    bool held = false;
};
} // namespace

// A connection is held and released under the lock: otherwise the two could overtake each other.
static std::mutex s_mutex;
// Guarded by s_mutex. A handle of the message service names one connection for ever, so it serves as a key after its
// end. Never freed: the worker may still be at work when the process ends.
static auto &s_waiting = *new std::unordered_map<MsLink *, waiting_commands>;

void record_pressure_enter(MsLink *mslink)
{
    std::lock_guard held(s_mutex);
    waiting_commands &waiting = s_waiting[mslink];
    // Who does not take its replies shall not ask on.
    if (++waiting.count == 1)
        mslink_hold_while_unsent(mslink, 1);
    if (waiting.count >= record_waiting_max() && !waiting.held)
        waiting.held = mslink_hold_reading(mslink, 1) != 0;
}

void record_pressure_leave(MsLink *mslink)
{
    std::lock_guard held(s_mutex);
    auto found = s_waiting.find(mslink);
    if (found == s_waiting.end())
        return;
    waiting_commands &waiting = found->second;
    waiting.count--;
    if (waiting.held && waiting.count <= record_waiting_max() / 2) {
        if (os_fault_point("record_pressure_resume"))
            throw std::bad_alloc(); // it stays held until the next command is done
        mslink_hold_reading(mslink, 0);
        waiting.held = false;
    }
    if (waiting.count == 0)
        s_waiting.erase(found);
}
