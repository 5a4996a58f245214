#!/bin/bash
# SPDX-License-Identifier: ISC
# qtractor, a CLAP host: it lists every plug-in of the file, and plays a chain of some on a JACK server
# without a sound card, with the states of presets as the LV2 bundle holds them; it saves the song,
# opens it again, and plays it again. The sound is that of quillhost to rounding.
. "$(dirname "$0")/lib.sh"
scan=/usr/lib/x86_64-linux-gnu/qtractor/qtractor_plugin_scan
clap=$build/clap/quillworks.clap
need qtractor jackd jack_lsp jack_connect ecasound perl cc "$scan"
[ -e "$clap" ] || { echo "skipped: there is no $clap"; exit 77; }
[ -x "$quillhost" ] || { echo "skipped: there is no $quillhost"; exit 77; }

list=$(printf 'CLAP:%s\n' "$clap" | "$scan")
count=$(grep -c '^CLAP|Quillworks ' <<<"$list")
echo "$count plug-ins"
[ "$count" -eq 31 ] || fail "the scanner lists $count plug-ins"
editors=$(grep -c '^CLAP|Quillworks .*|GUI,' <<<"$list")
[ "$editors" -eq "$count" ] || fail "$editors of them have an editor"

# The state of an LV2 preset as qtractor writes states: compressed behind its length, in base64.
chain='' effects=()
for case in 'compressor:Bass Steady:Compressor' 'channel-strip::SimpleStrip' 'limiter::Limiter'; do
  IFS=: read -r name title folder <<<"$case"
  presets=$bundle/$name-presets.ttl
  [ -n "$title" ] || title=$(grep -om1 'rdfs:label "[^"]*"' "$presets" | cut -d'"' -f2)
  state=$(perl -MCompress::Zlib -MMIME::Base64 -0777 -ne '
    for (split /\n\n/) {
      next unless /rdfs:label "\Q'"$title"'\E"/ && /state#chunk> "([^"]*)"/;
      my $chunk = decode_base64($1);
      print encode_base64(pack("N", length $chunk) . compress($chunk), "");
    }' "$presets")
  [ -n "$state" ] || fail "no preset $title of $name"
  number=$("$quillhost" list --json | perl -ne 'push @all, $1 if /"name": *"([^"]*)"/;
    END { for (0 .. $#all) { (my $slug = lc $all[$_]) =~ s/ /-/g; print $_ if $slug eq "'"$name"'" } }')
  chain+="<plugin type=\"CLAP\"><filename>$clap</filename><index>$number</index><label>$name</label>
    <activated>1</activated><configs><config key=\"state\">$state</config></configs></plugin>"
  effects+=(--fx "$name" --preset "$here/../../resources/presets/$folder/$title.fxpreset")
  echo "$name: $title"
done
write_qtractor_song "$chain"

export HOME=$work XDG_RUNTIME_DIR=$work QT_QPA_PLATFORM=offscreen
export JACK_DEFAULT_SERVER=quillworks-qtractor-$$ JACK_NO_AUDIO_RESERVATION=1
cc -shared -fPIC -o "$work/no_sequencer.so" "$here/no_sequencer.c" || exit 1
# Silence until everything is connected.
"$sound_tool" make "$work/in.wav" 2 1 4 || exit 1
# The server waits for clients that are late, as on a busy machine they are.
jackd --no-realtime -S -t 10000 -n "$JACK_DEFAULT_SERVER" -d dummy -r 48000 -p 4096 >"$work/jackd.log" 2>&1 &
jack=$!
trap 'kill $jack 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT
for _ in $(seq 50); do jack_lsp >/dev/null 2>&1 && break; sleep 0.1; done
wait_for() { # PORT
  for _ in $(seq 100); do jack_lsp 2>/dev/null | grep -q "^$1" && return; sleep 0.1; done
  fail "$1 does not come up"
}

# Signal and sound are recorded side by side, in step to the frame.
played() { # SONG NAME
  LD_PRELOAD=$work/no_sequencer.so qtractor "$1" >"$work/qtractor.log" 2>&1 &
  local host=$! player recorder
  wait_for Qtractor:Master/out
  ecasound -q -G:jack,recorder,notransport -f:f32_le,4,48000 -i jack,nobody -o "$work/$2.wav" -t:8 \
    >"$work/recorder.log" 2>&1 &
  recorder=$!
  wait_for recorder:in_4
  ecasound -q -G:jack,player,notransport -f:f32_le,2,48000 -i "$work/in.wav" -o jack,nobody \
    >"$work/player.log" 2>&1 &
  player=$!
  wait_for player:out_2
  for c in 1 2; do
    jack_connect player:out_$c Qtractor:Master/in_$c
    jack_connect player:out_$c recorder:in_$c
    jack_connect Qtractor:Master/out_$c recorder:in_$((c + 2))
  done 2>/dev/null # the song knows some of them when it is opened again
  wait $player $recorder 2>/dev/null
  kill -USR1 $host # saves the song
  sleep 1
  kill -TERM $host
  for _ in $(seq 50); do kill -0 $host 2>/dev/null || break; sleep 0.1; done
  kill -9 $host 2>/dev/null && fail "qtractor does not quit"
  jack_lsp >/dev/null || fail "the server is gone"
}
# A busy machine loses a period now and then: what one pass in five plays is what the host can play.
for song in first again; do
  for _ in 1 2 3 4 5; do
    played "$work/song.qtr" $song
    "$sound_tool" pick "$work/$song.wav" "$work/dry.wav" 0 2 &&
      "$sound_tool" pick "$work/$song.wav" "$work/wet.wav" 2 2 &&
      "$quillhost" --quiet render "$work/dry.wav" "$work/reference.wav" "${effects[@]}" \
        --keep-latency --format float32 || { text='nothing recorded'; continue; }
    text=$("$sound_tool" compare "$work/reference.wav" "$work/wet.wav" -120) && continue 2
  done
  fail "$song: $text"
done
echo "$text"
finish
