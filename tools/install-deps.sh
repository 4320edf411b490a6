#!/bin/sh
# install-deps.sh SET...: installs the Debian packages that are missing for what one wants to do. Sets: build test fuzz
# bench package.
# Does nothing, and asks for no rights, where all of them are there already.
set -eu

packages() {
    case $1 in
    build) echo g++ cmake ninja-build pkg-config libjsoncpp-dev libboost-dev libsystemd-dev libcli11-dev libsqlite3-dev ;;
    test) echo abigail-tools bash-completion binutils bsdutils clang-14 dbus dbus-daemon debhelper faketime groff-base iproute2 keepalived less libgtest-dev librsvg2-bin lintian logrotate man-db procps python3 python3-dbusmock systemd tmux tzdata valgrind zsh ;;
    fuzz) echo clang-14 libclang-rt-14-dev ;;
    bench) echo cron libbenchmark-dev python3 util-linux ;;
    package) echo build-essential debhelper lintian ;;
    *)
        echo "install-deps.sh: unknown set '$1' (build, test, fuzz, bench, package)" >&2
        exit 2
        ;;
    esac
}

missing=
for set in "$@"; do
    wanted=$(packages "$set")
    for package in $wanted; do
        state=$(dpkg-query -W -f '${db:Status-Abbrev}' "$package" 2>/dev/null || true)
        case $state in
        ?i*) ;; # installed, held or not
        *) missing="$missing $package" ;;
        esac
    done
done
[ -n "$missing" ] || exit 0

if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
        echo "install-deps.sh: these packages are missing, and installing them needs root:$missing" >&2
        exit 1
    }
    sudo=sudo
fi
echo "Installing:$missing"
${sudo:-} apt-get update -qq </dev/null
# shellcheck disable=SC2086 # a list of words is meant
${sudo:-} env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing </dev/null >/dev/null
