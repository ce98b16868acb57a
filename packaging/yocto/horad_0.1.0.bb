# Untested: there is no Yocto where horad is built. What it calls is tested: the daemon alone, built and installed with
# CMake. HORAD_SOURCE_DIR is the folder with the sources, or SRC_URI names them.
SUMMARY = "Time control of the router"
DESCRIPTION = "Keeps weekly time plans, switches the WLAN, starts services and reboots by the clock."
# All rights reserved, no licence chosen yet.
LICENSE = "CLOSED"

inherit cmake externalsrc systemd

EXTERNALSRC = "${HORAD_SOURCE_DIR}"

EXTRA_OECMAKE = "-DHORAD_DAEMON_ONLY=ON"
# Firmware with a platform of its own (doc/porting.md):
# EXTRA_OECMAKE += "-DHORAD_PLATFORM=external -DHORAD_PLATFORM_PACKAGES=firmware \
#     -DHORAD_VELTA_TARGET=firmware::velta -DHORAD_ORV_TARGET=firmware::orv -DHORAD_CLIENT_TARGET=firmware::client"
# DEPENDS += "firmware"

SYSTEMD_SERVICE:${PN} = "horad.service"

do_install:append() {
    install -D -m 0644 ${S}/packaging/default/horad ${D}${sysconfdir}/default/horad
}

CONFFILES:${PN} += "${sysconfdir}/default/horad"
FILES:${PN} += "${prefix}/lib/horad ${prefix}/lib/systemd ${datadir}/bash-completion"
