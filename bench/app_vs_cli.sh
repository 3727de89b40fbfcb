#!/usr/bin/env bash
# The printer application's cost over the command line: the same 20-page PDF printed N times
# through q417-printer-app (IPP upload, spooling, a worker process, the device) and N times
# with `q417 print`, one job after the other; jobs a minute for each and their ratio (the goal
# is at most 1.3). Also the application's memory (resident set) when idle, and at its highest
# while the jobs run, alone and with its job workers.
#
# Usage: bench/app_vs_cli.sh [BUILD_DIR] [JOBS]
#   BUILD_DIR  default build/default (q417, q417-printer-app and bench/pdfgen's generator)
#   JOBS       jobs each way, default 5
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/default}
jobs=${2:-5}
q417=$build/tools/q417
app=$build/app/q417-printer-app
gen=$build/bench/pdfgen/q417_make_doc
for tool in "$q417" "$app" "$gen"; do
  [ -x "$tool" ] || { echo "app_vs_cli: $tool is missing (cmake --build --preset default)" >&2; exit 1; }
done
command -v ipptool >/dev/null || { echo "app_vs_cli: ipptool is missing (apt-get install cups-ipp-utils)" >&2; exit 1; }

work=$(mktemp -d)
pid= printer=
cleanup() {
  [ -n "$pid" ] && kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null
  [ -n "$printer" ] && kill "$printer" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
export Q417_HOME=$work/home HOME=$work TMPDIR=$work
doc=$work/doc20.pdf
"$gen" "$doc" 20 >/dev/null

port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
# The printer: a port on 127.0.0.1 that takes each job's stream and keeps the last one, for
# the application and the command line alike.
python3 -c '
import socket, sys
s = socket.socket(); s.bind(("127.0.0.1", 0)); s.listen(4)
print(s.getsockname()[1], flush=True)
while True:
    c, _ = s.accept()
    with open(sys.argv[1], "wb") as f:
        while True:
            b = c.recv(1 << 16)
            if not b: break
            f.write(b)
    c.close()
' "$work/app-out.prn" >"$work/printer-port" &
printer=$!
for _ in $(seq 50); do [ -s "$work/printer-port" ] && break; sleep 0.1; done
spool=$work/spool
mkdir "$work/share" # the descriptions where their compiled configurations may go
cp "$root"/share/{qcl4100.pdd,qml2400.pdd,QMWMARK.INI} "$work/share"
"$app" server -o listen-hostname=127.0.0.1 -o server-port="$port" -o spool-directory="$spool" \
  -o pdd-directory="$work/share" -o log-level=warn &
pid=$!
for _ in $(seq 100); do
  [ -S "$spool/q417-printer-app.sock" ] && break
  sleep 0.1
done
sleep 0.5
"$app" add -o spool-directory="$spool" -d bench -m qcl4100 -v "socket://127.0.0.1:$(cat "$work/printer-port")" >/dev/null
uri="ipp://127.0.0.1:$port/ipp/print/bench"

cat >"$work/job.test" <<'EOF'
{
  NAME "Print the document"
  OPERATION Print-Job
  GROUP operation-attributes-tag
  ATTR charset attributes-charset utf-8
  ATTR language attributes-natural-language en
  ATTR uri printer-uri $uri
  ATTR name requesting-user-name bench
  ATTR mimeMediaType document-format application/pdf
  FILE $filename
  STATUS successful-ok
}
{
  NAME "Wait for the job"
  DELAY "0,0.05"
  OPERATION Get-Job-Attributes
  GROUP operation-attributes-tag
  ATTR charset attributes-charset utf-8
  ATTR language attributes-natural-language en
  ATTR uri printer-uri $uri
  ATTR integer job-id $job-id
  ATTR name requesting-user-name bench
  STATUS successful-ok
  EXPECT job-state WITH-VALUE >6 REPEAT-NO-MATCH
  EXPECT job-state WITH-VALUE 9
}
EOF

rss() { # kB; 0 for a process gone (or going)
  local v
  v=$(awk '/^VmRSS/ {print $2}' "/proc/$1/status" 2>/dev/null || true)
  echo "${v:-0}"
}
tree_rss() { # the application and its workers
  local total
  total=$(rss "$pid")
  for c in $(pgrep -P "$pid" || true); do total=$((total + $(rss "$c"))); done
  echo "$total"
}

echo "machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//')"
echo "document: 20 pages (bench/pdfgen), $(stat -c %s "$doc") bytes; colour sample, defaults; $jobs jobs each way"

sink="socket://127.0.0.1:$(cat "$work/printer-port")" # both print to the same port
now() { date +%s.%N; }

# Warm-up: the compiled configuration and the page cache.
"$q417" print "$doc" -o "$sink" >/dev/null 2>&1
ipptool -t -f "$doc" "$uri" "$work/job.test" >/dev/null
idle=$(rss "$pid")

(
  while kill -0 "$pid" 2>/dev/null; do
    echo "$(rss "$pid") $(tree_rss)"
    sleep 0.05
  done
) >"$work/samples" &
sampler=$!

# Runs alternate, so that whatever else the machine does weighs on both alike.
: >"$work/app.times"
: >"$work/cli.times"
for _ in $(seq "$jobs"); do
  t=$(now)
  ipptool -t -f "$doc" "$uri" "$work/job.test" >/dev/null || { echo "app_vs_cli: a job failed" >&2; exit 1; }
  echo "$(now) - $t" | bc >>"$work/app.times"
  cp "$work/app-out.prn" "$work/app-last.prn"
  t=$(now)
  "$q417" print "$doc" -o "$sink" >/dev/null 2>&1 || { echo "app_vs_cli: q417 print failed" >&2; exit 1; }
  echo "$(now) - $t" | bc >>"$work/cli.times"
done
kill "$sampler" 2>/dev/null || true
wait "$sampler" 2>/dev/null || true
peak_app=$(sort -n -k1 "$work/samples" | tail -1 | awk '{print $1}')
peak_tree=$(sort -n -k2 "$work/samples" | tail -1 | awk '{print $2}')

median() { sort -n "$1" | awk '{v[NR]=$1} END {print (NR%2) ? v[(NR+1)/2] : (v[NR/2]+v[NR/2+1])/2}'; }
app_time=$(median "$work/app.times")
cli_time=$(median "$work/cli.times")
echo
printf '%-34s %8s %10s\n' "median of $jobs" "jobs/min" "s/job"
printf '%-34s %8.1f %10.2f\n' "q417 print" "$(echo "60 / $cli_time" | bc -l)" "$cli_time"
printf '%-34s %8.1f %10.2f\n' "q417-printer-app (ipptool)" "$(echo "60 / $app_time" | bc -l)" "$app_time"
echo "overhead: $(echo "scale=2; $app_time / $cli_time" | bc)x the command line's time (goal <= 1.3)"
echo "stream bytes: app $(stat -c %s "$work/app-last.prn"), cli $(stat -c %s "$work/app-out.prn")"
echo
echo "application memory (resident): idle $((idle / 1024)) MiB; while printing $((peak_app / 1024)) MiB alone, $((peak_tree / 1024)) MiB with its worker"
