# Five areas, with a bad block in each but the boot loader's, are saved into one image package, wiped and restored.
# BOARD_NAND=badblocks=15,30,60,700
. /board/library.sh
. /board/flash.sh

areas='bootloader bootsetting kernel rootfs writable'

bad_blocks() { cat /sys/class/mtd/mtd1/bad_blocks /sys/class/mtd/mtd[2-5]/bad_blocks | tr '\n' ' '; }
names_targets() {
  ar p /tmp/image.tbx control.tar.gz | tar xzO ./tqcontrol >/tmp/tqcontrol
  for area in $areas; do grep -x "TqDataTarget: $area" /tmp/tqcontrol || return; done
}
wipe() { for area in 1 2 3 4 5; do flash_eraseall /dev/mtd$area || return; done; }
holds_no_tree() { [ -z "$(on_area "$1" ls /mnt/root)" ]; }

passes "areas have their bad blocks" prints '0 1 1 1 1 ' bad_blocks
bootloader=$(fill 1 262144)
bootsetting=$(fill 2 106496)
kernel=$(fill 3 1966080)
on_area 4 make_tree /mnt/root
on_area 5 make_tree /mnt/root
rootfs=$(on_area 4 describe /mnt/root)
writable=$(on_area 5 describe /mnt/root)
passes "the trees differ" [ "$rootfs" != "$writable" ]

passes "the areas are listed" prints '*bootloader*/dev/mtd1 *rootfs*/dev/mtdblock4 *hibernation*' tarvio areas
passes "the kernel's bad block is found" finds 'area kernel *ok */dev/mtd3: 2.0 MiB, *, 1 of them bad'
passes "the boot loader has none" finds 'area bootloader *ok */dev/mtd1: 256.0 KiB, *, 0 of them bad'
# shellcheck disable=SC2086
passes "the areas are saved, and the raw ones read again" \
  prints '*saved bootloader, bootsetting, kernel, rootfs, writable in /tmp/image.tbx, *' \
  tarvio backup $areas --to /tmp/image.tbx --verify
passes "the package has a file for each" \
  lists_members 'boot bootsetting uImage rootfs writable-region control.tar.gz '
passes "the package names the areas" names_targets
passes "nothing stays mounted" [ -z "$(grep /mnt/root /proc/mounts)" ]
passes "no work directory stays" leaves_nothing

passes "the areas are wiped" wipe
passes "the boot loader has gone" differs "$bootloader" 1 262144
passes "the boot settings have gone" differs "$bootsetting" 2 106496
passes "the kernel has gone" differs "$kernel" 3 1966080
passes "the root file system has gone" holds_no_tree 4
passes "the writable area has gone" holds_no_tree 5

passes "what the system runs from is not written" \
  fails_with '*rootfs: the system is running from it*nothing was written*' tarvio restore /tmp/image.tbx --yes
passes "nor is anything else" differs "$bootloader" 1 262144
passes "the areas are restored by force, and read again" \
  prints '*restored bootloader, bootsetting, kernel, rootfs, writable from /tmp/image.tbx*' \
  tarvio restore /tmp/image.tbx --yes --force
passes "the boot loader is as it was" is_sum "$bootloader" 1 262144
passes "the boot settings are as they were" is_sum "$bootsetting" 2 106496
passes "the kernel is as it was" is_sum "$kernel" 3 1966080
passes "the root file system is as it was, file by file" holds_tree 4 "$rootfs"
passes "the writable area is as it was, file by file" holds_tree 5 "$writable"
passes "no work directory stays" leaves_nothing
finish
