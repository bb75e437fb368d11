# Sourced by the scripts: makes sure that Debian packages are there.

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
    if ! { apt-get update && DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "$@"; } \
        >"$log" 2>&1 </dev/null; then
        cat "$log" >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}
