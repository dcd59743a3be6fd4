#include "NotificationCenter.h"

#import <UserNotifications/UserNotifications.h>

namespace Veltrane {

namespace {

/// Notices through the user notification centre. Notify keeps the rules (permission once per run,
/// a fresh identifier per notice, the log lines); this only hands them to the platform.
class UserNotificationCenter final : public NotificationCenter
{
public:
    void requestAuthorization() override
    {
        // Neither the answer nor an error changes anything: notices are added either way.
        [UNUserNotificationCenter.currentNotificationCenter
            requestAuthorizationWithOptions:UNAuthorizationOptionAlert
                          completionHandler:^(BOOL, NSError *) {
                          }];
    }

    void add(const NotificationRequest &request, DeliveryHandler delivered) override
    {
        @autoreleasepool {
            UNMutableNotificationContent *content = [[UNMutableNotificationContent alloc] init];
            content.title = request.title.toNSString();
            content.body = request.body.toNSString();
            UNNotificationRequest *notice = [UNNotificationRequest requestWithIdentifier:request.identifier.toNSString()
                                                                                 content:content
                                                                                 trigger:nil];
            // The block keeps its own copy of the handler; it may run on any thread.
            [UNUserNotificationCenter.currentNotificationCenter
                addNotificationRequest:notice
                 withCompletionHandler:^(NSError *error) {
                     if (error)
                         delivered(QString::fromNSString(error.localizedDescription));
                     else
                         delivered(std::nullopt);
                 }];
        }
    }
};

} // namespace

std::shared_ptr<NotificationCenter> createNotificationCenter(const QString &)
{
    return std::make_shared<UserNotificationCenter>();
}

} // namespace Veltrane
