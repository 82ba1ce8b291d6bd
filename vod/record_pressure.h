// Keeps one client from filling the record worker's queue: a connection with as many commands waiting as it may have
// (record_limits.h) is not read on until the worker has caught up, nor is one while replies wait for its socket. Nothing
// is dropped; its later commands wait in the network.
#pragma once

#include "platform/ms/ms.h"

#include <cstddef>

// A command is about to be queued; the worker has done with one. Any thread. Both may run out of memory.
void record_pressure_enter(MsLink *mslink);
void record_pressure_leave(MsLink *mslink);
