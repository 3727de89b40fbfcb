#!/usr/bin/env bash
# PDF to PCL, q417 against Ghostscript, as whole processes on the same document: the
# monochrome sample at 600 dpi against gs's ljet4, the colour sample at 300 dpi against
# cljet5. Runs alternate (q417, gs, q417, gs, ...) after a warm-up of each; the figures are
# medians: pages a second, bytes a page, peak memory (maximum resident set, from
# /usr/bin/time), and q417's over gs's.
#
# Usage: bench/pdf_vs_gs.sh [BUILD_DIR] [RUNS] [DOC.pdf]
#   BUILD_DIR  default build/default (q417 in tools/, the document in bench/pdfgen/)
#   RUNS       counted runs of each command, default 5
#   DOC.pdf    default the document built by bench/pdfgen (24 pages)
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/default}
runs=${2:-5}
doc=${3:-$build/bench/pdfgen/doc.pdf}
q417=$build/tools/q417

for tool in "$q417" /usr/bin/time; do
  [ -x "$tool" ] || { echo "pdf_vs_gs: $tool is missing (build first; apt-get install time)" >&2; exit 1; }
done
command -v gs >/dev/null || { echo "pdf_vs_gs: gs is missing (apt-get install ghostscript)" >&2; exit 1; }
[ -r "$doc" ] || { echo "pdf_vs_gs: $doc is missing (cmake --build --preset default)" >&2; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export Q417_HOME=$work/home # the samples and their compiled configuration, made once

pages=$(gs -q -dNODISPLAY -dNOSAFER -dNOPAUSE -dBATCH \
  -c "($doc) (r) file runpdfbegin pdfpagecount = quit" 2>/dev/null || true)
[[ "$pages" =~ ^[0-9]+$ ]] || { echo "pdf_vs_gs: can't count the pages of $doc" >&2; exit 1; }

echo "machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//')"
echo "document: $doc, $pages pages, $(stat -c %s "$doc") bytes"
echo "q417: $q417; $(gs --version | sed 's/^/Ghostscript /'); $runs runs each, medians"
echo

# One timed run: appends "wall_seconds peak_kb output_bytes" to $1; the rest is the command,
# whose output file is $work/out.
timed() {
  local log=$1
  shift
  rm -f "$work/out"
  /usr/bin/time -f '%e %M' -o "$work/time" "$@" >/dev/null 2>"$work/err" || {
    echo "pdf_vs_gs: failed: $*" >&2
    cat "$work/err" >&2
    exit 1
  }
  echo "$(cat "$work/time") $(stat -c %s "$work/out")" >>"$log"
}

median() { # column $2 of file $1
  sort -n -k"$2" "$1" | awk -v c="$2" '{v[NR]=$c} END {print (NR%2) ? v[(NR+1)/2] : (v[NR/2]+v[NR/2+1])/2}'
}

compare() {
  local name=$1 qargs=$2 gsargs=$3
  local ql=$work/$name.q417 gl=$work/$name.gs
  : >"$ql"
  : >"$gl"
  # shellcheck disable=SC2086 # the argument lists are split on purpose
  {
    timed "$work/warm" "$q417" print "$doc" $qargs -o "$work/out"
    timed "$work/warm" gs -q -dNOPAUSE -dBATCH -dSAFER $gsargs -sOutputFile="$work/out" "$doc"
    for ((i = 0; i < runs; ++i)); do
      timed "$ql" "$q417" print "$doc" $qargs -o "$work/out"
      timed "$gl" gs -q -dNOPAUSE -dBATCH -dSAFER $gsargs -sOutputFile="$work/out" "$doc"
    done
  }
  local qt gt qm gm qb gb
  qt=$(median "$ql" 1) gt=$(median "$gl" 1)
  qm=$(median "$ql" 2) gm=$(median "$gl" 2)
  qb=$(median "$ql" 3) gb=$(median "$gl" 3)
  awk -v n="$name" -v p="$pages" -v qt="$qt" -v gt="$gt" -v qm="$qm" -v gm="$gm" \
    -v qb="$qb" -v gb="$gb" -v qa="$qargs" -v ga="$gsargs" 'BEGIN {
    printf "%s\n  q417 print %s\n  gs %s\n", n, qa, ga
    printf "  %-16s %12s %12s %10s\n", "", "q417", "gs", "q417/gs"
    printf "  %-16s %12.2f %12.2f %10.2f\n", "seconds", qt, gt, qt / gt
    printf "  %-16s %12.2f %12.2f %10.2f\n", "pages/s", p / qt, p / gt, (p / qt) / (p / gt)
    printf "  %-16s %12.0f %12.0f %10.2f\n", "bytes/page", qb / p, gb / p, qb / gb
    printf "  %-16s %12.1f %12.1f %10.2f\n", "peak MB", qm / 1024, gm / 1024, qm / gm
    print ""
  }'
}

compare "monochrome, 600 dpi" "-p mono --paper Letter --resolution 600dpi" \
  "-sDEVICE=ljet4 -r600"
compare "colour, 300 dpi" "-p colour --paper Letter --resolution 300dpi" \
  "-sDEVICE=cljet5 -r300"
