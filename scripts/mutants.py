#!/usr/bin/python3
"""Plants plausible faults (mutants) in the app one at a time and says which tests catch each.

For every mutant: the one edit is made in the source tree, the build tree is rebuilt, each test
that reaches that code runs on its own, and the edit is undone (also on Ctrl-C). A mutant that no
test catches is a hole in the suite. Prints one Markdown table row per mutant.

Usage: scripts/mutants.py [--repo DIR] [--build DIR] [--old-suite] [ID …]
  --repo       the source tree to mutate (default: this one); a worktree of an older commit works
  --build      its build tree, configured as scripts/test.sh configures it (default: DIR/build)
  --old-suite  the test names before the whole-app tests moved onto the Python harness
"""
import argparse
import os
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SRC = "Sources/VeltraneTray/"

# id, area, fault, file, text, replacement (or tuples of spellings), tests that reach the code
MUTANTS = [
    ("X1", "exchange", "reads one chunk, not up to the line feed", SRC + "Core/DaemonSocket.cpp",
     "while (lineEnd < 0 && gathered.size() < replyCapBytes) {",
     "while (lineEnd < 0 && gathered.size() < replyCapBytes && gathered.isEmpty()) {", ["client", "faults"]),
    ("X2", "exchange", "bytes after the line feed are part of the reply", SRC + "Core/DaemonSocket.cpp",
     "    if (lineEnd >= 0)\n        gathered.truncate(lineEnd);\n", "", ["client", "faults"]),
    ("X3", "exchange", "the 4 MiB cap is doubled", SRC + "Core/DaemonSocket.h",
     "replyCapBytes = 4 * 1024 * 1024;", "replyCapBytes = 8 * 1024 * 1024;", ["client", "faults"]),
    ("X4", "exchange", "an empty reply is decoded rather than reported empty", SRC + "Core/DaemonClient.cpp",
     "    if (line.isEmpty())\n        return ClientError::emptyResponse();\n", "", ["client", "session"]),
    ("X5", "exchange", "a completion runs after its owner is gone", SRC + "Core/DaemonClient.cpp",
     "                if (context)\n                    completion(result);", "                completion(result);",
     ["client"]),
    ("X6", "exchange", "a refused reply's status is applied", SRC + "Core/DaemonClient.cpp",
     "response && response->succeeded() ? response->status : std::nullopt",
     "response ? response->status : std::nullopt", ["client", "session"]),
    ("D1", "decoding", "a key twice: the first value is kept", SRC + "Core/DaemonProtocol.cpp",
     ("if (seen & bit) {", "if (seen & bit)\n"), ("if (false && (seen & bit)) {", "if (false && (seen & bit))\n"),
     ["protocol"]),
    ("D2", "decoding", "a null device in the list is accepted", SRC + "Core/DaemonProtocol.cpp",
     ("if (!readRecord(item, records.emplace_back()))", "if (!readRecord(item, next()))"),
     ("if (!item.is_null() && !readRecord(item, records.emplace_back()))", "if (!item.is_null() && !readRecord(item, next()))"),
     ["protocol"]),
    ("D3", "decoding", "a value of the wrong type is skipped, not rejected", SRC + "Core/DaemonProtocol.cpp",
     ("                if (!read(entry.value, field))\n", "name == entry.key && !read(entry.value, field))",
      "                    ok = read(entry.value, field);\n"),
     ("                if (!read(entry.value, field) && false)\n", "name == entry.key && !read(entry.value, field) && false)",
      "                    read(entry.value, field);\n"),
     ["protocol", "client", "faults"]),
    ("D4", "decoding", "integers beyond 64 bits are rejected", SRC + "Core/DaemonProtocol.cpp",
     "return digits.size() < limit.size() ||", "return true ||", ["protocol"]),
    ("S1", "states", "stopped does not outrank an active membership", SRC + "Core/TrayState.cpp",
     "if (snapshot->wantRunning == false)", "if (snapshot->wantRunning == false && !snapshot->membershipState)",
     ["traystate", "session"]),
    ("S2", "states", "a revoked session is not signed out", SRC + "Core/TrayState.cpp",
     ("        {u\"session_revoked\"_s, TrayState::LoggedOut},\n", "        {u\"session_revoked\"_qs, TrayState::LoggedOut},\n"),
     ("", ""), ["traystate"]),
    ("S3", "states", "the error state's dot takes the no-network colour", SRC + "Core/TrayState.cpp",
     "{orange, amber, u\"Error\"}", "{blue, amber, u\"Error\"}", ["traystate", "iconfactory", "session"]),
    ("S4", "states", "\"Connecting…\" loses its ellipsis character", SRC + "Core/TrayState.cpp",
     "u\"Connecting\\u2026\"}", "u\"Connecting...\"}", ["traystate", "session"]),
    ("R1", "rows", "\"Log in…\" shown whenever the daemon runs", SRC + "UI/StatusItemController.cpp",
     "m_loginItem->setVisible(state == TrayState::LoggedOut);", "m_loginItem->setVisible(state != TrayState::Stopped);",
     ["controller", "session"]),
    ("R2", "rows", "a tagged device's owner is the user's e-mail", SRC + "UI/StatusItemController.cpp",
     "snapshot->isTagged == true ? snapshot->ownerTag : snapshot->userEmail", "snapshot->userEmail",
     ["controller", "session"]),
    ("R3", "rows", "\"Log out\" shown while stopped", SRC + "UI/StatusItemController.cpp",
     "state != TrayState::Stopped && state != TrayState::LoggedOut", "state != TrayState::LoggedOut",
     ["controller", "session"]),
    ("R4", "rows", "the toggle stays enabled while a command runs", SRC + "UI/StatusItemController.cpp",
     "m_toggleItem->setEnabled(reachable && !m_commandInFlight);", "m_toggleItem->setEnabled(reachable);",
     ["controller", "session"]),
    ("C1", "commands", "no status request right after a command", SRC + "UI/StatusItemController.cpp",
     "        poll(); // the menu catches up at once rather than at the next tick\n", "", ["controller", "session"]),
    ("C2", "commands", "a click while a command runs sends another", SRC + "UI/StatusItemController.cpp",
     "    if (m_commandInFlight)\n        return;\n    m_commandInFlight = true;", "    m_commandInFlight = true;",
     ["controller", "session"]),
    ("C3", "commands", "a refusal's own error is not told", SRC + "UI/StatusItemController.cpp",
     "Notify::show(title, response.error.value_or(fallback));", "Notify::show(title, fallback);",
     ["controller", "session", "faults"]),
    ("C4", "commands", "the sign-in link is not opened", SRC + "UI/StatusItemController.cpp",
     "        m_openUrl(url);\n", "", ["controller", "session"]),
    ("C5", "commands", "\"Signed in\" told at every poll", SRC + "UI/StatusItemController.cpp",
     "        m_loginPending = false;\n", "", ["controller", "session"]),
    ("C6", "commands", "the daemon's sign-out message is not told", SRC + "UI/StatusItemController.cpp",
     ("response.message.value_or(u\"Your session has been ended.\"_s)",
      "response.message.value_or(u\"Your session has been ended.\"_qs)"),
     ("u\"Your session has been ended.\"_s", "u\"Your session has been ended.\"_qs"),
     ["controller", "session", "faults"]),
    ("C7", "commands", "the open peers window does not follow statuses", SRC + "UI/StatusItemController.cpp",
     "    if (m_peersWindow)\n        m_peersWindow->applySnapshot(snapshot, state);\n", "", ["controller", "a11y"]),
    ("E1", "export", "NewIcon at every poll", SRC + "UI/Linux/StatusNotifierItem.cpp",
     "    if (icon.cacheKey() == m_icon.cacheKey())\n        return;\n", "", ["session"]),
    ("E2", "export", "a changed row sends all its properties", SRC + "UI/Linux/DBusMenuExporter.cpp",
     "if (before.value(it.key()) != it.value())", "if (true)", ["exporter", "session"]),
    ("E3", "export", "a click runs inside the D-Bus call", SRC + "UI/Linux/DBusMenuExporter.cpp",
     "QMetaObject::invokeMethod(action, &QAction::trigger, Qt::QueuedConnection);", "action->trigger();",
     ["exporter", "session"]),
    ("E4", "export", "\"_\" is not escaped for DBusMenu", SRC + "UI/Linux/DBusMenuExporter.cpp",
     (".replace(u'_', u\"__\"_s)", ".replace(u'_', u\"__\"_qs)", "            label += u\"__\"_qs;"),
     ("", "", "            label += u'_';"),
     ["exporter", "session", "faults"]),
    ("E5", "export", "the item does not say it is a menu", SRC + "UI/Linux/StatusNotifierItem.h",
     "bool itemIsMenu() const { return true; }", "bool itemIsMenu() const { return false; }", ["session", "realpanel"]),
    ("E6", "export", "not registered again with a panel that restarts", SRC + "Core/Linux/StatusNotifierWatch.cpp",
     ("    m_told = false;\n", "if (owner.isEmpty() || owner == m_owner)"),
     ("", "if (owner.isEmpty() || !m_owner.isEmpty())"), ["session"]),
    ("P1", "peers", "search keys stale after a status of the same size", SRC + "Core/PeerListModel.cpp",
     ("    m_searchKeys.clear();\n    sortByDisplayName();", "    m_searchKeys.clear();\n    // The order depends"),
     ("    sortByDisplayName();", "    // The order depends"), ["model", "window"]),
    ("P6", "peers", "every row announced changed, as before", SRC + "Core/PeerListModel.cpp",
     "return &was != &is && !readAlike(was, is);", "return true;", ["model"]),
    ("P7", "peers", "the order kept while the count is the same", SRC + "Core/PeerListModel.cpp",
     "        || !std::equal(previous.cbegin()", "        && !std::equal(previous.cbegin()", ["model", "window"]),
    ("P8", "peers", "the model copies the list it is given", SRC + "Core/PeerListModel.cpp",
     "m_devices.cbegin(), m_devices.cend()", "m_devices.begin(), m_devices.end()", ["model"]),
    ("P9", "peers", "a new path state or endpoint alone is not announced", SRC + "Core/PeerListModel.cpp",
     "pathA->roundTripTimeMilliseconds != pathB->roundTripTimeMilliseconds)\n        return false;\n    return isOnline(a) == isOnline(b) && pathA == pathB",
     "pathA->roundTripTimeMilliseconds != pathB->roundTripTimeMilliseconds)\n        return false;\n    return isOnline(a) == isOnline(b)", ["model", "window"]),
    ("W1", "peers", "the search field's caret never rests", SRC + "UI/CaretRest.cpp",
     "setCursorFlashTime(0); });", "setCursorFlashTime(-1); });", ["window"]),
    ("D5", "decoding", "devices left for later are not checked", SRC + "Core/DaemonProtocol.cpp",
     "            m_keepTexts = false;\n            const bool checked = readDevices(",
     "            m_keepTexts = false;\n            const bool checked = true || readDevices(", ["protocol"]),
    ("P2", "peers", "names collated unfolded (\"Straße\" and \"STRASSE\" apart)", SRC + "Core/PeerListModel.cpp",
     "m_collator.sortKey(searchFolded(name))", "m_collator.sortKey(name)", ["model", "window"]),
    ("P3", "peers", "the search text is not trimmed", SRC + "Core/PeerListModel.cpp",
     "m_query = searchFolded(trimmedOfBlanks(text));", "m_query = searchFolded(text);", ["model", "window"]),
    ("P4", "peers", "the selected device is not followed across a refresh", SRC + "UI/PeersWindowController.cpp",
     "    if (!selected || !selected->clientId)\n        return;", "    if (true)\n        return;",
     ["model", "window"]),
    ("P5", "peers", "\"Copy DNS Name\" copies nothing without a DNS name", SRC + "UI/PeersWindowController.cpp",
     "copyToClipboard(hasName ? *device->fqdn : device->assignedIp.value_or(QString()));",
     "copyToClipboard(device->fqdn.value_or(QString()));", ["window"]),
    ("N1", "notices", "bodies not escaped for a server that parses markup", SRC + "Core/Linux/FreedesktopNotificationCenter.cpp",
     "m_bodyMarkup.value_or(true) ? request.body.toHtmlEscaped() : request.body", "request.body", ["notify", "session"]),
    ("N2", "notices", "permission asked before every notice", SRC + "Core/Notify.cpp",
     "if (!to.authorizationRequested) {", "if (true) {", ["notify"]),
    ("K1", "package", "the autostart entry is not a conffile", "packaging/CMakeLists.txt",
     "set(CPACK_DEBIAN_TRAY_PACKAGE_CONTROL_EXTRA ${generated}/conffiles)\n", "", ["package"]),
    ("K2", "run path", "a stale socket counts as a daemon", "scripts/start-tray.sh",
     "[ -S \"$socket\" ] && daemon_answers; then", "[ -S \"$socket\" ]; then", ["runpath"]),
]

# What each short name runs.
NEW_SUITE = {"protocol": ["tst_daemonprotocol"], "client": ["tst_daemonclient"], "traystate": ["tst_traystate"],
             "notify": ["tst_notify"], "model": ["tst_peerlistmodel"], "iconfactory": ["tst_iconfactory"],
             "window": ["tst_peerswindow"], "exporter": ["tst_dbusmenuexporter"], "controller": [],
             "session": ["tst_session"], "faults": ["tst_faults"], "a11y": ["tst_accessibility"],
             "realpanel": ["tst_realpanel"], "package": ["tst_package"], "runpath": ["tst_runpath"]}
# The same, before the whole-app tests moved onto the Python harness.
OLD_SUITE = dict(NEW_SUITE, controller=["tst_statusitemcontroller"], session=["tst_desktop", "tst_appdelegate"],
                 package=["tst_package", "tst_nofiles"])


def run(command, **options):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--repo", default=ROOT)
    parser.add_argument("--build")
    parser.add_argument("--old-suite", action="store_true")
    parser.add_argument("ids", nargs="*")
    options = parser.parse_args()
    build = options.build or os.path.join(options.repo, "build")
    suite = OLD_SUITE if options.old_suite else NEW_SUITE
    print("| mutant | area | fault | caught by |\n|---|---|---|---|", flush=True)
    for ident, area, fault, path, text, replacement, reach in MUTANTS:
        if options.ids and ident not in options.ids:
            continue
        path = os.path.join(options.repo, path)
        with open(path) as source:
            original = source.read()
        # A fault may be spelt for older code too: the first spelling found once is planted.
        spellings = list(zip(text, replacement)) if isinstance(text, tuple) else [(text, replacement)]
        text, replacement = next(((t, r) for t, r in spellings if original.count(t) == 1), spellings[0])
        if original.count(text) != 1:
            print(f"| {ident} | {area} | {fault} | (not applicable: the code differs) |", flush=True)
            continue
        tests = sorted({name for short in reach for name in suite[short]})
        try:
            with open(path, "w") as source:
                source.write(original.replace(text, replacement))
            built = run(["cmake", "--build", build])
            if built.returncode != 0:
                print(f"| {ident} | {area} | {fault} | (does not build) |", flush=True)
                continue
            caught = [name for name in tests
                      if run(["ctest", "--test-dir", build, "-R", f"^{name}$", "--timeout", "400"]).returncode != 0]
        finally:
            with open(path, "w") as source:
                source.write(original)
        print(f"| {ident} | {area} | {fault} | {', '.join(caught) or '**nothing**'} |", flush=True)
    run(["cmake", "--build", build])


if __name__ == "__main__":
    main()
