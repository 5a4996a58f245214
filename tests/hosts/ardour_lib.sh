# SPDX-License-Identifier: ISC
# What the scripts with Ardour share, on top of lib.sh.
need ardour7-lua
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
ardour() { timeout 300 ardour7-lua "$@" 2>&1 | grep -E '^(latency|export|.*assert|.*cannot)'; }

# Compares what Ardour has exported with the reference.
same() { # FILE
  if ! text=$("$sound_tool" compare "$work/reference.wav" "$work/$1.wav" -120); then fail "$1: $text"; fi
  echo "$1: $text"
}

# Where Ardour's own programs find their parts.
ardour_parts=(LD_LIBRARY_PATH=/usr/lib/ardour7 ARDOUR_DATA_PATH=/usr/share/ardour7
  ARDOUR_CONFIG_PATH=/etc/ardour7)
vst3=$build/vst3/quillworks.vst3

scan_vst3() {
  scanner=/usr/lib/ardour7/ardour-vst3-scanner
  [ -x "$scanner" ] || { echo "skipped: there is no $scanner"; exit 77; }
  [ -d "$vst3" ] || { echo "skipped: there is no $vst3"; exit 77; }
  # The scan is taken for stale where the binary is as new as it: a copy with an older date.
  mkdir "$work/vst3"
  cp -a "$vst3" "$work/vst3/"
  export VST3_PATH=$work/vst3
  touch -d '1 minute ago' "$VST3_PATH"/quillworks.vst3/Contents/*/quillworks.so
  env "${ardour_parts[@]}" ARDOUR_DLL_PATH=/usr/lib/ardour7 timeout 60 "$scanner" \
    -f "$VST3_PATH/quillworks.vst3" >"$work/scan" 2>&1
}
