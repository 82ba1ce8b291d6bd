// What the library's answers mean to the people who run the system.
#include "platform/silo/silo_lmdb.h"

#include <cerrno>
#include <system_error>

static constexpr struct {
    int error;
    bool is_lost; // the connection is of no use any more
    const char *advice;
} s_answers[] = {
    {MDB_INVALID, false, "data.mdb there is no store's file: move it away, or name another folder"},
    {MDB_VERSION_MISMATCH, false, "data.mdb was written by another version of the store's library: name another folder"},
    {MDB_CORRUPTED, true, "the file is damaged: stop every program that uses it, then bring back a copy or build it anew"},
    {MDB_PAGE_NOTFOUND, true, "the file is damaged: stop every program that uses it, then bring back a copy or build it anew"},
    {MDB_PANIC, true, "an earlier write failed halfway: it is opened anew when every connection has ended"},
    {MDB_MAP_FULL, false, "the space for the file is full: it is enlarged before the next transaction that finds none open"},
    {MDB_MAP_RESIZED, false, "another program enlarged it: this one follows when its open transactions have ended"},
    {MDB_READERS_FULL, false, "every place for a reader is taken: end searches or programs that no longer need theirs"},
    {MDB_DBS_FULL, false, "it holds more databases than one program may open"},
    {MDB_INCOMPATIBLE, false, "another program has laid out this database in its own way: name another folder"},
    {MDB_TXN_FULL, false, "the transaction is too big: write less at a time"},
    {ENOSPC, false, "the disk is full: make room there"},
    // Of a write that ended early the library says no more than this.
    {EIO, false, "the disk has too little room, or fails: look at both, and at the limit on the size of files"},
    {EFBIG, false, "the file may not grow further: raise the limit on the size of files"},
    {EACCES, false, "this account may not read and write there: change the rights of the folder and its files"},
    {EROFS, false, "it can only be read there: name a folder that can be written"},
    {ENOMEM, false, "no memory or address space: give the address a smaller map_mb, or raise the limit"},
};

bool lmdb_report(const char *doing, const std::string &folder, int error)
{
    int kind = lmdb_error_number(error);
    std::string reason = error < 0  ? std::string(mdb_strerror(error))
                         : kind > 0 ? std::generic_category().message(kind)
                                    : std::system_category().message(error);
    for (const auto &answer : s_answers)
        if (answer.error == kind)
            return LOGGED(answer.is_lost, LOG_SYSTEM, "lmdb:%s: %s: %s; %s", folder.c_str(), doing, reason.c_str(),
                          answer.advice);
    return LOGGED(false, LOG_SYSTEM, "lmdb:%s: %s: %s (%d)", folder.c_str(), doing, reason.c_str(), error);
}
