#!/bin/bash
# An emulated board: 32-bit ARM with NAND flash, made from Debian's packages. It needs no root and leaves the host's
# packages alone: all files are in one work directory, $TARVIO_BOARD or ~/.cache/tarvio-board.
#
#   board.sh libraries          get what programs of the board are linked with, for cmake/armhf.cmake
#   board.sh fetch              get the board's packages
#   board.sh image              make the kernel and the root file system from them
#   board.sh run BUILD CASE     boot with the armhf build in directory BUILD, and run cases/CASE.sh on the board
#
# Exits with 77 if the emulator or the image is missing, so that a test is skipped.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=${TARVIO_BOARD:-${XDG_CACHE_HOME:-~/.cache}/tarvio-board}
triplet=arm-linux-gnueabihf

# The kernel for large addresses. The other one changes the domain register at each system call, which makes the
# emulator flush its TLB: flash is two to three times as slow there.
kernel_package=linux-image-armmp-lpae
packages=(busybox-static dash mtd-utils binutils-$triplet libbinutils tar gzip coreutils libc6 libgcc-s1 libstdc++6
  liblzo2-2 zlib1g libzstd1 libacl1 libselinux1 libpcre2-8-0 libsodium23)
# What libcurl is linked with, which the linker and the emulator look for too.
curl_packages=(libbrotli1 libcom-err2 libffi8 libgmp10 libgnutls30 libgssapi-krb5-2 libhogweed6 libidn2-0 libk5crypto3
  libkeyutils1 libkrb5-3 libkrb5support0 libldap-2.5-0 libnettle8 libnghttp2-14 libp11-kit0 libpsl5 librtmp1 libsasl2-2
  libssh2-1 libtasn1-6 libunistring2)
libraries=(libsodium23 libsodium-dev libmosquitto1 libmosquitto-dev libssl3 libssl-dev libcurl4 libcurl4-openssl-dev
  libzstd1 zlib1g "${curl_packages[@]}")
# In load order.
modules=(virtio_mmio netfs fscache 9pnet 9pnet_virtio 9p mtd_blkdevs mtdblock jffs2 nandsim)
tools=(bin/dash bin/tar bin/gzip bin/dd bin/df usr/bin/$triplet-ar usr/sbin/nanddump usr/sbin/nandwrite
  usr/sbin/flash_erase usr/sbin/mkfs.jffs2 usr/sbin/mtdinfo usr/lib/$triplet/libsodium.so.23)
# What the agent needs, with a broker and a server of files. Only the cases that need them have them in memory.
fleet_packages=(mosquitto mosquitto-clients libmosquitto1 libcjson1 openssl libssl3 libcurl4 libdlt2 libwrap0 libnsl2
  libtirpc3 libsystemd0 libcap2 libgcrypt20 libgpg-error0 liblz4-1 liblzma5 "${curl_packages[@]}")
fleet_tools=(usr/sbin/mosquitto usr/bin/mosquitto_rr usr/bin/mosquitto_sub usr/bin/openssl
  usr/lib/$triplet/lib{mosquitto.so.1,curl.so.4})

skip() {
  echo "skipped: $1"
  exit 77
}

# A separate state of apt, for armhf, with the host's Debian sources.
write_apt_configuration() {
  local list parts file
  mkdir -p apt/parts apt/state/lists/partial apt/cache/archives/partial
  : >apt/status
  eval "$(apt-config shell list Dir::Etc::sourcelist/f parts Dir::Etc::sourceparts/d)"
  for file in "$list" "$parts"/*; do
    if [ -f "$file" ] && grep -qE '/debian/?([[:space:]]|$)' "$file"; then cp "$file" apt/parts/; fi
  done
  cat >apt/apt.conf <<END
APT::Architecture "armhf";
APT::Architectures { "armhf"; };
APT::Sandbox::User "";
Dir::Etc::sourcelist "/dev/null";
Dir::Etc::sourceparts "$PWD/apt/parts";
Dir::State "$PWD/apt/state";
Dir::State::status "$PWD/apt/status";
Dir::Cache "$PWD/apt/cache";
Acquire::Languages "none";
END
}

use_board_packages() {
  write_apt_configuration
  export APT_CONFIG=$PWD/apt/apt.conf
  # An index that cannot be loaded does not matter by itself: a package that is missing for it shows below.
  apt-get -qq update || true
}

# The compiler brings the C library alone.
libraries() {
  local package
  [ ! -e libraries/list ] || [ "$(cat libraries/list)" != "${libraries[*]}" ] || return 0
  use_board_packages
  rm -rf libraries
  mkdir libraries
  (cd libraries && apt-get -qq download "${libraries[@]}")
  for package in libraries/*.deb; do dpkg -x "$package" libraries; done
  # All in one directory, which the programs of the build directory name.
  cp -a libraries/lib/. libraries/usr/lib/
  rm -rf libraries/lib
  echo "${libraries[*]}" >libraries/list
}

fetch() {
  local wanted="$kernel_package ${packages[*]} ${fleet_packages[*]}" kernel
  [ ! -e fetched ] || [ "$(cat fetched)" != "$wanted" ] || return 0
  use_board_packages
  kernel=$(apt-cache depends $kernel_package | sed -n 's/.*Depends: *\(linux-image-[0-9].*\)/\1/p' | head -n 1)
  rm -rf deb
  mkdir deb
  (cd deb && apt-get -qq download "$kernel" "${packages[@]}" "${fleet_packages[@]}")
  echo "$wanted" >fetched
}

# copy_with_libraries DIRECTORY FILE...: with the libraries that the files need, recursively. What the root file system
# has is not copied again.
copy_with_libraries() {
  local into=$1 file library
  shift
  for file; do
    if [ -e "root/$file" ] || [ -e "$into/$file" ]; then continue; fi
    mkdir -p "$into/${file%/*}"
    cp -L "unpacked/$file" "$into/$file"
    for library in $(readelf -d "$into/$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
      copy_with_libraries "$into" "$(find unpacked -name "$library" -printf '%P\n' | head -n 1)"
    done
  done
}

# An archive of a directory's contents that the kernel unpacks as its root file system.
pack() {
  (cd "$1" && find . | LC_ALL=C sort | cpio --quiet -o -H newc -R 0:0) | gzip -6
}

image() {
  local package module
  [ -e fetched ] || skip "the packages are missing: run board.sh fetch"
  if [ image -nt fetched ] && [ image -nt "$here/board.sh" ]; then return; fi
  rm -rf unpacked root fleet
  for package in deb/*.deb; do dpkg -x "$package" unpacked; done
  mkdir -p root/{bin,dev,etc,host,lib/modules,mnt/root,opt/bb,proc,root,sys,tmp,usr/local/bin,var/log,var/run}
  copy_with_libraries root "${tools[@]}" lib/ld-linux-armhf.so.3
  copy_with_libraries fleet "${fleet_tools[@]}"
  mkdir fleet/usr/lib/ssl
  cp unpacked/etc/ssl/openssl.cnf fleet/usr/lib/ssl/
  cp unpacked/bin/busybox root/bin/
  # BusyBox's own shell runs its applets before it looks at the PATH.
  ln -s dash root/bin/sh
  ln -s $triplet-ar root/usr/bin/ar
  for module in "${modules[@]}"; do
    find unpacked/lib/modules -name "$module.ko" -exec cp {} root/lib/modules/ \;
    [ -e root/lib/modules/"$module.ko" ] || { echo "no module $module" >&2 && return 1; }
  done
  cp unpacked/boot/vmlinuz-* kernel
  pack root >initrd.gz
  pack fleet >fleet.gz
  rm -rf unpacked root fleet
  touch image
}

# The real opkg of the board, if the directory TARVIO_OPKG_DIR has it, or the stand-in.
add_opkg() {
  local real=${TARVIO_OPKG_DIR:-}/opkg-0.1.8-armhf
  [ -e "$real" ] || real=$here/../tests/sandbox/opkg
  cp "$real" "$1/usr/local/bin/opkg"
  mkdir -p "$1/etc/opkg"
  printf '%s\n' 'dest root /' 'arch all 1' 'arch armv7l 2' >"$1/etc/opkg/opkg.conf"
}

# What is under test, installed and stripped, and what runs it.
product() {
  local root=$1/product
  # The boards that start at the same time write the same files in the build directory.
  DESTDIR=$root flock "$2" cmake --install "$2" --strip --prefix /usr >/dev/null
  rm -rf "$root"/usr/{include,share,lib/cmake,lib/pkgconfig}
  mkdir -p "$root"/{board,usr/local/bin}
  cp "$here/init" "$root/init"
  cp "$here"/{library,flash}.sh "$here"/cases/* "$root/board/"
  cp "$here"/bin/* "$root/usr/local/bin/"
  add_opkg "$root"
  if [ -n "${BOARD_FLEET:-}" ]; then
    cp "$here"/../packaging/fleet/{certificates,access-boards,access-operators} "$root/board/"
  else
    rm -f "$root"/usr/*bin/tarvio-*
  fi
  [ -z "${BOARD_PACKAGES:-}" ] || "$here/../scripts/package-board" "$2" "$root/packages" >/dev/null
  pack "$root"
}

# Prints the board's console without the kernel's lines, and cuts the power at the line that the case has named.
watch() {
  local line place=
  while IFS= read -r line; do
    line=${line%$'\r'}
    echo "$line" >&3
    if [ -n "$place" ] && [[ $line == *"$place" ]]; then
      kill -KILL "$(cat "$1/emulator")"
      touch "$1/cut"
      echo "BOARD loses power"
      place=
    fi
    case $line in
      *'BOARD cuts the power at '*) place=${line##* at } ;;
      '['*) ;;
      *) echo "$line" ;;
    esac
  done 3>"$1/console"
}

emulate() {
  local append
  append="console=ttyAMA0 quiet panic=-1 root=$(cat "$1/share/root") nand=\"${BOARD_NAND:-}\""
  # The outer redirection hides the shell's message about the killed emulator.
  # shellcheck disable=SC2016
  { timeout -k 5 "${BOARD_SECONDS:-400}" sh -c 'echo $$ >"$0"/emulator && exec qemu-system-arm "$@"' "$1" \
    -M virt,highmem=off -cpu cortex-a15 -m 640 -nodefaults -nographic -no-reboot -serial stdio -kernel kernel \
    -initrd "$1/initrd.gz" -append "$append" -fsdev local,id=host,path="$1/share",security_model=none \
    -device virtio-9p-device,fsdev=host,mount_tag=host </dev/null 2>&1 |
    watch "$1"; } 2>/dev/null
}

# Carries the flash over to the next boot: its file, and from its log the runs of written pages, as AREA FIRST-PAGE
# PAGES FIRST-PAGE-OF-AREA. The file itself does not show what is erased.
carry_flash() {
  [ -e "$1/share/flash" ] || return 0
  mv "$1/share/flash" "$1/share/flash.before"
  awk '
    BEGIN { areas = split("0 8 10 26 42 522 1034 2058", starts) }
    match($0, /log: erase sector [0-9]+/) {
      first = substr($0, RSTART + 18, RLENGTH - 18) * 64
      for (page = first; page < first + 64; page++) delete written[page]
    }
    match($0, /log: programm page [0-9]+/) { written[substr($0, RSTART + 19, RLENGTH - 19) + 0] }
    END {
      for (area = 1; area < areas; area++) {
        begin = starts[area] * 64
        end = starts[area + 1] * 64
        for (page = begin; page < end; page++) {
          if (!(page in written)) continue
          for (first = page; page < end && (page in written);) page++
          print area - 1, first, page - first, begin
        }
      }
    }' "$1/console" >"$1/share/flash.runs"
}

run() {
  local build=$1 case=$2 boot boots=1 result
  command -v qemu-system-arm >/dev/null || skip "the emulator is missing: install qemu-system-arm"
  [ -e image ] || skip "the image is missing in $work: run board.sh fetch and board.sh image"
  boot=$(mktemp -d "$work/boot.XXXXXX")
  # shellcheck disable=SC2064
  trap "rm -rf '$boot'" EXIT
  mkdir "$boot/share"
  echo "$case" >"$boot/share/case"
  # The case states what it needs. It may write another root there for the next boot.
  eval "$(sed -n 's/^# \(BOARD_[A-Z]*=.*\)/\1/p' "$here/cases/$case.sh")"
  [ -z "${BOARD_PACKAGES:-}${BOARD_FLEET:-}" ] || [ -e "${TARVIO_OPKG_DIR:-}/opkg-0.1.8-armhf" ] ||
    skip "packages need a real opkg, since the stand-in runs none of their scripts: set TARVIO_OPKG_DIR"
  echo "${BOARD_ROOT:-/dev/mtdblock4}" >"$boot/share/root"
  product "$boot" "$build" | cat initrd.gz ${BOARD_FLEET:+fleet.gz} - >"$boot/initrd.gz"
  : >"console-$case.log"
  while true; do
    echo $boots >"$boot/share/boot"
    emulate "$boot" || [ -e "$boot/cut" ] || echo "the emulator failed"
    cat "$boot/console" >>"console-$case.log"
    [ -e "$boot/cut" ] || break
    rm "$boot/cut"
    carry_flash "$boot"
    boots=$((boots + 1))
  done
  # The emulator's own status says nothing about the case.
  result=$(cat "$boot/share/result" 2>/dev/null || echo "none: the board stopped before the end")
  [ "$result" = 0 ] || { echo "result $result, see $work/console-$case.log" && return 1; }
  rm "console-$case.log"
}

mkdir -p "$work"
command=${1:-}
[ $# = 0 ] || shift
case $command in
  run) set -- "$(cd "$1" && pwd)" "$2" ;;
  libraries | fetch | image) ;;
  *) sed -n '2,/^set /{/^#/s/^# \{0,1\}//p}' "$0" >&2 && exit 64 ;;
esac
cd "$work"
"$command" "$@"
