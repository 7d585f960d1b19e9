# The system runs from another area than its own root file system, which is mounted below /mnt/root: packages are
# those of that one.
# BOARD_ROOT=/dev/mtdblock5
. /board/library.sh

passes "a root that is not mounted is found" \
  finds 'root *failed *packages are below /mnt/root, where nothing is mounted'
passes "the root file system is mounted" mount -t jffs2 /dev/mtdblock4 /mnt/root
passes "the mounted one is found" finds 'root *ok *packages are below /mnt/root, where /dev/mtdblock4 is mounted'
mkdir -p /mnt/root/usr/lib/opkg/info /usr/lib/opkg/info
make_package clock
make_package lost
printf 'Package: lost\nVersion: 9.9\n' >/usr/lib/opkg/info/lost.control
cp lost/control/tqcontrol /usr/lib/opkg/info/lost.tqcontrol

passes "clock is installed" tarvio install clock.tbx
passes "its file is below /mnt/root" test -f /mnt/root/opt/clock/name
passes "and nowhere else" [ ! -e /opt/clock/name ]
passes "its control file too" test -f /mnt/root/usr/lib/opkg/info/clock.control
passes "it is listed with its version" prints "*clock *1.0*application*" tarvio list
passes "what the running system has is not" is_not_listed lost
passes "its files are listed" prints '*/mnt/root/opt/clock/name*' tarvio files clock
passes "it is removed" tarvio remove clock
passes "its file has gone" [ ! -e /mnt/root/opt/clock/name ]
passes "it is not listed" is_not_listed clock
finish
