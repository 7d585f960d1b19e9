################################################################################
#
# tarvio
#
################################################################################

# The sources, and with them the version, are those of the tree that this
# directory is part of.
TARVIO_SITE = $(realpath $(BR2_EXTERNAL_TARVIO_PATH)/../..)
TARVIO_SITE_METHOD = local
TARVIO_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude build
TARVIO_VERSION = $(shell sed -n 's/^ *VERSION \([0-9.]*\)$$/\1/p' $(TARVIO_SITE)/CMakeLists.txt)
TARVIO_LICENSE = MIT
TARVIO_LICENSE_FILES = LICENSE
TARVIO_INSTALL_STAGING = YES
TARVIO_DEPENDENCIES = json-for-modern-cpp libsodium
TARVIO_CONF_OPTS = -DCMAKE_SKIP_INSTALL_RPATH=ON

define TARVIO_INSTALL_CONFIGURATION
	$(INSTALL) -D -m 0644 $(@D)/packaging/tarviod.conf $(TARGET_DIR)/etc/tarvio/tarviod.conf
endef
TARVIO_POST_INSTALL_TARGET_HOOKS += TARVIO_INSTALL_CONFIGURATION

define TARVIO_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(@D)/packaging/init.d/tarviod.in $(TARGET_DIR)/etc/init.d/S95tarviod
	$(SED) 's|@sbindir@|/usr/sbin|' $(TARGET_DIR)/etc/init.d/S95tarviod
endef

define TARVIO_INSTALL_INIT_OPENRC
	$(INSTALL) -D -m 0755 $(@D)/packaging/openrc/tarviod.in $(TARGET_DIR)/etc/init.d/tarviod
	$(SED) 's|@sbindir@|/usr/sbin|' $(TARGET_DIR)/etc/init.d/tarviod
endef

define TARVIO_INSTALL_INIT_SYSTEMD
	$(INSTALL) -D -m 0644 $(@D)/packaging/systemd/tarviod.service.in \
		$(TARGET_DIR)/usr/lib/systemd/system/tarviod.service
	$(SED) 's|@sbindir@|/usr/sbin|' $(TARGET_DIR)/usr/lib/systemd/system/tarviod.service
endef

$(eval $(cmake-package))
