#!/usr/bin/env bash
# Makes the fuzz targets' seed corpora in DIR (default build-fuzz/seeds):
#   fonts/     small subsets (a few letters, hinting kept) of installed
#              TrueType and CFF fonts, and made by make_seeds: compressed and
#              compact forms of three of them, a linked font and strikes in
#              several formats, for the font, cmap and glyph targets;
#   scripts/   the shipped script and its passes cut apart, each with the
#              script's head, for the script target;
#   pictures/  glyph pictures drawn by `fontvec --keep-images` (FONTVEC, default
#              build-fuzz/fontvec), for the picture target;
#   streams/   a command byte, a size byte and stream words, for the
#              delta-stream target.
# The corpora are made, never committed.
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-build-fuzz/seeds}
fontvec=${FONTVEC:-build-fuzz/fontvec}
mkdir -p "$out/fonts" "$out/scripts" "$out/pictures" "$out/streams"

fonts=(
  /usr/share/fonts/truetype/dejavu/DejaVuSans.ttf
  /usr/share/fonts/truetype/dejavu/DejaVuSerif-BoldItalic.ttf
  /usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf
  /usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf
  /usr/share/fonts/truetype/liberation2/LiberationSans-Bold.ttf
  /usr/share/fonts/truetype/liberation2/LiberationMono-Italic.ttf
  /usr/share/fonts/truetype/freefont/FreeSans.ttf
  /usr/share/fonts/truetype/freefont/FreeSerifItalic.ttf
  /usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf
  /usr/share/fonts/opentype/urw-base35/NimbusRoman-Italic.otf
  /usr/share/fonts/opentype/urw-base35/URWBookman-Demi.otf
  /usr/share/fonts/opentype/cantarell/Cantarell-Regular.otf
)
for f in "${fonts[@]}"; do
  [ -f "$f" ] || continue
  base=$(basename "${f%.*}")
  ext=${f##*.}
  # Letters with curves, stems, a composite and a descender; the rest of the
  # font's tables (hinting, kerning, names) as they are.
  pyftsubset "$f" --text="AaBgHoOi0.é" --output-file="$out/fonts/$base.$ext" \
    --layout-features='' --no-subset-tables+=fpgm,prep,cvt,kern 2>/dev/null ||
    echo "fuzz-seeds: no subset of $f" >&2
done
# The engine's compressed and compact formats of three of them, a linked
# font and embedded strikes.
make_seeds=${MAKE_SEEDS:-build-fuzz/fuzz/make_seeds}
if [ -x "$make_seeds" ]; then
  ASAN_OPTIONS=detect_leaks=0 "$make_seeds" "$out/fonts" "$out/fonts/DejaVuSans.ttf" \
    "$out/fonts/LiberationSerif-Regular.ttf" "$out/fonts/FreeSans.ttf"
fi

# The script's head (heap size, font, map, sizes) before each pass.
script=config/Script.scr
head_end=$(grep -n '^glyphset' "$script" | head -1 | cut -d: -f1)
head -n $((head_end - 1)) "$script" > "$out/scripts/head.scr"
awk -v out="$out/scripts" -v head="$out/scripts/head.scr" '
  /^glyphset/ { n++; file = sprintf("%s/pass-%02d.scr", out, n);
                while ((getline line < head) > 0) print line > file; close(head) }
  n && file { print > file }' "$script"
cp "$script" "$out/scripts/Script.scr"

# Pictures of one font, drawn by the tool; the smallest ones keep the
# fuzzer quick.
if [ -x "$fontvec" ]; then
  tmp=$(mktemp -d)
  "$fontvec" /usr/share/fonts/truetype/dejavu/DejaVuSans.ttf --keep-images "$tmp" \
    > /dev/null 2>&1 || true
  for p in 65-A 97-a 103-g 46-. 111-olar; do
    [ -f "$tmp/$p.png" ] && cp "$tmp/$p.png" "$out/pictures/"
  done
  rm -rf "$tmp"
else
  echo "fuzz-seeds: $fontvec not built: no pictures" >&2
fi
# Streams under each command at two sizes: a few words of one bit pattern
# each, for the fuzzer to grow.
for c in 0 1 2 3; do
  for w in 00 5a a5 ff; do
    printf "\\x0$c\\x1$c" > "$out/streams/$c-$w"
    for i in 1 2 3 4 5 6 7 8; do printf "\\x$w" >> "$out/streams/$c-$w"; done
  done
done
echo "seeds: $(ls "$out/fonts" | wc -l) fonts, $(ls "$out/scripts" | wc -l) scripts, $(ls "$out/pictures" | wc -l) pictures in $out"
