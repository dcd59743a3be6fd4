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
"""
import argparse
import concurrent.futures
import json
import os
import shlex
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PORTABILITY = os.path.join(ROOT, "Tools", "Portability")


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
    return darwin + (objc_flags if path.endswith(".mm") else []) + flags + [path]


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("compile_commands")
    arguments.add_argument("--shared", nargs="+", required=True)
    arguments.add_argument("--macos", nargs="+", required=True)
    options = arguments.parse_args()
    entries = {os.path.realpath(e["file"]): e for e in json.load(open(options.compile_commands))}

    commands = {}
    for path in options.shared:
        entry = entries.get(os.path.realpath(path))
        if entry is None:
            sys.exit(f"{path}: not in the build's compile commands")
        commands[path] = (shared_command(entry), entry["directory"])
        commands[path + " (clang, libc++)"] = (libcxx_command(entry), entry["directory"])
    # The app's entry is built with every include directory of the core and the UI.
    entry_point = next(e for p, e in entries.items() if p.endswith(os.path.join("VeltraneTray", "main.cpp")))
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
    print(f"{len(commands) - failed} passed, {failed} failed")
    return 1 if failed else 0


sys.exit(main())
