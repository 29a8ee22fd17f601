#!/bin/bash
# Installs the Debian packages that a kind of work needs, if they are missing:
#
#   scripts/packages.sh SET...     SET: build-linux, windows, demo, servers, test, fuzz, bench
#
# With all of them there it only asks dpkg, and needs neither network nor rights.
set -euo pipefail

# shellcheck source=lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

packages_of() {
  case $1 in
    build-linux)
      echo build-essential ccache cmake ninja-build pkg-config nasm git patch xz-utils ca-certificates curl \
        libx264-dev libmp3lame-dev libopus-dev zlib1g-dev libffmpeg-nvenc-dev libcli11-dev nlohmann-json3-dev
      ;;
    # The package wine brings the command of that name, wine64 what it runs; no 32-bit part is needed.
    windows)
      echo make ccache cmake ninja-build pkg-config nasm git patch xz-utils ca-certificates curl libffmpeg-nvenc-dev \
        g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 libz-mingw-w64-dev \
        gcc libc6-dev wine wine64
      ;;
    demo) echo ffmpeg forensics-samples-files ;;
    servers) echo nginx libnginx-mod-rtmp ;;
    test)
      packages_of servers
      echo libgtest-dev libgmock-dev googletest libbenchmark-dev clang-format clang-tidy ffmpeg openssl python3 e2fsprogs \
        mount forensics-samples-files python3-gi gir1.2-gst-rtsp-server-1.0 gstreamer1.0-plugins-{base,good,bad}
      ;;
    fuzz) echo clang libclang-rt-14-dev ;;
    bench)
      packages_of demo
      echo libbenchmark-dev binutils linux-perf python3 gstreamer1.0-tools gstreamer1.0-plugins-{base,good,bad,ugly}
      ;;
    *) fail "unknown package set '$1'; there are build-linux, windows, demo, servers, test, fuzz and bench." ;;
  esac
}

# Names the packages of the list that are not installed.
missing_of() {
  local installed
  # dpkg-query's status only says that some of them are unknown.
  installed=$(dpkg-query -W -f '${db:Status-Abbrev}${Package}\n' "$@" 2> /dev/null | sed -n 's/^ii //p' || true)
  comm -23 <(printf '%s\n' "$@" | sort -u) <(sort -u <<< "$installed")
}

# Runs a command with root's rights; get_rights comes first.
as_root() {
  if ((EUID == 0)); then
    "$@"
  else
    sudo -n "$@"
  fi
}

# Lets sudo ask for a password now, while there is somebody to ask: apt itself runs in the background.
get_rights() {
  if ((EUID == 0)) || sudo -n true 2> /dev/null; then return; fi
  command -v sudo > /dev/null ||
    fail "these packages are missing and there is neither root nor sudo to install them: $*."
  if [[ -n ${CI:-} || ! -t 0 ]] || ! sudo -v; then
    fail "these packages are missing and sudo does not let this user install them: $*."
  fi
}

apt() {
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y \
    -o DPkg::Lock::Timeout=300 -o Acquire::Retries=3 "$@"
}

# A failed update need not matter (one of several sources may be down); whether the packages come is what counts.
install_packages() {
  apt update || true
  if [[ " $* " != *" nginx "* ]]; then
    apt install --no-install-recommends "$@"
    return
  fi
  keep_nginx_off
  apt install --no-install-recommends "$@"
  if command -v systemctl > /dev/null; then as_root systemctl disable nginx; fi
}

# Debian starts nginx on port 80 as soon as it is installed, and at each boot. The tests start their own, by hand: a
# machine that had no web server must not have one afterwards. Debian asks a policy before it starts a service; where
# the machine has one already, that decides.
keep_nginx_off() {
  local policy=/usr/sbin/policy-rc.d
  [[ ! -e $policy ]] || return 0
  # shellcheck disable=SC2064  # the name is known now
  trap "as_root rm -f $policy" EXIT
  # shellcheck disable=SC2016  # $1 is the policy's own
  printf '#!/bin/sh\n# Only while nginx is being installed: do not start it.\n[ "$1" != nginx ] || exit 101\n' |
    as_root install -m 755 /dev/stdin "$policy"
}

main() {
  local set wanted=() missing
  (($# > 0)) || fail "usage: packages.sh SET..., of build-linux, windows, demo, servers, test, fuzz and bench."
  command -v apt-get > /dev/null ||
    fail "this machine has no apt; install by your own means what 'packages_of' in scripts/packages.sh lists."
  for set; do
    # shellcheck disable=SC2207  # package names hold no blanks
    wanted+=($(packages_of "$set"))
  done
  mapfile -t missing < <(missing_of "${wanted[@]}")
  ((${#missing[@]} > 0)) || return 0

  echo "missing packages: ${missing[*]}"
  get_rights "${missing[@]}"
  open_log "$cache/log" packages
  step_total=1
  try_step "install ${#missing[@]} packages" install_packages "${missing[@]}"
  ((step_status == 0)) ||
    fail "apt could not install ${missing[*]} ($(grep '^E:' "$log" | head -n 1)); is there a network? The log is $log."
}

main "$@"
