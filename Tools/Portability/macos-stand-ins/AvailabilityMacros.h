// A stand-in, not Apple's SDK: the older spellings of Availability.h's version macros, as Qt's
// headers read them. Written from the same Apple reference as Availability.h
// (https://developer.apple.com/documentation/xcode/running-code-on-a-specific-version).
#pragma once

#include <Availability.h>

#define MAC_OS_X_VERSION_10_6 1060
#define MAC_OS_X_VERSION_MIN_REQUIRED __MAC_OS_X_VERSION_MIN_REQUIRED
#define MAC_OS_X_VERSION_MAX_ALLOWED __MAC_OS_X_VERSION_MAX_ALLOWED
