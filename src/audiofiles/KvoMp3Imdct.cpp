#include "audiofiles/KvoMp3Imdct.h"

namespace kvo
{

void imdct36(float*, float*, float*, const float*, float*) {}

void imdct12(float*, float*, float*, const float*, float*) {}

} // namespace kvo
