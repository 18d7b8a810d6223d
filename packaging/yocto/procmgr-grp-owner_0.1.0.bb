# A sample. It has not been built: see README.md beside it.
SUMMARY = "Process manager, group owner and their libraries"
LICENSE = "Apache-2.0"
LIC_FILES_CHKSUM = "file://LICENSE;md5=3b83ef96387f14655fc854ddc3c6bd57"

# The integrator's: where your copy of the source comes from. This one takes an archive that lies beside the recipe.
SRC_URI = "file://${BPN}-${PV}.tar.gz"
S = "${WORKDIR}/${BPN}-${PV}"

DEPENDS = "yaml-cpp spdlog cli11 nlohmann-json"

inherit cmake pkgconfig useradd
inherit ${@bb.utils.contains('DISTRO_FEATURES', 'systemd', 'systemd', 'update-rc.d', d)}

EXTRA_OECMAKE = "\
    -DBUILD_TESTING=OFF \
    -DPROCMGR_BENCH=OFF \
    -DPROCMGR_WERROR=OFF \
    -DPROCMGR_USE_CCACHE=OFF \
    -DPROCMGR_INSTALL_BOOT=ON \
    -DCMAKE_SKIP_INSTALL_RPATH=ON \
    -DPROCMGR_SYSTEMD_DIR=${nonarch_libdir} \
"

do_install:append() {
    # The Debian packages' own files.
    rm -rf ${D}${datadir}/doc
    if ${@bb.utils.contains('DISTRO_FEATURES', 'systemd', 'true', 'false', d)}; then
        rm -rf ${D}${sysconfdir}/init.d
    else
        rm -rf ${D}${nonarch_libdir}/systemd ${D}${nonarch_libdir}/sysusers.d ${D}${nonarch_libdir}/tmpfiles.d
    fi
}

PACKAGES =+ "${PN}-platform ${PN}-app ${PN}-ss ${PN}-daemons ${PN}-tools"
FILES:${PN}-platform = "${libdir}/libprocmgr-platform.so.*"
FILES:${PN}-app = "${libdir}/libprocmgr_app.so.*"
FILES:${PN}-ss = "${libdir}/libprocmgr_ss.so.*"
FILES:${PN}-daemons = "\
    ${bindir}/procmgrd ${bindir}/grpownerd ${bindir}/procmgr-so-host \
    ${datadir}/procmgr ${sysconfdir} \
    ${datadir}/bash-completion/completions/procmgrd ${datadir}/bash-completion/completions/grpownerd \
    ${nonarch_libdir}/systemd ${nonarch_libdir}/sysusers.d ${nonarch_libdir}/tmpfiles.d \
"
FILES:${PN}-tools = "${bindir}/ssctl ${datadir}/bash-completion ${datadir}/zsh"
CONFFILES:${PN}-daemons = "${sysconfdir}/procmgr"

# Group owners leave the platform open; the daemons and the tools are linked with this one.
RRECOMMENDS:${PN} = "${PN}-platform"

USERADD_PACKAGES = "${PN}-daemons"
USERADD_PARAM:${PN}-daemons = "--system --no-create-home --home-dir / --shell /sbin/nologin --user-group procmgr"

SYSTEMD_PACKAGES = "${PN}-daemons"
SYSTEMD_SERVICE:${PN}-daemons = "procmgrd.service"

INITSCRIPT_PACKAGES = "${PN}-daemons"
INITSCRIPT_NAME:${PN}-daemons = "procmgrd"
INITSCRIPT_PARAMS:${PN}-daemons = "defaults 20 80"
