SUMMARY = "Hardware inventory on D-Bus"
DESCRIPTION = "A shared library whose hosts publish hardware-inventory objects on the D-Bus system bus."
LICENSE = "Apache-2.0"
LIC_FILES_CHKSUM = "file://${COMMON_LICENSE_DIR}/Apache-2.0;md5=89aea4e17d99a7cacdbeed46a0096b10"

# The source tree that contains this recipe.
inherit externalsrc meson pkgconfig systemd
EXTERNALSRC = "${THISDIR}/../../../.."

# The generator runs on the build machine and reads its tables with expat.
DEPENDS = "systemd expat-native"

EXTRA_OEMESON = "-Dtests=false -Dbench=false"

# Without "real-sdbusplus" the stand-ins below subprojects/ are built in. Without "stand-ins" the
# image must provide libtallylog.so.0 and libtallybook.so.0 itself: name their recipe in DEPENDS.
PACKAGECONFIG ??= "inventoryd stand-ins"
PACKAGECONFIG[docs] = "-Ddocs=true,-Ddocs=false"
PACKAGECONFIG[inventoryd] = "-Dexamples=true -Dsystemd=enabled,-Dexamples=false -Dsystemd=disabled"
PACKAGECONFIG[real-sdbusplus] = ",,sdbusplus sdeventplus stdplus"
PACKAGECONFIG[stand-ins] = "-Dstand_ins=true,-Dstand_ins=false"

PACKAGES =+ "${PN}-stand-ins ${PN}-inventoryd"
FILES:${PN}-stand-ins = "${libdir}/libtally*.so.*"
FILES:${PN}-inventoryd = " \
    ${sbindir}/inventoryd \
    ${systemd_system_unitdir}/inventoryd.service \
    ${datadir}/dbus-1/system.d \
"
FILES:${PN}-dev += "${datadir}/dbus-1/interfaces"

SYSTEMD_PACKAGES = "${@bb.utils.contains('PACKAGECONFIG', 'inventoryd', '${PN}-inventoryd', '', d)}"
SYSTEMD_SERVICE:${PN}-inventoryd = "inventoryd.service"
