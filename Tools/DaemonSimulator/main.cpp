// veltrane-daemon-sim: a stand-in for the networking daemon, for the demo, tests and benchmarks.
#include "DaemonClient.h"
#include "SimulatedDaemon.h"
#include "SimulatorServer.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <csignal>
#include <cstdio>

using namespace Veltrane::Simulator;

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"veltrane-daemon-sim"_qs);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Simulated Veltrane daemon on a Unix socket. SIGUSR1 completes a pending sign-in."_qs);
    parser.addHelpOption();
    const QCommandLineOption socketOption(u"socket"_qs, u"Socket path to listen on."_qs, u"path"_qs,
                                          QString::fromLatin1(Veltrane::DaemonClient::defaultSocketPath));
    const QCommandLineOption peersOption(u"peers"_qs, u"Number of peer devices."_qs, u"count"_qs, u"24"_qs);
    const QCommandLineOption seedOption(u"seed"_qs, u"Seed of the generated peers."_qs, u"n"_qs, u"1"_qs);
    const QCommandLineOption stoppedOption(u"stopped"_qs, u"Start with the connection down."_qs);
    const QCommandLineOption signedOutOption(u"signed-out"_qs, u"Start signed out."_qs);
    const QCommandLineOption noNetworkOption(u"no-network"_qs, u"Signed in, but in no network."_qs);
    const QCommandLineOption taggedOption(u"tagged"_qs, u"This device is owned by a tag."_qs);
    const QCommandLineOption loginDelayOption(
        u"login-delay"_qs, u"Seconds until an issued sign-in link completes; negative waits for SIGUSR1."_qs,
        u"seconds"_qs, u"4"_qs);
    const QCommandLineOption connectDelayOption(u"connect-delay"_qs, u"Seconds from start to connected."_qs,
                                                u"seconds"_qs, u"1.5"_qs);
    const QCommandLineOption faultOption(
        u"fault"_qs, u"Misbehave: one of %1, optionally for one command (e.g. refuse:start)."_qs.arg(faultNames().join(u", ")),
        u"mode[:command]"_qs);
    const QCommandLineOption driftOption(u"drifting-round-trips"_qs,
                                         u"Every status reply gives new round-trip times."_qs);
    const QCommandLineOption logOption(u"log-requests"_qs, u"Print every request line on standard error."_qs);
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
