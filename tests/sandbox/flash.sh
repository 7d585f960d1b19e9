# What the stand-ins for the flash tools share. Sourced.
#
# A device is a plain file of whole erase blocks; the numbers of its bad blocks, if it has any, stand in
# DEVICE.bad, one to a line. They print what mtd-utils 2.1.5 prints, under the options of older releases.
: "${TARVIO_TEST_CMDLINE:?the flash tools run in the sandbox only}"
set -u
export LC_ALL=C

tool=${0##*/}
case " $* " in *" --version "*) echo "$tool (mtd-utils) 2.1.5" && exit ;; esac
block=131072
page=2048

# fail STATUS MESSAGE [ERROR]: the message of the real tools, with the system's error below it.
fail() {
  printf '%s: error!: %s\n' "$tool" "$2" >&2
  [ $# = 2 ] || printf '%*s%s\n' $((${#tool} + 2)) '' "$3" >&2
  exit "$1"
}

# Whether a device is there; sets its size in blocks and the list of bad ones.
find_device() {
  [ -f "$1" ] || return 1
  blocks=$(($(stat -c %s "$1") / block))
  bad=$([ ! -e "$1.bad" ] || cat "$1.bad")
}

# extents FIRST COUNT: the erase blocks from FIRST to the end, COUNT good ones at most: a line "FIRST LENGTH" for
# each stretch of good blocks.
extents() {
  awk -v first="$1" -v wanted="$2" -v blocks="$blocks" -v bad="$bad" 'BEGIN {
    split(bad, list); for (each in list) is_bad[list[each]] = 1
    for (at = first; at < blocks && wanted > 0; ++at) {
      if (!is_bad[at]) { if (!length_) from = at; ++length_; --wanted; continue }
      if (length_) print from, length_
      length_ = 0
    }
    if (length_) print from, length_
  }'
}
