#pragma once

#include <QObject>

class QSocketNotifier;

namespace Veltrane {

/// Turns a request to terminate the process, SIGTERM (a session ending, a service manager, `kill`)
/// or SIGINT (Ctrl+C in a terminal), into `received()` on the main thread, so the app can end its
/// event loop and exit as from its menu, with status 0, rather than be killed mid-run.
///
/// One per process: the signals' handlers are the process's own.
class TerminationSignals : public QObject
{
    Q_OBJECT

public:
    explicit TerminationSignals(QObject *parent = nullptr);
    ~TerminationSignals() override;

Q_SIGNALS:
    void received();

private:
    QSocketNotifier *m_notifier = nullptr;
};

} // namespace Veltrane
