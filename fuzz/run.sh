#!/usr/bin/env bash
# Builds the libFuzzer targets and runs each for a while, seeded from the test files.
#
#     fuzz/run.sh [seconds per target, default 600] [target name ...]
#
# FUZZ_TIMEOUT (seconds, default 1) is how long one input may run before it counts as a hang;
# a machine shared with other work stretches wall time and wants more.
# New inputs collect in build/fuzz/corpus/<target>; crashes land in build/fuzz/findings.
# Seeds come from the test files and from fuzz/seeds/<target>.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
seconds=${1:-600}
shift || true

cmake --preset fuzz > /dev/null
cmake --build --preset fuzz

seeds_for() {
    case "$1" in
        KvoWavReaderFuzzer) find tests/data examples -iname '*.wav' -o -iname '*.w64' -o -iname '*.rf64' ;;
        KvoAiffReaderFuzzer) find tests/data -iname '*.aif*' ;;
        KvoMp3ReaderFuzzer) find tests/data -iname '*.mp[123]' ;;
        KvoDbmdFuzzer) find tests/data -iname '*dbmd*' ;;
        *) ;;
    esac
    [ -d "fuzz/seeds/$1" ] && find "fuzz/seeds/$1" -type f
    return 0
}

# The longest input worth trying: what a user can type or list (a command line, an input list
# or a destination of a few hundred KB) for the text targets, a few blocks for the file readers.
# libFuzzer would otherwise grow lengths slowly from the seeds' sizes: the text targets try
# long inputs from the start, since a typed line may be long and cheap to parse.
length_options_for() {
    case "$1" in
        KvoCommandLineFuzzer | KvoInputListFuzzer | KvoDestinationFuzzer) echo "-max_len=400000 -len_control=0" ;;
        KvoOscAddressFuzzer) echo "-max_len=16384" ;;
        *) echo "-max_len=131072" ;;
    esac
}

targets=("$@")
[ ${#targets[@]} -gt 0 ] || mapfile -t targets < <(find build/fuzz/fuzz -maxdepth 1 -type f -name 'Kvo*Fuzzer' -printf '%f\n' | sort)
mkdir -p build/fuzz/findings
for target in "${targets[@]}"; do
    corpus=$root/build/fuzz/corpus/$target
    mkdir -p "$corpus"
    while IFS= read -r seed; do
        [ -f "$seed" ] && [ "$(stat -c %s "$seed")" -le 1048576 ] && cp -n "$seed" "$corpus/"
    done < <(seeds_for "$target")
    echo "== $target: $seconds s =="
    "build/fuzz/fuzz/$target" "$corpus" -max_total_time="$seconds" -timeout="${FUZZ_TIMEOUT:-1}" -rss_limit_mb=2048 \
        $(length_options_for "$target") -artifact_prefix="$root/build/fuzz/findings/$target-" -print_final_stats=1 2>&1 |
        grep -E '^(#[0-9]+.*(DONE|pulse)|stat::|==[0-9]+== ?ERROR|SUMMARY|Test unit written|Slowest unit)' || true
done
