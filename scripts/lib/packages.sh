# shellcheck shell=bash
# Sourced by the scripts beside it: makes sure that Debian packages are there.

# Installs the packages of the list that are missing, saying so.
need_packages() {
    local package missing=()
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed ||
            missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    echo "Installing missing packages: ${missing[*]}"
    local root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || {
            echo "error: run as root once, or install them yourself: ${missing[*]}" >&2
            return 1
        }
        root=(sudo)
    fi
    "${root[@]}" apt-get update -qq
    "${root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# npm, where it did not come with something else.
need_npm() {
    command -v npm >/dev/null || need_packages npm
}

# What building and running every part takes.
# shellcheck disable=SC2034
build_packages=(g++ cmake make ninja-build pkg-config libgtest-dev libsqlite3-dev sqlite3 libsnmp-dev libseccomp-dev)
# What making Debian packages takes besides.
# shellcheck disable=SC2034
package_packages=(debhelper doxygen dpkg-dev fakeroot lintian)
# What watching a fleet of agents takes besides, and looking at its page.
# shellcheck disable=SC2034
fleet_packages=(snmp curl prometheus prometheus-snmp-exporter prometheus-alertmanager)
# shellcheck disable=SC2034
page_packages=(chromium chromium-driver)
# What the tests take besides.
# shellcheck disable=SC2034
test_packages=(snmp snmpd snmptrapd smitools systemd strace abigail-tools valgrind
    "${package_packages[@]}" "${fleet_packages[@]}" "${page_packages[@]}")
