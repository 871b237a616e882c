SUMMARY = "Hardware inventory on D-Bus"
DESCRIPTION = "A shared library whose hosts publish hardware-inventory objects on the D-Bus system bus."
SECTION = "libs"
LICENSE = "Apache-2.0"
LIC_FILES_CHKSUM = "file://LICENSE;md5=3b83ef96387f14655fc854ddc3c6bd57"

inherit externalsrc features_check meson pkgconfig systemd

# The source tree that contains this layer. docs/yocto.md shows how to fetch it instead.
EXTERNALSRC ?= "${@os.path.normpath('${THISDIR}/../../../../..')}"

# The generator runs on the build machine and reads its tables with expat.
DEPENDS = "expat-native sdbusplus sdeventplus stdplus systemd"

# What replaces the log service and the data store: the recipes that have libtallylog.so.0 and
# libtallybook.so.0. Without such, add "stand-ins" to PACKAGECONFIG.
GANTRY_PLATFORM ??= ""
DEPENDS += "${GANTRY_PLATFORM}"

REQUIRED_DISTRO_FEATURES = "systemd"

# Meson would take the stand-ins below subprojects/ for a dependency that isn't found, and install
# their headers: nofallback makes that an error. It stands behind the class's own --wrap-mode.
EXTRA_OEMESON = " \
    --wrap-mode=nofallback \
    -Dbench=false \
    -Ddefault_library=shared \
    -Dsystemd_unit_dir=${systemd_system_unitdir} \
    -Dexamples=false \
    -Dtests=false \
    -Dwerror=false \
"

PACKAGECONFIG ??= "docs inventoryd"
PACKAGECONFIG[docs] = "-Ddocs=true,-Ddocs=false"
PACKAGECONFIG[efivar] = "-Defivar=enabled,-Defivar=disabled,efivar"
PACKAGECONFIG[generator] = "-Dgenerator=true,-Dgenerator=false"
PACKAGECONFIG[inventoryd] = "-Dinventoryd=true,-Dinventoryd=false,libmnl"
PACKAGECONFIG[lldpctl] = "-Dlldpctl=enabled,-Dlldpctl=disabled,lldpd"
PACKAGECONFIG[stand-ins] = "-Dstand_ins=true,-Dstand_ins=false"

PACKAGE_BEFORE_PN = "${PN}-inventoryd ${PN}-stand-ins"
FILES:${PN}-inventoryd = " \
    ${datadir}/dbus-1/system-services \
    ${datadir}/dbus-1/system.d \
    ${sbindir}/inventoryd \
    ${systemd_system_unitdir}/inventoryd.service \
"
FILES:${PN}-stand-ins = "${libdir}/libtally*.so.*"
FILES:${PN}-dev += "${datadir}/dbus-1/interfaces"

RDEPENDS:${PN}-inventoryd = "dbus"
SYSTEMD_PACKAGES = "${@bb.utils.contains('PACKAGECONFIG', 'inventoryd', '${PN}-inventoryd', '', d)}"
SYSTEMD_SERVICE:${PN}-inventoryd = "inventoryd.service"
