# With a policy that demands signatures, an image is restored and a package installed only if the key that the device
# trusts has signed them.
. /board/library.sh
. /board/flash.sh

refuses() { exits_with 6 "$@"; }

mkdir -p /etc/tarvio/keys /usr/lib/opkg/info
cd /tmp || exit
make_package clock
content=$(fill 1 262144)
passes "the boot loader is saved" tarvio backup bootloader --to image.tbx
passes "a pair of keys is made" prints 'created key * vendor.key (secret), vendor.pub*' \
  tarvio keygen vendor --no-password
cp vendor.pub /etc/tarvio/keys/
printf '%s\n' 'require_signature: all' >/etc/tarvio/tarvio.conf
passes "the device trusts it" finds 'keys *ok *1 valid, 0 revoked, '
flash_eraseall /dev/mtd1 >/dev/null

passes "an image without a signature is not restored" \
  refuses '*image.tbx.minisig*nothing was written*' tarvio restore image.tbx --yes
passes "nothing is written" differs "$content" 1 262144
passes "a package without one is not installed" refuses '*clock.tbx.minisig*' tarvio install clock.tbx
passes "nothing is installed" [ ! -e /opt/clock ]

passes "both are signed" tarvio sign image.tbx clock.tbx --key vendor.key
passes "the signatures hold" prints '*clock.tbx is clock 1.0, signed by key *' tarvio verify image.tbx clock.tbx
passes "the image is restored" prints '*restored bootloader from image.tbx*' tarvio restore image.tbx --yes
passes "the boot loader is as it was" is_sum "$content" 1 262144
passes "the package is installed" tarvio install clock.tbx
passes "its file is there" test -f /opt/clock/name

mkdir /etc/tarvio/keys/revoked
cp vendor.pub /etc/tarvio/keys/revoked/
passes "what a revoked key has signed counts no more" refuses '*revoked*' tarvio restore image.tbx --yes
passes "no work directory stays" leaves_nothing
finish
