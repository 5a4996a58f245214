# SPDX-License-Identifier: ISC
# What the host scripts share. BUILD names the build folder (default build/release).
# Nothing is installed; a script whose host is missing says so and exits with 77.
set -u
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$(cd "${BUILD:-$here/../../build/release}" && pwd) || exit 1
bundle=$build/lv2/quillworks.lv2
quillhost=${QUILLHOST:-$build/hosts/quillhost/quillhost}
sound_tool=$build/tests/sound_tool
export LV2_PATH=$build/lv2:/usr/lib/lv2
unset QUILLWORKS_RESOURCES # the bundle has its own
work=$(mktemp -d) && trap 'rm -rf "$work"' EXIT
failures=0

fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}
finish() {
  [ "$failures" -eq 0 ] && echo "all well"
  [ "$failures" -eq 0 ]
}
need() { # PROGRAM...
  for program in "$@"; do
    command -v "$program" >/dev/null || { echo "skipped: $program is not installed"; exit 77; }
  done
}
[ -e "$bundle/manifest.ttl" ] || { echo "skipped: there is no $bundle"; exit 77; }

plugins() { lv2ls | grep '^urn:quillworks:'; }

# Effects with settings that make them work, as NAME or NAME:key=value,...; keys are port symbols.
cases=(
  compressor:threshold=-30,ratio=4,attack=5
  limiter:ingain=12,ceiling=-1
  expander:highthresh=-20,ratio=0.5,range=-40
  analog-delay:sync=0,time=120,feedback=50,mix=50
  mixtool:gain=-6,channelflip=1
  level-meter
)
# Sets `name` and the array `values` (key=value) of a case.
split() {
  name=${1%%:*}
  values=()
  [ "$name" = "$1" ] || IFS=, read -ra values <<<"${1#*:}"
}

# $work/song.qtr: a session with these plug-ins in its master bus.
write_qtractor_song() { # PLUGIN ELEMENTS
  cat >"$work/song.qtr" <<T
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE qtractor-session>
<session version="0.9.31" name="song">
 <properties><directory>$work</directory><sample-rate>48000</sample-rate><tempo>120</tempo></properties>
 <devices><audio-engine><audio-bus name="Master" mode="duplex">
  <monitor>1</monitor><input-gain>1</input-gain><output-gain>1</output-gain>
  <channels>2</channels><auto-connect>0</auto-connect>
  <output-plugins>$1</output-plugins>
 </audio-bus></audio-engine></devices>
</session>
T
}
