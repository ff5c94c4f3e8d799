# Read by ./run, ./check and the scripts beside it: installs what is missing, configures and builds. Not run by itself.

# Packages of packages.txt, by what they are for.
packages() {
    sed -n "s/^$1 //p" packages.txt
}

# Installs its arguments, as root. Tests start the servers that they need themselves: what comes along as a service
# of the machine is not started now (policy-rc.d is where Debian asks whether to) nor with the next boot.
install_without_services='
    set -e
    services() { ls /etc/init.d 2>/dev/null || true; }
    policy=/usr/sbin/policy-rc.d
    if [ ! -e "$policy" ]; then
        trap "rm -f $policy" EXIT
        trap "exit 1" HUP INT TERM
        printf "#!/bin/sh\nexit 101\n" >"$policy"
        chmod +x "$policy"
    fi
    before=" $(services | tr "\n" " ")"
    apt-get update -q
    DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "$@"
    for service in $(services); do
        case "$before" in *" $service "*) ;; *) update-rc.d "$service" disable ;; esac
    done
'

# Installs those of the named packages that are not there yet. Asks nobody when nothing is missing.
install_missing() {
    local missing=() package
    for package in "$@"; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    echo "Installing: ${missing[*]}"
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || { echo "Needs root or sudo to install: ${missing[*]}" >&2; exit 1; }
        as_root=(sudo)
    fi
    local log
    log=$(mktemp)
    if ! "${as_root[@]}" sh -c "$install_without_services" install "${missing[@]}" >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        exit 1
    fi
    rm -f "$log"
}

# Installs what is missing of the packages of these kinds.
install_kinds() {
    local needed=() kind
    for kind in "$@"; do mapfile -t -O "${#needed[@]}" needed < <(packages "$kind"); done
    install_missing "${needed[@]}"
}

# build PRESET TARGET...: configures when needed, builds, and is silent unless it fails.
build() {
    local preset=$1 log
    shift
    log=$(mktemp)
    if ! { { [ -f "build/$preset/build.ninja" ] || cmake --preset "$preset"; } &&
           cmake --build --preset "$preset" --target "$@"; } >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        exit 1
    fi
    rm -f "$log"
}
