#!/usr/bin/env bash
# Mutation check of the library: applies each fault of scripts/mutations.txt in turn, rebuilds
# the tests in build/mutate, runs them, and reports the faults the suite let through. It takes
# a while (a rebuild and a test run per fault); it is for people, not for CI.
#
#   scripts/mutate.sh                 every mutation
#   scripts/mutate.sh pdd job-abort-state    a folder and one mutation by id
#   scripts/mutate.sh --list          the mutations, and whether each still applies
#   scripts/mutate.sh -j1 --timeout 300
#   scripts/mutate.sh --matrix kills.txt   every test under each fault: which tests catch what
#
# The file under mutation is always put back: on normal exit, on Ctrl-C or a kill signal by
# the script itself, and, after a hard kill, by this wrapper or the next run from a journal in
# the build directory.
set -u
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
build_dir="$here/../build/mutate"
for ((i = 1; i <= $#; i++)); do
    case "${!i}" in
    --build-dir) j=$((i + 1)); build_dir="${!j}" ;;
    --build-dir=*) build_dir="${!i#--build-dir=}" ;;
    esac
done
restore() { python3 "$here/mutate.py" --restore-only --build-dir "$build_dir"; }
trap restore EXIT
# The script runs in the background so that a signal to this shell reaches it at once; it puts
# its file back itself, and the EXIT trap covers a script that could not.
python3 "$here/mutate.py" "$@" &
child=$!
trap 'kill -TERM "$child" 2>/dev/null; wait "$child"; exit 130' INT TERM HUP
wait "$child"
rc=$?
exit $rc
