#!/bin/bash
# Installs the library to temporary prefixes (static and shared), then builds
# and runs examples/consumer against it through find_package, through
# pkg-config and as a subproject, and the C program examples/consumer_c
# through find_package, pkg-config and a plain cc command; checks what the shared object exports and
# that the tool's manual page and bash completion are installed; and makes
# the Debian package, checks that it has them too, and builds the consumer
# against its contents.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

scripts/deps.sh cmake make g++ gcc pkgconf dpkg-dev binutils file
work=$(mktemp -d /tmp/hexblocks-install-XXXXXX)
trap 'rm -rf "$work"' EXIT
jobs=$(nproc 2>/dev/null || echo 2)
expected=$'block 0: 0x08000000, 4096 bytes\nblock 1: 0x08004000, 12288 bytes\nblock 2: 0x0801FC00, 64 bytes\nimage: 3 segments, 16448 bytes in 130112\ncrc32: 0x76FD8B13'

run_consumer() { # label build-dir [env...]
    local label=$1 dir=$2
    shift 2
    local out
    out=$(env "$@" "$dir/consumer" "$root/examples/sample.hex")
    if [ "$out" != "$expected" ]; then
        echo "consumer ($label) printed:"$'\n'"$out" >&2
        exit 1
    fi
    echo "ok: consumer through $label"
}

expected_c=$'segment 0: 0x08000000, 4096 bytes\nsegment 1: 0x08004000, 12288 bytes\nsegment 2: 0x0801FC00, 64 bytes\nimage: 3 segments, 16448 bytes in 130112\ncrc32: 0x76FD8B13'

run_c_consumer() { # label program [env...]
    local label=$1 program=$2
    shift 2
    local out
    out=$(env "$@" "$program" "$root/examples/sample.hex")
    if [ "$out" != "$expected_c" ]; then
        echo "C consumer ($label) printed:"$'\n'"$out" >&2
        exit 1
    fi
    echo "ok: C consumer through $label"
}

for kind in static shared; do
    shared=OFF
    [ $kind = shared ] && shared=ON
    prefix=$work/prefix-$kind
    cmake -S . -B "$work/build-$kind" -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=$shared \
        -DHEXBLOCKS_BUILD_TESTS=OFF -DHEXBLOCKS_BUILD_BENCHMARKS=OFF -DHEXBLOCKS_BUILD_EXAMPLES=OFF -DHEXBLOCKS_BUILD_PYTHON=OFF \
        -DHEXBLOCKS_WERROR=ON -DCMAKE_INSTALL_PREFIX="$prefix" >/dev/null
    cmake --build "$work/build-$kind" -j "$jobs" >/dev/null
    cmake --install "$work/build-$kind" >/dev/null
    echo "== $kind library installed in $prefix"
    (cd "$prefix" && find . -type f -o -type l | sort | sed 's/^/   /')
    "$prefix/bin/hexblocks" --version
    # The manual page and the bash completion, as the installed tool makes them.
    cmp "$prefix/share/man/man1/hexblocks.1" <("$prefix/bin/hexblocks" --generate man)
    cmp "$prefix/share/bash-completion/completions/hexblocks" <("$prefix/bin/hexblocks" --generate complete-bash)
    echo "ok: manual page and bash completion installed"

    if [ $kind = shared ]; then
        so=$(readlink -f "$prefix/lib/libhexblocks.so")
        soname=$(objdump -p "$so" | awk '/SONAME/ {print $2}')
        [ "$soname" = libhexblocks.so.0.6 ] || { echo "unexpected SONAME $soname" >&2; exit 1; }
        # Every exported symbol belongs to namespace hexblocks, but not to its
        # internals, or to the IntelHexFile classes, or is a function of the
        # C API.
        symbols=$(nm -D --defined-only -C "$so" | awk '{ $1=""; $2=""; print substr($0, 3) }')
        leaked=$( (grep -v -E '^(hexblocks|IntelHexFile|IntelHexFileBlock)::|^operator<\(IntelHexFile::hexfileline_t|^hb_[A-Za-z0-9]+$' \
            <<<"$symbols"; grep -E '^hexblocks::detail::' <<<"$symbols") || true)
        if [ -n "$leaked" ]; then
            echo "symbols exported beyond the public API:"$'\n'"$leaked" >&2
            exit 1
        fi
        echo "ok: SONAME $soname, only the public API exported ($(nm -D --defined-only "$so" | wc -l) symbols)"
    fi

    cmake -S examples/consumer -B "$work/consumer-package-$kind" -DHEXBLOCKS_CONSUMER_MODE=package \
        -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
    cmake --build "$work/consumer-package-$kind" >/dev/null
    run_consumer "find_package ($kind)" "$work/consumer-package-$kind"

    PKG_CONFIG_PATH="$prefix/lib/pkgconfig" cmake -S examples/consumer -B "$work/consumer-pc-$kind" \
        -DHEXBLOCKS_CONSUMER_MODE=pkgconfig >/dev/null
    cmake --build "$work/consumer-pc-$kind" >/dev/null
    run_consumer "pkg-config ($kind)" "$work/consumer-pc-$kind" LD_LIBRARY_PATH="$prefix/lib"

    # The C API from a C program, through find_package and pkg-config.
    cmake -S examples/consumer_c -B "$work/consumer-c-package-$kind" -DHEXBLOCKS_CONSUMER_MODE=package \
        -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
    cmake --build "$work/consumer-c-package-$kind" >/dev/null
    run_c_consumer "find_package ($kind)" "$work/consumer-c-package-$kind/consumer_c"
    PKG_CONFIG_PATH="$prefix/lib/pkgconfig" cmake -S examples/consumer_c -B "$work/consumer-c-pc-$kind" \
        -DHEXBLOCKS_CONSUMER_MODE=pkgconfig >/dev/null
    cmake --build "$work/consumer-c-pc-$kind" >/dev/null
    run_c_consumer "pkg-config ($kind)" "$work/consumer-c-pc-$kind/consumer_c" LD_LIBRARY_PATH="$prefix/lib"
    # And compiled by hand with the flags pkg-config gives, as a Makefile would.
    # shellcheck disable=SC2046
    cc -std=c99 -Wall -Wextra -Wpedantic -Werror examples/consumer_c/main.c -o "$work/consumer-c-cc-$kind" \
        $(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs --static hexblocks)
    run_c_consumer "cc and pkg-config ($kind)" "$work/consumer-c-cc-$kind" LD_LIBRARY_PATH="$prefix/lib"

    cmake -S examples/consumer -B "$work/consumer-sub-$kind" -DHEXBLOCKS_CONSUMER_MODE=subproject \
        -DHEXBLOCKS_SOURCE_DIR="$root" -DBUILD_SHARED_LIBS=$shared >/dev/null
    cmake --build "$work/consumer-sub-$kind" >/dev/null
    run_consumer "add_subdirectory ($kind)" "$work/consumer-sub-$kind"
    # Only the library is built for a parent project: no tests or tools.
    if [ -e "$work/consumer-sub-$kind/hexblocks/tools" ] || [ -e "$work/consumer-sub-$kind/hexblocks/tests" ]; then
        echo "the subproject built its tests or tools" >&2
        exit 1
    fi
done

echo "== Debian package"
(cd "$work/build-static" && cpack >/dev/null)
deb=$(ls "$work"/build-static/hexblocks_*.deb)
dpkg-deb --info "$deb" | sed -n 's/^ \(Package\|Version\|Architecture\|Depends\):/   &/p'
dpkg-deb --contents "$deb" | awk '{print "   " $6}'
dpkg-deb -x "$deb" "$work/deb-root"
for file in usr/share/man/man1/hexblocks.1 usr/share/bash-completion/completions/hexblocks; do
    [ -s "$work/deb-root/$file" ] || { echo "the .deb has no $file" >&2; exit 1; }
done
echo "ok: the .deb has the manual page and the bash completion"
cmake -S examples/consumer -B "$work/consumer-deb" -DHEXBLOCKS_CONSUMER_MODE=package \
    -DCMAKE_PREFIX_PATH="$work/deb-root/usr" >/dev/null
cmake --build "$work/consumer-deb" >/dev/null
run_consumer "the .deb's files" "$work/consumer-deb"
mkdir -p "${HEXBLOCKS_DEB_DIR:-build/packages}"
cp "$deb" "${HEXBLOCKS_DEB_DIR:-build/packages}/"
echo "ok: $(basename "$deb") in ${HEXBLOCKS_DEB_DIR:-build/packages}"
