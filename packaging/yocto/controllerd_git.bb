# An example: a recipe for a layer of yours beside meta-openembedded (meta-oe). Where your repository is, and which commit
# you take, is yours to say, as is the user of the unit.
SUMMARY = "Controller daemon of a camera control unit"
LICENSE = "CLOSED"

SRC_URI = "git://${CONTROLLERD_REPOSITORY};protocol=ssh;branch=main"
SRCREV = "${AUTOREV}"
S = "${WORKDIR}/git"

inherit cmake pkgconfig systemd features_check

REQUIRED_DISTRO_FEATURES = "systemd polkit"

DEPENDS = "cli11 gpsd libgpiod libinput libpng libsigc++-2.0 nlohmann-json systemd udev"

EXTRA_OECMAKE = "-DCCU_TESTS=OFF \
    -DCCU_SYSTEMD_DIR=${systemd_system_unitdir} \
    -DCCU_UDEV_DIR=${nonarch_base_libdir}/udev \
    -DCCU_SYSUSERS_DIR=${nonarch_libdir}/sysusers.d"

PACKAGES =+ "controllerctl libcontroller-client"

SYSTEMD_SERVICE:${PN} = "controllerd.service"
SYSTEMD_AUTO_ENABLE = "disable"

RDEPENDS:${PN} = "alsa-utils-amixer alsa-utils-aplay dbus polkit"
RRECOMMENDS:${PN} = "controllerctl gpsd"
FILES:${PN} += "${nonarch_libdir}/controllerd ${nonarch_libdir}/sysusers.d ${datadir}/polkit-1"
FILES:${PN}-dev += "${datadir}/dbus-1/interfaces"
FILES:${PN}-doc += "${datadir}/doc"
FILES:libcontroller-client = "${libdir}/libcontroller-client.so.*"
FILES:controllerctl = "${bindir}/controllerctl ${datadir}/bash-completion ${datadir}/zsh"
