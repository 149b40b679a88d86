#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Checks the export table of ardel.dll itself (objdump -p): every C function
# a public header declares ARDEL_API is exported under its plain name, no
# other plain name is, and every C++ name belongs to one of the exported
# classes.  Usage: exports-win32.sh ardel.dll include/ardel [objdump]
set -eu
dll=$1 headers=$2 objdump=${3:-x86_64-w64-mingw32-objdump}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

"$objdump" -p "$dll" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' |
  sed -n 's/^[[:space:]]*\[ *[0-9]*\] //p' | sort -u > "$tmp/exported"
[ -s "$tmp/exported" ] || { echo "no export table in $dll"; exit 1; }

# Declarations span one line each in the public headers.
cat "$headers"/*.h | grep -v "^#" | grep -E 'ARDEL_API[^;(]*\(' | grep -v 'class ARDEL_API' |
  sed -E 's/^.*ARDEL_API[^(]*[^A-Za-z0-9_(]([A-Za-z_][A-Za-z0-9_]*)[[:space:]]*\(.*$/\1/' |
  sort -u > "$tmp/declared"
[ "$(wc -l < "$tmp/declared")" -gt 50 ] || { echo "too few declarations found under $headers"; exit 1; }

grep -v '^_Z' "$tmp/exported" > "$tmp/plain" || true
grep '^_Z' "$tmp/exported" > "$tmp/mangled" || true
status=0
missing=$(comm -23 "$tmp/declared" "$tmp/plain")
extra=$(comm -13 "$tmp/declared" "$tmp/plain")
[ -z "$missing" ] || { echo "declared but not exported:"; echo "$missing"; status=1; }
[ -z "$extra" ] || { echo "exported but not public:"; echo "$extra"; status=1; }
classes='(ArdelWrapper|Trace|Tracer|TracerFactory)'
# mingw-w64's g++ exports the type information of the front end's tracer
# classes that derive from the exported ones (a linker exclusion does not
# reach dllexport); those three entries are tolerated, nothing more.
derived='typeinfo for (ArdelTracer|StdoutTracer|CachingTracerFactory)'
foreign=$(c++filt < "$tmp/mangled" |
  grep -Ev "^((vtable|typeinfo|typeinfo name) for )?$classes(::|$)" | grep -Evx "$derived" || true)
[ -z "$foreign" ] || { echo "C++ names outside the exported classes:"; echo "$foreign"; status=1; }
for name in initializeWrapper createWrapper getCLogHw getCLogNet traceEntry traceExit traceMIN \
            istraceActive getTrcLevel getArdelHw getArdelNet; do
  grep -qx "$name" "$tmp/plain" || { echo "front-end name missing: $name"; status=1; }
done
[ "$status" = 0 ] && echo "$(wc -l < "$tmp/plain") plain and $(wc -l < "$tmp/mangled") C++ names exported, as declared"
exit $status
