#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the reference host need.
#
#   scripts/setup.sh           what the native build, tests and reference host need
#   scripts/setup.sh --arm64   also the arm64 lane: cross toolchain, qemu-user, and the arm64
#                              builds of the libraries the tests and the host link (multiarch)
#
# Idempotent: the arm64 architecture is added only when dpkg lacks it, only missing packages are
# installed, and apt is not touched when none are.
set -euo pipefail

with_arm64=false
[ "${1:-}" = --arm64 ] && with_arm64=true

packages=(
  build-essential cmake ninja-build pkg-config
  clang libclang-rt-14-dev clang-format
  android-liblog-dev android-libutils-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  nlohmann-json3-dev libcli11-dev
  procps python3 python3-psutil
  python3-matplotlib
  # the host's metrics exporter, and the Prometheus tools its tests and scripts/lab.sh run
  prometheus-cpp-dev prometheus prometheus-node-exporter curl
)
# Services the packages above would start; the tests and the lab start their own servers.
unwanted_services=(prometheus prometheus-node-exporter)
# arm64 lane: the cross compiler and the user-mode emulator that runs its executables.
arm64_tools=(g++-aarch64-linux-gnu qemu-user)
# Libraries linked by the arm64 test executables and host (the header-only ones above serve both).
arm64_packages=(
  android-liblog-dev android-libutils-dev
  libgtest-dev libgmock-dev
)

installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'
}

missing=()
for p in "${packages[@]}"; do
  installed "$p" || missing+=("$p")
done
if $with_arm64; then
  for p in "${arm64_tools[@]}"; do
    installed "$p" || missing+=("$p")
  done
  for p in "${arm64_packages[@]}"; do
    installed "$p:arm64" || missing+=("$p:arm64")
  done
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive

if [ "${#missing[@]}" -gt 0 ]; then
  echo "setup: installing ${missing[*]}" >&2
  if $with_arm64 && [ "$(dpkg --print-architecture)" != arm64 ] &&
    ! dpkg --print-foreign-architectures | grep -qx arm64; then
    $SUDO dpkg --add-architecture arm64
  fi
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
  # Where systemd runs, installing the servers enabled and started them: stop what we installed.
  if [ -d /run/systemd/system ]; then
    for service in "${unwanted_services[@]}"; do
      if [[ " ${missing[*]} " == *" $service "* ]]; then
        $SUDO systemctl disable --now "$service.service" >/dev/null 2>&1 || true
      fi
    done
  fi
fi

# The arm64 libbacktrace (pulled in by libutils) needs the 7-Zip plugin /usr/lib/p7zip/7z.so,
# but the package that ships it cannot be installed for two architectures at once, so that path
# holds the native plugin. The arm64 plugin goes into the emulator's path prefix instead: qemu
# (-L, cmake/aarch64-linux-gnu.cmake) looks there first for every absolute path the arm64 loader
# opens, and the linker resolves the indirect dependency there too.
arm64_prefix=/usr/local/lib/vistrel-arm64-prefix
if $with_arm64 && [ "$(dpkg --print-architecture)" != arm64 ] &&
  [ ! -e "$arm64_prefix/usr/lib/p7zip/7z.so" ]; then
  echo "setup: extracting the arm64 7z.so into $arm64_prefix" >&2
  scratch=$(mktemp -d)
  trap 'rm -rf "$scratch"' EXIT
  chmod 777 "$scratch"  # apt downloads as its own unprivileged user
  (cd "$scratch" && apt-get download -qq p7zip-full:arm64)
  dpkg-deb -x "$scratch"/p7zip-full_*_arm64.deb "$scratch/root"
  $SUDO install -D -m 644 "$scratch/root/usr/lib/p7zip/7z.so" "$arm64_prefix/usr/lib/p7zip/7z.so"
fi
