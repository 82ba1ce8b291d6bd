// Keeps one client from filling the record worker's queue: a connection with many commands waiting is not read until
// the worker has caught up. Nothing is dropped; its later commands wait in the network.
#pragma once

#include "platform/ms/ms.h"

#include <cstddef>

// Commands of one connection that may wait before it is held, and how many are left when it is read again.
constexpr size_t RECORD_WAITING_MAX = 64, RECORD_WAITING_RESUME = 16;

// A command is about to be queued; the worker has done with one. Any thread. The first may run out of memory.
void record_pressure_enter(MsLink *mslink);
void record_pressure_leave(MsLink *mslink);
