#!/bin/bash
# SPDX-License-Identifier: ISC
# Ardour's session tool: a session with compressor, limiter, delay and meter, exported, saved, opened
# and exported again. The sound is that of quillhost to rounding.
. "$(dirname "$0")/lib.sh"
need ardour7-lua lv2info
[ -x "$quillhost" ] || { echo "skipped: there is no $quillhost"; exit 77; }

# A home of its own, with the source and an export format of 32-bit floats.
export HOME=$work/home
preset=6b0f4b4e-5d0c-4b53-9a63-1f2a5e7f8c10
float=$(grep -ho 'id="[^"]*"' "/usr/share/ardour7/export/BWAV 32float Export.format" | head -n 1)
mkdir -p "$HOME/.config/ardour7/"{export,scripts}
sed -e "s/<ExportPreset id=\"[^\"]*\" name=\"[^\"]*\"/<ExportPreset id=\"$preset\" name=\"float\"/" \
  -e "s/<ExportFormat id=\"[^\"]*\"/<ExportFormat $float/" \
  /usr/share/ardour7/export/wav.preset >"$HOME/.config/ardour7/export/float.preset"
cp "$here/ardour_source.lua" "$HOME/.config/ardour7/scripts/"

# Clean exits are not this program's strength: what counts is what it prints and writes.
ardour() { timeout 60 ardour7-lua "$@" 2>&1 | grep -E '^(latency|export|.*assert|.*cannot)'; }
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
same() { # FILE
  if ! text=$("$sound_tool" compare "$work/reference.wav" "$work/$1.wav" -120); then fail "$1: $text"; fi
  echo "$1: $text"
}
echo "latency of the chain: ${latency:-unknown} frames"
same wet
same again
finish
