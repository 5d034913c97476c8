#include "audiofiles/KvoMp3Synthesis.h"

#include <algorithm>

namespace kvo
{

void Mp3SynthesisState::reset() noexcept
{
    std::fill(&synthBuffers[0][0][0], &synthBuffers[0][0][0] + 2 * 2 * 272, 0.0f);
    synthOffset = 1;
}

void synthesise(Mp3SynthesisState&, const float*, int, float* out, int& samplesDone)
{
    std::fill(out + samplesDone, out + samplesDone + 32, 0.0f);
    samplesDone += 32;
}

void fastDct32(float*, float*, const float*) {}

} // namespace kvo
