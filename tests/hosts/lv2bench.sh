#!/bin/bash
# SPDX-License-Identifier: ISC
# Every plug-in in lv2bench, which gives both outputs one buffer.
. "$(dirname "$0")/lib.sh"
need lv2ls lv2bench
count=0
for uri in $(plugins); do
  line=$(lv2bench -n 48000 -b 256 "$uri" 2>&1)
  [[ $line =~ ^[0-9.]+\ $uri$ ]] || fail "$uri: $line"
  echo "$line"
  count=$((count + 1))
done
echo "$count plug-ins"
[ "$count" -ge 31 ] || fail "lv2ls lists $count plug-ins"
finish
