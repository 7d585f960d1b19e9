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

TARVIO_SERVICES = tarviod

# Its parts are built where their libraries are, which other packages may bring along.
ifeq ($(BR2_PACKAGE_TARVIO_FLEET),y)
TARVIO_DEPENDENCIES += mosquitto openssl libcurl
TARVIO_SERVICES += tarvio-agent

define TARVIO_USERS
	tarvio-agent -1 tarvio-agent -1 * - - - Connection to a broker
endef
else
TARVIO_CONF_OPTS += -DCMAKE_DISABLE_FIND_PACKAGE_OpenSSL=ON -DCMAKE_DISABLE_FIND_PACKAGE_CURL=ON
endif

define TARVIO_INSTALL_CONFIGURATION
	$(INSTALL) -D -m 0644 $(@D)/packaging/tarviod.conf $(TARGET_DIR)/etc/tarvio/tarviod.conf
endef
TARVIO_POST_INSTALL_TARGET_HOOKS += TARVIO_INSTALL_CONFIGURATION

# The manager starts before the agent: the names of S95tarviod and S96tarvio-agent are in that order.
TARVIO_START_tarviod = S95
TARVIO_START_tarvio-agent = S96

# 1: mode, 2: source, 3: file below the target directory
define TARVIO_INSTALL_SERVICE
	$(INSTALL) -D -m $(1) $(@D)/packaging/$(2) $(TARGET_DIR)/$(3)
	$(SED) 's|@sbindir@|/usr/sbin|' $(TARGET_DIR)/$(3)

endef

define TARVIO_INSTALL_INIT_SYSV
	$(foreach program,$(TARVIO_SERVICES),$(call TARVIO_INSTALL_SERVICE,0755,init.d/$(program).in,etc/init.d/$(TARVIO_START_$(program))$(program)))
endef

define TARVIO_INSTALL_INIT_OPENRC
	$(foreach program,$(TARVIO_SERVICES),$(call TARVIO_INSTALL_SERVICE,0755,openrc/$(program).in,etc/init.d/$(program)))
endef

define TARVIO_INSTALL_INIT_SYSTEMD
	$(foreach program,$(TARVIO_SERVICES),$(call TARVIO_INSTALL_SERVICE,0644,systemd/$(program).service.in,usr/lib/systemd/system/$(program).service))
endef

$(eval $(cmake-package))
