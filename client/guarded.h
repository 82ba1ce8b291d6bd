// The edge of the library: what an object's call does before and after the work itself.
#pragma once

#include "client/vodclient.h"

#include <new>

// Runs `work(*state)`; nothing is thrown past it. An object that could not be made has no state.
template <class State, class F> vodclient_result guarded(const std::shared_ptr<State> &state, const F &work) noexcept
{
    try {
        if (state != nullptr)
            return work(*state);
    } catch (const std::bad_alloc &) {
    }
    return {VODCLIENT_NO_MEMORY, 0, "out of memory"}; // short enough to need none
}

template <class State> std::shared_ptr<State> make_state() noexcept
{
    try {
        auto state = std::make_shared<State>();
        return state->usable ? state : nullptr;
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}
