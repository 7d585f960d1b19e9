# Packages are installed by the agent, with a broker and a server of files on the board's loopback. The power is cut
# while the second version's script runs: after the next boot the agent installs it again and says so, and runs nothing
# twice. Before that, the memory that the idle agent needs.
# BOARD_NAND="cache_file=/host/flash log=1"
# BOARD_FLEET=yes
. /board/library.sh
. /board/flash.sh

certificates=/etc/tarvio/fleet
broker="-h 127.0.0.1 -p 8884 -i operator --cafile $certificates/ca.crt --cert $certificates/operator.crt
  --key $certificates/operator.key"

# What must outlive a boot lies in the writable area; all else is as new after each.
mount_flash() {
  mkdir -p /mnt/flash && mount -t jffs2 /dev/mtdblock5 /mnt/flash || return
  for directory in etc/tarvio opt/clock served usr/lib/opkg/info var/lib/tarvio-agent; do
    mkdir -p "/mnt/flash/$directory" "/$directory" || return
  done
  for directory in etc/tarvio opt/clock usr/lib/opkg var/lib/tarvio-agent; do
    mount --bind "/mnt/flash/$directory" "/$directory" || return
  done
}

make_certificates() (
  mkdir -p $certificates && cd $certificates || exit
  sh /board/certificates ca && sh /board/certificates server 127.0.0.1 && sh /board/certificates board board-1 &&
    sh /board/certificates operator operator && chown 77 board-1.key
)

settle() {
  mkdir -p /etc/tarvio/keys
  cat >/etc/tarvio/agent.conf <<END
broker: 127.0.0.1:8883
device: board-1
ca_file: $certificates/ca.crt
certificate: $certificates/board-1.crt
key: $certificates/board-1.key
download_ca_file: $certificates/ca.crt
END
  tarvio keygen $certificates/vendor --no-password && cp $certificates/vendor.pub /etc/tarvio/keys/
}

# make_version VERSION: the package clock, signed, for the server of files. Its script notes that it runs; that of the
# second version does not end on the first boot.
make_version() (
  cd /tmp && mkdir -p clock/control || exit
  cat >clock/control/postinst <<END
#!/bin/sh
echo $1 >>/mnt/flash/scripts
[ "$1 \$(cat /host/boot)" != '2.0 1' ] || {
  sync
  echo "BOARD runs the script of the second version" >/dev/console
  sleep 60
}
END
  chmod +x clock/control/postinst
  make_package clock "$1" && mv clock.tbx "/mnt/flash/served/clock-$1.tbx" &&
    tarvio sign "/mnt/flash/served/clock-$1.tbx" --key $certificates/vendor.key
)

# The operator's side, with libraries of its own, so that none of the agent's are counted as half theirs.
start_servers() {
  mkdir /tmp/apart && cp /usr/lib/arm-linux-gnueabihf/libssl.so.3 /usr/lib/arm-linux-gnueabihf/libcrypto.so.3 \
    /tmp/apart/ || return
  cat >/tmp/broker.conf <<END
user root
per_listener_settings true
listener 8883 127.0.0.1
cafile $certificates/ca.crt
certfile $certificates/server.crt
keyfile $certificates/server.key
require_certificate true
use_identity_as_username true
acl_file /board/access-boards
listener 8884 127.0.0.1
cafile $certificates/ca-operators.crt
certfile $certificates/server.crt
keyfile $certificates/server.key
require_certificate true
use_identity_as_username true
acl_file /board/access-operators
log_type all
END
  LD_LIBRARY_PATH=/tmp/apart mosquitto -c /tmp/broker.conf >/tmp/broker.log 2>&1 &
  (
    cd /mnt/flash/served || exit
    LD_LIBRARY_PATH=/tmp/apart exec openssl s_server -accept 127.0.0.1:8443 -cert $certificates/server.crt \
      -key $certificates/server.key -WWW -quiet >/dev/null 2>&1
  ) &
  eventually grep running /tmp/broker.log
}
start_agent() {
  tarvio-agent 2>/tmp/agent.log &
}
is_connected() { grep 'connected to the broker' /tmp/agent.log; }

# request ID VERSION: as the operator's tool writes it.
request() {
  file=/mnt/flash/served/clock-$2.tbx
  echo "{\"id\":\"$1\",\"command\":\"install\",\"expires_in\":60,\"arguments\":" \
    "{\"url\":\"https://127.0.0.1:8443/${file##*/}\"," \
    "\"sha256\":\"$(sha256sum "$file" | cut -d' ' -f1)\",\"size\":$(stat -c %s "$file")}}"
}
# ask ID VERSION: prints the answer.
ask() {
  # shellcheck disable=SC2086  # options
  mosquitto_rr $broker -q 1 -W 60 -t tarvio/v1/board-1/request -e tarvio/v1/board-1/answer/operator \
    -m "$(request "$1" "$2")"
}
# Until the agent answers by itself.
listen() {
  # shellcheck disable=SC2086  # options
  mosquitto_sub $broker -q 1 -W 60 -C 1 -t tarvio/v1/board-1/answer/operator >/tmp/answer &
  listener=$!
  eventually grep 'SUBACK to operator' /tmp/broker.log
}

is_installed() { prints "*Version: $1*Status: install user installed*" opkg status clock; }
scripts_were() { prints "$1" tr '\n' ' ' </mnt/flash/scripts; }

# Of both processes, in KiB.
memory() {
  total=0
  for process in $(pidof tarvio-agent tarvio-agent-link); do
    total=$((total + $(sed -n 's/^Pss: *\([0-9]*\) kB/\1/p' "/proc/$process/smaps_rollup")))
  done
  echo $total
}
owners() { for process in $(pidof tarvio-agent tarvio-agent-link); do stat -c %u "/proc/$process"; done | sort -n | tr '\n' ' '; }
is_small() { [ "$1" -gt 0 ] && [ "$1" -le 4096 ]; }

keep_flash
ifconfig lo up
echo tarvio-agent:x:77:77:::/bin/false >/etc/passwd
if [ "$(cat /host/boot)" = 1 ]; then
  passes "the writable area is mounted" mount_flash
  passes "the certificates are made" make_certificates
  passes "the agent gets its settings" settle
  passes "two versions are made" make_version 1.0
  passes "and signed" make_version 2.0
  passes "the broker runs" start_servers
  start_agent
  passes "the agent is connected" eventually is_connected
  passes "it installs the first version" prints '*"id":"first","state":"done"*' ask first 1.0
  passes "which is there" is_installed 1.0
  # Until it has nothing more to do.
  sleep 6
  used=$(memory)
  echo "tarvio-agent, both processes, idle with TLS: $used KiB of memory (PSS)"
  passes "it needs 4 MiB at most" is_small "$used"
  passes "its process for the broker is not root's" prints '0 77 ' owners
  echo "BOARD cuts the power at the second version"
  sleep 0.3
  ask second 2.0
  passes "the power is cut in the installation" false
  finish
fi

passes "the flash holds what it held" load_flash
passes "the writable area is mounted" mount_flash
passes "both scripts have run once" scripts_were '1.0 2.0 '
passes "the second version is half installed" ends_with 1 is_installed 2.0
passes "the broker runs" start_servers
passes "the operator listens" listen
start_agent
passes "the agent answers the request that was cut" wait "$listener"
passes "it was run again" prints '*"id":"second","state":"done"*"note":"*it was run again; opkg had left half done: clock"*' cat /tmp/answer
passes "the second version is installed" is_installed 2.0
passes "its script has run again, and no other" scripts_were '1.0 2.0 2.0 '
passes "the first request again gets its answer" prints '*"id":"first","state":"done"*' ask first 1.0
passes "and the second one" prints '*"id":"second","state":"done"*' ask second 2.0
passes "nothing was run for them" scripts_were '1.0 2.0 2.0 '
passes "no file is left of the downloads" [ -z "$(ls /var/lib/tarvio-agent/files)" ]
finish
