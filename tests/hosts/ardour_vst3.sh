#!/bin/bash
# SPDX-License-Identifier: ISC
# Ardour with the VST3 bundle: its scanner finds every class, and its session tool plays, exports,
# saves and opens a session whose sound is that of quillhost to rounding.
. "$(dirname "$0")/lib.sh"
. "$here/ardour_lib.sh"
scan_vst3
found=$(cat "$HOME"/.cache/ardour7/vst/*.v3i 2>/dev/null | grep -c '<VST3Info')
classes=$("$quillhost" list --json | grep -c '"classId"')
echo "classes found: $found of $classes"
[ "$found" -eq "$classes" ] || fail "the scan: $(tail -n 3 "$work/scan")"

# "UID TITLE=VALUE,..." of NAME:key=value,...: Ardour numbers only some of the parameters.
vst3_case() {
  "$quillhost" info "${1%%:*}" --json | awk -v wanted="${1#*:}" '
    BEGIN { n = split (wanted, pairs, ",")
            for (i = 1; i <= n; ++i) { split (pairs[i], p, "="); value[p[1]] = p[2] } }
    function text (line) { sub (/^[^:]*: "?/, "", line); sub (/"?,?$/, "", line); return line }
    /^ "classId"/ { uid = text ($0); gsub (/[{}-]/, "", uid) }
    /^ "meters"/ { isOver = 1 }
    isOver { next }
    /^   "key"/ { key = text ($0) }
    /^   "title"/ { if (key in value) out = out text ($0) "=" value[key] "," }
    END { print uid, out }'
}
chain=() effects=()
for case in compressor:threshold=-30,mix=0.8 analog-delay:feedback=50,mix=50 limiter:ingain=12,ceiling=-3 \
  mixtool:gain=-6,phaseflipleft=1; do
  read -r uid settings < <(vst3_case "$case")
  chain+=("$uid" "$settings")
  effects+=(--fx "$case")
done
ardour "$here/ardour_render.lua" "$work" dry "$preset"
ardour "$here/ardour_render.lua" "$work" wet "$preset" "${chain[@]}" | tee "$work/log"
ardour "$here/ardour_reload.lua" "$work" wet again "$preset"
"$quillhost" --quiet render "$work/dry.wav" "$work/reference.wav" "${effects[@]}" --block 1024 \
  --keep-latency --format float32 || fail quillhost
same wet
same again
finish
