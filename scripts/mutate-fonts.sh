#!/usr/bin/env bash
# The damaged-font campaign: COUNT (default 100000) damaged fonts made from
# DejaVu, Liberation, FreeFont and the CFF fonts of urw-base35, each through
# `fontvec info`, the letters' glyph requests at 12 and 72 pixels per em and,
# every hundredth, the whole `fontvec FONT`, in the sanitizer build
# (build-sanitize/, as scripts/test.sh makes it), 10 s at most each. Prints
# each finding and a table of the outcomes by engine error number; the
# damaged fonts of findings are kept in build-sanitize/mutate-findings/.
# Extra arguments go to the program (--first I, --seed S, --timeout S).
set -euo pipefail
cd "$(dirname "$0")/.."
count=${1:-100000}
shift || true
scripts/install-deps.sh
cmake -S . -B build-sanitize -DCMAKE_BUILD_TYPE=Debug -DFONTVEC_TESTS=ON \
  -DFONTVEC_SANITIZE=ON > /dev/null
cmake --build build-sanitize -j"$(nproc)" --target fontvec mutate_fonts > /dev/null
fonts=(/usr/share/fonts/truetype/dejavu/*.ttf /usr/share/fonts/truetype/liberation2/*.ttf
       /usr/share/fonts/truetype/freefont/*.ttf /usr/share/fonts/opentype/urw-base35/*.otf)
exec build-sanitize/fuzz/mutate_fonts --fontvec build-sanitize/fontvec --count "$count" \
  --keep build-sanitize/mutate-findings "$@" "${fonts[@]}"
