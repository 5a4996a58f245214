#!/bin/bash
# SPDX-License-Identifier: ISC
# An editor of the VST3 plug-ins in Ardour: a session with one in its master bus is opened on a server
# without a screen, sound is played through it, and a double click on its name opens the editor in a window
# of the host. PICTURE=FILE.png keeps a picture of it. The hands go by Ardour's usual layout.
. "$(dirname "$0")/lib.sh"
. "$here/x_lib.sh"
unset XDG_CONFIG_HOME XDG_DATA_HOME # Ardour looks in its home for what it knows
. "$here/ardour_lib.sh"
ardour=$(ls /usr/lib/ardour7/ardour-7* 2>/dev/null | head -1)
[ -x "$ardour" ] || { echo "skipped: ardour is not installed"; exit 77; }
need jackd jack_lsp jack_connect ecasound
scan_vst3

# Of the ways to a sound card JACK alone, or it asks for one.
mkdir -p "$work/parts/backends"
for part in /usr/lib/ardour7/*; do
  [ "$part" = /usr/lib/ardour7/backends ] || ln -s "$part" "$work/parts/"
done
ln -s /usr/lib/ardour7/backends/libjack_audiobackend.so "$work/parts/backends/"
touch "$HOME/.config/ardour7/.a7" # no questions of a first start
class=$("$quillhost" info compressor --json | awk -F'"' '/^ "classId"/ { gsub (/[{}-]/, "", $4); print $4 }')
timeout 100 ardour7-lua "$here/ardour_editor.lua" "$work" "$class" >"$work/make.log" 2>&1
[ -e "$work/song/song.ardour" ] || { fail "no session"; cat "$work/make.log"; finish; exit 1; }
start_servers 4096
"$sound_tool" make "$work/in.wav" 2 30 || exit 1
env "${ardour_parts[@]}" GTK_PATH=/etc/ardour7:/usr/lib/ardour7 ARDOUR_DLL_PATH="$work/parts" \
  "$ardour" "$work/song/song.ardour" >"$work/host.log" 2>&1 &
host=$!
# It says that the session was made without a sound card: a window without a name, whose button is at its
# lower right.
for _ in $(seq 90); do
  xdotool search --onlyvisible --name '^song - Ardour' >/dev/null 2>&1 && break
  for dialog in $(xdotool search --onlyvisible --class ardour 2>/dev/null); do
    eval "$(xdotool getwindowgeometry --shell "$dialog")"
    [ "$WIDTH" -gt 300 ] && [ "$WIDTH" -lt 700 ] &&
      xdotool mousemove $((X + WIDTH - 50)) $((Y + HEIGHT - 25)) click 1
  done
  kill -0 $host 2>/dev/null || break
  sleep 1
done
find_window '^song - Ardour' || { finish; exit 1; }
sleep 4
play_to 'ardour:Master/audio_in '
xdotool mousemove $((X + 45)) $((Y + 276)) click 1 # the master bus
sleep 1
xdotool key shift+e # its strip
sleep 3
xdotool mousemove $((X + 60)) $((Y + 197)) click --repeat 2 --delay 90 1
find_window '^Compressor$' && echo "editor: $WIDTH x $HEIGHT"
sleep 3
find_window 'Quillworks Compressor' && keep_picture "$WINDOW"
kill -9 $host # it asks whether to save
finish
