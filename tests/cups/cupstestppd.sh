#!/bin/sh
# cupstestppd on the PPD that q417 pdd ppd makes of each description given: all must pass.
# Usage: cupstestppd.sh Q417 WINDIR PDD...
set -u
q417=$1 windir=$2
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
for pdd in "$@"; do
    # A copy: the library writes its binary configuration beside the description.
    name=$(basename "$pdd" .pdd)
    cp "$pdd" "$work/$name.pdd"
    if ! "$q417" pdd ppd "$work/$name.pdd" --windir "$windir" -o "$work/$name.ppd"; then
        echo "FAIL $pdd: no PPD"
        failed=1
        continue
    fi
    if ! out=$(cupstestppd -I filters "$work/$name.ppd" 2>&1); then
        echo "FAIL $pdd:"
        echo "$out"
        failed=1
    else
        echo "$out"
    fi
done
exit $failed
