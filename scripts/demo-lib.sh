# What the bodies of the demos share. Sourced in the sandbox, in a new directory of the demo's own.

fail() {
  echo "The demo went wrong: $1" >&2
  exit 1
}

# say LINE...: a paragraph.
say() {
  printf '\n'
  printf '%s\n' "$@"
  gap=$'\n'
}

# run COMMAND: prints and runs a command line; the next one stands right below it.
run() {
  echo "$gap    \$ $1"
  gap=
  eval "$1"
}

# show STATUS PATTERN COMMAND: the same; the command must end with the status, and its whole output, kept in
# $output, must match the pattern.
show() {
  local status=0
  echo "$gap    \$ $3"
  gap=$'\n'
  output=$(eval "$3" 2>&1) || status=$?
  [ -z "$output" ] || sed 's/^/    /' <<<"$output"
  [ "$status" = "$1" ] || fail "exit status $status instead of $1"
  # shellcheck disable=SC2053  # a pattern, not a text
  [[ $output == $2 ]] || fail "the output should look like '$2'"
}

# eventually COMMAND...: waits up to ten seconds for a command to succeed.
eventually() {
  local _
  for _ in $(seq 100); do
    ! "$@" || return 0
    sleep 0.1
  done
  return 1
}

# make_source NAME [CATEGORY SUBCATEGORY]: the directory that a package file is built from; add_script adds further
# control files.
make_source() {
  mkdir -p "$1/data/opt/$1"
  printf '%s\n' "Package: $1" "Version: 1.0" "Architecture: all" "Maintainer: Demo" "Description: sample package" \
    >"$1/control"
  [ $# != 3 ] || printf 'TqPackageCategory: %s\nTqPackageSubCategory: %s\n' "$2" "$3" >"$1/tqcontrol"
}

# add_script NAME MEMBER LINE...: a shell script as a member of the control archive.
add_script() {
  local file=$1/$2
  shift 2
  printf '%s\n' '#!/bin/sh' "$@" >"$file"
  chmod 755 "$file"
}

# Builds a package file with the tools themselves, as any opkg package is built, and installs it.
install_with_opkg() {
  local name=$1
  echo 2.0 >debian-binary
  tar -C "$name" --exclude=./data -czf control.tar.gz .
  tar -C "$name/data" -czf data.tar.gz .
  rm -f "$name.ipk"
  ar rc "$name.ipk" debian-binary control.tar.gz data.tar.gz
  opkg install "$name.ipk" >/dev/null
  rm -r debian-binary control.tar.gz data.tar.gz "$name.ipk" "$name"
}
