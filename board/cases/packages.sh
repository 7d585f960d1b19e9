# The packages of the library and the programs are installed into the root area, from a system that runs from another
# one. The second boot is from that area: the installed manager and client are used, upgraded, removed, and installed
# again with opkg itself. The third boot is from what that has installed.
# BOARD_NAND="cache_file=/host/flash log=1"
# BOARD_ROOT=/dev/mtdblock5
# BOARD_PACKAGES=yes
. /board/library.sh
. /board/flash.sh

root=/mnt/root

# The root file system as it is without the product.
make_root() {
  for directory in board dev host packages proc run sys tmp usr/lib/opkg/info var/log; do
    mkdir -p $root/$directory
  done
  ln -s ../run $root/var/run
  tar -c -C / --exclude=./lib/modules --exclude=./etc/init.d --exclude=./usr/lib/libtarvio.so\* \
    --exclude=./usr/bin/tarvio --exclude=./usr/sbin/tarviod ./bin ./etc ./lib ./opt ./usr | tar -x -C $root
}

# What a system that boots from the area has mounted there.
enter_root() {
  for directory in board dev host packages proc sys tmp; do mount --bind /$directory $root/$directory || return; done
  mount -t tmpfs run $root/run
}

files() { find / -xdev ! -type d ! -path '/usr/lib/opkg/*' ! -path '/var/log/*' ! -path '/opt/clock/*' | sort; }
nothing_is_left() {
  files | diff /host/files - && [ -z "$(pidof tarviod tarviod-keeper tarviod-log-reader)" ] &&
    [ -z "$(ls -d /etc/tarvio /usr/local/share/tarvio /run/tarvio /usr/lib/opkg/info/*tarvio* 2>/dev/null)" ]
}
package() { echo /packages/"$1"_*."$2"; }
is_from_package() { cmp /proc/"$(manager)"/exe /usr/sbin/tarviod; }
# The manager's package with a higher version.
make_next() {
  mkdir -p /tmp/next/control
  (
    cd /tmp/next || exit
    ar x "$(package tarviod tbx)"
    tar -xzf control.tar.gz -C control
    sed -i 's/^Version: .*/&.1/' control/control
    tar -C control -czf control.tar.gz .
    ar rc /tmp/next.tbx debian-binary control.tar.gz data.tar.gz
  )
}
# The manager is another one then, and clock the same process.
upgrade() {
  before="$(manager) $(instances clock)"
  tarvio install /tmp/next.tbx && runs_once clock &&
    [ "${before#* }" = "$(instances clock)" ] && [ "${before% *}" != "$(manager)" ]
}

starts_as_packaged() {
  syslogd -O /var/log/messages
  passes "the init script starts the manager" service start
  passes "it is the packaged one" is_from_package
  passes "clock was started with it" tarvio wait clock --state running --timeout 10
  passes "once" runs_once clock
}

use_packages() {
  starts_as_packaged
  passes "clock is stopped" tarvio stop clock
  passes "and started" tarvio start clock
  passes "its status says so" prints '*clock *normal*' tarvio status
  passes "the packages are listed" prints '*libtarvio1 *other*tarvio *other*tarviod *other*' tarvio list

  echo 'log_period: 1' >>/etc/tarvio/tarviod.conf
  cp /etc/tarvio/tarviod.conf /tmp/edited
  make_next
  passes "an upgrade replaces the manager, and clock runs on" upgrade
  passes "the configuration is still the edited one" cmp /tmp/edited /etc/tarvio/tarviod.conf
  sed -i '$d' /etc/tarvio/tarviod.conf

  passes "clock is removed" tarvio remove clock
  passes "a package that others need is not" ends_with 1 tarvio remove libtarvio1
  passes "the packages are removed" tarvio remove tarviod tarvio libtarvio1
  passes "nothing is left of them" nothing_is_left

  passes "opkg installs them again" opkg install "$(package libtarvio1 ipk)" \
    "$(package tarviod ipk)" "$(package tarvio ipk)"
  passes "the manager runs at once" tarvio refresh
  (cd /tmp && make_package clock)
  passes "an application is installed" tarvio install /tmp/clock.tbx
}

use_ipk() {
  starts_as_packaged
  passes "clock is removed" tarvio remove clock
  passes "opkg removes the packages" opkg remove tarvio tarviod libtarvio1
  passes "nothing is left of them" nothing_is_left
}

cut_power() {
  sync
  echo "BOARD cuts the power at now"
  sleep 0.3
  echo "BOARD has its power cut now"
  sleep 60
  passes "the power is cut" false
  finish
}

# The board that the case sees is then the file system in the root area.
case ${1-} in
  2)
    use_packages
    cut_power
    ;;
  3)
    use_ipk
    finish
    ;;
esac

keep_flash
boot=$(cat /host/boot)
if [ "$boot" != 1 ]; then
  passes "boot $boot: the flash holds what it held" load_flash
  passes "the root area is mounted" mount -t jffs2 /dev/mtdblock4 $root
  passes "it gets what the kernel and init mount" enter_root
  exec chroot $root /bin/sh /board/packages.sh "$boot"
fi

passes "the root area is mounted" mount -t jffs2 /dev/mtdblock4 $root
passes "it holds a system without the product" make_root
find $root -xdev ! -type d ! -path "$root/usr/lib/opkg/*" | sed "s|^$root||" | sort >/host/files
make_package clock
passes "the packages are installed, and an application" tarvio install "$(package libtarvio1 tbx)" \
  "$(package tarviod tbx)" "$(package tarvio tbx)" clock.tbx
passes "the manager's file is in the area" cmp /usr/sbin/tarviod $root/usr/sbin/tarviod
passes "the area is unmounted" umount $root
echo /dev/mtdblock4 >/host/root
cut_power
