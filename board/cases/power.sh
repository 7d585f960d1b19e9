# The power is cut in a backup, while an area is read and while the package grows, and in a restore, while an area is
# erased and while it is written: what the flash holds is carried to the next boot, and the package lies on the host.
# BOARD_NAND="cache_file=/host/flash log=1"
. /board/library.sh
. /board/flash.sh

package=/host/card/image.tbx

# cut_at TEXT COMMAND...: the power is cut when a line on the console ends with the text, which the command must
# bring about.
cut_at() {
  echo "BOARD cuts the power at $1"
  sleep 0.3
  shift
  "$@"
  passes "the power is cut in the middle of it" false
  finish
}

# fill_all NAME: other contents for all three areas. Their sums are kept under the name.
fill_all() {
  for area in 1 2 3; do flash_eraseall /dev/mtd$area; done >/dev/null 2>&1
  { fill 1 262144 && fill 2 106496 && fill 3 1966080; } >/host/"$1"
}
# holds AREA NAME: whether the area has its content of that name.
holds() {
  case $1 in 1) bytes=262144 ;; 2) bytes=106496 ;; 3) bytes=1966080 ;; esac
  is_sum "$(sed -n "$1p" /host/"$2")" "$1" $bytes
}
hold() {
  for area in 1 2 3; do holds $area "$1" || return; done
}
tell() {
  if holds "$1" saved; then echo "what was saved"; elif holds "$1" other; then echo "what it held"; else echo neither; fi
}
tell_all() {
  echo "$1: boot loader: $(tell 1), kernel: $(tell 3), boot settings: $(tell 2)"
}
# The areas in the order in which a restore writes them.
is_half_restored() { holds 1 saved && ! holds 3 saved && ! holds 3 other && holds 2 other; }

package_is_old() { md5sum -c /host/package; }
package_holds() {
  [ "$(ar p $package "$1" | md5sum)" = "$(sed -n "$2p" /host/saved)" ]
}
back_up() { tarvio backup --quiet bootloader kernel bootsetting --to $package "$@"; }
# Tells the host when the package grows.
watch_package() {
  until ls /host/card/.tarvio-flash.*/image.tbx >/dev/null 2>&1; do :; done
  echo "BOARD sees the package grow"
}

keep_flash
boot=$(cat /host/boot)
[ "$boot" = 1 ] || passes "boot $boot: the flash holds what it held" load_flash
case $boot in
  1)
    mkdir /host/card
    fill_all old
    passes "the areas are saved" back_up
    md5sum $package >/host/package
    fill_all saved
    # In the middle of the kernel.
    log_flash read
    cut_at "read page 2300" back_up --overwrite
    ;;
  2)
    passes "after a cut while an area was read: the old package" package_is_old
    passes "the areas are as they were" hold saved
    watch_package &
    cut_at "BOARD sees the package grow" back_up --overwrite
    ;;
  3)
    passes "after a cut while the package grew: the old package" package_is_old
    passes "the areas are as they were" hold saved
    passes "the areas are saved" back_up --overwrite
    passes "the whole new package: the boot loader" package_holds boot 1
    passes "the boot settings" package_holds bootsetting 2
    passes "the kernel" package_holds uImage 3
    passes "nothing is left over of the backups that were cut" leaves_nothing /host/card
    fill_all other
    # The eighth of the kernel's 16 blocks.
    cut_at "erase sector 33" tarvio restore --quiet $package --yes
    ;;
  4)
    tell_all "cut while the kernel was erased"
    passes "one area is restored, one is neither old nor new, one is as before" is_half_restored
    cut_at "programm page 2000" tarvio restore --quiet $package --yes
    ;;
  5)
    tell_all "cut while the kernel was written"
    passes "one area is restored, one is neither old nor new, one is as before" is_half_restored
    passes "the areas are restored" tarvio restore --quiet $package --yes
    passes "all hold what was saved" hold saved
    passes "nothing is left over of the restores that were cut" leaves_nothing /host/card
    ;;
esac
finish
