// A stand-in, not Apple's SDK: AppKit declarations that GNUstep's headers lack, each written from
// the Apple reference page cited above it, so that the macOS compile check sees the API the code
// calls. Forced into every macOS-only file the check parses, after AppKit itself.
#pragma once

#import <AppKit/AppKit.h>

// https://developer.apple.com/documentation/appkit/nsstatusitem/button
@interface NSStatusItem (StandIn)
@property(readonly, strong) NSStatusBarButton *button;
@end

// https://developer.apple.com/documentation/appkit/nsimage/template (a property named "template"
// cannot be declared in Objective-C++; its accessors are what such code calls)
@interface NSImage (StandIn)
- (BOOL)isTemplate;
- (void)setTemplate:(BOOL)isTemplate;
@end

// https://developer.apple.com/documentation/appkit/nsapplication/setactivationpolicy(_:)
// https://developer.apple.com/documentation/appkit/nsapplication/activate() (macOS 14)
@interface NSApplication (StandIn)
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)activationPolicy;
- (void)activate;
@end

// https://developer.apple.com/documentation/appkit/nsaccessibilityprotocol/accessibilitylabel
// (NSView adopts the NSAccessibility protocol)
@interface NSView (StandIn)
@property(copy) NSString *accessibilityLabel;
@end
