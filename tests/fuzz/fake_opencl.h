/// An OpenCL that computes nothing: a driver that checks its handles, keeps count of its objects, and fails or answers
/// garbage when it is told to. It takes the loader's place by defining its functions in the program itself.
#pragma once

#include <cstdint>

namespace fake {

/// Forgets all objects and faults.
void reset();

/// Fails the call after `calls` more with this code; 0 makes the next query answer garbage and report success.
void fault_after(unsigned calls, int32_t code);

/// Whether a fault has come about since `reset`.
bool has_failed();

/// How many objects are alive of a kind: 'c' contexts, 'q' queues, 'p' programs, 'k' kernels, 'm' memory objects.
int alive(char kind);

} // namespace fake
