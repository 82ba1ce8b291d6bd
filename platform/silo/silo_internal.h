// What the files of silo.cpp's side share: the one place through which a driver is called.
#pragma once

#include "platform/os/os_guard.h"
#include "platform/silo/silo_driver.h"

#include <new>

// A driver that finds its store damaged where it can only throw.
struct silo_damage {};

// Runs a call of a driver; no exception may leave a function of the header.
template <class Result, class Body> Result silo_guarded(Result on_failure, bool *is_failed, Body body)
{
    try {
        return body();
    } catch (const std::bad_alloc &) {
        return LOGGED(on_failure, LOG_SYSTEM, "silo: out of memory");
    } catch (...) {
        // The driver has said what it found.
        *is_failed = true;
        return on_failure;
    }
}

// The same for a transaction, of which nothing is left when memory runs out in the middle of a call.
template <class Result, class Body> Result silo_trans_guarded(Result on_failure, silo_transaction_t *trans, Body body)
{
    bool is_ended_early = true;
    Result result = silo_guarded(on_failure, &trans->db->is_failed, [&] {
        Result answer = body();
        is_ended_early = false;
        return answer;
    });
    trans->is_broken = trans->is_broken || is_ended_early;
    return result;
}

// False, logged once per transaction's break, when nothing can be done with a transaction any more.
inline bool silo_trans_is_usable(const silo_transaction_t *trans)
{
    return trans != nullptr && !trans->is_spent && !trans->is_broken && !trans->db->is_failed;
}
