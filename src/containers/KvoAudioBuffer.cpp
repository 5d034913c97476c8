#include "containers/KvoAudioBufferImplementation.h"

namespace kvo
{

template class AudioBufferBase<float>;
template class AudioBufferBase<double>;
template class AudioBuffer<float>;
template class AudioBuffer<double>;

} // namespace kvo
