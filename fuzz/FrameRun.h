/// The packet path as the frame targets run it: datagrams through the parser, the statistics and
/// one of the three assemblers. An intact frame that follows is delivered, whatever came before.
///
/// Input: 1 byte for the kind of stream, then datagrams: 1 byte flags, 1 byte for the number of
/// repetitions if the flags ask for them, 2 bytes length, and the bytes. The flags correct the
/// fields that mutations seldom get right.
#pragma once

#include "FuzzInput.h"

namespace fuzz {

/// Runs one input and checks the invariants. Unless `large`, the fields that make a frame large are
/// limited.
void RunFrames(CFuzzInput& input, bool large);

}  // namespace fuzz
