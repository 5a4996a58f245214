#!/bin/bash
# SPDX-License-Identifier: ISC
# Ardour's session tool: a session with compressor, limiter, delay and meter, exported, saved, opened
# and exported again. The sound is that of quillhost to rounding.
. "$(dirname "$0")/lib.sh"
. "$here/ardour_lib.sh"
need lv2info

# Place of a symbol among all control ports.
index() { # URI SYMBOL
  lv2info "$1" | awk -v wanted="$2" '/^\tPort/ { control = 0 } /#ControlPort/ { control = 1 }
    /Symbol:/ { if ($2 == wanted) print n + 0; if (control) ++n }'
}

chain=() effects=()
for case in compressor:threshold=-30,ratio=4,attack=5 analog-delay:sync=0,time=120,feedback=50,mix=50 \
  limiter:ingain=12,ceiling=-1 level-meter; do
  split "$case"
  uri=urn:quillworks:$name settings=
  for value in "${values[@]+"${values[@]}"}"; do
    settings+="$(index "$uri" "${value%=*}")=${value#*=},"
  done
  chain+=("$uri" "$settings")
  effects+=(--fx "$case")
done

ardour "$here/ardour_render.lua" "$work" dry "$preset"
ardour "$here/ardour_render.lua" "$work" wet "$preset" "${chain[@]}" | tee "$work/log"
ardour "$here/ardour_reload.lua" "$work" wet again "$preset"
latency=$(awk '/^latency/ { print $2 }' "$work/log")
"$quillhost" --quiet render "$work/dry.wav" "$work/reference.wav" "${effects[@]}" --block 1024 \
  --keep-latency --format float32 || fail quillhost
echo "latency of the chain: ${latency:-unknown} frames"
same wet
same again
finish
