SUMMARY = "Application and package manager of a device"
DESCRIPTION = "A library, a resident manager and a command-line client, which start and stop applications, keep their \
statuses, install packages through opkg, and save and restore the flash memory."
SECTION = "base"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=8e008f9275d339e58da6660b80f65d5c"

# The sources, and with them the version, are those of the tree that this layer is part of.
TARVIO_TREE := "${@os.path.realpath(d.getVar('THISDIR') + '/../../../..')}"

def tarvio_version(d):
    import re
    with open(d.getVar('TARVIO_TREE') + '/CMakeLists.txt') as file:
        return re.search(r'^ *VERSION ([0-9.]+)$', file.read(), re.MULTILINE).group(1)

PV = "${@tarvio_version(d)}"

inherit externalsrc cmake systemd update-rc.d useradd bash-completion

EXTERNALSRC = "${TARVIO_TREE}"
EXTERNALSRC_BUILD = "${WORKDIR}/build"
DEPENDS = "libsodium nlohmann-json"
EXTRA_OECMAKE = "-DCMAKE_BUILD_TYPE=MinSizeRel -DCMAKE_SKIP_INSTALL_RPATH=ON"

# The agent of a fleet and the operator's tool are built where their libraries are.
PACKAGECONFIG ??= ""
PACKAGECONFIG[fleet] = ",,mosquitto openssl curl"
TARVIO_SERVICES = "tarviod ${@bb.utils.contains('PACKAGECONFIG', 'fleet', 'tarvio-agent', '', d)}"

do_install:append() {
    install -d ${D}${sysconfdir}/tarvio/apps.d ${D}${sysconfdir}/init.d ${D}${systemd_system_unitdir}
    install -m 0644 ${S}/packaging/tarviod.conf ${D}${sysconfdir}/tarvio/
    # The classes keep the one that the distribution's init takes.
    for program in ${TARVIO_SERVICES}; do
        sed 's|@sbindir@|${sbindir}|' ${S}/packaging/init.d/$program.in >${D}${sysconfdir}/init.d/$program
        chmod 0755 ${D}${sysconfdir}/init.d/$program
        sed 's|@sbindir@|${sbindir}|' ${S}/packaging/systemd/$program.service.in \
            >${D}${systemd_system_unitdir}/$program.service
    done
}

PACKAGES =+ "libtarvio tarviod tarvio-agent tarvio-fleet tarvio-transfer"
FILES:libtarvio = "${libdir}/libtarvio.so.*"
FILES:tarviod = "${sbindir}/tarviod ${sysconfdir}/tarvio ${sysconfdir}/init.d/tarviod \
    ${systemd_system_unitdir}/tarviod.service"
CONFFILES:tarviod = "${sysconfdir}/tarvio/tarviod.conf"
FILES:${PN} += "${datadir}/fish ${datadir}/zsh"
# What the client runs.
RDEPENDS:${PN} = "opkg binutils tar gzip coreutils"
RRECOMMENDS:${PN} = "tarviod mtd-utils mtd-utils-jffs2"

FILES:tarvio-agent = "${sbindir}/tarvio-agent ${sbindir}/tarvio-agent-link ${sysconfdir}/init.d/tarvio-agent \
    ${systemd_system_unitdir}/tarvio-agent.service"
RDEPENDS:tarvio-agent = "${PN} tarvio-transfer"
RRECOMMENDS:tarvio-agent = "tarviod"
FILES:tarvio-fleet = "${bindir}/tarvio-fleet ${datadir}/tarvio/fleet-page"
RDEPENDS:tarvio-fleet = "tarvio-transfer"
FILES:tarvio-transfer = "${bindir}/tarvio-transfer"
RRECOMMENDS:tarvio-transfer = "ca-certificates"

SYSTEMD_PACKAGES = "${TARVIO_SERVICES}"
SYSTEMD_SERVICE:tarviod = "tarviod.service"
SYSTEMD_SERVICE:tarvio-agent = "tarvio-agent.service"
INITSCRIPT_PACKAGES = "${TARVIO_SERVICES}"
INITSCRIPT_NAME:tarviod = "tarviod"
INITSCRIPT_NAME:tarvio-agent = "tarvio-agent"
USERADD_PACKAGES = "tarvio-agent"
USERADD_PARAM:tarvio-agent = "--system --user-group --no-create-home --home-dir /nonexistent \
    --shell ${base_sbindir}/nologin tarvio-agent"
