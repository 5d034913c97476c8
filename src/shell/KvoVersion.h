#pragma once

#include "core/KvoString.h"

namespace kvo
{

/** "libkvo v5.0.2", with " [32-bit float]" when detailed. */
String GetVersionText(bool detailed);
/** The sample precision the library computes in: "32-bit float". */
String GetPrecisionText();
/** The processor architecture the library was built for, such as "x86_64". */
String GetArchitectureName();
/** The build date shown in the banner. */
String GetBuildDate();
/** The local calendar year now. */
int GetCurrentYear();

} // namespace kvo
