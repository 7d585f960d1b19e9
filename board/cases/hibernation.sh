# The hibernation area, of 115 MiB, and its information block in the area of the boot settings, whose own place is a
# bad block, are saved, wiped and restored.
# BOARD_NAND=badblocks=19,1100
# BOARD_SECONDS=600
. /board/library.sh
. /board/flash.sh

area_bytes=121110528
information_at=1179648
information_bytes=131072

information() {
  /usr/sbin/nanddump -q --bb=skipbad --omitoob -s $information_at -f /tmp/dump /dev/mtd2 || return
  head -c $information_bytes /tmp/dump | md5sum
  rm -f /tmp/dump
}
is_information() { same "$1" "$(information 2>/dev/null)"; }
is_other_information() { other "$1" "$(information 2>/dev/null)"; }
write_information() {
  head -c $information_bytes /dev/urandom >/tmp/content
  nandwrite -q -s $information_at /dev/mtd2 /tmp/content >&2 && md5sum </tmp/content
  rm -f /tmp/content
}
bad_blocks() { cat /sys/class/mtd/mtd[26]/bad_blocks | tr '\n' ' '; }
# It takes long to read all of it.
begin_is_erased() {
  /usr/sbin/nanddump -q --omitoob -l 1048576 -f /tmp/dump /dev/mtd6 && [ -s /tmp/dump ] &&
    [ -z "$(tr -d '\377' </tmp/dump)" ]
}
wipe() { flash_eraseall /dev/mtd6 && flash_eraseall /dev/mtd2; }

passes "areas have their bad blocks" prints '1 1 ' bad_blocks
area=$(fill 6 $area_bytes)
information=$(write_information)
passes "the information block is read as it was written" is_information "$information"

passes "the area is saved" prints '*saved hibernation in *' tarvio backup hibernation --to /tmp/image.tbx
passes "the package has both files" lists_members 'hibernationinfo hibernation control.tar.gz '
passes "both are wiped" wipe
passes "the area has gone" begin_is_erased
passes "the information block has gone" is_other_information "$information"
passes "the area is restored, and read again" \
  prints '*restored hibernation from *' tarvio restore /tmp/image.tbx --yes
rm /tmp/image.tbx
passes "the area is as it was" is_sum "$area" 6 $area_bytes
passes "the information block is as it was" is_information "$information"
finish
