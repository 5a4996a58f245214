#!/bin/bash
# SPDX-License-Identifier: ISC
# Renders through the plain LV2 hosts, each with a habit of its own, and holds the sound against
# quillhost's: blocks of one frame and no features (lv2apply), presets and even blocks (lv2file),
# one buffer for input and output (ecasound), odd blocks (ffmpeg).
. "$(dirname "$0")/lib.sh"
need lv2info
[ -x "$quillhost" ] || { echo "skipped: there is no $quillhost"; exit 77; }
"$sound_tool" make "$work/in.wav" 2 1 || exit 1

same() { # HOST CASE FILE
  if ! text=$("$sound_tool" compare "$work/reference.wav" "$3" -120); then fail "$1 $2: $text"; fi
  printf '%-10s %-50s %s\n' "$1" "$2" "$text"
}
# With the latency left in, as these hosts leave it.
reference() { # CASE BLOCK
  "$quillhost" --quiet render "$work/in.wav" "$work/reference.wav" --fx "$1" --block "$2" \
    --format float32 --keep-latency || fail "quillhost $1"
}

for case in "${cases[@]}"; do
  split "$case"
  uri=urn:quillworks:$name
  inputs=$(lv2info "$uri" | grep -c 'Symbol: *\(in\|sidechain_in\)_')
  full=$uri
  [ "$inputs" -eq 2 ] || uri=$uri-nosc # what the README says to take for such hosts
  rm -f "$work"/out-*.wav

  if command -v lv2apply >/dev/null; then
    reference "$case" 1024
    arguments=()
    for value in "${values[@]+"${values[@]}"}"; do arguments+=(-c "${value%=*}" "${value#*=}"); done
    apply() { # IN URI
      lv2apply -i "$1" -o "$work/out-a.wav" "${arguments[@]+"${arguments[@]}"}" "$2" 2>"$work/log" ||
        cat "$work/log"
      same lv2apply "$case" "$work/out-a.wav"
    }
    apply "$work/in.wav" "$uri"
    if [ "$full" != "$uri" ]; then # it wants a channel for every input, the side-chain's too
      "$sound_tool" make "$work/in4.wav" "$inputs" 1
      apply "$work/in4.wav" "$full"
    fi
  fi
  if command -v lv2file >/dev/null; then
    reference "$case" 256
    arguments=()
    for value in "${values[@]+"${values[@]}"}"; do arguments+=(-p "${value/=/:}"); done
    lv2file -i "$work/in.wav" -o "$work/out-f.wav" -b 256 -c 1:in_l -c 2:in_r \
      "${arguments[@]+"${arguments[@]}"}" "$uri" >"$work/log" 2>&1 || cat "$work/log"
    same lv2file "$case" "$work/out-f.wav"
  fi
  if command -v ffmpeg >/dev/null; then
    reference "$case" 1024
    settings=$(IFS='|'; echo "${values[*]+"${values[*]}"}")
    ffmpeg -loglevel error -y -i "$work/in.wav" \
      -af "asetnsamples=n=341,lv2=p=${uri//:/\\\\:}${settings:+:c=$settings}" \
      -c:a pcm_f32le "$work/out-m.wav" || true
    same ffmpeg "$case" "$work/out-m.wav"
  fi
  if command -v ecasound >/dev/null; then
    reference "$case" 1024
    # Values for all control ports in their order, outputs too; the rest stand at their defaults.
    all=$(lv2info "$uri" | awk -v set="$(IFS=' '; echo "${values[*]+"${values[*]}"}")" '
      BEGIN { n = split(set, pairs, " "); for (i = 1; i <= n; ++i) { split(pairs[i], p, "="); given[p[1]] = p[2] } }
      /^\tPort/ { flush_port(); control = 0; def = 0 }
      /#ControlPort/ { control = 1 }
      /Symbol:/ { symbol = $2 }
      /Default:/ { def = $2 }
      function flush_port() { if (control) out = out "," (symbol in given ? given[symbol] : def) }
      END { flush_port(); print out }')
    ecasound -q -b:64 -f:f32_le,2,48000 -i "$work/in.wav" -o "$work/out-e.wav" "-elv2:$uri$all" \
      >"$work/log" 2>&1 || cat "$work/log"
    same ecasound "$case" "$work/out-e.wav"
  fi
done
finish
