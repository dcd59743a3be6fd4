#include "SingleInstance.h"

#include <QTimer>

#import <AppKit/AppKit.h>

namespace Veltrane::SingleInstance {

namespace {

// Whether `a` was launched before `b`: by launch date, then, where a date is missing or the same,
// by process id. Both instances of a launch at once order the pair alike.
bool launchedBefore(NSRunningApplication *a, NSRunningApplication *b)
{
    if (a.launchDate && b.launchDate) {
        const NSComparisonResult order = [a.launchDate compare:b.launchDate];
        if (order != NSOrderedSame)
            return order == NSOrderedAscending;
    }
    return a.processIdentifier < b.processIdentifier;
}

} // namespace

// macOS keeps the list of running applications by bundle identifier. Another instance is an entry
// that is not this process and has not terminated: the list may still hold one that is quitting,
// and may not yet hold this process, so counting entries could make two launches at once both
// quit. Of instances running together the one launched first stays, so exactly one remains. A
// menu bar always shows the running one's item, so it is neither told nor activated.
void claim(const QString &identity, QObject *context, std::function<void(bool ours)> decided,
           Activated /*activated*/)
{
    bool ours = true;
    @autoreleasepool {
        NSRunningApplication *me = NSRunningApplication.currentApplication;
        for (NSRunningApplication *other in
             [NSRunningApplication runningApplicationsWithBundleIdentifier:identity.toNSString()]) {
            if (other.processIdentifier != me.processIdentifier && !other.terminated && launchedBefore(other, me))
                ours = false;
        }
    }
    QTimer::singleShot(0, context, [decided = std::move(decided), ours] { decided(ours); });
}

} // namespace Veltrane::SingleInstance
