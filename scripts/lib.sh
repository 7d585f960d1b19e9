# What the scripts share. Sourced; leaves the shell in the project's root directory.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

build_packages=(cmake g++ make)
client_packages=(nlohmann-json3-dev libsodium-dev)
fleet_packages=(libmosquitto-dev libssl-dev libcurl4-openssl-dev) # what the agent and the operator's tool need
demo_packages=(busybox)
demo_fleet_packages=(mosquitto openssl python3 "${demo_packages[@]}")
browser_packages=(chromium chromium-driver python3-selenium)
test_packages=(libgtest-dev libgmock-dev binutils minisign mtd-utils python3-prometheus-client socat
  "${fleet_packages[@]}" "${demo_fleet_packages[@]}" "${browser_packages[@]}")
device_packages=(g++-arm-linux-gnueabihf qemu-user qemu-system-arm cpio)
opkg_packages=(libarchive13) # what a real opkg needs
bench_packages=(libbenchmark-dev gnuplot-nox minisign)
fuzz_packages=(clang libclang-rt-14-dev llvm)

# Many tests spend most of their time waiting.
test_jobs=$((2 * $(nproc)))

# Whether a Debian package, or a tool of its name from elsewhere, is installed.
is_installed() {
  command -v "$1" >/dev/null || [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# Runs a command and shows its output only if it fails. A function run by it chains its steps with &&: the shell's
# -e does not apply inside.
quietly() {
  local log status=0
  log=$(mktemp)
  "$@" >"$log" 2>&1 </dev/null || status=$?
  [ $status = 0 ] || cat "$log"
  rm -f "$log"
  return $status
}

# apt-get as root; fails if becoming root would need a password.
apt_get() {
  local as_root=()
  [ "$(id -u)" = 0 ] || as_root=(sudo -n)
  quietly "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300 "$@"
}

may_install() {
  command -v apt-get >/dev/null && { [ "$(id -u)" = 0 ] || sudo -n true 2>/dev/null; }
}

# Installs the missing ones of the given Debian packages, or says how to.
require_packages() {
  local package missing=()
  for package; do is_installed "$package" || missing+=("$package"); done
  [ ${#missing[@]} -gt 0 ] || return 0
  if ! may_install; then
    echo "Packages are missing. Install them and run this again:" >&2
    echo "  sudo apt-get install ${missing[*]}" >&2
    return 1
  fi
  echo "Installing ${missing[*]}"
  # The package lists may be missing, as in a fresh image, or stale.
  apt_get install --no-install-recommends -y "${missing[@]}" >/dev/null ||
    { apt_get update && apt_get install --no-install-recommends -y "${missing[@]}"; }
}

# Ninja if it is installed, for a build directory that has no generator yet.
generator_for() {
  if [ ! -e "$1/CMakeCache.txt" ] && command -v ninja >/dev/null; then echo -GNinja; fi
}

# configure PRESET [CMAKE-ARGUMENT]...: configures build/PRESET.
configure() {
  local preset=$1 generator
  shift
  generator=$(generator_for "build/$preset")
  cmake --preset "$preset" ${generator:+"$generator"} "$@"
}

# build PRESET [CMAKE-ARGUMENT]...: configures build/PRESET and builds there.
build() {
  configure "$@" && cmake --build --preset "$1" -j "$(nproc)"
}
