# The manager's day: applications are installed, listed, started, watched, stopped and removed, and the manager is
# restarted.
. /board/library.sh

service() { /etc/init.d/tarviod "$1"; }

# The manager itself, and not the process of the same program that reads the log.
manager() {
  for process in $(pidof tarviod); do
    if grep -q '^PPid:[[:space:]]*1$' "/proc/$process/status"; then echo "$process" && return; fi
  done
  return 1
}

runs() { [ -d "/proc/$(cat "/var/run/$1.pid")" ]; }
is_gone() { ! runs "$1"; }
error_of_clock() { prints '*clock *error *disk full*' tarvio status; }

mkdir -p /usr/lib/opkg/info /etc/tarvio
printf '%s\n' 'log_period: 1' 'hook.clock: clock' >/etc/tarvio/tarviod.conf
syslogd -O /var/log/messages
for name in clock radio; do make_package $name; done

passes "clock is installed" tarvio install clock.tbx
passes "the service file starts the manager" service start
passes "the manager is resident" manager
passes "clock is listed" prints '*clock *application*' tarvio list
passes "clock runs" eventually runs clock
passes "clock is started" prints '*clock *normal *started app*' tarvio status

passes "radio is installed beside it" tarvio install radio.tbx
passes "radio's file is there" test -f /opt/radio/name
passes "radio is no application yet" ends_with 1 tarvio start radio
before=$(manager)
passes "the service file restarts the manager" service restart
passes "it is another process" [ "$before" != "$(manager)" ]
passes "radio runs" eventually runs radio
passes "both are started" prints '*radio *normal*clock *normal*' tarvio status

logger -t clock -p user.err 'disk full'
passes "a log line sets clock's error" eventually error_of_clock
passes "clock's error is its exit status" ends_with 11 tarvio status clock
passes "radio is not concerned" ends_with 0 tarvio status radio
passes "clock is stopped" tarvio stop clock
passes "clock has gone" eventually is_gone clock
passes "radio still runs" runs radio
passes "clock has no status" ends_with 12 tarvio status clock
passes "all are started" tarvio start-all
passes "clock runs again" eventually runs clock

passes "radio is stopped" tarvio stop radio
passes "radio is removed" tarvio remove radio
passes "radio's file has gone" [ ! -e /opt/radio/name ]
passes "radio is not listed" is_not_listed radio

memory=$(sed -n 's/^Pss: *//p' "/proc/$(manager)/smaps_rollup")
descriptors=$(ls "/proc/$(manager)/fd" | wc -l)
echo "tarviod: $memory of memory (PSS), $descriptors descriptors"
passes "the service file stops the manager" service stop
passes "the client says that there is no manager" ends_with 3 tarvio status
passes "clock has gone with it" is_gone clock
finish
