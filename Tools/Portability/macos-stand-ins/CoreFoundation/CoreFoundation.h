// A stand-in, not Apple's SDK: the few CoreFoundation names the app calls, each written from the
// Apple reference page cited above it, so that the macOS compile check sees the API the code
// uses. GNUstep's CoreFoundation is not packaged by Debian.
#pragma once

// https://developer.apple.com/documentation/corefoundation/cfstring (Qt declares the same type)
typedef const struct __CFString *CFStringRef;

// https://developer.apple.com/documentation/corefoundation/cfbundle
typedef struct __CFBundle *CFBundleRef;

// https://developer.apple.com/documentation/corefoundation/1537085-cfbundlegetmainbundle
extern "C" CFBundleRef CFBundleGetMainBundle(void);

// https://developer.apple.com/documentation/corefoundation/1537154-cfbundlegetidentifier
extern "C" CFStringRef CFBundleGetIdentifier(CFBundleRef bundle);
