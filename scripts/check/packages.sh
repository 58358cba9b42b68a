#!/usr/bin/env bash
# packages.sh FOLDER: the Debian packages in FOLDER can be installed by what they say of each other, ask for no older C
# library than they need, and those of this machine's architecture, installed into a folder of their own, serve programs.
# Those of armhf are installed and used on the emulated board.
set -euo pipefail
export LC_ALL=C PATH=$PATH:/usr/sbin:/sbin
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
version=$(sed -n 's/^#define CU_VERSION_STRING "\(.*\)".*/\1/p' "$here/../../include/cUtil/version.h")
native=$(dpkg --print-architecture)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$1"

# theCLibraryIsNewEnough PACKAGE: what its programs ask of the C library comes with the one that it depends on.
theCLibraryIsNewEnough() {
    local told needed
    told=$(dpkg-deb -f "$1" Depends | sed -n 's/.*libc6 (>= \([0-9.]*\)).*/\1/p')
    rm -rf "$work/files"
    dpkg-deb -x "$1" "$work/files"
    needed=$({ find "$work/files" -type f -exec readelf -V {} + 2>/dev/null || true; } |
        grep -o 'GLIBC_[0-9.]*' | sort -uV | tail -n 1)
    if [[ -z $told || -z $needed ]] || dpkg --compare-versions "$told" lt "${needed#GLIBC_}"; then
        echo "$1 depends on the C library from ${told:-none}, but needs ${needed:-an unknown one}"
        exit 1
    fi
}

for architecture in "$native" armhf; do
    for package in libkocutil1 kocutil-tools; do
        theCLibraryIsNewEnough "${package}_${version}_$architecture.deb"
    done
done

# Of the machine's own packages that root knows those alone which ours depend on.
root=$work/root
mkdir -p "$root/var/lib/dpkg"/{info,updates,triggers}
dpkg-query -W -f 'Package: ${Package}\nStatus: install ok installed\nArchitecture: ${Architecture}\nMulti-Arch: same
Maintainer: Debian\nVersion: ${Version}\nDescription: present\n\n' {libc6,libc6-dev,libgcc-s1,libstdc++6}:"$native" \
    >"$root/var/lib/dpkg/status"
fakeroot dpkg --root "$root" --install {libkocutil1,libkocutil1-dbgsym,libkocutil-dev,kocutil-tools}_"${version}_$native.deb" \
    "libkocutil-doc_${version}_all.deb"

"$here/installed.sh" --prefix "$root/usr"

cmake -S "$root/usr/share/doc/koCUtil/examples" -B "$work/examples" -G Ninja -DCMAKE_PREFIX_PATH="$root/usr"
cmake --build "$work/examples"
"$work/examples/telemetry/telemetry" --help

cd "$root/usr"
for file in share/doc/koCUtil/{README.md,docs/guides/c.md,html/index.html} share/doc/libkocutil1/{copyright,changelog.gz} \
    share/man/man1/{cutil,cutil-ring,telemetry}.1.gz share/bash-completion/completions/cutil \
    "lib/debug/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)/libkoCUtil.so.$version.debug"; do
    [[ -s $file ]] || { echo "no $file"; exit 1; }
done
