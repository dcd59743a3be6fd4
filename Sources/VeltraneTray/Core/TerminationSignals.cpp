#include "TerminationSignals.h"

#include "DaemonSocket.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>
#include <sys/socket.h>
#include <unistd.h>

namespace Veltrane {

namespace {

// A handler may only do what is safe in a signal: it writes one byte into a socket pair whose
// other end the event loop watches.
int wakeDescriptors[2] = {-1, -1};
constexpr int handled[] = {SIGTERM, SIGINT};

extern "C" void onTerminationSignal(int)
{
    const int saved = errno;
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakeDescriptors[0], &byte, 1);
    errno = saved;
}

} // namespace

TerminationSignals::TerminationSignals(QObject *parent)
    : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, wakeDescriptors) != 0
        || !DaemonSocket::prepareDescriptor(wakeDescriptors[0]) || !DaemonSocket::prepareDescriptor(wakeDescriptors[1])) {
        qWarning("Termination signals are not handled: %s", std::strerror(errno));
        return;
    }
    m_notifier = new QSocketNotifier(wakeDescriptors[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        if (::read(wakeDescriptors[1], &byte, 1) == 1)
            Q_EMIT received();
    });
    struct sigaction action{};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signal : handled)
        ::sigaction(signal, &action, nullptr);
}

TerminationSignals::~TerminationSignals()
{
    struct sigaction action{};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (const int signal : handled)
        ::sigaction(signal, &action, nullptr);
    delete m_notifier;
    for (int &descriptor : wakeDescriptors) {
        if (descriptor >= 0)
            ::close(std::exchange(descriptor, -1));
    }
}

} // namespace Veltrane
