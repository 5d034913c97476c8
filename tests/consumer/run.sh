#!/usr/bin/env bash
# Installs the release build into a temporary prefix, builds this consumer against the
# installed package and checks what it reports for a bundled example file.
set -euo pipefail
source_dir="$(cd "$(dirname "$0")/../.." && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

cmake --install "$source_dir/build/release" --prefix "$work/prefix" >/dev/null
cmake -S "$source_dir/tests/consumer" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/build" >/dev/null
report="$("$work/build/kvo_consumer" "$source_dir/examples/02-fifth-stereo.wav")"
expected="WAV File, 44100 Hz, 16 bits, 2 channels, 66150 frames"
if [ "$report" != "$expected" ]; then
    echo "consumer printed \"$report\", expected \"$expected\"" >&2
    exit 1
fi
"$work/prefix/bin/sonajoin" -h >/dev/null || [ $? -eq 1 ]
echo "installed package consumed: $report"
