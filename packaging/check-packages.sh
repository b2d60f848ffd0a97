#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# usage: check-packages.sh DIR ARCHITECTURE
# Installs the packages of ARCHITECTURE out of DIR in a new Debian root, tries them there as their users would, and
# removes them. Where this machine does not run ARCHITECTURE, the root's programs are emulated.
# Needs root, debootstrap and systemd-container, and qemu-user-static to emulate; the new root lies in DIR/root while this
# runs.
set -eu

if [ "${3:-}" != unshared ]; then
    # In a mount namespace of its own nothing stays mounted, whatever happens.
    exec unshare --mount sh "$0" "$1" "$2" unshared
fi

packages=$(cd "$1" && pwd)
architecture=$2
root=$packages/root
tried=$packages/tried
binfmt=/proc/sys/fs/binfmt_misc
registered=
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8

step() {
    echo "== $*"
}

fail() {
    echo "FAILED: $*"
    exit 1
}

skip() {
    echo "SKIPPED: trying the packages for $architecture: $*"
    exit 0
}

clean_up() {
    [ -z "$registered" ] || echo -1 >"$registered" || true
    umount "$root/proc" 2>/dev/null || true
    rm -rf --one-file-system "$root" "$tried"
}

inside() {
    chroot "$root" "$@"
}

install() {
    inside sh -euc 'cd /packages && apt-get install -y '"$*"
}

# Lets this machine run the root's programs, for as long as this runs unless it could do so before.
emulate() {
    emulator=qemu-$(dpkg-architecture -A "$architecture" -q DEB_TARGET_GNU_CPU)
    [ -e $binfmt/register ] || mount -t binfmt_misc binfmt_misc $binfmt || skip "binfmt_misc cannot be mounted here"
    if [ ! -e "$binfmt/$emulator" ]; then
        cat "/usr/lib/binfmt.d/$emulator.conf" >$binfmt/register || skip "binfmt_misc takes no registration here"
        registered=$binfmt/$emulator
    fi
    # Without F the emulator would be looked up in the root, where it is not.
    grep -q '^flags:.*F' "$binfmt/$emulator" || skip "$emulator is registered in binfmt_misc, but without its flag F"
    ! grep -Lx enabled $binfmt/status "$binfmt/$emulator" | grep -q . || skip "$emulator is disabled in binfmt_misc"
}

make_root() {
    codename=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
    # shellcheck disable=SC2016
    mirror=$(apt-get indextargets --format '$(REPO_URI)' "Codename: $codename" 'Created-By: Packages' | head -n 1)
    debootstrap --arch="$architecture" --variant=minbase "$codename" "$root" "$mirror"
    mount -t proc proc "$root/proc"
    mkdir "$root/packages"
    cp "$packages"/*_"$architecture".deb "$packages"/*_all.deb "$root/packages"
    rm -f "$root"/packages/*-dbgsym_*
}

# Every file but those in which apt and the linker keep their own accounts.
files() {
    inside find / -xdev \( -path /proc -o -path /packages -o -path /tmp -o -path /var/cache \
        -o -path /var/log -o -path /var/lib/apt \) -prune -o -print | sort
}

removal() {
    step "removal"
    inside apt-get remove -y --auto-remove '*vekgpu-*' veksmi veksim
    inside apt-get purge -y '?config-files'
    files | comm -13 "$root/packages/files" - >"$root/packages/left"
    [ ! -s "$root/packages/left" ] || fail "left behind: $(cat "$root/packages/left")"
    ! inside grep -rlE 'vekgpu|veksmi|veksim' /etc /var/lib/dpkg/status || fail "still named in the files above"
}

try_tools() {
    step "veksmi and veksim alone"
    files >"$root/packages/files"
    install --no-install-recommends './libvekgpu-ml1_*.deb ./veksmi_*.deb ./veksim_*.deb'
    inside veksmi version || fail "veksmi version"
    inside veksmi list || fail "veksmi list without any GPU"
    [ "$(inside veksim --gpus 2 -- veksmi list | grep -c TALON-)" = 2 ] || fail "veksmi list does not show two GPUs"
    for file in man/man1/veksmi.1.gz man/man1/veksim.1.gz bash-completion/completions/veksmi \
        zsh/vendor-completions/_veksmi fish/vendor_completions.d/veksmi.fish; do
        [ -s "$root/usr/share/$file" ] || fail "/usr/share/$file is missing"
    done
    removal
}

try_development() {
    step "clients of the development package"
    install --no-install-recommends g++ libc6-dev pkgconf
    files >"$root/packages/files"
    install './libvekgpu-ml-dev_*.deb ./libvekgpu-ml1_*.deb ./veksim_*.deb'
    # shellcheck disable=SC2016
    inside sh -eu -c '
        cd /usr/share/doc/libvekgpu-ml-dev/examples
        flags=$(pkg-config --cflags --libs vekgpu-ml)
        cc -std=c99 -O2 -D_FORTIFY_SOURCE=2 refresh.c -o /packages/refresh $flags
        c++ -std=c++17 -O2 -D_FORTIFY_SOURCE=2 fan.cpp -o /packages/fan $flags
        veksim -- /packages/refresh 2
        veksim -- /packages/fan 0 60
    ' || fail "the examples"
    [ -s "$root/usr/share/man/man3/libvekgpu-ml.3.gz" ] || fail "libvekgpu-ml(3) is missing"
    removal
}

try_python() {
    step "the Python module"
    install --no-install-recommends python3 libva2 libva-drm2
    files >"$root/packages/files"
    install './python3-vekgpu-ml_*.deb ./libvekgpu-ml1_*.deb ./veksim_*.deb'
    # shellcheck disable=SC2016
    inside sh -eu -c '
        veksim -- python3 -m vekgpu_ml | tee /packages/list
        grep "VEK S280 XT" /packages/list
        veksim -- python3 -c "import vekgpu_ml; print(*vekgpu_ml.gpus()[0].codecs(), sep=chr(10))" | tee /packages/codecs
        grep "hevc main.*yuv420" /packages/codecs
        veksim -- python3 /usr/share/doc/python3-vekgpu-ml/examples/sample.py 1 0.5 | tee /packages/samples
        [ "$(grep -c "VEK M310,[1-9]" /packages/samples)" -ge 2 ]
    ' || fail "the module"
    removal
}

# Prints the value of a setting of the service.
setting() {
    sed -n "s/^$1=//p" "$root/lib/systemd/system/vekgpu-exporter.service"
}

# The service as systemd runs it: the root is booted, and what is written there meanwhile is gone afterwards.
serve_by_systemd() {
    cat >"$root/packages/serve" <<'END'
#!/bin/bash
exec >/tried/served 2>&1
set -eux
fetch() {
    exec 3<>/dev/tcp/127.0.0.1/9899
    printf 'GET /metrics HTTP/1.0\r\n\r\n' >&3
    timeout 20 cat <&3
}
systemctl is-enabled vekgpu-exporter.socket
systemctl start vekgpu-exporter.socket
fetch | grep '^vekgpu_exporter_build_info'
systemctl stop vekgpu-exporter.service
mkdir /run/systemd/system/vekgpu-exporter.service.d
printf '[Service]\nEnvironment=VEKSIM_TRUST_TREE=1 VEKSIM_TREE=/packages/host LD_PRELOAD=%s\n' /usr/lib/*/veksim/libveksim.so \
    >/run/systemd/system/vekgpu-exporter.service.d/simulated.conf
systemctl daemon-reload
fetch >/tmp/page
[ "$(grep -c '^vekgpu_up.* 1$' /tmp/page)" = 2 ]
main=$(systemctl show -P MainPID vekgpu-exporter.service)
[ "$(grep -Ec '^(CapBnd:\s0+|NoNewPrivs:\s1|Seccomp:\s2)$' "/proc/$main/status")" = 3 ]
[ "$(stat -c %u "/proc/$main")" -ge 61184 ]
systemd-analyze security --offline=true --threshold=15 vekgpu-exporter.service >/dev/null
systemctl stop vekgpu-exporter.socket vekgpu-exporter.service
systemctl show -P Result vekgpu-exporter.service | grep -x success
[ ! -e "/proc/$main" ]
echo served
END
    chmod +x "$root/packages/serve"
    # systemd-nspawn takes /run only where it is in memory.
    # shellcheck disable=SC2016
    unshare --mount sh -eu -c 'mount -t tmpfs tmpfs /run
        timeout 120 systemd-nspawn --quiet --register=no --keep-unit --private-network --volatile=overlay \
            --console=pipe --bind="$2:/tried" -D "$1" --boot systemd.run=/packages/serve
        ' - "$root" "$tried" </dev/null || true
    cat "$tried/served"
}

# Where systemd does not run: the same command by such a user and with such limits as can be had without it.
serve_alone() {
    # shellcheck disable=SC2016
    inside env VEKSIM_TRUST_TREE=1 VEKSIM_TREE=/packages/host COMMAND="$(setting ExecStart | sed 's/ \$ARGS$//')" UMASK="$(setting UMask)" \
        GROUPS_OF="$(setting SupplementaryGroups | tr ' ' ,)" TASKS="$(setting TasksMax)" bash -euc '
        umask "$UMASK"
        LD_PRELOAD=$(echo /usr/lib/*/veksim/libveksim.so) prlimit --nproc="$TASKS" setpriv --reuid 61184 --regid 61184 \
            --groups "$GROUPS_OF" --no-new-privs --bounding-set=-all --inh-caps=-all "$COMMAND" --deadline 5 &
        for _ in $(seq 100); do
            sleep 0.3
            { exec 3<>/dev/tcp/127.0.0.1/9899; } 2>/dev/null && break
        done
        printf "GET /metrics HTTP/1.0\r\n\r\n" >&3
        cat <&3 >/packages/page
        kill %1
        wait %1
        [ "$(grep -c "^vekgpu_up.* 1\$" /packages/page)" = 2 ]
    '
}

try_exporter() {
    step "the exporter as a service"
    install --no-install-recommends systemd
    files >"$root/packages/files"
    install --no-install-recommends './vekgpu-exporter_*.deb ./libvekgpu-ml1_*.deb ./veksim_*.deb'
    for file in etc/systemd/system/sockets.target.wants/vekgpu-exporter.socket \
        usr/share/man/man1/vekgpu-exporter.1.gz usr/share/vekgpu-exporter/vekgpu-alerts.yml \
        usr/share/vekgpu-exporter/vekgpu-dashboard.json; do
        [ -s "$root/$file" ] || [ -L "$root/$file" ] || fail "/$file is missing"
    done
    inside vekgpu-exporter --once | grep '^vekgpu_exporter_build_info' || fail "vekgpu-exporter --once"
    inside veksim --still --tree /packages/host -- true
    chmod -R a+rX "$root/packages/host"
    if [ "$architecture" = "$(dpkg --print-architecture)" ] && serve_by_systemd; then
        grep -qx served "$tried/served" || fail "the service"
    else
        echo "SKIPPED: systemd does not run here for $architecture: the exporter is tried without it"
        serve_alone || fail "the exporter as another user"
    fi
    removal
}

rm -rf --one-file-system "$root" "$tried"
mkdir "$tried"
trap clean_up EXIT
trap 'exit 1' HUP INT TERM
[ "$architecture" = "$(dpkg --print-architecture)" ] || emulate
step "a bare root for $architecture"
make_root
try_tools
try_exporter
try_development
try_python
step "the packages install, run and leave nothing behind"
