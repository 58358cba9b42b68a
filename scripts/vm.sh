#!/usr/bin/env bash
# Runs the tests of a 32-bit ARM build on an emulated board with a real 32-bit ARM kernel.
#
#   scripts/vm.sh BUILD_DIR
#
# BUILD_DIR is a build folder made by arm-linux-gnueabihf-g++. It holds
#   packages/*.deb      the Debian packages, which the board installs: its programs use the library that comes from there
#   test-programs.txt   the GoogleTest programs, one path per line, relative to BUILD_DIR
#   test-data.txt       optional: further files and folders that the programs need, listed in the same way
# On the board the same relative paths stand under /koCUtil; a program starts in its own folder.
#
# The last line is "N passed, N failed, N skipped"; the exit status is 0 only if nothing failed.
# The board's console is kept in BUILD_DIR/vm.log, the preparation's output in BUILD_DIR/vm-prepare.log.
#
#   KOCUTIL_CACHE              folder for what was downloaded (default ~/.cache/koCUtil)
#   KOCUTIL_VM_PROGRAM_LIMIT   seconds that one program may take (default 900)
#   KOCUTIL_VM_LIMIT           seconds that the whole run may take (default 1500)
set -euo pipefail
export LC_ALL=C

readonly mirrorDefault=http://deb.debian.org/debian
readonly suite=bookworm
readonly kernelPackage=linux-image-armmp
readonly modules=(ipv6 sctp)
readonly boardRevision=1 # raise it when the content of the cached board folder changes
readonly runtime=/usr/arm-linux-gnueabihf/lib
# Loaded by name at run time, or wanted by programs that were linked against an older C library.
readonly runtimeExtras=(libc.so.6 libm.so.6 libstdc++.so.6 libgcc_s.so.1 libpthread.so.0 librt.so.1 libdl.so.2 libnss_files.so.2)

fail() {
    echo "vm.sh: $*" >&2
    exit 1
}

# Runs a step quietly; when it fails, shows the end of its output and says where the rest is.
step() {
    local what=$1 start
    shift
    echo "== $what" >>"$prepareLog"
    start=$(wc -l <"$prepareLog")
    if ! "$@" >>"$prepareLog" 2>&1; then
        tail -n "+$((start + 1))" "$prepareLog" | tail -n 20 >&2
        fail "$what failed, see $prepareLog"
    fi
}

needCommands() {
    local command missing=()
    for command in qemu-system-arm cpio gzip xz depmod modprobe dpkg-deb dpkg-query apt-get apt-cache timeout \
        arm-linux-gnueabihf-gcc arm-linux-gnueabihf-readelf arm-linux-gnueabihf-strip; do
        # modprobe and depmod stand outside the search path of an ordinary user.
        PATH=$PATH:/usr/sbin:/sbin command -v "$command" >/dev/null || missing+=("$command")
    done
    ((${#missing[@]} == 0)) || fail "missing commands: ${missing[*]}"
}

# --- The kernel, its modules and busybox, from Debian's armhf packages ------------------------------------------------

# The host's own mirror of Debian's main archive, whatever format its source lists have.
hostMirror() {
    local found
    found=$(cat /etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources 2>/dev/null |
        sed '/^[[:space:]]*#/d' | grep -oE 'https?://[^] ]+/debian(/[0-9TZ]+)?/?([[:space:]]|$)' | head -n 1) || true
    found=${found%%[[:space:]]*}
    echo "${found:-$mirrorDefault}"
}

# Package lists and state of their own; the host's proxy settings stay valid, its hooks do not run.
writeAptConfiguration() {
    local root=$1
    mkdir -p "$root"/{lists/partial,cache/archives/partial,preferences.d,sources.list.d}
    : >"$root/status"
    echo "deb [arch=armhf signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $(hostMirror) $suite main" \
        >"$root/sources.list"
    cat >"$root/apt.conf" <<EOF
#clear APT::Update::Pre-Invoke;
#clear APT::Update::Post-Invoke;
#clear APT::Update::Post-Invoke-Success;
#clear APT::Architectures;
APT::Architecture "armhf";
APT::Architectures { "armhf"; };
APT::Sandbox::User "root";
Acquire::Retries "3";
Dir::State "$root";
Dir::State::lists "$root/lists";
Dir::State::status "$root/status";
Dir::Cache "$root/cache";
Dir::Etc::sourcelist "$root/sources.list";
Dir::Etc::sourceparts "$root/sources.list.d";
Dir::Etc::preferences "$root/preferences";
Dir::Etc::preferencesparts "$root/preferences.d";
EOF
}

downloadPackages() (
    root=$1
    writeAptConfiguration "$root" && cd "$root" || return
    apt-get -c apt.conf update || return
    kernel=$(apt-cache -c apt.conf depends "$kernelPackage" | sed -n 's/^ *Depends: \(linux-image-[0-9].*\)$/\1/p' | head -n 1)
    [[ -n $kernel ]] || {
        echo "$kernelPackage names no kernel"
        return 1
    }
    echo "kernel package: $kernel"
    apt-get -c apt.conf download "$kernel" busybox-static
)

# Keeps what the board needs: vmlinuz, busybox, and the modules, numbered in the order of loading.
unpackPackages() {
    local root=$1 result=$2 package version number=10 module path name order
    mkdir -p "$root/tree" "$result/modules"
    for package in "$root"/*.deb; do
        dpkg-deb -x "$package" "$root/tree" || return
    done
    version=$(basename "$root"/tree/boot/vmlinuz-*)
    version=${version#vmlinuz-}
    cp "$root/tree/boot/vmlinuz-$version" "$result/vmlinuz" || return
    cp "$root/tree/bin/busybox" "$result/busybox" || return
    depmod -b "$root/tree" "$version" || return
    for module in "${modules[@]}"; do
        order=$(modprobe -C /dev/null -d "$root/tree" -S "$version" --show-depends "$module") || return
        while read -r _ path _; do
            [[ $path == /* ]] || continue # built into the kernel
            name=$(basename "$path")
            name=${name%%.ko*}.ko
            compgen -G "$result/modules/*-$name" >/dev/null && continue
            case $path in
                *.xz) xz -dc "$path" ;;
                *) cat "$path" ;;
            esac >"$result/modules/$number-$name" || return
            number=$((number + 1))
        done <<<"$order"
    done
    (cd "$result" && find . -type f -exec sha256sum {} +) >"$root/sums" && mv "$root/sums" "$result/SHA256SUMS"
}

boardIsComplete() {
    [[ -f $board/SHA256SUMS ]] && (cd "$board" && sha256sum --quiet -c SHA256SUMS) >/dev/null 2>&1
}

# Made under another name and renamed when complete, so that an interrupted run leaves nothing half-made behind.
prepareBoard() {
    boardIsComplete && return
    local cache fresh
    cache=$(dirname "$board")
    mkdir -p "$cache"
    find "$cache" -maxdepth 1 -name 'new.*' -mmin +60 -exec rm -rf {} + # left behind by a run that was killed
    fresh=$(mktemp -d "$cache/new.XXXXXX")
    cleanup+=("$fresh")
    step "downloading the board's kernel and busybox" downloadPackages "$fresh/apt"
    step "unpacking the board's kernel and busybox" unpackPackages "$fresh/apt" "$fresh/board"
    if [[ -e $board ]]; then
        mv -T "$board" "$fresh/damaged" 2>/dev/null || true # another run may have been faster
    fi
    mv -T "$fresh/board" "$board" 2>/dev/null || boardIsComplete || fail "cannot put the board's files into $board"
    rm -rf "$fresh"
}

# --- The initial RAM disk ---------------------------------------------------------------------------------------------

# The non-blank lines of a list file.
listed() {
    [[ ! -f $1 ]] || sed 's/\r$//; /^[[:space:]]*$/d' "$1"
}

# Copies a file or folder from BUILD_DIR to the same relative place on the board.
place() {
    local path=${1#./}
    [[ $path != /* && /$path/ != */../* ]] || fail "$path: not a path below $build"
    [[ -e $build/$path ]] || fail "$path is listed but does not exist in $build"
    mkdir -p "$(dirname "$root/koCUtil/$path")"
    cp -rLT "$build/$path" "$root/koCUtil/$path"
}

# The Debian packages that the board installs, before anything else runs, over the C library that stands there; and what
# uses them: scripts/vm/installed, with a C program made from the development package.
placePackages() {
    local package tree=$work/dev packages=$build/packages
    local installed=("$packages"/{libkocutil1,kocutil-tools}_*_armhf.deb) development=("$packages"/libkocutil-dev_*_armhf.deb)
    for package in "${installed[@]}" "${development[@]}"; do
        [[ -f $package ]] || fail "no $package"
    done
    mkdir -p "$root/var/cache/packages" "$root/var/lib/dpkg/info" "$root/koCUtil/packages" "$tree"
    cp "${installed[@]}" "$root/var/cache/packages/"
    for package in libc6 libgcc-s1 libstdc++6; do
        printf 'Package: %s\nStatus: install ok installed\nArchitecture: armhf\nVersion: %s\n\n' \
            "$package" "$(dpkg-query -W -f '${Version}' "$package-armhf-cross")"
    done >"$root/var/lib/dpkg/status"
    for package in "${development[@]}" "$packages"/libkocutil1_*; do
        dpkg-deb -x "$package" "$tree"
    done
    arm-linux-gnueabihf-gcc -std=c11 -I"$tree/usr/include" "$here/check/installed/consumer.c" \
        -L"$tree/usr/lib/arm-linux-gnueabihf" -lkoCUtil -o "$root/koCUtil/packages/consumer"
    cp "$here/vm/installed" "$root/koCUtil/packages/installed"
}

# Adds the libraries that the files on the board need, and those that these need in turn.
placeRuntime() {
    local name source pending=() known=' libkoCUtil.so.1 ' # which a package brings
    cp -L "$runtime/ld-linux-armhf.so.3" "$root/lib/"
    for name in "${runtimeExtras[@]}"; do
        [[ ! -e $runtime/$name ]] || pending+=("$name")
    done
    mapfile -t -O "${#pending[@]}" pending < <(find "$root/koCUtil" -type f -exec arm-linux-gnueabihf-readelf -d {} + 2>/dev/null |
        sed -n 's/.*(NEEDED).*\[\(.*\)\].*/\1/p' | sort -u)
    while ((${#pending[@]} > 0)); do
        name=${pending[0]}
        pending=("${pending[@]:1}")
        [[ $known != *" $name "* ]] || continue
        known+="$name "
        [[ ! -e $root/lib/$name ]] || continue
        if [[ -e $runtime/$name ]]; then
            source=$runtime/$name
        else
            source=$(find "$build" -name "$name" -print -quit)
        fi
        [[ -n $source ]] || fail "a program needs $name, which is neither in $runtime nor in $build"
        cp -L "$source" "$root/lib/$name"
        mapfile -t -O "${#pending[@]}" pending < <(arm-linux-gnueabihf-readelf -d "$source" |
            sed -n 's/.*(NEEDED).*\[\(.*\)\].*/\1/p')
    done
}

packRamDisk() {
    # Debug information would only fill the board's memory; what is no object file stays as it is.
    find "$root/koCUtil" "$root/lib" -type f -exec arm-linux-gnueabihf-strip --strip-debug {} + 2>/dev/null || true
    (cd "$root" && find . -print0 | sort -z | cpio --quiet --null -o -H newc -R 0:0 | gzip -1) >"$work/initrd.gz"
}

prepareRamDisk() {
    local path zone
    mkdir -p "$root"/{bin,dev,etc,lib/modules,proc,root,run,sbin,sys,tmp,usr/bin,usr/sbin,usr/share/zoneinfo,var/log,var/tmp,koCUtil}
    ln -s ../run "$root/var/run"
    cp "$board/busybox" "$root/bin/busybox"
    ln -s busybox "$root/bin/sh"
    cp "$board"/modules/*.ko "$root/lib/modules/"
    cp "$here/vm/init" "$root/init"
    chmod 755 "$root/init"
    cp -r "$here/vm/etc/." "$root/etc/"
    for path in services protocols; do
        [[ ! -f /etc/$path ]] || cp "/etc/$path" "$root/etc/"
    done
    for zone in Europe/Berlin UTC; do
        [[ -f /usr/share/zoneinfo/$zone ]] || continue
        mkdir -p "$(dirname "$root/usr/share/zoneinfo/$zone")"
        cp -L "/usr/share/zoneinfo/$zone" "$root/usr/share/zoneinfo/$zone"
    done

    listed "$build/test-programs.txt" >"$root/etc/board-programs"
    [[ -s $root/etc/board-programs ]] || fail "$build/test-programs.txt lists no program"
    echo "$programLimit" >"$root/etc/board-program-limit"
    while IFS= read -r path; do
        place "$path"
        [[ -x $root/koCUtil/$path ]] || fail "$path is not executable"
    done <"$root/etc/board-programs"
    sed -i '1i packages/installed' "$root/etc/board-programs"
    while IFS= read -r path; do
        place "$path"
    done < <(listed "$build/test-data.txt")
    placePackages
    placeRuntime
    step "packing the initial RAM disk" packRamDisk
}

# --- The run ----------------------------------------------------------------------------------------------------------

# highmem=off: this kernel has no large physical addresses.
# panic=-1 with -no-reboot: a kernel that dies ends the emulator at once instead of waiting for the time limit.
runBoard() {
    timeout --foreground --kill-after=10 "$boardLimit" \
        qemu-system-arm -machine virt,highmem=off -cpu cortex-a15 -smp 2 -m 1024 \
        -nographic -monitor none -serial "file:$log" -nic none -no-reboot \
        -kernel "$board/vmlinuz" -initrd "$work/initrd.gz" \
        -append "console=ttyAMA0 quiet loglevel=3 panic=-1" </dev/null >>"$prepareLog" 2>&1
}

((BASH_VERSINFO[0] >= 5)) || fail "needs bash 5"
[[ $# == 1 ]] || fail "usage: scripts/vm.sh BUILD_DIR"
[[ -d $1 ]] || fail "$1 is no folder"
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$(cd "$1" && pwd)
log=$build/vm.log
prepareLog=$build/vm-prepare.log
board=${KOCUTIL_CACHE:-$HOME/.cache/koCUtil}/armhf/board-$boardRevision
programLimit=${KOCUTIL_VM_PROGRAM_LIMIT:-900}
boardLimit=${KOCUTIL_VM_LIMIT:-1500}
[[ $programLimit =~ ^[1-9][0-9]*$ && $boardLimit =~ ^[1-9][0-9]*$ ]] || fail "the time limits are whole seconds"

needCommands
PATH=$PATH:/usr/sbin:/sbin
[[ -f $build/test-programs.txt ]] || fail "$build/test-programs.txt is missing"
[[ -e $runtime/ld-linux-armhf.so.3 ]] || fail "no 32-bit ARM C library in $runtime"
mkdir -p "$(dirname "$board")"
board=$(cd "$(dirname "$board")" && pwd)/$(basename "$board")

: >"$prepareLog"
rm -f "$log"
work=$(mktemp -d)
root=$work/root
cleanup=("$work")
trap 'rm -rf "${cleanup[@]}"' EXIT

prepareBoard
prepareRamDisk
echo "== running the board" >>"$prepareLog"
status=0
runBoard || status=$?
case $status in
    0) ending= ;;
    124 | 137) ending="the board did not power off within $boardLimit s" ;;
    *) ending="the emulator ended with status $status, see $prepareLog" ;;
esac

# Escape sequences and control characters go before anything is read from the console.
touch "$log"
sed 's/\x1b\[[0-9;?]*[A-Za-z]//g' "$log" | tr -d '\000-\010\013-\037\177' >"$work/console"
awk -v ending="$ending" -v limit="$programLimit" -v now="$(date +%s)" -v log_="$log" \
    -f "$here/vm/results.awk" "$root/etc/board-programs" "$work/console"
