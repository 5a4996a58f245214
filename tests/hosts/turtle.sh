#!/bin/bash
# SPDX-License-Identifier: ISC
# The bundle's text files against the schemas of LV2, and its binary's symbols.
. "$(dirname "$0")/lib.sh"
need lv2_validate sord_validate serdi

# The exit codes of the validators say little: the text counts.
log=$(lv2_validate "$bundle"/*.ttl 2>&1)
grep '^Found' <<<"$log"
if ! grep -q '^Found 0 errors' <<<"$log" || grep -qiE '^(error|warning)' <<<"$log"; then
  fail "lv2_validate"
  grep -iE 'error|warning' <<<"$log" | head -n 20
fi
schemas=$(find /usr/lib/lv2/{atom,buf-size,core,event,instance-access,log,midi,morph,options,parameters,patch,port-groups,port-props,presets,resize-port,schemas,state,time,ui,units,urid,worker}.lv2 -name '*.ttl' 2>/dev/null)
# shellcheck disable=SC2086
log=$(sord_validate $schemas "$bundle"/*.ttl 2>&1)
grep '^Found' <<<"$log"
grep -q '^Found 0 errors' <<<"$log" || { fail "sord_validate"; head -n 20 <<<"$log"; }
for file in "$bundle"/*.ttl; do serdi -q "$file" >/dev/null || fail "syntax of $file"; done

exported=$(nm -D --defined-only "$bundle/quillworks.so" | awk '{print $3}')
echo "exports: $exported"
[ "$exported" = lv2_descriptor ] || fail "the binary exports more than lv2_descriptor"
ldd "$bundle/quillworks.so" | grep -qE 'libvnk|not found' && fail "the bundle does not stand alone"
finish
