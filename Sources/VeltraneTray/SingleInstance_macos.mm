#include "SingleInstance.h"

#include <QTimer>

#import <AppKit/AppKit.h>

namespace Veltrane::SingleInstance {

// macOS keeps the list of running applications by bundle identifier; the list includes this
// process, so a second entry is another instance. A menu bar always shows the running one's item,
// so it is neither told nor activated.
void claim(const QString &identity, QObject *context, std::function<void(bool ours)> decided,
           Activated /*activated*/)
{
    bool ours = true;
    @autoreleasepool {
        NSArray<NSRunningApplication *> *running =
            [NSRunningApplication runningApplicationsWithBundleIdentifier:identity.toNSString()];
        ours = running.count < 2;
    }
    QTimer::singleShot(0, context, [decided = std::move(decided), ours] { decided(ours); });
}

} // namespace Veltrane::SingleInstance
