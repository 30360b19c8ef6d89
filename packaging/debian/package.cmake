# The two Debian packages, for cpack -G DEB.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "MQTTClientManager maintainers <maintainers@users.noreply.c-seed-465dc7e9.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL service platform)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

# Symbols go into packages of their own, *-dbgsym.
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_OBJCOPY_EXECUTABLE ${CMAKE_OBJCOPY})
set(CPACK_READELF_EXECUTABLE ${CMAKE_READELF})
# What a user's umask makes of directories must not show in a package.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib)

set(CPACK_DEBIAN_SERVICE_PACKAGE_NAME mqttclientmanager)
set(CPACK_DEBIAN_SERVICE_PACKAGE_SECTION net)
set(CPACK_DEBIAN_SERVICE_DESCRIPTION
    "MQTT client service of a programmable logic controller
Publishes the controller's tags to MQTT brokers, as raw bytes or JSON, and
writes the messages of its subscriptions to tags. Connections that are lost
come back by themselves. The controller drives the service with requests;
four XML files configure it.

The package brings the service with its systemd unit, and plcctl, which
checks a configuration, shows tags and records, and sends requests by hand.")
# A controller's own package of these libraries provides the second name. Exactly one of them can be installed.
set(CPACK_DEBIAN_SERVICE_PACKAGE_DEPENDS "mqttclientmanager-platform | mqttclientmanager-platform-libraries")
# The device's scripts: python by this name, and the check of a broker's certificate.
set(CPACK_DEBIAN_SERVICE_PACKAGE_RECOMMENDS "ca-certificates, openssl, python-is-python3")
set(CPACK_DEBIAN_SERVICE_PACKAGE_SUGGESTS "mosquitto")
set(CPACK_DEBIAN_SERVICE_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_LIST_DIR}/conffiles ${CMAKE_CURRENT_LIST_DIR}/postinst ${CMAKE_CURRENT_LIST_DIR}/prerm
    ${CMAKE_CURRENT_LIST_DIR}/postrm)

set(CPACK_DEBIAN_PLATFORM_PACKAGE_NAME mqttclientmanager-platform)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PLATFORM_DESCRIPTION
    "stand-ins for the libraries of a programmable logic controller
The MQTT client service reaches the controller's tags through libTagMemory.so
and reports its self-test through libProofRunner.so. This package brings both
in a form that runs on any machine: tags live in shared memory, where plcctl
shows and changes them.

A controller has libraries of its own and needs this package only to satisfy
the dependency of mqttclientmanager.")
set(CPACK_DEBIAN_PLATFORM_PACKAGE_PROVIDES mqttclientmanager-platform-libraries)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_CONFLICTS mqttclientmanager-platform-libraries)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_REPLACES mqttclientmanager-platform-libraries)

include(CPack)
