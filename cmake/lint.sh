#!/usr/bin/env bash
# lint.sh SANITIZE_BUILD WINDOWS_BUILD - runs clang-tidy over the product's sources: the system-independent
# ones as they are compiled for this machine, the others as they are compiled for Windows.
set -euo pipefail
native=$1
windows=$2
for build in "$native" "$windows"; do
    cmake -S . -B "$build" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null
    # The checker takes no notice of how code is tuned, and does not know the other compiler's options for it.
    sed -i 's/ [\"]*-mtune-ctrl=[a-z_^]*[\"]*//' "$build/compile_commands.json"
done
has() { grep -qF "/$1\"" "$2/compile_commands.json"; }
nativeFiles=()
windowsFiles=()
while read -r file; do
    if has "$file" "$native"; then nativeFiles+=("$file"); elif has "$file" "$windows"; then windowsFiles+=("$file"); fi
done < <(git ls-files 'src/*.cpp')
gccVersion=$(x86_64-w64-mingw32-g++-posix -dumpversion)
gccInclude=/usr/lib/gcc/x86_64-w64-mingw32/$gccVersion/include/c++
printf '%s\n' "${nativeFiles[@]}" | xargs -P "$(nproc)" -n 4 clang-tidy -quiet -p "$native" --extra-arg=-Wno-unknown-warning-option
printf '%s\n' "${windowsFiles[@]}" | xargs -P "$(nproc)" -n 4 clang-tidy -quiet -p "$windows" \
    --extra-arg=--target=x86_64-w64-mingw32 --extra-arg=-Wno-unknown-warning-option \
    --extra-arg=-isystem"$gccInclude" --extra-arg=-isystem"$gccInclude/x86_64-w64-mingw32"
