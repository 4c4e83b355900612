# shellcheck shell=bash
# Sourced by the scripts beside it: makes sure that Debian packages are there.

# Those that bring a service, by whose name it goes. It is neither started nor enabled: the scripts
# run instances of their own.
service_packages=(prometheus prometheus-alertmanager prometheus-snmp-exporter prometheus-node-exporter
    snmpd snmptrapd postgresql zabbix-server-pgsql)

# Installs the packages of the list that are missing, saying so.
need_packages() {
    local package missing=() services=() root=()
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed && continue
        missing+=("$package")
        [[ " ${service_packages[*]} " != *" $package "* ]] || services+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    echo "Missing packages, installed with apt-get from its sources: ${missing[*]}"
    [ ${#services[@]} -eq 0 ] ||
        echo "Services that stay off, since the scripts run their own, on ports of their own: ${services[*]}"
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || {
            echo "error: run as root once, or install them yourself: apt-get install ${missing[*]}" >&2
            return 1
        }
        root=(sudo)
    fi
    # What needs the network is given up when it takes too long; what then unpacks is not.
    local apt=("${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq
        -o Acquire::Retries=3 -o Acquire::http::Timeout=30 -o Acquire::https::Timeout=30 -o DPkg::Lock::Timeout=300)
    local install=(install -y --no-install-recommends "${missing[@]}")
    if ! quietly "Fetching the list of packages, 5 minutes at most" timeout --foreground 300 "${apt[@]}" update ||
        ! quietly "Fetching packages, 20 minutes at most" timeout --foreground 1200 "${apt[@]}" --download-only "${install[@]}"; then
        echo "error: the packages cannot be had; see that apt-get reaches the sources in /etc/apt, and try again" >&2
        return 1
    fi
    quietly "Installing packages" without_services "${apt[@]}" --no-download "${install[@]}" || return
    [ ${#services[@]} -eq 0 ] || ! command -v systemctl >/dev/null ||
        "${root[@]}" systemctl --quiet disable "${services[@]}" &>/dev/null || true
}

# Runs a command while packages cannot start services.
without_services() (
    policy=/usr/sbin/policy-rc.d
    if [ ! -e $policy ]; then
        trap '"${root[@]}" rm -f $policy' EXIT
        printf '#!/bin/sh\nexit 101\n' | "${root[@]}" install -m 755 /dev/stdin $policy
    fi
    "$@"
)

# Node.js, which drives the browser that looks at the pages, where it did not come with something else.
need_node() {
    command -v node >/dev/null || need_packages nodejs
}

# axe-core, which tells what keeps people from using a page, into build/axe.
need_axe() {
    [ ! -e build/axe/node_modules/axe-core/axe.min.js ] || return 0
    command -v npm >/dev/null || need_packages npm || return
    quietly "Fetching axe-core from npm" npm install --prefix build/axe --no-save --no-package-lock --ignore-scripts \
        --no-audit --no-fund axe-core@4.14.1
}

# What building and running every part takes.
# shellcheck disable=SC2034
build_packages=(g++ cmake make ninja-build pkg-config libgtest-dev libsqlite3-dev sqlite3 libsnmp-dev libseccomp-dev)
# What making Debian packages takes besides.
# shellcheck disable=SC2034
package_packages=(build-essential debhelper doxygen dpkg-dev fakeroot lintian)
# What watching a fleet of agents takes besides, and looking at its page.
# shellcheck disable=SC2034
fleet_packages=(snmp snmptrapd curl prometheus prometheus-snmp-exporter prometheus-node-exporter prometheus-alertmanager)
# shellcheck disable=SC2034
page_packages=(chromium chromium-driver)
# What trying the template for Zabbix takes besides.
# shellcheck disable=SC2034
zabbix_packages=(snmp snmpd procps curl postgresql zabbix-server-pgsql zabbix-frontend-php php-cli php-pgsql)
# What the tests take besides, apart from those of packages and pages.
# shellcheck disable=SC2034
test_packages=(git procps snmp snmpd snmptrapd smitools systemd strace abigail-tools valgrind doxygen
    "${fleet_packages[@]}")
