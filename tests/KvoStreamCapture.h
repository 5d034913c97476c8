#pragma once
#include "KvoTestUtilities.h" // StreamCapture lives in the one test kit
