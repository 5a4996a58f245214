#!/bin/bash
# SPDX-License-Identifier: ISC
# An editor in a window of a host: jalv.gtk3 on a server without a screen. It opens, a hand drags a
# knob and types a value, the sound follows, the window is resized and closed; and over again. ROUNDS says how often.
# PICTURE=FILE.png keeps a picture of the window.
. "$(dirname "$0")/lib.sh"
need Xvfb jackd jack_lsp jalv.gtk3 xdotool ecasound
export JACK_DEFAULT_SERVER=quillworks-editors-$$ JACK_NO_AUDIO_RESERVATION=1
export HOME=$work XDG_CONFIG_HOME=$work XDG_DATA_HOME=$work GDK_BACKEND=x11 GDK_SCALE=1
unset WAYLAND_DISPLAY

mkfifo "$work/display"
Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp -noreset 3>"$work/display" 2>/dev/null &
server=$!
read -r number <"$work/display"
export DISPLAY=:$number
jackd --no-realtime -n "$JACK_DEFAULT_SERVER" -d dummy -r 48000 -p 1024 >"$work/jackd.log" 2>&1 &
jack=$!
trap 'kill $host $jack $server 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT
host=
for _ in $(seq 50); do jack_lsp >/dev/null 2>&1 && break; sleep 0.1; done

start() { # PLUGIN
  jalv.gtk3 "urn:quillworks:$1" </dev/null >"$work/host.log" 2>&1 &
  host=$!
  for _ in $(seq 150); do
    window=$(xdotool search --onlyvisible --name "Quillworks" 2>/dev/null | tail -1)
    [ -n "$window" ] && return 0
    kill -0 $host 2>/dev/null || break
    sleep 0.1
  done
  fail "$1: no window"
  cat "$work/host.log"
  return 1
}
alive() { kill -0 $host 2>/dev/null || { fail "$1: the host is gone"; tail -5 "$work/host.log"; }; }
stop() {
  # As a window manager closes it.
  kill -TERM $host 2>/dev/null
  for _ in $(seq 50); do kill -0 $host 2>/dev/null || break; sleep 0.1; done
  kill -9 $host 2>/dev/null && fail "$1: the host does not quit"
  wait $host 2>/dev/null
}

# The view's window within the host's, and its place on the screen.
find_view() { # TITLE
  view=
  for _ in $(seq 50); do
    view=$(xdotool search --onlyvisible --name "^$1\$" 2>/dev/null | head -1)
    [ -n "$view" ] && break
    sleep 0.1
  done
  [ -n "$view" ] || { fail "$1: no view in the window"; return 1; }
  eval "$(xdotool getwindowgeometry --shell "$view")"
}
picture() { # FILE
  command -v ffmpeg >/dev/null && ffmpeg -loglevel error -y -f x11grab -video_size 1280x1024 -i "$DISPLAY" -frames:v 1 "$1" </dev/null
}

level() { # what a signal gains on its way through the plug-in, in decibels
  local port=$(jack_lsp | grep -m1 ':in_l$')
  rm -f "$work/out.wav"
  ecasound -q -f:f32_le,2,48000 -i "$work/in.wav" -o "jack,${port%%:*}" -t:3 >"$work/play.log" 2>&1 &
  local player=$!
  ecasound -q -f:f32_le,2,48000 -i "jack,${port%%:*}" -o "$work/out.wav" -t:2 >"$work/record.log" 2>&1
  wait $player 2>/dev/null
  "$sound_tool" peak "$work/out.wav" "$work/in.wav"
}
near() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(a - b < 0.7 && b - a < 0.7) }'; }
# Where something of the form at scale 1 is on the screen.
at() { echo $((X + $1 * WIDTH / form)) $((Y + $2 * WIDTH / form)); } # X Y
"$sound_tool" make "$work/in.wav" 2 8 || exit 1

start mixtool && find_view Mixtool || { finish; exit 1; }
form=$WIDTH
echo "mixtool: $WIDTH x $HEIGHT, $(level) dB"

# The gain's knob dragged down, and then a value typed behind it.
read -r x y <<<"$(at 96 119)"
xdotool mousemove "$x" "$y" mousedown 1
for i in 1 2 3 4 5; do xdotool mousemove "$x" $((y + 10 * i)); sleep 0.05; done
xdotool mouseup 1
sleep 0.5
dragged=$(level)
echo "dragged: $dragged dB"
awk -v a="$dragged" 'BEGIN { exit !(a < -3) }' || fail "the drag is not heard"
xdotool mousemove $(at 96 157) click 1
sleep 0.3
xdotool type -- "-7"
xdotool key Return
sleep 0.5
typed=$(level)
echo "typed -7: $typed dB"
near "$typed" -7 || fail "the typed value is not heard"
[ -n "${PICTURE:-}" ] && picture "$PICTURE"

# The host's window drawn larger: the form follows.
xdotool windowsize "$window" $((WIDTH * 5 / 4)) $((HEIGHT * 5 / 4 + 40))
sleep 1
was=$WIDTH
find_view Mixtool
echo "resized: $WIDTH x $HEIGHT"
[ "$WIDTH" -gt "$was" ] || fail "the view does not follow the host's window"
alive "resized"
stop "mixtool"

# Again and again, each time closed in the midst of a drag.
rounds=${ROUNDS:-5}
for round in $(seq "$rounds"); do
  start compressor && find_view Compressor || break
  xdotool mousemove $((X + 60)) $((Y + 343)) mousedown 1 mousemove $((X + 60)) $((Y + 300))
  alive "round $round"
  stop "round $round"
  xdotool mouseup 1
  grep -iE 'BadWindow|BadMatch|X Error|Segmentation' "$work/host.log" && fail "round $round: an error of X"
done
echo "$round rounds"
finish
