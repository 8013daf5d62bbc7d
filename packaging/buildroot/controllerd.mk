################################################################################
#
# controllerd
#
################################################################################

# An example: a package for an external tree of yours, with Config.in beside it. Which commit you take is yours to say.
CONTROLLERD_VERSION = main
CONTROLLERD_SITE = $(call qstrip,$(BR2_EXTERNAL_CONTROLLERD_REPOSITORY))
CONTROLLERD_SITE_METHOD = git
CONTROLLERD_LICENSE = PROPRIETARY
CONTROLLERD_REDISTRIBUTE = NO
CONTROLLERD_INSTALL_STAGING = YES
CONTROLLERD_DEPENDENCIES = cli11 gpsd host-pkgconf json-for-modern-cpp libgpiod libinput libpng libsigc systemd
CONTROLLERD_CONF_OPTS = -DCCU_TESTS=OFF

define CONTROLLERD_USERS
	ccu 1000 ccu 1000 * /home/ccu - audio,gpio,input,video Camera control unit
endef

$(eval $(cmake-package))
