// The open searches of record-search clients: who has opened them, how many one address may have, and when those end that
// nobody uses. Only the worker's thread opens, reads and closes them.
#pragma once

#include "vod/record_item.h"

constexpr size_t RECORD_PEER_NAME = 64; // "[address]:port"

// An open session. Its number is all that a client needs to use it, so others than its owner may.
struct VodRecFindfd {
    int32_t findfd;
    int32_t time; // since it was last read; nothing advances it
    MsLink *owner;
    char owner_name[RECORD_PEER_NAME];
    int32_t is_shared_told; // that others read it too
    uint64_t used_tick;     // of the monotonic clock: when it was opened or last read
    handle_orb used_by;     // the life of the link that did
};

// Whether the caller may open one more. Where its address or all have as many as they may, the one that has been idle
// longest makes room, if it has been so for long enough; otherwise the refusal is logged.
bool record_session_admit(const VodOperateRecItem *item);
// Keeps a search that the caller has opened; closes it again when there is no memory.
bool record_session_open(int32_t findfd, const VodOperateRecItem *item);
// Takes one out of the list, which marks it as used; null when there is no such one.
VodRecFindfd *record_session_take(int32_t findfd);
// Back into the list, as the last one; `item` says who has used it.
void record_session_give_back(VodRecFindfd *session, const VodOperateRecItem *item);
// Closes those that nobody has used for long and whose last user has gone. In how many milliseconds there may be others,
// OS_WAIT_FOREVER when none is open.
uint32_t record_sessions_sweep();

// The caller's name, empty when the client has gone meanwhile.
void record_caller_name(const VodOperateRecItem *item, char (&name)[RECORD_PEER_NAME]);
