# How long the client takes, and how much of that are the tools that it runs: printed, not judged.
# BOARD_NAND=badblocks=30
. /board/library.sh
. /board/flash.sh

runs=10

# In the place of a tool: notes how long it takes, in hundredths of a second. One that reads the package may write nowhere
# but in its work directory, and counts as the client.
time_tool() {
  {
    echo '#!/bin/sh'
    echo 'read -r before _ </proc/uptime'
    echo "$(command -v "$1") \"\$@\""
    echo 'status=$?'
    echo 'read -r after _ </proc/uptime'
    echo '{ echo "$before $after" >>/tmp/tool-times; } 2>/dev/null'
    echo 'exit $status'
  } >/tmp/timed/"$1"
  chmod +x /tmp/timed/"$1"
}

# show NAME COMMAND...: the mean of some runs.
show() {
  name=$1
  shift
  rm -f /tmp/tool-times
  read -r before _ </proc/uptime
  for _ in $(seq $runs); do
    "$@" >/tmp/show.log 2>&1 || { cat /tmp/show.log && return 1; }
  done
  read -r after _ </proc/uptime
  touch /tmp/tool-times
  awk -v name="$name" -v whole="$before $after" -v runs=$runs '
    { tools += $2 - $1 }
    END {
      split(whole, time)
      seconds = time[2] - time[1]
      printf "%s: %.3f s, of which the tools %.0f %%\n", name, seconds / runs, 100 * tools / seconds
    }' /tmp/tool-times
}
measure() { show "$@" >/tmp/shown && cat /tmp/shown >&3; }

mkdir -p /usr/lib/opkg/info /tmp/timed
syslogd -O /var/log/messages
make_package clock
passes "clock is installed" tarvio install clock.tbx
passes "the manager starts" /etc/init.d/tarviod start
for number in $(seq 200); do
  file=/usr/lib/opkg/info/package$number
  printf 'Package: package%s\nVersion: 1.%s\n' "$number" "$number" >$file.control
  printf 'TqPackageCategory: Other\n' >$file.tqcontrol
done
fill 3 1966080 >/tmp/kernel
for tool in nanddump ar tar flash_erase flash_eraseall nandwrite; do time_tool $tool; done
PATH=/tmp/timed:$PATH

exec 3>&1
passes "the statuses are timed" measure "tarvio status" tarvio status
passes "the list is timed" measure "tarvio list, 200 packages" tarvio list
runs=3
passes "a backup is timed" measure "tarvio backup kernel" \
  tarvio backup kernel --to /tmp/image.tbx --overwrite --quiet
passes "a restore is timed" measure "tarvio restore, of the kernel" tarvio restore /tmp/image.tbx --yes --quiet
passes "the manager ends" /etc/init.d/tarviod stop
finish
