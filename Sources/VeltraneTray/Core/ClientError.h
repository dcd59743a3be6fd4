#pragma once

#include <QString>

namespace Veltrane {

/// Why an exchange with the daemon failed. Every error carries the sentence shown to the user.
class ClientError
{
public:
    enum class Kind {
        ConnectFailed, ///< the socket could not be opened or connected
        IoFailed,      ///< writing, reading or decoding failed after the connection stood
        EmptyResponse, ///< the daemon closed without sending a byte
    };

    static ClientError connectFailed(const QString &reason) { return {Kind::ConnectFailed, reason}; }
    static ClientError ioFailed(const QString &reason) { return {Kind::IoFailed, reason}; }
    static ClientError emptyResponse() { return {Kind::EmptyResponse, {}}; }

    /// The C library's description of an errno value, as the payloads quote it.
    static QString systemReason(int errorNumber);

    Kind kind() const { return m_kind; }
    /// What failed, as carried by ConnectFailed and IoFailed; empty for EmptyResponse.
    QString reason() const { return m_reason; }
    /// The full sentence, e.g. "Cannot reach the Veltrane daemon (Connection refused).".
    QString errorDescription() const;

    bool operator==(const ClientError &) const = default;

private:
    ClientError(Kind kind, const QString &reason) : m_kind(kind), m_reason(reason) {}

    Kind m_kind;
    QString m_reason;
};

} // namespace Veltrane
