# Sourced by the scripts: makes sure that Debian packages are there.
packages_lock=${BASH_SOURCE[0]}

# apt-get for one at a time: rings run side by side, and updating the lists does not wait by itself.
apt_get() {
    DEBIAN_FRONTEND=noninteractive flock --close "$packages_lock" apt-get -q -o DPkg::Lock::Timeout=300 "$@" </dev/null
}

# need_packages PACKAGE... installs those that are missing, as root; otherwise says what to install and fails.
need_packages() {
    local package missing=()
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null | grep -q '^installed$' || missing+=("$package")
    done
    install_packages "${missing[@]}"
}

# need_commands COMMAND=PACKAGE... does the same for the packages of commands that cannot be found.
need_commands() {
    local pair missing=()
    for pair in "$@"; do
        command -v "${pair%%=*}" >/dev/null || missing+=("${pair#*=}")
    done
    install_packages "${missing[@]}"
}

install_packages() {
    [ $# -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        echo "missing: run 'apt-get install $*' as root first" >&2
        return 1
    fi
    echo "installing $*" >&2
    local log
    log=$(mktemp)
    if ! { apt_get update && apt_get install -y --no-install-recommends "$@"; } >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}
