#!/usr/bin/env python3
"""Refuses includes that break Sayvo's layering.

Every quoted include must name its folder from one of the include roots (core/ for the
client's subsystems, the project's top for ui/, app/ and engine/, tests/ for test code) and
resolve to exactly one file. A subsystem includes only from the layers below it (and the few
neighbours listed in SIDEWAYS); nothing includes the composition root app/ but tests; the
headers in a subsystem's platform folders (x11/, macos/, pulse/, ...) are its own business;
the protocol library stays free of Qt, whatever it reaches through base/.

Usage: check-layers.py [PROJECT_ROOT]   exit 0 when clean, 1 with one line per finding.
"""

import os
import re
import sys

# Lowest first. A subsystem may include from any lower layer.
LAYERS = {
    "base": 0,
    "protocol": 0,
    "store": 1,
    "engineclient": 1,
    "audio": 1,
    "desktop": 1,
    "runtime": 1,
    "session": 2,
    "calibration": 2,
    "ui": 3,
    "app": 4,
}

# Includes within one layer that the libraries' links allow.
SIDEWAYS = {
    ("protocol", "base"),  # Expected.h, which is header-only and free of Qt
    ("desktop", "store"),  # the trigger key and insertion method settings
    ("calibration", "session"),  # calibration runs through the coordinator
}

# The reference engine is a program of its own: it shares only the wire protocol and base.
ENGINE_MAY_INCLUDE = {"engine", "protocol", "base"}

SOURCE_FOLDERS = ("app", "core", "ui", "engine", "tests")
SOURCE_SUFFIXES = (".h", ".hpp", ".cpp", ".mm")
# Headers a build step writes (moc, rcc, uic, wayland-scanner); they are not in the tree.
GENERATED = re.compile(r"(^|/)(moc_[^/]*|[^/]*\.moc|ui_[^/]*\.h|qrc_[^/]*|[^/]*-protocol\.h)$")
INCLUDE = re.compile(r'^\s*#\s*(?:include|import)\s+"([^"]+)"')
QT_INCLUDE = re.compile(r"^\s*#\s*include\s+<Q")


def subsystem(path):
    """The subsystem a project path belongs to, and whether it lies in a platform folder."""
    parts = path.split("/")
    if parts[0] == "core" and len(parts) > 2:
        return parts[1], len(parts) > 3
    if parts[0] in ("ui", "app"):
        return parts[0], len(parts) > 2
    return parts[0], False


def source_files(root):
    for top in SOURCE_FOLDERS:
        for folder, dirs, files in os.walk(os.path.join(root, top)):
            dirs[:] = sorted(d for d in dirs if not d.startswith("."))
            for name in sorted(files):
                if name.endswith(SOURCE_SUFFIXES):
                    yield os.path.relpath(os.path.join(folder, name), root).replace(os.sep, "/")


def roots_for(path):
    roots = ["core/", ""]
    if path.startswith("tests/"):
        roots.append("tests/")
    return roots


def allowed(source, target):
    """None when `source` may include from `target`, else why not."""
    if source == target or source == "tests":
        return None
    if target == "tests":
        return "product code includes test code"
    if target == "app":
        return "only the composition root includes from app/"
    if source == "engine" or target == "engine":
        if source == "engine" and target in ENGINE_MAY_INCLUDE:
            return None
        return "the reference engine and the client share only protocol/ and base/"
    if source not in LAYERS or target not in LAYERS:
        return f"unknown subsystem {source if source not in LAYERS else target}"
    if LAYERS[target] < LAYERS[source] or (source, target) in SIDEWAYS:
        return None
    if LAYERS[target] > LAYERS[source]:
        return f"{source} (layer {LAYERS[source]}) includes upward from {target} (layer {LAYERS[target]})"
    return f"{source} includes sideways from {target}, which its layer does not allow"


def check(root):
    files = set(source_files(root))
    includes = {}  # file -> [(line number, spelled include, resolved path or None)]
    findings = []
    for path in sorted(files):
        with open(os.path.join(root, path), encoding="utf-8", errors="replace") as handle:
            lines = handle.read().splitlines()
        includes[path] = []
        for number, line in enumerate(lines, 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            spelled = match.group(1)
            where = f"{path}:{number}"
            if GENERATED.search(spelled):
                continue
            if "/" not in spelled:
                findings.append(f'{where}: "{spelled}" names no folder; write it from its include root')
                continue
            hits = [r + spelled for r in roots_for(path) if (r + spelled) in files]
            if not hits:
                findings.append(f'{where}: "{spelled}" is no file under an include root')
                continue
            if len(hits) > 1:
                findings.append(f'{where}: "{spelled}" could be {" or ".join(hits)}')
                continue
            target_path = hits[0]
            includes[path].append((number, spelled, target_path))
            source, _ = subsystem(path)
            target, in_platform_folder = subsystem(target_path)
            reason = allowed(source, target)
            if reason:
                findings.append(f'{where}: "{spelled}": {reason}')
            elif in_platform_folder and source not in (target, "app", "tests"):
                findings.append(
                    f'{where}: "{spelled}" is a platform adapter of {target}; '
                    f"only {target}, app/ and tests include it")

    # The protocol library is shared with the engine and the fuzzers without Qt.
    for path in sorted(p for p in files if subsystem(p)[0] == "protocol"):
        seen, stack = set(), [path]
        while stack:
            current = stack.pop()
            if current in seen:
                continue
            seen.add(current)
            with open(os.path.join(root, current), encoding="utf-8", errors="replace") as handle:
                if any(QT_INCLUDE.match(line) for line in handle):
                    chain = "" if current == path else f" through {current}"
                    findings.append(f"{path}: protocol/ must not use Qt, but reaches it{chain}")
                    break
            stack.extend(target for _, _, target in includes.get(current, []))
    return files, includes, findings


def main(argv):
    root = os.path.abspath(argv[1] if len(argv) > 1 else os.path.join(os.path.dirname(__file__), ".."))
    files, includes, findings = check(root)
    for finding in findings:
        print(finding)
    count = sum(len(v) for v in includes.values())
    if findings:
        print(f"layers: {len(findings)} finding(s) in {len(files)} files")
        return 1
    print(f"layers: {len(files)} files, {count} includes, every one downward and named")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
