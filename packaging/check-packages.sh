#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# usage: check-packages.sh DIR
# Installs this machine's packages out of DIR in a new Debian root, tries them there as their users would, and removes them.
# Needs root and debootstrap; the new root lies in DIR/root while this runs.
set -eu

if [ "${2:-}" != unshared ]; then
    # In a mount namespace of its own nothing stays mounted, whatever happens.
    exec unshare --mount sh "$0" "$1" unshared
fi

packages=$(cd "$1" && pwd)
root=$packages/root
architecture=$(dpkg --print-architecture)
codename=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
# shellcheck disable=SC2016
mirror=$(apt-get indextargets --format '$(REPO_URI)' "Codename: $codename" 'Created-By: Packages' | head -n 1)
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8

inside() {
    chroot "$root" "$@"
}

install() {
    inside sh -euc 'cd /packages && apt-get install -y '"$*"
}

step() {
    echo "== $*"
}

fail() {
    echo "FAILED: $*"
    exit 1
}

ours() {
    inside find / -xdev \( -path /proc -o -path /packages \) -prune -o -iname '*vek*' -print
}

rm -rf "$root"
trap 'umount "$root/proc" 2>/dev/null || true; rm -rf "$root"' EXIT
step "a bare root"
debootstrap --variant=minbase "$codename" "$root" "$mirror"
mount -t proc proc "$root/proc"
mkdir "$root/packages"
cp "$packages"/*_"$architecture".deb "$root/packages"
rm -f "$root"/packages/*-dbgsym_*

step "veksmi and veksim alone"
install --no-install-recommends './libvekgpu-ml1_*.deb ./veksmi_*.deb ./veksim_*.deb'
[ "$(inside veksim -- veksmi list | grep -c TALON-)" = 2 ] || fail "veksim -- veksmi list does not show two GPUs"
inside veksmi list || fail "veksmi list without any GPU"

step "clients of the development package"
install './libvekgpu-ml-dev_*.deb' g++ pkgconf python3 libva2 libva-drm2
# shellcheck disable=SC2016
inside sh -eu -c '
    cd /usr/share/doc/libvekgpu-ml-dev/examples
    flags=$(pkg-config --cflags --libs vekgpu-ml)
    cc -std=c99 -O2 -D_FORTIFY_SOURCE=2 refresh.c -o /packages/refresh $flags
    c++ -std=c++17 -O2 -D_FORTIFY_SOURCE=2 fan.cpp -o /packages/fan $flags
    veksim -- /packages/refresh 2
    veksim -- /packages/fan 0 60
    veksim -- python3 codecs.py | tee /packages/codecs
    grep "hevc main encoder" /packages/codecs
' || fail "the examples"

step "removal"
inside apt-get purge -y 'libvekgpu-ml*' veksmi veksim
left=$(ours)
[ -z "$left" ] || fail "left behind: $left"
step "the packages install, run and leave nothing behind"
