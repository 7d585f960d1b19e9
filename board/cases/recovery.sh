# What the manager, its keeper, both or the board leave behind when they are killed: each application runs exactly once
# afterwards, with its status and all that it prints.
. /board/library.sh

kill_all() {
  kill -KILL "$@"
  for process; do
    while [ -e "/proc/$process" ]; do sleep 0.1; done
  done
}
both_run_once() { runs_once clock && runs_once radio; }
both_are_new() {
  both_run_once && [ "$(instances clock)" != "$1" ] && [ "$(instances radio)" != "$2" ]
}
error_of_clock() { prints '*clock *error *disk full*' tarvio status; }
nothing_is_left() { is_gone clock && is_gone radio && [ -z "$(pidof tarviod tarviod-keeper tarviod-log-reader)" ]; }
# has STATE NAME...: as the manager says.
have() {
  state=$1
  shift
  for name; do tarvio wait "$name" --state "$state" --timeout 10 || return; done
}

mkdir -p /usr/lib/opkg/info /etc/tarvio /run/tarvio
printf '%s\n' 'log_period: 1' 'hook.clock: clock' >/etc/tarvio/tarviod.conf
syslogd -O /var/log/messages
for name in clock radio; do
  make_package $name
  passes "$name is installed" tarvio install $name.tbx
done

if [ "$(cat /host/boot)" = 2 ]; then
  # The same numbers may belong to others now.
  sleep 3600 &
  other=$!
  start=$(sed 's/.*) //' /proc/$other/stat | cut -d' ' -f20)
  passes "the ledger of the boot before names clock" grep -q ' clock$' /host/processes
  sed "s/^app .* clock\$/app $other $start clock/" /host/processes >/run/tarvio/processes
  cp /host/state /run/tarvio/state
  passes "the manager starts after the power was cut" service start
  passes "both run once" eventually both_run_once
  passes "both are started" have normal clock radio
  passes "what has a number from before the cut still runs" kill -0 $other
  passes "the manager stops" service stop
  passes "nothing is left" nothing_is_left
  passes "but that" kill -0 $other
  finish
fi

passes "the manager starts" service start
passes "both run once" eventually both_run_once
logger -t clock -p user.err 'disk full'
passes "clock has an error" eventually error_of_clock

clock=$(instances clock)
radio=$(instances radio)
kill_all "$(manager)"
passes "without the manager there is no answer" ends_with 3 tarvio status
echo "nobody listens" >>/opt/clock/name
passes "what clock prints is in the system log all the same" eventually logged clock "nobody listens"
passes "the service is not running" ends_with 3 service status
passes "the manager starts again" service start
passes "clock is the same process" [ "$clock" = "$(instances clock)" ]
passes "radio is the same process" [ "$radio" = "$(instances radio)" ]
passes "clock still has its error" error_of_clock
passes "radio has none" have normal radio
passes "both are known to run" have running clock radio

kill_all "$(keeper)"
passes "after the keeper's end both are started again, once" eventually both_are_new "$clock" "$radio"
passes "as the manager says" have running clock radio
passes "what clock prints is in the system log" eventually logged clock "clock begins" 2

clock=$(instances clock)
radio=$(instances radio)
kill_all "$(manager)" "$(keeper)"
passes "the manager starts after the end of both" service start
passes "both applications are started again, once" eventually both_are_new "$clock" "$radio"
passes "as the manager says" have running clock radio

kill_all "$(manager)"
passes "without the manager the service file stops what is left" service stop
passes "nothing is left" nothing_is_left
passes "the manager starts" service start
passes "both run once" eventually both_run_once

cp /run/tarvio/processes /run/tarvio/state /host/
echo "BOARD cuts the power at now"
sleep 0.3
echo "BOARD has its power cut now"
sleep 60
