// A stand-in, not Apple's SDK: only what Qt's headers read when the macOS compile check parses
// them on Linux. Written from Apple's reference for the deployment target and SDK version macros
// (https://developer.apple.com/documentation/xcode/running-code-on-a-specific-version).
#pragma once

#define __MAC_10_6 1060
#define __MAC_11_0 110000
#define __MAC_12_0 120000
#define __MAC_13_0 130000
#define __MAC_14_0 140000
#define __MAC_15_0 150000
#define __MAC_OS_X_VERSION_MIN_REQUIRED __MAC_12_0
#define __MAC_OS_X_VERSION_MAX_ALLOWED __MAC_15_0
#define __IPHONE_OS_VERSION_MIN_REQUIRED 0
