// veltrane-daemon-sim: a stand-in for the networking daemon, for the demo, tests and benchmarks.
#include "DaemonClient.h"
#include "SimulatedDaemon.h"
#include "SimulatorServer.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <csignal>
#include <cstdio>

using namespace Qt::StringLiterals;
using namespace Veltrane::Simulator;

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"veltrane-daemon-sim"_s);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Simulated Veltrane daemon on a Unix socket. SIGUSR1 completes a pending sign-in."_s);
    parser.addHelpOption();
    const QCommandLineOption socketOption(u"socket"_s, u"Socket path to listen on."_s, u"path"_s,
                                          QString::fromLatin1(Veltrane::DaemonClient::defaultSocketPath));
    const QCommandLineOption peersOption(u"peers"_s, u"Number of peer devices."_s, u"count"_s, u"24"_s);
    const QCommandLineOption seedOption(u"seed"_s, u"Seed of the generated peers."_s, u"n"_s, u"1"_s);
    const QCommandLineOption stoppedOption(u"stopped"_s, u"Start with the connection down."_s);
    const QCommandLineOption signedOutOption(u"signed-out"_s, u"Start signed out."_s);
    const QCommandLineOption noNetworkOption(u"no-network"_s, u"Signed in, but in no network."_s);
    const QCommandLineOption taggedOption(u"tagged"_s, u"This device is owned by a tag."_s);
    const QCommandLineOption loginDelayOption(
        u"login-delay"_s, u"Seconds until an issued sign-in link completes; negative waits for SIGUSR1."_s,
        u"seconds"_s, u"4"_s);
    const QCommandLineOption connectDelayOption(u"connect-delay"_s, u"Seconds from start to connected."_s,
                                                u"seconds"_s, u"1.5"_s);
    const QCommandLineOption faultOption(
        u"fault"_s, u"Misbehave: one of %1, optionally for one command (e.g. refuse:start)."_s.arg(faultNames().join(u", ")),
        u"mode[:command]"_s);
    const QCommandLineOption driftOption(u"drifting-round-trips"_s,
                                         u"Every status reply gives new round-trip times."_s);
    const QCommandLineOption logOption(u"log-requests"_s, u"Print every request line on standard error."_s);
    parser.addOptions({socketOption, peersOption, seedOption, stoppedOption, signedOutOption, noNetworkOption,
                       taggedOption, loginDelayOption, connectDelayOption, faultOption, driftOption, logOption});
    parser.process(app);

    SimulatedDaemon::Options options;
    options.peerCount = parser.value(peersOption).toInt();
    options.seed = parser.value(seedOption).toUInt();
    options.wantRunning = !parser.isSet(stoppedOption);
    options.session = parser.isSet(signedOutOption) ? SimulatedDaemon::Session::SignedOut
                                                    : SimulatedDaemon::Session::Active;
    options.noNetwork = parser.isSet(noNetworkOption);
    options.isTagged = parser.isSet(taggedOption);
    options.driftingRoundTrips = parser.isSet(driftOption);
    options.loginDelaySeconds = parser.value(loginDelayOption).toDouble();
    options.connectDelaySeconds = parser.value(connectDelayOption).toDouble();

    // Signals are taken by sigwait() below, so every thread started from here on must block them.
    sigset_t handled;
    sigemptyset(&handled);
    for (const int signal : {SIGINT, SIGTERM, SIGUSR1})
        sigaddset(&handled, signal);
    pthread_sigmask(SIG_BLOCK, &handled, nullptr);

    SimulatedDaemon daemon(options);
    SimulatorServer server(daemon);
    if (parser.isSet(faultOption)) {
        const QString mode = parser.value(faultOption).section(u':', 0, 0);
        const auto fault = faultFromName(mode);
        if (!fault) {
            std::fprintf(stderr, "unknown fault mode: %s\n", qPrintable(mode));
            return 2;
        }
        server.setFault(*fault, parser.value(faultOption).section(u':', 1));
    }
    server.setLogRequests(parser.isSet(logOption));
    const QString path = parser.value(socketOption);
    if (const auto error = server.listen(path)) {
        std::fprintf(stderr, "cannot listen on %s: %s\n", qPrintable(path), qPrintable(*error));
        return 1;
    }
    std::fprintf(stderr, "veltrane-daemon-sim: listening on %s with %d peers\n", qPrintable(path),
                 options.peerCount);

    for (int signal = 0; sigwait(&handled, &signal) == 0 && signal == SIGUSR1;)
        daemon.approveLogin();
    server.stop();
    return 0;
}
