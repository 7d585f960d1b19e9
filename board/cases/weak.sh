# What cannot be done is reported: blocks that cannot be erased, pages that can be neither written nor read, too
# many bad blocks, an area without a file system, and no space.
#
# The first page of the boot settings and the fifth block of the kernel take one write and one erasure, and no
# second one. The first page of the hibernation area's information block cannot be read. Two blocks of the kernel's
# area are bad.
# BOARD_NAND="badblocks=40,41 weakpages=640:1 weakblocks=30:1 gravepages=1216:0"
. /board/library.sh
. /board/flash.sh

kernel_bytes=1835008

wipe() { for area in 1 2 3; do flash_eraseall /dev/mtd$area || return; done; }
garbage() {
  make_content /tmp/garbage 67108864 && nandwrite -q /dev/mtd5 /tmp/garbage
  status=$?
  rm /tmp/garbage
  return $status
}
is_first() { md5sum -c /tmp/first.md5; }

# As the package of a board whose kernel's area is without bad blocks.
make_full_kernel() {
  mkdir /tmp/full
  (
    cd /tmp/full || exit
    ar x /tmp/first.tbx boot
    head -c 1966080 /dev/urandom >uImage
    mkdir control
    ar p /tmp/first.tbx control.tar.gz | tar xz -C control
    printf 'TqPackageCategory: Image\nTqDataTarget: bootloader\nTqDataTarget: kernel\n' >control/tqcontrol
    tar -C control -czf control.tar.gz .
    ar rc /tmp/full.tbx boot uImage control.tar.gz
  )
}

# Takes all of the place as soon as the backup has begun to write there.
fill_place() {
  until [ -s "$(echo "$1"/.tarvio*/rootfs)" ]; do :; done
  # The backup may take some of it in between.
  until fallocate -l "$(df --output=avail -B1 "$1" | tail -n 1)" "$1/filler" 2>/dev/null; do :; done
}
back_up_without_space() {
  fill_place /tmp/place &
  filling=$!
  renice -n -20 -p $filling  # it is to keep up with the backup
  tarvio backup rootfs --to /tmp/place/image.tbx
  status=$?
  kill $filling 2>/dev/null
  return $status
}

bootloader=$(fill 1 262144)
bootsetting=$(fill 2 106496)
kernel=$(fill 3 $kernel_bytes)
passes "all are saved at first" tarvio backup bootloader bootsetting kernel --to /tmp/first.tbx --verify
md5sum /tmp/first.tbx >/tmp/first.md5

passes "the writable area is filled with garbage" garbage
passes "a file system that does not mount is not saved" \
  fails_with '*cannot back up to*writable: cannot mount /dev/mtdblock5: *' tarvio backup writable --to /tmp/other.tbx
passes "there is no such package" [ ! -e /tmp/other.tbx ]
passes "nor in place of another one" fails_with '*writable: cannot mount*' \
  tarvio backup bootloader writable --to /tmp/first.tbx --overwrite
passes "which is as it was" is_first

head -c 2048 /dev/urandom >/tmp/page
nandwrite -q -s 0x120000 /dev/mtd2 /tmp/page
passes "an information block that cannot be read is not saved" \
  fails_with '*hibernation: /dev/mtd2 cannot be read at 0x120000*' tarvio backup hibernation --to /tmp/other.tbx
passes "there is no such package" [ ! -e /tmp/other.tbx ]
passes "that page does not matter to the boot settings" tarvio backup bootsetting --to /tmp/other.tbx
rm /tmp/other.tbx

mkdir /tmp/place
mount -t tmpfs -o size=1m place /tmp/place
passes "without space a backup does not begin" \
  fails_with '*not enough space*free*' tarvio backup kernel --to /tmp/other.tbx --workdir /tmp/place
passes "nor does a restore" fails_with '*not enough space*free*nothing was written*' \
  tarvio restore /tmp/first.tbx --yes --workdir /tmp/place
passes "the boot loader is as it was" is_sum "$bootloader" 1 262144
mount -o remount,size=200m /tmp/place
on_area 4 make_tree /mnt/root
passes "a backup that loses its space on the way fails" \
  fails_with '*rootfs: *No space left on device*' back_up_without_space
passes "there is no such package" [ ! -e /tmp/place/image.tbx ]
passes "and no work directory" leaves_nothing /tmp/place
umount /tmp/place

make_full_kernel
passes "what the good blocks do not hold is not written" \
  fails_with '*uImage of 1.9 MiB does not fit into the good blocks of /dev/mtd3*nothing was written*' \
  tarvio restore /tmp/full.tbx --yes
passes "nor is the rest" is_sum "$kernel" 3 $kernel_bytes

passes "the areas are wiped" wipe
passes "a block that is not erased and a page that is not written are reported" \
  fails_with '*bootsetting: writing failed: Input/output error*kernel: erasing failed: Input/output error*erased or half written: bootsetting, kernel; written: bootloader*' \
  tarvio restore /tmp/first.tbx --yes
passes "the boot loader is restored, as reported" is_sum "$bootloader" 1 262144
passes "the boot settings are not, as reported" differs "$bootsetting" 2 106496
passes "no work directory stays" leaves_nothing
finish
