# What the commands of `dev` share; they source it from the top folder.
# shellcheck shell=bash
set -euo pipefail
# shellcheck disable=SC2034 # used by those who source this
readonly language=${LC_ALL:-${LANG:-C}} # the caller's, for what speaks to people
export LC_ALL=C

readonly logs=$PWD/build/log
mkdir -p "$logs"

fail() {
    echo "$*" >&2
    exit 1
}

# step NAME COMMAND...: runs a command quietly. Prints one line with the time that it took; when it fails, also how its
# output ends and where the whole of it is.
step() {
    local name=$1 start=${EPOCHREALTIME/./} log status=0
    shift
    log=$logs/${name//[^A-Za-z0-9]/-}.log
    printf '%-32s' "$name"
    "$@" >"$log" 2>&1 </dev/null || status=$?
    printf '%s %6.1f s\n' "$( ((status)) && echo FAILED || echo '  ok  ')" "$(((${EPOCHREALTIME/./} - start) / 100000))e-1"
    ((status)) || return 0
    telling "$log" | tail -n 40 | sed 's/^/    /'
    echo "    the whole log: ${log#"$PWD"/}"
    return "$status"
}

# The lines of a log that tell something: without what CTest and Ninja say about what went well.
telling() {
    grep -vE '^ *Start +[0-9]+: |^ *[0-9]+/[0-9]+ Test +#[0-9]+: .* (Passed|\*\*\*Skipped) |^\[[0-9]+/[0-9]+\] ' "$1" || true
}

# need PURPOSE...: installs the Debian packages that are missing for it.
need() {
    local purpose package packages=() missing=() root=()
    command -v dpkg-query >/dev/null || return 0 # not Debian: the commands themselves tell what they miss
    for purpose; do
        case $purpose in
            native) packages+=(cmake ninja-build g++ googletest tzdata help2man mandoc jq) ;;
            clang) packages+=(clang libclang-rt-dev llvm) ;; # llvm: lines in stack traces
            fuzz) packages+=(cmake ninja-build clang libclang-rt-dev llvm) ;;
            arm) packages+=(g++-arm-linux-gnueabihf qemu-user) ;;
            board) packages+=(g++-arm-linux-gnueabihf qemu-system-arm cpio kmod xz-utils netbase) ;;
            lint) packages+=(clang-format clang-tidy shellcheck pkg-config) ;;
            abi) packages+=(abigail-tools) ;;
            debugger) packages+=(gdb) ;;
            coverage) packages+=(gcovr) ;;
            valgrind) packages+=(valgrind) ;;
            docs) packages+=(doxygen graphviz) ;;
            picture) packages+=(termtosvg) ;;
            packages) packages+=(dpkg-dev fakeroot file pkg-config) ;;
            bench)
                packages+=(libbenchmark-dev libboost-dev libglib2.0-dev libconcurrentqueue-dev libtbb-dev libasio-dev)
                packages+=(libapr1-dev libssl-dev uuid-dev libuv1-dev libspdlog-dev libfmt-dev libnng-dev)
                packages+=(libzmq3-dev pkg-config python3)
                ;;
            *) fail "no packages are known for $purpose" ;;
        esac
    done
    for package in "${packages[@]}"; do
        dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed ||
            [[ " ${missing[*]} " == *" $package "* ]] || missing+=("$package")
    done
    ((${#missing[@]})) || return 0
    if ((EUID != 0)); then
        command -v sudo >/dev/null || fail "missing packages, and no sudo to install them: ${missing[*]}"
        root=(sudo)
    fi
    echo "installing ${missing[*]}"
    step "package lists" "${root[@]}" apt-get -o DPkg::Lock::Timeout=300 update || exit
    step "packages" "${root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get -o DPkg::Lock::Timeout=300 install -y --no-install-recommends "${missing[@]}" || exit
}

# What a program with a sanitizer is started with: the compilers' sanitizers cannot place their shadow memory where a
# kernel randomises more than 28 bits.
fixedAddresses=()
if (($(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0) > 28)); then
    # shellcheck disable=SC2034 # used by those who source this
    fixedAddresses=(setarch "$(uname -m)" --addr-no-randomize)
fi

# build PRESET [TARGET...]: configures and compiles, everything when no target is named.
build() {
    local preset=$1
    shift
    cmake --preset "$preset" && cmake --build "build/$preset" ${1:+--target "$@"}
}

# pack PRESET: the Debian packages of what was built, in build/PRESET/packages. Their folders are Debian's, whatever was
# configured by hand.
pack() (
    cmake --preset "$1" -U CMAKE_INSTALL_LIBDIR && cd "build/$1" && rm -rf packages && cpack -G DEB
)
