#include "NotificationCenter.h"

#import <UserNotifications/UserNotifications.h>

// The notification centre holds back a notice while its app is active (the peers window in front,
// say) unless the app's delegate asks for it: every notice of this app is shown as it comes.
@interface VeltraneNoticePresenter : NSObject <UNUserNotificationCenterDelegate>
@end

@implementation VeltraneNoticePresenter
- (void)userNotificationCenter:(UNUserNotificationCenter *)center
       willPresentNotification:(UNNotification *)notification
         withCompletionHandler:(void (^)(UNNotificationPresentationOptions options))completionHandler
{
    completionHandler(UNNotificationPresentationOptionBanner | UNNotificationPresentationOptionList);
}
@end

namespace Veltrane {

namespace {

/// Notices through the user notification centre. Notify keeps the rules (permission once per run,
/// a fresh identifier per notice, the log lines); this only hands them to the platform.
class UserNotificationCenter final : public NotificationCenter
{
public:
    // The centre holds its delegate weakly; this object keeps it for the run.
    UserNotificationCenter() { UNUserNotificationCenter.currentNotificationCenter.delegate = m_presenter; }
    ~UserNotificationCenter() override { UNUserNotificationCenter.currentNotificationCenter.delegate = nil; }

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

private:
    VeltraneNoticePresenter *m_presenter = [[VeltraneNoticePresenter alloc] init];
};

} // namespace

std::shared_ptr<NotificationCenter> createNotificationCenter(const QString &)
{
    return std::make_shared<UserNotificationCenter>();
}

} // namespace Veltrane
