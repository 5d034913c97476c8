#include "shell/KvoConsoleText.h"

namespace kvo
{

const String& SeparatorLine(char character)
{
    static constexpr size_t separatorWidth = 78;
    static const String separator(separatorWidth, character);
    return separator;
}

const String& NoticeSign()
{
    static const String sign("(c)");
    return sign;
}

String StyledText(const String& text)
{
    return text;
}

} // namespace kvo
