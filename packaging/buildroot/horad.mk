# Untested: there is no Buildroot where horad is built. What it calls is tested: the daemon alone, built and installed
# with CMake. HORAD_SITE is the folder with the sources.
HORAD_VERSION = 0.1.0
HORAD_SITE ?= $(HORAD_PKGDIR)/src
HORAD_SITE_METHOD = local
HORAD_CONF_OPTS = -DHORAD_DAEMON_ONLY=ON
# Firmware that links its own programs with horad's libraries finds them in the staging folder.
HORAD_INSTALL_STAGING = YES

define HORAD_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(@D)/packaging/init/horad $(TARGET_DIR)/etc/init.d/S95horad
	$(INSTALL) -D -m 0644 $(@D)/packaging/default/horad $(TARGET_DIR)/etc/default/horad
endef

define HORAD_INSTALL_INIT_SYSTEMD
	$(INSTALL) -D -m 0644 $(@D)/packaging/default/horad $(TARGET_DIR)/etc/default/horad
endef

$(eval $(cmake-package))
