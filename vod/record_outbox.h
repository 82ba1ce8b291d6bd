// Replies of the record worker on their way: cut into pieces, and tried again while a connection takes nothing. The
// worker goes on with the commands of others meanwhile; those of the connection itself wait, so that its replies come in
// order. Each thread has an outbox of its own, so nothing here is shared.
#pragma once

#include "vod/record_item.h"

#include <string>

// What is said about a reply that does not go out. Null: nothing.
struct record_reply_kind {
    void (*unbuildable)(); // ends the process
    const char *try_again; // after each try
    const char *broken, *given_up;
};

// How long a text may be so that the connection's queue, as it is now, takes it whole. 0 when the connection is gone.
size_t record_outbox_room(MsLink *mslink);
// Sends `text` with its terminating zero; what the connection does not take at once stays here. May run out of memory.
void record_outbox_send(const VodAsynRecUdata &udata, std::string text, const record_reply_kind *kind);
// Whether a reply to this connection is here, or one that was sent waits for its socket still: what it asks for next has
// to wait as well.
bool record_outbox_is_behind(MsLink *mslink);
// Tries those that are due. In how many milliseconds the next one is, OS_WAIT_FOREVER when there is none.
uint32_t record_outbox_try();
// Drops all of them. To be called before the thread ends.
void record_outbox_clear();
