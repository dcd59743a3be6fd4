#include "ClientError.h"

#include <cstring>

using namespace Qt::StringLiterals;

namespace Veltrane {

QString ClientError::systemReason(int errorNumber)
{
    // glibc's strerror is thread-safe for every errno it knows; exchanges run on a worker thread.
    return QString::fromLocal8Bit(std::strerror(errorNumber));
}

QString ClientError::errorDescription() const
{
    switch (m_kind) {
    case Kind::ConnectFailed:
        return u"Cannot reach the Veltrane daemon (%1)."_s.arg(m_reason);
    case Kind::IoFailed:
        return u"Daemon request failed (%1)."_s.arg(m_reason);
    case Kind::EmptyResponse:
        break;
    }
    return u"The daemon returned an empty response."_s;
}

} // namespace Veltrane
