#!/bin/sh
# Layer rule of the core library: base < settings < input < model < smem <
# analysis < output < driver. A file may include headers of its own folder and
# of folders below it, never of a folder above. Prints every upward include and
# the folder pairs that include each other; exits 1 if there is any.
# Usage: tools/check_layers.sh [SRC_DIR]   (default: src next to this script)
src=${1:-$(dirname "$0")/../src}
order="base settings input model smem analysis output driver"
rank() { i=0; for f in $order; do [ "$f" = "$1" ] && { echo $i; return; }; i=$((i+1)); done; echo -1; }
total=0 up=0 pairs=""
tmp=$(mktemp); trap 'rm -f "$tmp"' EXIT
for dir in $order; do
  [ -d "$src/$dir" ] || continue
  from=$(rank "$dir")
  for file in "$src/$dir"/*.cpp "$src/$dir"/*.h; do
    [ -f "$file" ] || continue
    sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([a-z_]*\)\/[^"]*".*/\1 &/p' "$file" |
    while read -r to line; do
      [ "$to" = "$dir" ] && continue
      r=$(rank "$to"); [ "$r" -lt 0 ] && continue
      echo "$dir $to"
      if [ "$r" -gt "$from" ]; then echo "upward: ${file#$src/}: $line" >&2; fi
    done
  done
done 2>"$tmp.up" >"$tmp"
total=$(wc -l <"$tmp")
up=$(wc -l <"$tmp.up")
cat "$tmp.up"
mutual=$(sort -u "$tmp" | while read -r a b; do
  grep -qx "$b $a" "$tmp" && [ "$a" \< "$b" ] && echo "$a<->$b"; done | sort -u)
nm=$(printf '%s' "$mutual" | grep -c . )
printf 'cross-folder includes: %s, upward: %s, folder pairs including each other: %s %s\n' \
  "$total" "$up" "$nm" "$(echo $mutual)"
rm -f "$tmp.up"
[ "$up" -eq 0 ] && [ "$nm" -eq 0 ]
