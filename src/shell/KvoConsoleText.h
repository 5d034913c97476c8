#pragma once

#include "core/KvoReportLine.h"
#include "core/KvoString.h"

namespace kvo
{

/** 78 copies of a character; the first call's character fixes the text for good. */
const String& SeparatorLine(char character);

/** The three-character sign of the banner's notice line. */
const String& NoticeSign();

/** Console styling around text; plain terminals get the text unchanged. */
String StyledText(const String& text);

} // namespace kvo
