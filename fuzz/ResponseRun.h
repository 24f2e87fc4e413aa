/// The response reader as its targets run it. The socket is a script: it delivers the bytes in the
/// pieces that the input asks for, which no real socket does on demand, and knows how many were
/// taken.
///
/// Input: 2 bytes for how many bytes arrive in pieces, 1 byte for the length of those pieces, then
/// the bytes of the connection.
#pragma once

#include "FuzzInput.h"

namespace fuzz {

/// Runs one input and checks the invariants. With `runs`, the byte F5, 2 bytes for a count and one
/// more byte stand for a run of that byte: a short input then reaches the limits of a line and of a
/// body, at the price of many bytes to read.
void RunResponse(CFuzzInput& input, bool runs);

}  // namespace fuzz
