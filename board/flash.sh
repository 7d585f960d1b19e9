# What the cases with flash share. Sourced after library.sh.

# sum_of AREA BYTES: the checksum of its first bytes without its bad blocks, dumped by the real tool.
sum_of() {
  /usr/sbin/nanddump -q --bb=skipbad --omitoob -l "$2" -f /tmp/dump "/dev/mtd$1" 2>/dev/null && md5sum </tmp/dump
  rm -f /tmp/dump
}

# Whether two sums are equal, or differ; neither holds for an empty sum, of what cannot be read.
same() { [ -n "$1" ] && [ "$1" = "$2" ]; }
other() { [ -n "$1" ] && [ -n "$2" ] && [ "$1" != "$2" ]; }

# is_sum SUM AREA BYTES, differs SUM AREA BYTES
is_sum() { same "$1" "$(sum_of "$2" "$3")"; }
differs() { other "$1" "$(sum_of "$2" "$3")"; }

# make_content FILE BYTES: random bytes, repeated, since they take long to make. Their number does not divide a block,
# so no two blocks are the same.
make_content() {
  head -c 1000003 /dev/urandom >"$1"
  while [ "$(stat -c %s "$1")" -lt "$2" ]; do cat "$1" "$1" >"$1.twice" && mv "$1.twice" "$1" || return; done
  truncate -s "$2" "$1"
}

# fill AREA BYTES: with such bytes; prints their sum.
fill() {
  make_content /tmp/content "$2"
  nandwrite -q "/dev/mtd$1" /tmp/content >&2 && md5sum </tmp/content
  rm -f /tmp/content
}

# make_tree DIRECTORY: files, directories and links with all kinds of names, sizes and modes.
make_tree() {
  mkdir -p "$1/etc/directory with blanks" "$1/bin" "$1/empty"
  echo "of $1" >"$1/etc/name"
  : >"$1/etc/empty"
  head -c 300000 /dev/urandom >"$1/bin/random"
  head -c 1000000 /dev/zero >"$1/bin/zeros"
  head -c 4097 /dev/urandom >"$1/etc/directory with blanks/odd size"
  ln -s ../bin/random "$1/etc/link"
  chmod 4755 "$1/bin/random"
  chmod 600 "$1/etc/name"
  chown 12:34 "$1/etc/empty"
  chmod 1777 "$1/empty"
}

# describe DIRECTORY: type, mode, owner and link target of each file, and the sum of its contents.
describe() {
  (
    cd "$1" || exit
    find . ! -type d -exec stat -c '%n %A %u:%g %s %N' {} + | sort
    find . -type d -exec stat -c '%n %A %u:%g' {} + | sort
    find . -type f -exec md5sum {} + | sort
  )
}

# on_area AREA COMMAND...: with the file system of an area mounted on /mnt/root.
on_area() {
  mount -t jffs2 "/dev/mtdblock$1" /mnt/root || return
  shift
  "$@"
  result=$?
  umount /mnt/root
  return $result
}

# holds_tree AREA TEXT: whether the text describes the area's tree; shows the differences.
holds_tree() {
  on_area "$1" describe /mnt/root >/tmp/described || return
  printf '%s\n' "$2" | diff - /tmp/described
}

lists_members() { [ "$(ar t /tmp/image.tbx | tr '\n' ' ')" = "$1" ]; }

# exits_with STATUS PATTERN COMMAND...: whether the command exits so and its output matches.
exits_with() {
  wanted=$1
  pattern=$2
  shift 2
  output=$("$@" 2>&1)
  status=$?
  echo "$output"
  # shellcheck disable=SC2254  # a pattern
  case $output in $pattern) [ $status = "$wanted" ] ;; *) return 1 ;; esac
}
fails_with() { exits_with 1 "$@"; }

leaves_nothing() { [ -z "$(ls -d "${1:-/tmp}"/.tarvio* 2>/dev/null)" ]; }

log_flash() { echo "module nandsim format \"log: $1\" +p" >/proc/dynamic_debug/control; }

# keep_flash: from now on the host reads on the console what the flash holds, and keeps it for the next boot. This needs
# BOARD_NAND="cache_file=/host/flash log=1".
keep_flash() {
  log_flash erase
  log_flash programm
  dmesg -n 8
}

# load_flash: what the flash held when the power was cut.
load_flash() {
  while read -r area first pages begin; do
    dd if=/host/flash.before bs=2112 skip="$first" count="$pages" 2>/dev/null |
      nandwrite -q -n -o -s $(((first - begin) * 2048)) "/dev/mtd$area" - || return
  done </host/flash.runs
}
