#!/bin/bash
# SPDX-License-Identifier: ISC
# An editor of the CLAP plug-ins in qtractor: a session with one in its master bus is opened on a server
# without a screen, sound is played through it, and a double click on its name opens the editor within the
# host's window. PICTURE=FILE.png keeps a picture of it.
. "$(dirname "$0")/lib.sh"
. "$here/x_lib.sh"
need qtractor jackd jack_lsp jack_connect ecasound cc
clap=$build/clap/quillworks.clap
[ -e "$clap" ] || { echo "skipped: there is no $clap"; exit 77; }
number=$("$quillhost" list --json | perl -ne 'push @all, $1 if /"name": *"([^"]*)"/;
  END { for (0 .. $#all) { print $_ if $all[$_] eq "Compressor" } }')
write_qtractor_song "<plugin type=\"CLAP\"><filename>$clap</filename><index>$number</index>
  <label>compressor</label><activated>1</activated></plugin>"
start_servers 4096
cc -shared -fPIC -o "$work/no_sequencer.so" "$here/no_sequencer.c" || exit 1
"$sound_tool" make "$work/in.wav" 2 20 || exit 1
LD_PRELOAD=$work/no_sequencer.so QT_QPA_PLATFORM=xcb qtractor "$work/song.qtr" >"$work/host.log" 2>&1 &
host=$!
for _ in $(seq 150); do jack_lsp 2>/dev/null | grep -q '^Qtractor:Master/in_2' && break; sleep 0.1; done
find_window 'song.qtr' || { finish; exit 1; }
play_to Qtractor:Master/in_

xdotool mousemove $((X + WIDTH / 2)) $((Y + HEIGHT / 2)) click 1 key F9
find_window '^Mixer$' || { finish; exit 1; }
sleep 1
# The only plug-in of the mixer's last strip but one.
xdotool mousemove $((X + WIDTH - 121)) $((Y + 47)) click --repeat 2 --delay 80 1
find_window '^Compressor$' && echo "editor: $WIDTH x $HEIGHT"
sleep 2
keep_picture "$WINDOW"
kill -TERM $host
for _ in $(seq 50); do kill -0 $host 2>/dev/null || break; sleep 0.1; done
kill -9 $host 2>/dev/null && fail "qtractor does not quit with an editor open"
finish
