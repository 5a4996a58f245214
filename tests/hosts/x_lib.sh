# SPDX-License-Identifier: ISC
# What scripts with windows share, on top of lib.sh: a server without a screen, JACK without a sound
# card, a home of its own.
need Xvfb xdotool import
export JACK_DEFAULT_SERVER=quillworks-windows-$$ JACK_NO_AUDIO_RESERVATION=1
export HOME=$work XDG_RUNTIME_DIR=$work XDG_CONFIG_HOME=$work XDG_DATA_HOME=$work
export GDK_BACKEND=x11 GDK_SCALE=1
unset WAYLAND_DISPLAY
host= jack= server= player=

start_servers() { # FRAMES-PER-PERIOD
  mkfifo "$work/display"
  Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp -noreset 3>"$work/display" 2>/dev/null &
  server=$!
  trap 'kill $host $player $jack $server 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT
  read -r number <"$work/display"
  export DISPLAY=:$number
  jackd --no-realtime -S -t 10000 -n "$JACK_DEFAULT_SERVER" -d dummy -r 48000 -p "$1" \
    >"$work/jackd.log" 2>&1 &
  jack=$!
  for _ in $(seq 50); do jack_lsp >/dev/null 2>&1 && break; sleep 0.1; done
}

# Sets WINDOW, X, Y, WIDTH and HEIGHT.
find_window() { # TITLE, a regular expression
  WINDOW=
  for _ in $(seq 300); do
    WINDOW=$(xdotool search --onlyvisible --name "$1" 2>/dev/null | head -1)
    [ -n "$WINDOW" ] && break
    kill -0 $host 2>/dev/null || break
    sleep 0.1
  done
  [ -n "$WINDOW" ] || { fail "no window called $1"; tail -5 "$work/host.log"; return 1; }
  eval "$(xdotool getwindowgeometry --shell "$WINDOW")"
}

play_to() { # PORTS without their number
  ecasound -q -G:jack,player,notransport -f:f32_le,2,48000 -i "$work/in.wav" -o jack,nobody \
    >"$work/player.log" 2>&1 &
  player=$!
  for _ in $(seq 100); do jack_lsp 2>/dev/null | grep -q '^player:out_2' && break; sleep 0.1; done
  for c in 1 2; do jack_connect player:out_$c "$1$c"; done
}

keep_picture() { # WINDOW
  [ -z "${PICTURE:-}" ] || import -window "$1" "$PICTURE" || fail "no picture"
}
