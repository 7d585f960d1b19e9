# The manager's day: applications are installed, started, heard, crash and are started again, are watched, upgraded,
# stopped and removed, and the manager is restarted. At its end, the memory with 50 applications.
. /board/library.sh

error_of_clock() { prints '*clock *error *disk full*' tarvio status; }
is_another_clock() { runs_once clock && [ "$(instances clock)" != "$1" ]; }

# Of all three processes of the manager, in KiB.
memory() {
  total=0
  for process in $(manager) $(keeper) $(pidof tarviod-log-reader); do
    total=$((total + $(sed -n 's/^Pss: *\([0-9]*\) kB/\1/p' "/proc/$process/smaps_rollup")))
  done
  echo $total
}
is_small() { [ "$1" -gt 0 ] && [ "$1" -le 1126 ]; }

# Applications that share the C library with the manager, as those of a device do.
make_many() {
  mkfifo /tmp/silence
  for number in $(seq 50); do
    file=/usr/lib/opkg/info/app$number
    printf '%s\n' "Package: app$number" 'Version: 1.0' 'Architecture: all' >$file.control
    printf '%s\n' 'TqPackageCategory: Application' 'TqPackageSubCategory: Application_Native' >$file.tqcontrol
    printf '%s\n' '#!/bin/sh' 'read -r line <>/tmp/silence' >$file.tqstartapp
    chmod +x $file.tqstartapp
  done
}

mkdir -p /usr/lib/opkg/info /etc/tarvio/apps.d
printf '%s\n' 'log_period: 1' 'hook.clock: clock' >/etc/tarvio/tarviod.conf
echo 'restart: on-failure' >/etc/tarvio/apps.d/clock.conf
syslogd -O /var/log/messages
for name in clock radio; do make_package $name; done

passes "the service file starts the manager" service start
passes "the manager is resident" service status
passes "clock is installed, and known at once" prints '*the manager knows clock now*' tarvio install clock.tbx
passes "clock is listed" prints '*clock *application*' tarvio list
passes "clock is not running" ends_with 3 tarvio is-running clock
passes "clock starts" tarvio start clock --wait-manager
passes "clock is waited for" tarvio wait clock --state running --timeout 10
passes "clock runs" tarvio is-running clock
passes "clock is started" prints '*clock *normal *started app*' tarvio status
passes "what it prints is in the system log" eventually logged clock "clock begins"
echo "it is noon" >>/opt/clock/name
passes "and what it prints later" eventually logged clock "it is noon"
passes "tarvio shows it" prints '*it is noon*' tarvio logs clock
passes "which is not taken for a report about it" ends_with 0 tarvio status clock

passes "the device has what it needs" tarvio doctor
passes "its tools say which they are" prints '*nanddump (mtd-utils) *mkfs.jffs2 (mtd-utils) *' tarvio doctor
passes "its log has a form that counts" finds 'system log *ok *lines of the form busybox, hooks: 1'

before=$(instances clock)
kill -SEGV "$before"
passes "clock crashes, and is started again" eventually is_another_clock "$before"
passes "which is its second start" prints '*clock * running * 2 *started again*' tarvio status --wide
passes "in the metrics as well" prints '*starts_total{application="clock"} 2*' tarvio metrics

passes "radio is installed" tarvio install radio.tbx
passes "radio's file is there" test -f /opt/radio/name
passes "radio starts without a restart of the manager" tarvio start radio
before=$(manager)
passes "the service file restarts the manager" service restart
passes "it is another process" [ "$before" != "$(manager)" ]
passes "clock runs" eventually runs_once clock
passes "radio runs" eventually runs_once radio
passes "both are started" prints '*radio *normal*clock *normal*' tarvio status

logger -t clock -p user.err 'disk full'
passes "a log line sets clock's error" eventually error_of_clock
passes "clock's error is its exit status" ends_with 11 tarvio status clock
passes "radio is not concerned" ends_with 0 tarvio status radio
passes "clock is stopped" tarvio stop clock
passes "clock has gone" is_gone clock
passes "radio still runs" runs_once radio
passes "clock has no status" ends_with 12 tarvio status clock
passes "all are started" tarvio start-all
passes "clock runs again" eventually runs_once clock

make_package radio 1.1
before=$(instances radio)
passes "radio is upgraded" tarvio install radio.tbx
passes "it runs on" [ "$before" = "$(instances radio)" ]
passes "its status says which version runs" prints '*radio *1.0*1.1*' tarvio status --wide
passes "radio is restarted" tarvio restart radio
passes "it is another process" [ "$before" != "$(instances radio)" ]
passes "radio is removed while it runs" tarvio remove radio
passes "it was stopped" is_gone radio
passes "radio's file has gone" [ ! -e /opt/radio/name ]
passes "radio is not listed" is_not_listed radio

make_many
passes "50 more are found" prints '*50*' tarvio refresh
passes "and started" tarvio start-all
passes "all of them" [ "$(instances 'app[0-9]*' | wc -l)" = 50 ]
used=$(memory)
echo "tarviod, its keeper and its log reader: $used KiB of memory (PSS)," \
  "descriptors $(ls "/proc/$(manager)/fd" | wc -l) and $(ls "/proc/$(keeper)/fd" | wc -l)"
passes "they need 1.1 MiB at most" is_small "$used"
passes "the service file stops the manager" service stop
passes "the client says that there is no manager" ends_with 3 tarvio status
passes "which the device needs" ends_with 1 tarvio doctor
passes "clock has gone with it" is_gone clock
passes "and the others" [ -z "$(instances 'app[0-9]*')" ]
passes "and the keeper" [ -z "$(keeper)" ]
finish
