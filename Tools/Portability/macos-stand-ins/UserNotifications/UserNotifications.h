// A stand-in, not Apple's SDK: the part of the UserNotifications framework the app calls, each
// declaration written from the Apple reference page cited above it, so that the macOS compile
// check sees the API the code uses. GNUstep has no such framework.
#pragma once

#import <Foundation/Foundation.h>

// https://developer.apple.com/documentation/usernotifications/unauthorizationoptions
typedef NSUInteger UNAuthorizationOptions;
enum : NSUInteger {
    UNAuthorizationOptionBadge = 1 << 0,
    UNAuthorizationOptionSound = 1 << 1,
    UNAuthorizationOptionAlert = 1 << 2,
};

// https://developer.apple.com/documentation/usernotifications/unnotificationcontent
@interface UNNotificationContent : NSObject
@property(readonly, copy) NSString *title;
@property(readonly, copy) NSString *body;
@end

// https://developer.apple.com/documentation/usernotifications/unmutablenotificationcontent
@interface UNMutableNotificationContent : UNNotificationContent
@property(copy) NSString *title;
@property(copy) NSString *body;
@end

// https://developer.apple.com/documentation/usernotifications/unnotificationtrigger
@interface UNNotificationTrigger : NSObject
@end

// https://developer.apple.com/documentation/usernotifications/unnotificationrequest
@interface UNNotificationRequest : NSObject
+ (instancetype)requestWithIdentifier:(NSString *)identifier
                              content:(UNNotificationContent *)content
                              trigger:(UNNotificationTrigger *)trigger;
@end

// https://developer.apple.com/documentation/usernotifications/unnotificationpresentationoptions
typedef NSUInteger UNNotificationPresentationOptions;
enum : NSUInteger {
    UNNotificationPresentationOptionBadge = 1 << 0,
    UNNotificationPresentationOptionSound = 1 << 1,
    UNNotificationPresentationOptionList = 1 << 3,
    UNNotificationPresentationOptionBanner = 1 << 4,
};

// https://developer.apple.com/documentation/usernotifications/unnotification
@interface UNNotification : NSObject
@property(readonly, copy) UNNotificationRequest *request;
@end

@class UNUserNotificationCenter;

// https://developer.apple.com/documentation/usernotifications/unusernotificationcenterdelegate
@protocol UNUserNotificationCenterDelegate <NSObject>
@optional
- (void)userNotificationCenter:(UNUserNotificationCenter *)center
       willPresentNotification:(UNNotification *)notification
         withCompletionHandler:(void (^)(UNNotificationPresentationOptions options))completionHandler;
@end

// https://developer.apple.com/documentation/usernotifications/unusernotificationcenter
@interface UNUserNotificationCenter : NSObject
@property(class, readonly) UNUserNotificationCenter *currentNotificationCenter;
@property(weak) id<UNUserNotificationCenterDelegate> delegate;
- (void)requestAuthorizationWithOptions:(UNAuthorizationOptions)options
                      completionHandler:(void (^)(BOOL granted, NSError *error))completionHandler;
- (void)addNotificationRequest:(UNNotificationRequest *)request
         withCompletionHandler:(void (^)(NSError *error))completionHandler;
@end
