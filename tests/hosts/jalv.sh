#!/bin/bash
# SPDX-License-Identifier: ISC
# jalv on a JACK server without a sound card: controls and presets while it runs, sound through it.
. "$(dirname "$0")/lib.sh"
need jackd jalv ecasound jack_lsp
export JACK_DEFAULT_SERVER=quillworks-test-$$ JACK_NO_AUDIO_RESERVATION=1
"$sound_tool" make "$work/in.wav" 2 8 || exit 1

jackd --no-realtime -n "$JACK_DEFAULT_SERVER" -d dummy -r 48000 -p 256 >"$work/jackd.log" 2>&1 &
jack=$!
for _ in $(seq 50); do jack_lsp >/dev/null 2>&1 && break; sleep 0.1; done
mkfifo "$work/commands"
jalv -p -n probe urn:quillworks:mixtool <"$work/commands" >"$work/jalv.log" 2>&1 &
jalv=$!
trap 'kill $jalv $jack 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT
exec 3>"$work/commands"
for _ in $(seq 50); do
  jack_lsp 2>/dev/null | grep -q '^probe:in_l' && break
  sleep 0.1
done
jack_lsp 2>/dev/null | grep -q '^probe:in_l' || { fail "jalv does not come up"; cat "$work/jalv.log"; }

heard() { # DECIBELS WHAT
  rm -f "$work/out.wav"
  ecasound -q -f:f32_le,2,48000 -i "$work/in.wav" -o jack,probe -t:3 >"$work/play.log" 2>&1 &
  ecasound -q -f:f32_le,2,48000 -i jack,probe -o "$work/out.wav" -t:2 >"$work/record.log" 2>&1
  wait $! 2>/dev/null
  level=$("$sound_tool" peak "$work/out.wav" "$work/in.wav")
  echo "$2: $level dB"
  awk -v a="$level" -v b="$1" 'BEGIN { exit !(a - b < 0.7 && b - a < 0.7) }' || fail "$2: expected $1 dB"
}
heard 0 "as it opens"
echo 'gain = -12' >&3
sleep 0.5
heard -12 "gain = -12"
preset=urn:quillworks:mixtool#preset_headroom_minus_6_db
echo presets >&3 # jalv knows presets once it has listed them
echo "preset $preset" >&3
sleep 1
heard -6 "$preset"
echo 'enabled = 0' >&3
sleep 0.5
heard 0 "enabled = 0"
echo quit >&3
exec 3>&-
for _ in $(seq 30); do kill -0 $jalv 2>/dev/null || break; sleep 0.1; done
kill -0 $jalv 2>/dev/null && fail "jalv does not quit"
# It takes its own "quit" for an invalid command.
grep -iE 'error|unsupported|fail' "$work/jalv.log" | grep -v 'invalid command' && fail "jalv complains"
finish
