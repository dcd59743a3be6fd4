#!/usr/bin/env python3
"""Checks, on Linux, that what is built for macOS too would compile there.

Usage: check-portability.py COMPILE_COMMANDS --shared FILE… --macos FILE…

Every shared source is compiled as the build compiles it, but without QtDBus and with
Tools/Portability/linux-only.h forced in first, so a Linux-only call of the C library, or D-Bus,
is an error; then again by clang against libc++, the compiler and standard library macOS builds
with, warnings as errors. Every macOS-only source is parsed by clang as the Mac would parse it: Objective-C++
against GNUstep's AppKit and Foundation, Qt's own headers with their Darwin-only declarations
switched on, and the small stand-ins of Tools/Portability/macos-stand-ins for what neither
provides. Warnings are errors there, so an undeclared selector fails as it would under ARC.
Nothing is linked or run: a Mac has to do that.

First it checks the layers, from the includes of every file in Sources/VeltraneTray: Core includes
no widget header and nothing of UI or App; a shared file includes no platform folder's header; a
platform folder (Linux/, macOS/) includes no other platform's.
"""
import argparse
import concurrent.futures
import json
import os
import re
import shlex
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PORTABILITY = os.path.join(ROOT, "Tools", "Portability")
APP = os.path.join(ROOT, "Sources", "VeltraneTray")
PLATFORMS = ("Linux", "macOS")
INCLUDE = re.compile(r'^\s*#\s*(?:include|import)\s*([<"])([^>"]+)[>"]', re.M)


def layering_findings(widget_headers):
    """Includes that cross the layers' lines, one sentence each."""
    def placed(path):  # (layer, platform or None) of a file under the app's folder
        parts = os.path.relpath(path, APP).split(os.sep)
        return parts[0], parts[1] if len(parts) > 2 and parts[1] in PLATFORMS else None

    files = [os.path.join(folder, name) for folder, _, names in os.walk(APP) for name in names
             if name.endswith((".h", ".cpp", ".mm"))]
    headers = {}
    for path in files:
        if path.endswith(".h"):
            headers.setdefault(os.path.basename(path), []).append(path)
    findings = []
    for path in files:
        layer, platform = placed(path)
        name = os.path.relpath(path, ROOT)
        for bracket, included in INCLUDE.findall(open(path, encoding="utf-8").read()):
            if bracket == "<":
                if layer == "Core" and included.split("/")[-1] in widget_headers:
                    findings.append(f"{name}: the core includes the widget header <{included}>")
                continue
            for header in headers.get(os.path.basename(included), []):
                their_layer, their_platform = placed(header)
                where = os.path.relpath(header, ROOT)
                if layer == "Core" and their_layer != "Core":
                    findings.append(f"{name}: the core includes {where}")
                if their_platform and platform is None:
                    findings.append(f"{name}: shared code includes {where}, a platform's")
                if their_platform and platform and their_platform != platform:
                    findings.append(f"{name}: {platform} code includes {where}, {their_platform}'s")
    return findings


def widget_headers(entries):
    """The names QtWidgets' headers go by, from the include directory the build uses for it."""
    for entry in entries:
        for word in shlex.split(entry["command"]):
            folder = word[2:] if word.startswith("-I") else word
            if folder.rstrip("/").endswith("/QtWidgets") and os.path.isdir(folder):
                return set(os.listdir(folder)) | {"QtWidgets"}
    sys.exit("QtWidgets' include directory is not in the build's compile commands")


def without_dbus(words):
    """The words of a command without QtDBus, which the Mac build neither links nor includes."""
    kept = []
    for word in words:
        if kept and kept[-1] in ("-I", "-isystem") and word.endswith("/QtDBus"):
            kept.pop()
        elif not (word.endswith("/QtDBus") or word == "-DQT_DBUS_LIB"):
            kept.append(word)
    return kept


def shared_command(entry):
    """The build's own command for one file, checking only, with the Linux-only names poisoned."""
    kept, skip = [], False
    for word in without_dbus(shlex.split(entry["command"])):
        if skip:
            skip = False
        elif word in ("-o", "-MF", "-MT", "-MQ"):
            skip = True
        elif word not in ("-c", "-MD", "-MMD", entry["file"]):
            kept.append(word)
    return kept + ["-fsyntax-only", "-include", os.path.join(PORTABILITY, "linux-only.h"), entry["file"]]


def libcxx_command(entry):
    """The file checked as macOS's toolchain compiles shared code: clang and libc++."""
    return ["clang++", "-std=c++20", "-stdlib=libc++", "-fsyntax-only", "-Werror", "-Wall", "-Wextra", "-Wpedantic",
            "-include", os.path.join(PORTABILITY, "linux-only.h"), *search_flags(entry), entry["file"]]


def search_flags(entry):
    """The include directories and definitions of one of the build's commands."""
    words, flags = without_dbus(shlex.split(entry["command"])), []
    for at, word in enumerate(words):
        if word in ("-I", "-isystem") and at + 1 < len(words):
            flags += [word, words[at + 1]]
        elif word.startswith(("-I", "-D", "-isystem")) and len(word) > 2:
            flags.append(word)
    return flags


def objective_cxx_flags():
    """How clang parses an Objective-C++ file against GNUstep's AppKit, as a Mac would parse it."""
    gnustep = subprocess.run(["gnustep-config", "--objc-flags"], capture_output=True, text=True, check=True)
    objc = [w for w in gnustep.stdout.split() if w.startswith(("-D", "-I/"))]
    # GNUstep on Debian is built on GCC's Objective-C runtime, whose headers sit with GCC's own.
    runtime = subprocess.run(["gcc", "-print-file-name=include"], capture_output=True, text=True, check=True)
    return ["-x", "objective-c++", "-fobjc-runtime=gcc", "-fblocks", "-fobjc-exceptions",
            "-I" + os.path.join(PORTABILITY, "gnustep-glue"), *objc, "-idirafter", runtime.stdout.strip(),
            "-include", os.path.join(PORTABILITY, "macos-stand-ins", "AppKitStandIns.h")]


def macos_command(path, flags, objc_flags):
    darwin = ["clang++", "-std=c++20", "-fsyntax-only", "-Werror", "-Wno-macro-redefined",
              "-DQ_OS_DARWIN", "-DQ_OS_MACOS", "-I" + os.path.join(PORTABILITY, "macos-stand-ins")]
    # The app's platform folders as a Mac build has them: macOS's, not Linux's.
    mac_flags = [re.sub(r"/Linux$", "/macOS", word) if word.startswith(("-I", APP)) else word for word in flags]
    return darwin + (objc_flags if path.endswith(".mm") else []) + mac_flags + [path]


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("compile_commands")
    arguments.add_argument("--shared", nargs="+", required=True)
    arguments.add_argument("--macos", nargs="+", required=True)
    options = arguments.parse_args()
    compile_commands = json.load(open(options.compile_commands))
    entries = {os.path.realpath(e["file"]): e for e in compile_commands}

    crossings = layering_findings(widget_headers(compile_commands))
    print(("FAIL " if crossings else "ok   ") + "the layers' includes", flush=True)
    for crossing in crossings:
        print("     " + crossing, flush=True)

    commands = {}
    for path in options.shared:
        entry = entries.get(os.path.realpath(path))
        if entry is None:
            sys.exit(f"{path}: not in the build's compile commands")
        commands[path] = (shared_command(entry), entry["directory"])
        commands[path + " (clang, libc++)"] = (libcxx_command(entry), entry["directory"])
    # The app's entry is built with every include directory of the core and the UI.
    entry_point = next(e for p, e in entries.items() if p.endswith(os.path.join("VeltraneTray", "App", "main.cpp")))
    flags, objc_flags = search_flags(entry_point), objective_cxx_flags()
    for path in map(os.path.abspath, options.macos):
        commands[path] = (macos_command(path, flags, objc_flags), entry_point["directory"])

    def check(item):
        path, (command, directory) = item
        done = subprocess.run(command, cwd=directory, capture_output=True, text=True)
        return path, done.returncode, done.stderr

    failed = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count() or 2) as pool:
        for path, status, errors in pool.map(check, sorted(commands.items())):
            name = os.path.relpath(path, ROOT)
            print(("ok   " if status == 0 else "FAIL ") + name, flush=True)
            if status != 0:
                failed += 1
                print(errors, flush=True)
    failed += bool(crossings)
    print(f"{len(commands) + 1 - failed} passed, {failed} failed")
    return 1 if failed else 0


sys.exit(main())
