#pragma once

#include <cstdint>

namespace kvo
{

class Mp3DecoderState;

/** Decodes one Layer I frame from the cursor (behind the CRC word): 384 samples a channel. */
void decodeLayer1Frame(Mp3DecoderState& state, float* out0, float* out1, int32_t& samplesDone);

/** Decodes one Layer II frame from the cursor (behind the CRC word): 1152 samples a channel. */
void decodeLayer2Frame(Mp3DecoderState& state, float* out0, float* out1, int32_t& samplesDone);

} // namespace kvo
