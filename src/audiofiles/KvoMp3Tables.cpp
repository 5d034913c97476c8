#include "audiofiles/KvoMp3Tables.h"

namespace kvo
{

const Mp3Tables& GetMp3Tables()
{
    static const Mp3Tables* const tables = new Mp3Tables {};
    return *tables;
}

} // namespace kvo
