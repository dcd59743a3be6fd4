#include "ApplicationIdentity.h"

#include <CoreFoundation/CoreFoundation.h>

namespace Veltrane::ApplicationIdentity {

// A bundle carries its identifier in its Info.plist; a bare executable has none.
std::optional<QString> detect(const QString & /*executableDirectory*/)
{
    const CFStringRef identifier = CFBundleGetIdentifier(CFBundleGetMainBundle());
    if (!identifier)
        return std::nullopt;
    return QString::fromCFString(identifier);
}

} // namespace Veltrane::ApplicationIdentity
