#!/usr/bin/env python3
"""Mutation check of the library: applies each small fault of scripts/mutations.txt to its
source file, one at a time, rebuilds the tests incrementally, runs them, puts the file back,
and tells which faults the suite let through.

Run it through scripts/mutate.sh; `scripts/mutate.sh --help` lists the options.
"""

import argparse
import fcntl
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
LIBRARY_FOLDERS = ["platform", "job", "stream", "watermark", "halftone", "pdd", "config", "ddi"]
DEFAULT_LIST = os.path.join(ROOT, "scripts", "mutations.txt")
DEFAULT_BUILD = os.path.join(ROOT, "build", "mutate")
JOURNAL = "mutate-journal.json"  # in the build directory: files to put back after a crash


class Mutation:
    def __init__(self, mid, path, line):
        self.id = mid
        self.path = path  # relative to ROOT
        self.line = line  # in the list file
        self.what = ""
        self.original = []
        self.replacement = []

    @property
    def folder(self):
        return self.path.split("/", 1)[0]

    def texts(self):
        return "\n".join(self.original), "\n".join(self.replacement)


def parse_list(path):
    """The list: a block a mutation.

        == <id> <file>
        what: <one line>
        -<original line>        one or more; the text after '-' exactly, indentation included
        +<replacement line>     none or more; none deletes the original text

    Original lines are joined with newlines and must occur exactly once in the file.
    Lines starting with '#' and blank lines between blocks are ignored."""
    mutations, errors, cur = [], [], None
    with open(path, encoding="utf-8") as f:
        for n, raw in enumerate(f, 1):
            line = raw.rstrip("\n")
            if line.startswith("== "):
                parts = line[3:].split()
                if len(parts) != 2:
                    errors.append(f"{path}:{n}: expected '== <id> <file>'")
                    cur = None
                    continue
                cur = Mutation(parts[0], parts[1], n)
                mutations.append(cur)
            elif line.startswith("#") or not line.strip():
                continue
            elif cur is None:
                errors.append(f"{path}:{n}: text outside a mutation block")
            elif line.startswith("what:"):
                cur.what = line[5:].strip()
            elif line.startswith("-"):
                cur.original.append(line[1:])
            elif line.startswith("+"):
                cur.replacement.append(line[1:])
            else:
                errors.append(f"{path}:{n}: unexpected line in block {cur.id}")
    seen = set()
    for m in mutations:
        if m.id in seen:
            errors.append(f"{path}:{m.line}: id {m.id} used twice")
        seen.add(m.id)
        if not m.original:
            errors.append(f"{path}:{m.line}: {m.id} has no original text")
        if not m.what:
            errors.append(f"{path}:{m.line}: {m.id} has no description")
        if m.folder not in LIBRARY_FOLDERS:
            errors.append(f"{path}:{m.line}: {m.id}: {m.path} is outside the library folders")
    return mutations, errors


def applicability(m):
    """None when the mutation can be applied, else why not."""
    full = os.path.join(ROOT, m.path)
    if not os.path.isfile(full):
        return "file not found"
    with open(full, encoding="utf-8") as f:
        text = f.read()
    original, replacement = m.texts()
    count = text.count(original)
    if count == 0:
        return "original text not found"
    if count > 1:
        return f"original text found {count} times"
    if original == replacement:
        return "replacement equals the original"
    return None


# ---- Putting files back ----------------------------------------------------------------------


class Restorer:
    """Holds the original of the file under mutation, in memory and in a journal on disk, so
    that an interrupted run (or the next run, after a kill) puts it back."""

    def __init__(self, build_dir):
        self.journal = os.path.join(build_dir, JOURNAL)
        self.held = None  # (full path, original bytes)

    def recover(self):
        if not os.path.exists(self.journal):
            return
        with open(self.journal, encoding="utf-8") as f:
            entry = json.load(f)
        with open(entry["backup"], "rb") as f:
            data = f.read()
        with open(entry["path"], "wb") as f:
            f.write(data)
        os.remove(entry["backup"])
        os.remove(self.journal)
        print(f"put back {entry['path']} from an interrupted run", file=sys.stderr)

    def mutate(self, full, new_bytes):
        with open(full, "rb") as f:
            old = f.read()
        backup = self.journal + ".orig"
        with open(backup, "wb") as f:
            f.write(old)
        with open(self.journal + ".tmp", "w", encoding="utf-8") as f:
            json.dump({"path": full, "backup": backup}, f)
        os.replace(self.journal + ".tmp", self.journal)
        self.held = (full, old)
        with open(full, "wb") as f:
            f.write(new_bytes)

    def restore(self):
        if not self.held:
            return
        full, old = self.held
        with open(full, "wb") as f:
            f.write(old)
        self.held = None
        for p in (self.journal + ".orig", self.journal):
            if os.path.exists(p):
                os.remove(p)


class Interrupted(Exception):
    pass


def on_signal(signum, _frame):
    # Once: a second signal must not cut the putting back short.
    for s in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(s, signal.SIG_IGN)
    raise Interrupted(signal.Signals(signum).name)


# ---- Building and testing ------------------------------------------------------------------


def run_logged(cmd, log, timeout=None):
    """Runs cmd in a process group of its own, output to log. Returns (exit code, seconds);
    the code is None when the time ran out, and then the whole group is killed."""
    start = time.monotonic()
    with open(log, "w", encoding="utf-8") as out:
        out.write("$ " + " ".join(cmd) + "\n")
        out.flush()
        p = subprocess.Popen(cmd, stdout=out, stderr=subprocess.STDOUT, start_new_session=True)
        try:
            rc = p.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            rc = None
        except BaseException:
            kill_group(p)
            raise
        if rc is None:
            kill_group(p)
    return rc, time.monotonic() - start


def kill_group(p):
    try:
        os.killpg(p.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    p.wait()


def configure(build_dir, log):
    if os.path.exists(os.path.join(build_dir, "CMakeCache.txt")):
        return True
    os.makedirs(build_dir, exist_ok=True)
    rc, _ = run_logged(
        ["cmake", "-S", ROOT, "-B", build_dir, "-DCMAKE_BUILD_TYPE=RelWithDebInfo"], log
    )
    return rc == 0


def test_targets(build_dir):
    out = subprocess.run(
        ["cmake", "--build", build_dir, "--target", "help"],
        capture_output=True, text=True, check=True,
    ).stdout
    replays = sorted(set(re.findall(r"\b(fuzz_\w+_replay)\b", out)))
    return ["q417_tests"] + replays


def build(build_dir, targets, jobs, log, timeout):
    cmd = ["cmake", "--build", build_dir, "--target", *targets, "-j", str(jobs)]
    rc, secs = run_logged(cmd, log, timeout)
    return rc == 0, secs


def run_tests(build_dir, jobs, log, timeout, every=False):
    # The cups and app tests start servers around the front ends: the rebuilt targets don't
    # include them, and the library's faults are the unit tests' to catch.
    cmd = ["ctest", "--test-dir", build_dir, "-j", str(jobs),
           "--output-on-failure", "--timeout", str(int(timeout)), "-LE", "^(cups|app)$"]
    if not every:
        cmd.append("--stop-on-failure")
    rc, secs = run_logged(cmd, log, timeout)
    return rc, secs


def failed_tests(log):
    names = []
    try:
        with open(log, encoding="utf-8", errors="replace") as f:
            text = f.read()
    except OSError:
        return names
    tail = text.split("The following tests FAILED:", 1)
    if len(tail) == 2:
        for line in tail[1].splitlines():
            m = re.match(r"\s*\d+ - (\S+)", line)
            if m:
                names.append(m.group(1))
    return names


def compile_error(log, path):
    """Whether the build failed in the compiler on the mutated file."""
    try:
        with open(log, encoding="utf-8", errors="replace") as f:
            text = f.read()
    except OSError:
        return False
    return re.search(re.escape(path) + r":\d+:\d+: error", text) is not None


# ---- Main ----------------------------------------------------------------------------------


def select(mutations, wanted):
    if not wanted:
        return mutations
    chosen, unknown = [], []
    for w in wanted:
        key = w.rstrip("/")
        hits = [m for m in mutations
                if m.id == key or m.folder == key or m.path == key or m.path.startswith(key + "/")]
        if not hits:
            unknown.append(w)
        for m in hits:
            if m not in chosen:
                chosen.append(m)
    if unknown:
        sys.exit("mutate: no mutation, folder or file named " + ", ".join(unknown))
    return [m for m in mutations if m in chosen]  # in list order


def main():
    ap = argparse.ArgumentParser(
        prog="mutate.sh",
        description="Applies each library fault of the mutation list in turn, rebuilds the "
        "tests and runs them, and reports the faults the suite did not catch.",
    )
    ap.add_argument("select", nargs="*",
                    help="mutation ids, library folders (e.g. pdd) or files; default: all")
    ap.add_argument("-l", "--list", action="store_true",
                    help="list the mutations and whether each applies, then stop")
    ap.add_argument("-j", "--jobs", type=int, default=2, help="build and test jobs (default 2)")
    ap.add_argument("--timeout", type=float, default=0,
                    help="seconds a test run may take before the mutation counts as caught "
                    "(default: 20 times the clean run, at least 120)")
    ap.add_argument("--build-timeout", type=float, default=1800,
                    help="seconds a rebuild may take (default 1800)")
    ap.add_argument("--build-dir", default=DEFAULT_BUILD,
                    help="build directory, configured once (default build/mutate)")
    ap.add_argument("--mutations", default=DEFAULT_LIST, help="the mutation list")
    ap.add_argument("--matrix", metavar="FILE",
                    help="run every test under each fault and write the ones that fail, one "
                    "line a fault, to FILE (slower; shows which tests catch what)")
    ap.add_argument("--restore-only", action="store_true", help=argparse.SUPPRESS)
    args = ap.parse_args()

    build_dir = os.path.abspath(args.build_dir)
    os.makedirs(build_dir, exist_ok=True)
    # One run at a time on a build directory; the lock goes with the process, however it ends.
    lock = open(os.path.join(build_dir, "mutate.lock"), "w")
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        locked = True
    except BlockingIOError:
        locked = False
        if args.restore_only:
            return 0  # the run that holds it puts its own file back
        if not args.list:
            sys.exit(f"mutate: another run is using {build_dir}")
    restorer = Restorer(build_dir)
    if locked:
        restorer.recover()
    if args.restore_only:
        return 0

    mutations, errors = parse_list(args.mutations)
    if errors:
        print("\n".join(errors), file=sys.stderr)
        return 2
    chosen = select(mutations, args.select)

    if args.list:
        per_folder = {f: 0 for f in LIBRARY_FOLDERS}
        for m in chosen:
            why = applicability(m)
            per_folder[m.folder] += 1
            print(f"{m.id:34} {m.path:28} {'n/a: ' + why if why else 'ok':10}  {m.what}")
        print(f"{len(chosen)} mutations: "
              + ", ".join(f"{f} {n}" for f, n in per_folder.items()))
        return 0

    for s in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(s, on_signal)

    logs = os.path.join(build_dir, "mutate-logs")
    started = time.monotonic()
    results = []  # (mutation, verdict, detail)
    try:
        os.makedirs(build_dir, exist_ok=True)
        if os.path.isdir(logs):
            shutil.rmtree(logs)
        os.makedirs(logs)
        if not configure(build_dir, os.path.join(logs, "configure.log")):
            print(f"mutate: configuring {build_dir} failed; see {logs}/configure.log",
                  file=sys.stderr)
            return 2
        targets = test_targets(build_dir)
        print(f"build directory {build_dir}; targets: {' '.join(targets)}", flush=True)

        ok, secs = build(build_dir, targets, args.jobs, os.path.join(logs, "clean-build.log"),
                         args.build_timeout)
        if not ok:
            print(f"mutate: the unmutated tree does not build; see {logs}/clean-build.log",
                  file=sys.stderr)
            return 2
        rc, clean_secs = run_tests(build_dir, args.jobs, os.path.join(logs, "clean-test.log"),
                                   max(600, args.timeout))
        if rc != 0:
            print(f"mutate: the suite fails without any mutation; see {logs}/clean-test.log",
                  file=sys.stderr)
            return 2
        timeout = args.timeout or max(120.0, 20 * clean_secs)
        print(f"clean run: build {secs:.0f} s, tests {clean_secs:.1f} s; "
              f"a test run over {timeout:.0f} s counts as caught", flush=True)

        for i, m in enumerate(chosen, 1):
            head = f"[{i}/{len(chosen)}] {m.id}"
            why = applicability(m)
            if why:
                results.append((m, "n/a", why))
                print(f"{head}: NOT APPLICABLE ({why})", flush=True)
                continue
            full = os.path.join(ROOT, m.path)
            with open(full, encoding="utf-8") as f:
                text = f.read()
            original, replacement = m.texts()
            blog = os.path.join(logs, m.id + ".build.log")
            tlog = os.path.join(logs, m.id + ".test.log")
            t0 = time.monotonic()
            try:
                restorer.mutate(full, text.replace(original, replacement, 1).encode("utf-8"))
                ok, _ = build(build_dir, targets, args.jobs, blog, args.build_timeout)
                if not ok:
                    if compile_error(blog, m.path):
                        verdict, detail = "caught", "does not compile: fix this mutation"
                    else:
                        verdict, detail = "caught", "build failed (test discovery or link)"
                else:
                    rc, _ = run_tests(build_dir, args.jobs, tlog, timeout, bool(args.matrix))
                    if rc is None:
                        verdict, detail = "caught", f"tests ran past {timeout:.0f} s"
                    elif rc != 0:
                        names = failed_tests(tlog)
                        shown = ", ".join(names[:3]) + (" ..." if len(names) > 3 else "")
                        verdict, detail = "caught", shown or f"ctest exit {rc}"
                    else:
                        verdict, detail = "MISSED", m.what
            finally:
                restorer.restore()
            results.append((m, verdict, detail))
            if args.matrix:
                with open(args.matrix, "a", encoding="utf-8") as f:
                    f.write(f"{m.id}: {' '.join(failed_tests(tlog)) or verdict}\n")
            print(f"{head}: {verdict} ({time.monotonic() - t0:.0f} s) {detail}", flush=True)
    except Interrupted as e:
        restorer.restore()
        print(f"\nmutate: stopped by {e}; every file is back as it was", file=sys.stderr)
        report(results, started, partial=True)
        return 130
    finally:
        restorer.restore()

    # The tree is left as the tests last saw it unmutated: rebuild what the last restore touched.
    build(build_dir, targets, args.jobs, os.path.join(logs, "final-build.log"),
          args.build_timeout)
    report(results, started)
    return 0


def report(results, started, partial=False):
    caught = [r for r in results if r[1] == "caught"]
    missed = [r for r in results if r[1] == "MISSED"]
    na = [r for r in results if r[1] == "n/a"]
    broken = [r for r in caught if r[2].startswith("does not compile")]
    print()
    if missed:
        print("Not caught by the suite:")
        for m, _, _ in missed:
            print(f"  {m.id} ({m.path}): {m.what}")
    if na:
        print("Not applicable (the original text is gone or ambiguous):")
        for m, _, why in na:
            print(f"  {m.id} ({m.path}): {why}")
    if broken:
        print("Mutations that do not compile (counted as caught; fix them in the list):")
        for m, _, _ in broken:
            print(f"  {m.id} ({m.path})")
    mins = (time.monotonic() - started) / 60
    print(f"{'partial run: ' if partial else ''}{len(caught)} caught, {len(missed)} missed, "
          f"{len(na)} not applicable ({mins:.1f} min)")


if __name__ == "__main__":
    sys.exit(main())
