# What the cases share: steps that are named, checked and counted, even if the power fails between them.

# passes NAME COMMAND...: a step that must succeed. Its output is shown if it fails.
passes() {
  step=$1
  shift
  if "$@" >/tmp/step.log 2>&1; then
    echo "passed  $step"
  else
    echo "FAILED  $step (status $?)"
    cat /tmp/step.log
    echo "$step" >>/host/failures
  fi
}

# prints PATTERN COMMAND...: whether the command succeeds and its output matches.
prints() {
  pattern=$1
  shift
  output=$("$@" 2>&1) || { echo "$output" && return 1; }
  echo "$output"
  # shellcheck disable=SC2254  # a pattern
  case $output in $pattern) ;; *) return 1 ;; esac
}

# ends_with STATUS COMMAND...
ends_with() {
  wanted=$1
  shift
  "$@"
  [ $? = "$wanted" ]
}

# finds PATTERN: whether this is in the table of tarvio doctor, whatever else is not ok.
finds() {
  output=$(tarvio doctor 2>&1)
  echo "$output"
  # shellcheck disable=SC2254  # a pattern
  case $output in *$1*) ;; *) return 1 ;; esac
}

# eventually COMMAND...: waits up to ten seconds for the command to succeed; the last output is shown.
eventually() {
  for _ in $(seq 100); do
    ! "$@" >/tmp/eventually.log 2>&1 || return 0
    sleep 0.1
  done
  cat /tmp/eventually.log
  return 1
}

# make_package NAME [VERSION]: NAME.tbx, an application that runs until it is told to stop, and prints what is appended
# to its file /opt/NAME/name.
make_package() {
  mkdir -p "$1/control" "$1/data/opt/$1"
  printf '%s\n' "Package: $1" "Version: ${2:-1.0}" 'Architecture: all' 'Maintainer: Board' >"$1/control/control"
  printf '%s\n' 'TqPackageCategory: Application' 'TqPackageSubCategory: Application_Native' >"$1/control/tqcontrol"
  printf '%s\n' '#!/bin/sh' "echo \$\$ >/var/run/$1.pid" "echo $1 begins" \
    "exec tail -n 0 -f /opt/$1/name" >"$1/control/tqstartapp"
  printf '%s\n' '#!/bin/sh' "kill \$(cat /var/run/$1.pid)" >"$1/control/tqstopapp"
  chmod +x "$1"/control/tqst*
  echo "$1" >"$1/data/opt/$1/name"
  echo 2.0 >"$1/debian-binary"
  tar -C "$1/control" -czf "$1/control.tar.gz" .
  tar -C "$1/data" -czf "$1/data.tar.gz" .
  (cd "$1" && ar rc "../$1.tbx" debian-binary control.tar.gz data.tar.gz)
}

service() { /etc/init.d/tarviod "$1"; }
manager() { cat /run/tarviod.pid; }
keeper() { pidof tarviod-keeper; }

# instances NAME: the processes of an application, by what make_package lets it run.
instances() {
  grep -lzE "^/usr/lib/opkg/info/$1.tqstartapp\$|^/opt/$1/name\$" /proc/[0-9]*/cmdline 2>/dev/null | cut -d/ -f3
}
runs() { [ -n "$(instances "$1")" ]; }
runs_once() { [ "$(instances "$1" | wc -l)" = 1 ]; }
is_gone() { ! runs "$1"; }
# logged NAME TEXT [TIMES]: whether the system log has what the application has printed so often.
logged() {
  tarvio logs "$1" >/tmp/logged && cat /tmp/logged
  [ "$(grep -c " $1\[.*\]: $2\$" /tmp/logged)" = "${3:-1}" ]
}

is_not_listed() { tarvio list >/tmp/list && cat /tmp/list && ! grep -q "$1" /tmp/list; }

finish() {
  touch /host/failures
  echo "failures: $(wc -l </host/failures)"
  [ ! -s /host/failures ]
  exit
}
