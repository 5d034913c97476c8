#pragma once
#include "KvoTestUtilities.h" // the WAV builders live in the one test kit
